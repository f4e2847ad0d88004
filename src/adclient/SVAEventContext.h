// SVAEventContext: where an ad's components post their events and send their reports. A
// context belongs to a tree (an ad's context, its components' children); reports of the whole
// tree are kept at its root, in order, and printed to the console. Any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kit/Value.h"

namespace adclient {

// One report an ad sent: "click", "impression" or "one_point_five_click", with what it said.
struct SVAReport {
  std::string kind;
  std::string component;
  kit::Dictionary parameters;
};

class SVAEventContext : public std::enable_shared_from_this<SVAEventContext> {
 public:
  using Completion = std::function<void(bool reported)>;

  // A root context named `component`.
  static std::shared_ptr<SVAEventContext> rootContext(std::string component);
  // A child of this context for `component`; it keeps its parent alive.
  std::shared_ptr<SVAEventContext> childContextWithComponent(std::string component);

  const std::string& component() const { return component_; }
  std::shared_ptr<SVAEventContext> parent() const { return parent_; }
  // The component names from the root down to this one, joined by "/".
  std::string path() const;

  // Posts `name` on the default notification centre with this context as the object, on the
  // calling thread.
  void postNotification(const std::string& name, kit::Dictionary userInfo = {});

  // Reports of an ad. Each is kept at the root, printed as "Ad report: KIND PATH JSON", and
  // `completion` (optional) runs on the calling thread with true.
  void handleClick(kit::Dictionary parameters, Completion completion);
  void handleImpression(kit::Dictionary parameters, Completion completion);
  void handleOnePointFiveClick(kit::Dictionary parameters);

  // Reports kept at this context's root, oldest first.
  std::vector<SVAReport> reports() const;

  explicit SVAEventContext(std::string component, std::shared_ptr<SVAEventContext> parent);

 private:
  void report(std::string kind, kit::Dictionary parameters);
  SVAEventContext& root();

  std::string component_;
  std::shared_ptr<SVAEventContext> parent_;
  mutable std::mutex mu_;
  std::vector<SVAReport> reports_;  // at the root only
};

}  // namespace adclient
