#include "measurement/experiments/APMEQueue.h"

#include <exception>

#include "measurement/APMMonitor.h"

namespace {

constexpr int kCodeException = 8001;

thread_local const void* tCurrentQueue = nullptr;

}  // namespace

APMEQueue::APMEQueue(std::string label, std::string asyncFailure, std::string syncFailure)
    : queue_(kit::makeSerialQueue(std::move(label))),
      texts_(std::make_shared<Texts>(Texts{std::move(asyncFailure), std::move(syncFailure)})) {}

void APMEQueue::run(const Texts* queue, const std::function<void()>& block,
                    const std::string& failure) {
  const void* outer = tCurrentQueue;
  tCurrentQueue = queue;
  try {
    block();
  } catch (const std::exception& e) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeException, failure, e.what());
  } catch (...) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeException, failure, "unknown");
  }
  tCurrentQueue = outer;
}

void APMEQueue::async(std::function<void()> block) {
  queue_->async([texts = texts_, block = std::move(block)] {
    run(texts.get(), block, texts->asyncFailure);
  });
}

void APMEQueue::sync(const std::function<void()>& block) {
  if (isCurrent()) {
    run(texts_.get(), block, texts_->syncFailure);
    return;
  }
  queue_->sync([&] { run(texts_.get(), block, texts_->syncFailure); });
}

void APMEQueue::asyncAfter(double seconds, std::function<void()> block) {
  queue_->asyncAfter(seconds, [texts = texts_, block = std::move(block)] {
    run(texts.get(), block, texts->asyncFailure);
  });
}

bool APMEQueue::isCurrent() const { return tCurrentQueue == texts_.get(); }
