#include "kit/Storyboard.h"

namespace kit {

Storyboard& Storyboard::named(const std::string& name) {
  static std::map<std::string, std::unique_ptr<Storyboard>> boards;
  auto& slot = boards[name];
  if (!slot) slot = std::make_unique<Storyboard>(name);
  return *slot;
}

void Storyboard::registerScene(std::string identifier, Factory factory) {
  scenes_[std::move(identifier)] = std::move(factory);
}

std::vector<std::string> Storyboard::identifiers() const {
  std::vector<std::string> ids;
  for (const auto& [id, f] : scenes_) ids.push_back(id);
  return ids;
}

std::shared_ptr<ViewController> Storyboard::instantiateViewControllerWithIdentifier(
    const std::string& identifier) {
  auto it = scenes_.find(identifier);
  if (it == scenes_.end()) {
    fatal("Storyboard (" + name_ + ") doesn't contain a view controller with identifier '" +
          identifier + "'");
  }
  auto vc = it->second();
  if (!vc) fatal("scene " + identifier + " made no controller");
  vc->setStoryboardOrigin(this, identifier);
  return vc;
}

}  // namespace kit
