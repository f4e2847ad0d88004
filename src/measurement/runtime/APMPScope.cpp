#include "measurement/runtime/APMPScope.h"

#include <new>

namespace {

// Recycled scope blocks of this thread, at most kMaxFree of them. The list itself is
// trivially destructible, so that scopes freed late in a thread's exit still find it; a
// guard frees the blocks at exit and closes the list.
struct FreeScopes {
  static constexpr std::size_t kMaxFree = 1024;
  void* blocks[kMaxFree];
  std::size_t count;
  bool closed;
};
thread_local FreeScopes freeScopes{};

struct FreeScopesGuard {
  ~FreeScopesGuard() {
    for (std::size_t i = 0; i < freeScopes.count; ++i) ::operator delete(freeScopes.blocks[i]);
    freeScopes.count = 0;
    freeScopes.closed = true;
  }
};
thread_local FreeScopesGuard freeScopesGuard;

APMPStringValue* nameValue(std::string_view name) {
  auto* s = new APMPStringValue(std::string(name));
  s->retain();
  return s;
}

}  // namespace

void* APMPScope::operator new(std::size_t size) {
  if (size == sizeof(APMPScope) && freeScopes.count > 0) return freeScopes.blocks[--freeScopes.count];
  static_cast<void>(&freeScopesGuard);  // arms the guard with the first scope of the thread
  return ::operator new(size);
}

void APMPScope::operator delete(void* p, std::size_t size) {
  if (size == sizeof(APMPScope) && !freeScopes.closed && freeScopes.count < FreeScopes::kMaxFree) {
    freeScopes.blocks[freeScopes.count++] = p;
    return;
  }
  ::operator delete(p);
}

APMPScope::APMPScope(APMPScope* parent) : parent_(parent), data_(inline_) {
  if (parent_) parent_->retain();
  charge(sizeof(APMPScope));
}

APMPScope::~APMPScope() {
  clearBindings();
  if (parent_) parent_->release();
}

void APMPScope::clearBindings() {
  // Also when there were none: the lookups remembered from this scope must not outlive it.
  reshape();
  // Let go of the values after the table is empty: a value's release may reach this scope.
  Binding* data = data_;
  std::uint32_t size = size_;
  data_ = inline_;
  size_ = 0;
  capacity_ = kInline;
  mask_ = 0;
  for (std::uint32_t i = 0; i < size; ++i) {
    data[i].value = APMPRuntimeValue();
    if (data[i].name) data[i].name->release();
    data[i].name = nullptr;
  }
  if (data != inline_) delete[] data;
}

void APMPScope::traverse(void (*visit)(APMPHeapObject*, void*), void* context) {
  if (parent_) visit(parent_, context);
  for (std::uint32_t i = 0; i < size_; ++i) {
    visit(data_[i].name, context);
    if (data_[i].value.isHeap()) visit(data_[i].value.object(), context);
  }
}

void APMPScope::clearReferences() {
  clearBindings();
  APMPScope* parent = parent_;
  parent_ = nullptr;
  if (parent) parent->release();
}

APMPScope* APMPScope::createChildScope() {
  auto* child = new APMPScope(this);
  child->retain();
  return child;
}

APMPScope::Binding* APMPScope::findHere(const APMPStringValue* name, std::uint64_t bit) {
  if (!(mask_ & bit)) return nullptr;
  for (std::uint32_t i = 0; i < size_; ++i) {
    if (data_[i].name == name) return &data_[i];
  }
  const std::string& text = name->value();
  for (std::uint32_t i = 0; i < size_; ++i) {
    if (data_[i].name->equals(text)) return &data_[i];
  }
  return nullptr;
}

APMPScope::Binding* APMPScope::lookup(const APMPStringValue* name, std::uint64_t bit) {
  for (APMPScope* s = this; s; s = s->parent_) {
    if (Binding* b = s->findHere(name, bit)) return b;
  }
  return nullptr;
}

bool APMPScope::holds(const APMPSlot& slot) { return findHere(slot.name, slot.bit) != nullptr; }

APMPScope::Binding* APMPScope::resolve(APMPSlot& slot) {
  std::uint32_t hops = 0;
  for (APMPScope* s = this; s; s = s->parent_, ++hops) {
    if (Binding* b = s->findHere(slot.name, slot.bit)) {
      slot.hops = hops;
      slot.index = static_cast<std::uint32_t>(b - s->data_);
      return b;
    }
  }
  return nullptr;
}

