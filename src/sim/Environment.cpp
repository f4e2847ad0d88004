#include "sim/Environment.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "kit/Fatal.h"
#include "kit/Singleton.h"

namespace sim {

class Environment::SimQueue : public kit::Queue {
 public:
  enum Kind { Main, Global, Serial };
  SimQueue(Environment* env, Kind kind, std::string label)
      : env_(env), kind_(kind), label_(std::move(label)) {}
  void async(kit::Task task) override { env_->post(this, std::move(task)); }
  void asyncAfter(double seconds, kit::Task task) override {
    env_->postAfter(this, seconds, std::move(task));
  }
  void sync(kit::Task task) override { env_->sync(this, std::move(task)); }
  const std::string& label() const override { return label_; }
  Kind kind() const { return kind_; }

 private:
  friend class Environment;
  Environment* env_;
  Kind kind_;
  std::string label_;
  int running_ = 0;  // tasks of this queue on the (one) thread's stack
};

class Environment::SimTimer : public kit::Timer {
 public:
  SimTimer(double interval, bool repeats, kit::TimerBlock block)
      : interval_(interval), repeats_(repeats), block_(std::move(block)) {}
  void invalidate() override { valid_ = false; block_ = nullptr; }
  bool isValid() const override { return valid_; }
  double timeInterval() const override { return interval_; }
  bool repeats() const override { return repeats_; }

