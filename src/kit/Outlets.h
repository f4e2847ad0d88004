// Outlets: views and constraints of a screen or a cell, registered by name when the screen's
// layout is built, and looked up by name by the code and by the renderer. A missing outlet or
// one of the wrong type is a fatal error, as a missing storyboard view is.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "kit/Fatal.h"
#include "kit/Object.h"

namespace kit {

class OutletContainer {
 public:
  virtual ~OutletContainer() = default;

  // Registers `object` under `name`, replacing an earlier one of the same name.
  void registerOutlet(std::string name, std::shared_ptr<Object> object) {
    outlets_[std::move(name)] = std::move(object);
  }
  // The outlet `name` as a T. Fatal error when it is missing or of another type.
  template <class T>
  T& outlet(std::string_view name) {
    return *sharedOutlet<T>(name);
  }
  template <class T>
  std::shared_ptr<T> sharedOutlet(std::string_view name) {
    prepareOutlets();
    auto it = outlets_.find(name);
    if (it == outlets_.end() || !it->second) {
      fatal("missing outlet " + std::string(name) + " of " + outletOwnerName());
    }
    auto typed = std::dynamic_pointer_cast<T>(it->second);
    if (!typed) fatal("outlet " + std::string(name) + " of " + outletOwnerName() + " has another type");
    return typed;
  }
  // The outlet `name`, or null. Never fatal.
  std::shared_ptr<Object> findOutlet(std::string_view name) const {
    auto it = outlets_.find(name);
    return it == outlets_.end() ? nullptr : it->second;
  }
  const std::map<std::string, std::shared_ptr<Object>, std::less<>>& outlets() const {
    return outlets_;
  }

 protected:
  // Name used in fatal messages.
  virtual std::string outletOwnerName() const = 0;
  // Called before a lookup; a view controller loads its view here.
  virtual void prepareOutlets() {}

 private:
  std::map<std::string, std::shared_ptr<Object>, std::less<>> outlets_;
};

// A field that names an outlet of its owner: `Outlet<Label> totalPhotoCount{this,
// "totalPhotoCount"};` then `totalPhotoCount->setText(...)`.
template <class T>
class Outlet {
 public:
  Outlet(OutletContainer* owner, const char* name) : owner_(owner), name_(name) {}
  T& operator*() const { return owner_->outlet<T>(name_); }
  T* operator->() const { return &owner_->outlet<T>(name_); }
  std::shared_ptr<T> shared() const { return owner_->sharedOutlet<T>(name_); }
  const char* name() const { return name_; }

 private:
  OutletContainer* owner_;
  const char* name_;
};

}  // namespace kit
