// APMPScope: a chain of name tables. Each scope holds its own names (mutable or immutable)
// and looks further names up in its parent. Scopes are heap objects: a function keeps the
// scope it was defined in alive.
//
// Layout for speed: a name is held as the string value that spelled it in the program (no
// copy), and each scope keeps a 64-bit summary of the names it binds (one bit per name, from
// a hash of its text), so that a lookup skips every scope that cannot hold the name with one
// test. A statement resolves its name to a slot (APMPSlot: scopes up, binding there) and
// checks it on each lookup instead of searching; a lookup from the scope it last started from
// takes the binding it found then, while no scope's bindings have changed shape since. The
// first few bindings live inside the scope; scopes are recycled through a free list, and a
// call's scope that nothing kept is reused by the next call of its function.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "measurement/runtime/APMPRuntimeValue.h"

class APMPScope final : public APMPHeapObject {
 public:
  // A root scope with no parent; or a child of `parent` (which it keeps alive).
  explicit APMPScope(APMPScope* parent = nullptr);
  ~APMPScope() override;
  APMPValueKind kind() const override { return APMPValueKind::kMap; }
  void traverse(void (*visit)(APMPHeapObject*, void*), void* context) override;
  void clearReferences() override;

  // Scopes come from and go back to a free list of this thread.
  static void* operator new(std::size_t size);
  static void operator delete(void* p, std::size_t size);

  // A new scope whose parent is this one. The caller holds the returned reference.
  APMPScope* createChildScope();
  APMPScope* parent() const { return parent_; }

  // Whether `name` is bound here or in a parent.
  bool hasName(std::string_view name) const;
  // Binds `name` in this scope (replacing a mutable binding of this scope). Fails (false)
  // when this scope holds it immutable, or the scope itself is immutable.
  bool addValue(APMPRuntimeValue value, std::string_view name);
  // Binds `name` in this scope, never to change again.
  bool addImmutableValue(APMPRuntimeValue value, std::string_view name);
  // Changes the nearest binding of `name`. Fails when there is none or it is immutable.
  bool setValue(APMPRuntimeValue value, std::string_view name);
  // The nearest value of `name`, or null when it is unbound.
  const APMPRuntimeValue* valueForName(std::string_view name) const;
  // Makes every binding of this scope immutable, and refuses new ones.
  void makeImmutable();

  // One binding: the name (a string value, held), its value, and whether it may change.
  struct Binding {
    APMPStringValue* name = nullptr;
    APMPRuntimeValue value;
    bool immutable = false;
  };

  // The same operations with the name as a program's string value (`name` must be a string
  // value): the form the evaluator uses, which compares names by identity first.
  bool bind(const APMPRuntimeValue& name, APMPRuntimeValue value, bool immutable);
  // The nearest binding of `name`, or null.
  Binding* lookup(const APMPRuntimeValue& name);
  // The same through a slot (whose name and bit are set): takes the binding the slot points
  // at when the chain still leads there, else walks the chain and points the slot at what it
  // finds. Null when the name is unbound.
  [[gnu::always_inline]] Binding* lookup(APMPSlot& slot) {
    if (slot.from == this && slot.shape == shape()) return static_cast<Binding*>(slot.binding);
    Binding* b = walk(slot);
    if (b) {
      slot.from = this;
      slot.shape = shape();
      slot.binding = b;
    }
    return b;
  }
  // A count that changes whenever any scope gains, loses or drops a binding, or goes: while
  // it stands, every lookup from a given scope finds what it found before.
  static std::uint64_t shape() { return shape_.load(std::memory_order_relaxed); }
  const APMPRuntimeValue* valueForName(const APMPRuntimeValue& name) {
    Binding* b = lookup(name);
    return b ? &b->value : nullptr;
  }

  // For a call's scope that only its function holds after the call: whether its first
  // bindings are exactly `names` (parameter names, as string values) and it can be made
  // ready for the next call, which recycle() then does: the bindings past them go, and
  // theirs become undefined and mutable. Slots stay right: they check what they find.
  bool recycle(const APMPRuntimeValue* names, std::size_t count) {
    // The common case, a body that bound nothing beyond the parameters, here.
    if (size_ != count || immutable_ || parent_ == nullptr) return recycleSlowly(names, count);
    for (std::size_t i = 0; i < count; ++i) {
      if (data_[i].name != names[i].asString()) return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
      data_[i].immutable = false;
      data_[i].value = APMPRuntimeValue();
    }
    return true;
  }
  // Sets the value of this scope's binding `i` (a recycled call scope's parameter).
  void setBindingValue(std::size_t i, const APMPRuntimeValue& value) { data_[i].value = value; }

  // This scope's own bindings, in order.
  std::size_t bindingCount() const { return size_; }
  const Binding& bindingAt(std::size_t i) const { return data_[i]; }

 private:
  // lookup(slot) without the remembered lookup.
  [[gnu::always_inline]] Binding* walk(APMPSlot& slot) {
    APMPScope* s = this;
    std::uint32_t hops = slot.hops;
    if (hops != APMPSlot::kUnresolved) {
      for (; hops > 0; --hops) {
        if ((s->mask_ & slot.bit) && s->holds(slot)) return resolve(slot);
        s = s->parent_;
        if (!s) return resolve(slot);
      }
      if (slot.index < s->size_) {
        Binding& b = s->data_[slot.index];
        if (b.name == slot.name || b.name->equals(slot.name->value())) return &b;
      }
    }
    return resolve(slot);
  }
  static constexpr std::uint32_t kInline = 4;
  Binding* findHere(const APMPStringValue* name, std::uint64_t bit);
  Binding* lookup(const APMPStringValue* name, std::uint64_t bit);
  // Whether this scope binds the slot's name; the slow half of lookup(slot).
  bool holds(const APMPSlot& slot);
  bool recycleSlowly(const APMPRuntimeValue* names, std::size_t count);
  Binding* resolve(APMPSlot& slot);
  bool bind(APMPStringValue* name, APMPRuntimeValue value, bool immutable);
  void clearBindings();

  // Moves shape() on; called wherever bindings come, go or move.
  static void reshape() { shape_.fetch_add(1, std::memory_order_relaxed); }
  static inline std::atomic<std::uint64_t> shape_{0};

  APMPScope* parent_;
  std::uint64_t mask_ = 0;
  Binding* data_;
  std::uint32_t size_ = 0;
  std::uint32_t capacity_ = kInline;
  bool immutable_ = false;
  Binding inline_[kInline];
};