APMPScope::Binding* APMPScope::lookup(const APMPRuntimeValue& name) {
  const APMPStringValue* s = name.asString();
  return lookup(s, s->nameBit());
}

bool APMPScope::bind(APMPStringValue* name, APMPRuntimeValue value, bool immutable) {
  if (immutable_) return false;
  if (Binding* b = findHere(name, name->nameBit())) {
    if (b->immutable) return false;
    b->value = std::move(value);
    b->immutable = immutable;
    return true;
  }
  charge(static_cast<std::ptrdiff_t>(sizeof(Binding) + name->value().size()));
  reshape();
  if (size_ == capacity_) {
    std::uint32_t capacity = capacity_ * 2;
    auto* data = new Binding[capacity];
    for (std::uint32_t i = 0; i < size_; ++i) {
      data[i].name = data_[i].name;
      data[i].value = std::move(data_[i].value);
      data[i].immutable = data_[i].immutable;
      data_[i].name = nullptr;
    }
    if (data_ != inline_) delete[] data_;
    data_ = data;
    capacity_ = capacity;
  }
  name->retain();
  Binding& b = data_[size_++];
  b.name = name;
  b.value = std::move(value);
  b.immutable = immutable;
  mask_ |= name->nameBit();
  return true;
}

bool APMPScope::bind(const APMPRuntimeValue& name, APMPRuntimeValue value, bool immutable) {
  return bind(name.asString(), std::move(value), immutable);
}

namespace {
// A name given as text, as a string value for the table.
struct TextName {
  explicit TextName(std::string_view text) : value(nameValue(text)) {}
  ~TextName() { value->release(); }
  APMPStringValue* value;
};
}  // namespace

bool APMPScope::hasName(std::string_view name) const { return valueForName(name) != nullptr; }

bool APMPScope::addValue(APMPRuntimeValue value, std::string_view name) {
  TextName n(name);
  return bind(n.value, std::move(value), false);
}

bool APMPScope::addImmutableValue(APMPRuntimeValue value, std::string_view name) {
  TextName n(name);
  return bind(n.value, std::move(value), true);
}

bool APMPScope::setValue(APMPRuntimeValue value, std::string_view name) {
  std::uint64_t bit = APMPStringValue::nameBitOf(name);
  for (APMPScope* s = this; s; s = s->parent_) {
    if (!(s->mask_ & bit)) continue;
    for (std::uint32_t i = 0; i < s->size_; ++i) {
      Binding& b = s->data_[i];
      if (b.name->equals(name)) {
        if (b.immutable) return false;
        b.value = std::move(value);
        return true;
      }
    }
  }
  return false;
}

const APMPRuntimeValue* APMPScope::valueForName(std::string_view name) const {
  std::uint64_t bit = APMPStringValue::nameBitOf(name);
  for (const APMPScope* s = this; s; s = s->parent_) {
    if (!(s->mask_ & bit)) continue;
    for (std::uint32_t i = 0; i < s->size_; ++i) {
      if (s->data_[i].name->equals(name)) return &s->data_[i].value;
    }
  }
  return nullptr;
}

void APMPScope::makeImmutable() {
  immutable_ = true;
  for (std::uint32_t i = 0; i < size_; ++i) data_[i].immutable = true;
}

bool APMPScope::recycleSlowly(const APMPRuntimeValue* names, std::size_t count) {
  if (immutable_ || size_ < count || parent_ == nullptr) return false;
  for (std::size_t i = 0; i < count; ++i) {
    if (data_[i].name != names[i].asString()) return false;
  }
  // Let go of the values after the table is consistent: a value's release may reach here.
  std::uint32_t size = size_;
  size_ = static_cast<std::uint32_t>(count);
  // Names only ever join a scope: with none past the parameters the summary stands.
  if (size != count) {
    reshape();
    mask_ = 0;
    for (std::size_t i = 0; i < count; ++i) mask_ |= data_[i].name->nameBit();
  }
  for (std::size_t i = 0; i < count; ++i) data_[i].immutable = false;
  for (std::uint32_t i = static_cast<std::uint32_t>(count); i < size; ++i) {
    charge(-static_cast<std::ptrdiff_t>(sizeof(Binding) + data_[i].name->value().size()));
    APMPStringValue* name = data_[i].name;
    data_[i].name = nullptr;
    data_[i].value = APMPRuntimeValue();
    name->release();
  }
  for (std::size_t i = 0; i < count; ++i) data_[i].value = APMPRuntimeValue();
  return true;
}