 private:
  friend class Environment;
  double interval_;
  bool repeats_;
  kit::TimerBlock block_;
  bool valid_ = true;
};

namespace {
struct Flag {
  bool& f;
  bool old;
  explicit Flag(bool& flag, bool value) : f(flag), old(flag) { f = value; }
  ~Flag() { f = old; }
};
}  // namespace

Environment::Environment(double start) : now_(start), bootTime_(start - 1000.0) {
  main_q_ = std::make_unique<SimQueue>(this, SimQueue::Main, "com.apple.main-thread");
  const std::pair<kit::QoS, const char*> kinds[] = {
      {kit::QoS::Background, "global.background"}, {kit::QoS::Utility, "global.utility"},
      {kit::QoS::Default, "global.default"},       {kit::QoS::UserInitiated, "global.user-initiated"},
      {kit::QoS::UserInteractive, "global.user-interactive"}};
  for (auto [qos, label] : kinds) globals_[qos] = std::make_unique<SimQueue>(this, SimQueue::Global, label);
  install();
  kit::resetSingletonsForTesting();
  kit::TimeZone::setDefaultTimeZone(kit::TimeZone::utc());
}

Environment::~Environment() {
  // Drop pending work before the shared instances it may refer to.
  main_.clear();
  background_.clear();
  delayed_.clear();
  kit::resetSingletonsForTesting();
  kit::TimeZone::setDefaultTimeZone(nullptr);
  uninstall();
}

kit::Queue& Environment::mainQueue() { return *main_q_; }

kit::Queue& Environment::globalQueue(kit::QoS qos) { return *globals_.at(qos); }

std::shared_ptr<kit::Queue> Environment::makeSerialQueue(std::string label) {
  // The environment keeps every serial queue, so that held work never outlives its queue.
  auto queue = std::make_shared<SimQueue>(this, SimQueue::Serial, std::move(label));
  serials_.push_back(queue);
  return queue;
}

std::shared_ptr<kit::Timer> Environment::scheduledTimer(double interval, bool repeats,
                                                        kit::TimerBlock block) {
  auto timer = std::make_shared<SimTimer>(interval, repeats, std::move(block));
  scheduleTimer(timer, now_ + std::max(0.0, interval));
  return timer;
}

void Environment::scheduleTimer(const std::shared_ptr<SimTimer>& timer, double due) {
  delayed_.emplace(std::make_pair(due, seq_++), Delayed{nullptr, {}, timer});
}

void Environment::post(SimQueue* queue, kit::Task task) {
  if (queue->kind() == SimQueue::Main) {
    main_.push_back(std::move(task));
    if (eagerMain_ && inBackground_ && !drainingEagerly_) {
      Flag draining(drainingEagerly_, true);
      Flag onMain(inBackground_, false);
      runMain();
    }
  } else {
    background_.push_back({queue, std::move(task)});
  }
}

void Environment::postAfter(SimQueue* queue, double seconds, kit::Task task) {
  delayed_.emplace(std::make_pair(now_ + std::max(0.0, seconds), seq_++),
                   Delayed{queue, std::move(task), nullptr});
}

void Environment::sync(SimQueue* queue, kit::Task task) {
  switch (queue->kind()) {
    case SimQueue::Main: {
      if (!inBackground_) kit::fatal("sync onto the main queue from the main thread deadlocks");
      // The main thread runs what was queued before, then the block.
      Flag bg(inBackground_, false);
      runMain();
      runMainTask(task);
      return;
    }
    case SimQueue::Global:
      task();
      return;
    case SimQueue::Serial: {
      if (runningQueue_ == queue) kit::fatal("sync onto " + queue->label() + " from itself deadlocks");
      // Earlier tasks of that queue run first, in order.
      for (auto it = background_.begin(); it != background_.end();) {
        if (it->queue == queue) {
          Held held = std::move(*it);
          it = background_.erase(it);
          runBackgroundTask(held);
          it = std::find_if(background_.begin(), background_.end(),
                            [queue](const Held& h) { return h.queue == queue; });
        } else {
          ++it;
        }
      }
      Held held{queue, std::move(task)};
      runBackgroundTask(held);
      return;
    }
  }
}

void Environment::runMainTask(kit::Task& task) {
  task();
  kit::runLayoutPass();
}

void Environment::runBackgroundTask(Held& held) {
  Flag bg(inBackground_, true);
  SimQueue* previous = runningQueue_;
  runningQueue_ = held.queue;
  ++held.queue->running_;
  struct Restore {
    SimQueue*& slot;
    SimQueue* value;
    SimQueue* mine;
    ~Restore() {
      --mine->running_;
      slot = value;
    }
  } restore{runningQueue_, previous, held.queue};
  held.task();
}

std::optional<bool> Environment::runOtherWorkUntil(const std::function<bool()>& done, double) {
  while (!done()) {
    if (inBackground_ && !main_.empty()) {
      kit::Task task = std::move(main_.front());
      main_.pop_front();
      Flag bg(inBackground_, false);
      runMainTask(task);
      continue;
    }
    auto it = std::find_if(background_.begin(), background_.end(), [](const Held& h) {
      return h.queue->kind() != SimQueue::Serial || h.queue->running_ == 0;
    });
    if (it == background_.end()) break;
    Held held = std::move(*it);
    background_.erase(it);
    runBackgroundTask(held);
  }
  return done();
}

bool Environment::runMainOnce() {
  if (main_.empty()) return false;
  kit::Task task = std::move(main_.front());
  main_.pop_front();
  Flag bg(inBackground_, false);
  runMainTask(task);
  return true;
}

int Environment::runMain() {
  int n = 0;
  while (runMainOnce()) ++n;
  return n;
}

bool Environment::runBackgroundOnce() {
  if (background_.empty()) return false;
  Held held = std::move(background_.front());
  background_.pop_front();
  runBackgroundTask(held);
  return true;
}

int Environment::runBackground() {
  int n = 0;
  while (runBackgroundOnce()) ++n;
  return n;
}

int Environment::runUntilIdle() {
  int n = 0;
  while (true) {
    n += runMain();
    if (!runBackgroundOnce()) break;
    ++n;
  }
  return n;
}

void Environment::advance(double seconds) {
  const double target = now_ + std::max(0.0, seconds);
  runUntilIdle();
  while (!delayed_.empty() && delayed_.begin()->first.first <= target) {
    auto node = delayed_.extract(delayed_.begin());
    now_ = std::max(now_, node.key().first);
    Delayed& d = node.mapped();
    if (d.timer) {
      auto timer = d.timer;
      if (timer->valid_) {
        main_.push_back([this, timer, due = node.key().first] {
          if (!timer->valid_) return;
          if (timer->repeats_) scheduleTimer(timer, due + std::max(timer->interval_, 1e-4));
          auto block = timer->block_;
          if (!timer->repeats_) timer->invalidate();
          if (block) block(*timer);
        });
      }
    } else if (d.queue && d.queue->kind() == SimQueue::Main) {
      main_.push_back(std::move(d.task));
    } else if (d.queue) {
      background_.push_back({d.queue, std::move(d.task)});
    }
    runUntilIdle();
  }
  now_ = target;
}

std::size_t Environment::pendingCount() const {
  std::size_t n = main_.size() + background_.size();
  for (const auto& [key, d] : delayed_) n += (!d.timer || d.timer->valid_);
  return n;
}

std::string Environment::describe() const {
  std::ostringstream out;
  char buf[96];
  std::snprintf(buf, sizeof buf, "now %.3f (uptime %.3f)\n", now_, now_ - bootTime_);
  out << buf << "main: " << main_.size() << " task(s)\n";
  out << "background: " << background_.size() << " task(s)";
  std::map<std::string, int> byQueue;
  for (const Held& h : background_) byQueue[h.queue->label()]++;
  for (const auto& [label, count] : byQueue) out << " [" << label << " x" << count << "]";
  out << "\ndelayed:";
  if (delayed_.empty()) out << " none";
  for (const auto& [key, d] : delayed_) {
    if (d.timer && !d.timer->valid_) continue;
    std::snprintf(buf, sizeof buf, " in %.3fs", key.first - now_);
    if (d.timer) {
      out << " timer(" << d.timer->interval_ << "s" << (d.timer->repeats_ ? ", repeating" : "") << ")" << buf << ";";
    } else {
      out << " " << d.queue->label() << buf << ";";
    }
  }
  out << "\n";
  return out.str();
}

void Environment::setTimeZone(std::shared_ptr<const kit::TimeZone> zone) {
  kit::TimeZone::setDefaultTimeZone(std::move(zone));
}

}  // namespace sim
