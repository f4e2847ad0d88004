#include "measurement/runtime/APMPScope.h"

APMPScope::APMPScope(APMPScope* parent) : parent_(parent) {
  if (parent_) parent_->retain();
  charge(sizeof(APMPScope));
}

APMPScope::~APMPScope() {
  bindings_.clear();
  if (parent_) parent_->release();
}

void APMPScope::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  if (parent_) visit(parent_, context);
  for (auto& b : bindings_) {
    if (b.value.isHeap()) visit(b.value.object(), context);
  }
}

void APMPScope::clearReferences() {
  auto bindings = std::move(bindings_);
  bindings_.clear();
  APMPScope* parent = parent_;
  parent_ = nullptr;
  bindings.clear();
  if (parent) parent->release();
}

APMPScope* APMPScope::createChildScope() {
  auto* child = new APMPScope(this);
  child->retain();
  return child;
}

APMPScope::Binding* APMPScope::find(std::string_view name) {
  for (auto& b : bindings_) {
    if (b.name == name) return &b;
  }
  return nullptr;
}

const APMPScope::Binding* APMPScope::find(std::string_view name) const {
  for (const auto& b : bindings_) {
    if (b.name == name) return &b;
  }
  return nullptr;
}

bool APMPScope::hasName(std::string_view name) const { return valueForName(name) != nullptr; }

bool APMPScope::addValue(APMPRuntimeValue value, std::string_view name) {
  if (immutable_) return false;
  if (Binding* b = find(name)) {
    if (b->immutable) return false;
    b->value = std::move(value);
    return true;
  }
  charge(static_cast<std::ptrdiff_t>(sizeof(Binding) + name.size()));
  bindings_.push_back({std::string(name), std::move(value), false});
  return true;
}

bool APMPScope::addImmutableValue(APMPRuntimeValue value, std::string_view name) {
  if (immutable_) return false;
  if (Binding* b = find(name)) {
    if (b->immutable) return false;
    b->value = std::move(value);
    b->immutable = true;
    return true;
  }
  charge(static_cast<std::ptrdiff_t>(sizeof(Binding) + name.size()));
  bindings_.push_back({std::string(name), std::move(value), true});
  return true;
}

bool APMPScope::setValue(APMPRuntimeValue value, std::string_view name) {
  for (APMPScope* s = this; s; s = s->parent_) {
    if (Binding* b = s->find(name)) {
      if (b->immutable) return false;
      b->value = std::move(value);
      return true;
    }
  }
  return false;
}

const APMPRuntimeValue* APMPScope::valueForName(std::string_view name) const {
  for (const APMPScope* s = this; s; s = s->parent_) {
    if (const Binding* b = s->find(name)) return &b->value;
  }
  return nullptr;
}

void APMPScope::makeImmutable() {
  immutable_ = true;
  for (auto& b : bindings_) b.immutable = true;
}
