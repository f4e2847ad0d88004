// APMEQueue: one serial queue of the experiment client. Blocks run in order; an exception
// from a block is caught and logged with the queue's own texts ("Exception on async worker
// queue", ...) and the queue goes on. A synchronous call made on the queue itself runs the
// block at once instead of deadlocking.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "kit/Dispatch.h"

class APMEQueue {
 public:
  // `asyncFailure` and `syncFailure` are the log texts of a block that threw.
  APMEQueue(std::string label, std::string asyncFailure, std::string syncFailure);

  // Runs `block` later, in order. Any thread.
  void async(std::function<void()> block);
  // Runs `block` after everything queued before it and waits for it. Any thread.
  void sync(const std::function<void()>& block);
  // Runs `block` on the queue once `seconds` have passed on the environment's clock.
  void asyncAfter(double seconds, std::function<void()> block);
  // True while a block of this queue runs on the calling thread.
  bool isCurrent() const;
  kit::Queue& queue() { return *queue_; }

 private:
  // Shared with the queued blocks, which may outlive this object.
  struct Texts {
    std::string asyncFailure;
    std::string syncFailure;
  };
  static void run(const Texts* queue, const std::function<void()>& block,
                  const std::string& failure);

  std::shared_ptr<kit::Queue> queue_;
  std::shared_ptr<const Texts> texts_;
};
