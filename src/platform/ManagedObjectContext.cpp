#include <algorithm>

#include "platform/PersistentContainer.h"

namespace platform {

namespace {

kit::Value emptyValue(EntityDescription::AttributeType type) {
  switch (type) {
    case EntityDescription::AttributeType::Boolean:
      return kit::Value(false);
    case EntityDescription::AttributeType::Integer:
      return kit::Value(0);
    case EntityDescription::AttributeType::String:
      break;
  }
  return kit::Value();
}

template <class T>
void removeFirst(std::vector<std::shared_ptr<T>>& list, const T* item) {
  auto it = std::find_if(list.begin(), list.end(), [item](const auto& p) { return p.get() == item; });
  if (it != list.end()) list.erase(it);
}

template <class T>
bool contains(const std::vector<std::shared_ptr<T>>& list, const T* item) {
  return std::any_of(list.begin(), list.end(), [item](const auto& p) { return p.get() == item; });
}

}  // namespace

// ---- ManagedObject ----

kit::Value ManagedObject::valueForKey(const std::string& key) const {
  std::lock_guard lock(mu_);
  auto it = values_.find(key);
  return it == values_.end() ? kit::Value() : it->second;
}

void ManagedObject::setValueForKey(kit::Value value, const std::string& key) {
  std::shared_ptr<ManagedObjectContext> context;
  {
    std::lock_guard lock(mu_);
    values_[key] = std::move(value);
    context = context_.lock();
  }
  if (context) context->noteChanged(this);
}

bool ManagedObject::isDeleted() const {
  std::lock_guard lock(mu_);
  return deleted_;
}

// ---- ManagedObjectContext ----

ManagedObjectContext::ManagedObjectContext(std::shared_ptr<ObjectStore> store) : store_(std::move(store)) {}

std::shared_ptr<ManagedObject> ManagedObjectContext::insertNewObjectForEntity(const EntityDescription& entity) {
  auto object = entity.make ? entity.make() : std::make_shared<ManagedObject>();
  object->entity_ = &entity;
  for (const auto& a : entity.attributes) object->values_[a.name] = emptyValue(a.type);
  object->context_ = weak_from_this();
  std::lock_guard lock(mu_);
  inserted_.push_back(object);
  return object;
}

std::optional<std::vector<std::shared_ptr<ManagedObject>>> ManagedObjectContext::executeFetchRequest(
    const EntityDescription& entity, Error* error) {
  auto rows = store_->fetch(entity, error);
  if (!rows) return std::nullopt;
  std::lock_guard lock(mu_);
  std::vector<std::shared_ptr<ManagedObject>> out;
  for (auto& row : *rows) {
    auto& slot = registered_[{entity.name, row.pk}];
    if (!slot) {
      slot = entity.make ? entity.make() : std::make_shared<ManagedObject>();
      slot->entity_ = &entity;
      slot->pk_ = row.pk;
      slot->values_ = std::move(row.values);
      slot->context_ = weak_from_this();
    }
    if (contains(deleted_, slot.get())) continue;
    out.push_back(slot);
  }
  for (const auto& object : inserted_) {
    if (object->entity_->name == entity.name) out.push_back(object);
  }
  return out;
}

void ManagedObjectContext::deleteObject(const std::shared_ptr<ManagedObject>& object) {
  if (!object) return;
  std::lock_guard lock(mu_);
  if (object->context_.lock().get() != this) return;
  {
    std::lock_guard objectLock(object->mu_);
    object->deleted_ = true;
  }
  if (contains(inserted_, object.get())) {
    removeFirst(inserted_, object.get());
    return;
  }
  removeFirst(updated_, object.get());
  if (!contains(deleted_, object.get())) deleted_.push_back(object);
}

void ManagedObjectContext::noteChanged(ManagedObject* object) {
  std::lock_guard lock(mu_);
  if (contains(inserted_, object) || contains(deleted_, object) || contains(updated_, object)) return;
  auto it = registered_.find({object->entity_->name, object->pk_});
  if (it != registered_.end() && it->second.get() == object) updated_.push_back(it->second);
}

bool ManagedObjectContext::hasChanges() const {
  std::lock_guard lock(mu_);
  return !inserted_.empty() || !updated_.empty() || !deleted_.empty();
}

bool ManagedObjectContext::save(Error* error) {
  std::lock_guard lock(mu_);
  if (inserted_.empty() && updated_.empty() && deleted_.empty()) return true;
  std::vector<StoreChange> changes;
  auto snapshot = [](const ManagedObject& o) {
    std::lock_guard objectLock(o.mu_);
    return StoredObject{o.pk_, o.values_};
  };
  for (const auto& o : deleted_) changes.push_back({StoreChange::Kind::Delete, o->entity_, snapshot(*o)});
  for (const auto& o : updated_) changes.push_back({StoreChange::Kind::Update, o->entity_, snapshot(*o)});
  for (const auto& o : inserted_) changes.push_back({StoreChange::Kind::Insert, o->entity_, snapshot(*o)});
  if (!store_->commit(changes, error)) return false;
  for (const auto& o : deleted_) registered_.erase({o->entity_->name, o->pk_});
  std::size_t first = deleted_.size() + updated_.size();
  for (std::size_t i = 0; i < inserted_.size(); ++i) {
    auto& o = inserted_[i];
    {
      std::lock_guard objectLock(o->mu_);
      o->pk_ = changes[first + i].object.pk;
    }
    registered_[{o->entity_->name, o->pk_}] = o;
  }
  inserted_.clear();
  updated_.clear();
  deleted_.clear();
  return true;
}

}  // namespace platform
