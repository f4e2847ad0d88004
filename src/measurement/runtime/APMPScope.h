// APMPScope: a chain of name tables. Each scope holds its own names (mutable or immutable)
// and looks further names up in its parent. Scopes are heap objects: a function keeps the
// scope it was defined in alive.
#pragma once

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

  // This scope's own bindings, in order.
  struct Binding {
    std::string name;
    APMPRuntimeValue value;
    bool immutable = false;
  };
  const std::vector<Binding>& bindings() const { return bindings_; }

 private:
  Binding* find(std::string_view name);
  const Binding* find(std::string_view name) const;

  APMPScope* parent_;
  std::vector<Binding> bindings_;
  bool immutable_ = false;
};
