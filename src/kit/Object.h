// Object: the base of the UI model's reference types (views, controllers, recognizers,
// timers). Objects are always owned by shared_ptr, so that a block can hold one weakly.
#pragma once

#include <memory>

namespace kit {

class Object : public std::enable_shared_from_this<Object> {
 public:
  virtual ~Object() = default;

  // This object as a shared_ptr of type T, or null when it is not a T.
  template <class T>
  std::shared_ptr<T> sharedAs() {
    return std::dynamic_pointer_cast<T>(shared_from_this());
  }
  template <class T>
  std::weak_ptr<T> weakAs() {
    return sharedAs<T>();
  }
};

}  // namespace kit
