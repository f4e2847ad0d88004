// Observable: property-change notification for the UI model. Every setter that changes a
// value notifies the observers with the property's name, so that a renderer (the GUI) or a
// test can follow the model. Main thread only.
#pragma once

#include <functional>
#include <string_view>
#include <utility>
#include <vector>

namespace kit {

class Observable {
 public:
  using Observer = std::function<void(std::string_view property)>;

  Observable() = default;
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;
  virtual ~Observable() = default;

  // Registers `observer`; returns a token for removeObserver.
  int addObserver(Observer observer);
  void removeObserver(int token);

 protected:
  // Calls every observer registered at the time of the call; observers may add or remove
  // observers while being called.
  void notify(std::string_view property);

  // Assigns `value` to `field` and notifies `property` when it changed.
  template <class T, class U>
  bool assign(T& field, U&& value, std::string_view property) {
    if (field == value) return false;
    field = std::forward<U>(value);
    notify(property);
    return true;
  }

 private:
  std::vector<std::pair<int, Observer>> observers_;
  int nextToken_ = 1;
};

}  // namespace kit
