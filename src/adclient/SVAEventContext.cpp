#include "adclient/SVAEventContext.h"

#include "adclient/SVAJSON.h"
#include "kit/Console.h"
#include "kit/NotificationCenter.h"

namespace adclient {

SVAEventContext::SVAEventContext(std::string component, std::shared_ptr<SVAEventContext> parent)
    : component_(std::move(component)), parent_(std::move(parent)) {}

std::shared_ptr<SVAEventContext> SVAEventContext::rootContext(std::string component) {
  return std::make_shared<SVAEventContext>(std::move(component), nullptr);
}

std::shared_ptr<SVAEventContext> SVAEventContext::childContextWithComponent(std::string component) {
  return std::make_shared<SVAEventContext>(std::move(component), shared_from_this());
}

std::string SVAEventContext::path() const {
  return parent_ ? parent_->path() + "/" + component_ : component_;
}

SVAEventContext& SVAEventContext::root() { return parent_ ? parent_->root() : *this; }

void SVAEventContext::postNotification(const std::string& name, kit::Dictionary userInfo) {
  kit::NotificationCenter::defaultCenter().postNotificationName(name, this, std::move(userInfo));
}

void SVAEventContext::report(std::string kind, kit::Dictionary parameters) {
  kit::NSLog("Ad report: " + kind + " " + path() + " " + SVAJSONString(parameters));
  SVAEventContext& r = root();
  std::lock_guard lock(r.mu_);
  r.reports_.push_back({std::move(kind), component_, std::move(parameters)});
}

void SVAEventContext::handleClick(kit::Dictionary parameters, Completion completion) {
  report("click", std::move(parameters));
  if (completion) completion(true);
}

void SVAEventContext::handleImpression(kit::Dictionary parameters, Completion completion) {
  report("impression", std::move(parameters));
  if (completion) completion(true);
}

void SVAEventContext::handleOnePointFiveClick(kit::Dictionary parameters) {
  report("one_point_five_click", std::move(parameters));
}

std::vector<SVAReport> SVAEventContext::reports() const {
  const SVAEventContext* r = this;
  while (r->parent_) r = r->parent_.get();
  std::lock_guard lock(r->mu_);
  return r->reports_;
}

}  // namespace adclient
