// Storyboard: screens by identifier. A scene is a factory registered under its identifier;
// instantiating an unknown identifier, or casting a screen to a type it does not have, is a
// fatal error, as with the platform's storyboards.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "kit/Fatal.h"
#include "kit/ViewController.h"

namespace kit {

class Storyboard {
 public:
  using Factory = std::function<std::shared_ptr<ViewController>()>;

  // The storyboard of that name, made empty on first use. Main thread only.
  static Storyboard& named(const std::string& name);

  // Registers (or replaces) the scene `identifier`.
  void registerScene(std::string identifier, Factory factory);
  bool hasScene(const std::string& identifier) const { return scenes_.count(identifier) > 0; }
  std::vector<std::string> identifiers() const;
  const std::string& name() const { return name_; }

  // A new controller of the scene `identifier`. Fatal error for an unknown identifier.
  std::shared_ptr<ViewController> instantiateViewControllerWithIdentifier(const std::string& identifier);

  // The same, cast to T; a failed cast is a fatal error.
  template <class T>
  std::shared_ptr<T> instantiate(const std::string& identifier) {
    auto vc = instantiateViewControllerWithIdentifier(identifier);
    auto typed = std::dynamic_pointer_cast<T>(vc);
    if (!typed) {
      fatal("Could not cast value of type " + std::string(typeid(*vc).name()) + " (" + identifier +
            ") to " + typeid(T).name());
    }
    return typed;
  }

  explicit Storyboard(std::string name) : name_(std::move(name)) {}

 private:
  std::string name_;
  std::map<std::string, Factory> scenes_;
};

}  // namespace kit
