#include "desktop/threaded/ThreadedEnvironment.h"

#include <future>

#include "kit/Fatal.h"

namespace desktop {
namespace {

using SteadyClock = std::chrono::steady_clock;

// The serial queue whose task the current thread runs, for deadlock checks.
thread_local const kit::Queue* tCurrentQueue = nullptr;

struct CurrentQueue {
  const kit::Queue* previous;
  explicit CurrentQueue(const kit::Queue* q) : previous(tCurrentQueue) { tCurrentQueue = q; }
  ~CurrentQueue() { tCurrentQueue = previous; }
};

SteadyClock::duration toDuration(double seconds) {
  return std::chrono::duration_cast<SteadyClock::duration>(
      std::chrono::duration<double>(seconds > 0 ? seconds : 0));
}

// Runs `task` on `queue` and waits for it.
void runAndWait(kit::Queue& queue, kit::Task task) {
  std::promise<void> done;
  auto future = done.get_future();
  queue.async([&task, &done] {
    try {
      task();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  future.get();
}

}  // namespace

class ThreadedEnvironment::MainQueue : public kit::Queue {
 public:
  explicit MainQueue(ThreadedEnvironment* env) : env_(env) {}
  void async(kit::Task task) override {
    env_->loop_->post([task = std::move(task)] {
      task();
      kit::runLayoutPass();
    });
  }
  void asyncAfter(double seconds, kit::Task task) override {
    env_->loop_->postAfter(seconds, [task = std::move(task)] {
      task();
      kit::runLayoutPass();
    });
  }
  void sync(kit::Task task) override {
    if (env_->loop_->isLoopThread()) kit::fatal("sync onto the main queue from the main thread deadlocks");
    runAndWait(*this, std::move(task));
  }
  const std::string& label() const override { return label_; }

 private:
  ThreadedEnvironment* env_;
  std::string label_ = "com.apple.main-thread";
};

class ThreadedEnvironment::GlobalQueue : public kit::Queue {
 public:
  GlobalQueue(ThreadedEnvironment* env, kit::QoS qos, std::string label)
      : env_(env), qos_(qos), label_(std::move(label)) {}
  void async(kit::Task task) override { env_->submit(qos_, std::move(task)); }
  void asyncAfter(double seconds, kit::Task task) override { env_->submitAfter(seconds, this, std::move(task)); }
  // A concurrent queue runs a synchronous block on the calling thread.
  void sync(kit::Task task) override { task(); }
  const std::string& label() const override { return label_; }

 private:
  ThreadedEnvironment* env_;
  kit::QoS qos_;
  std::string label_;
};

class ThreadedEnvironment::SerialQueue : public kit::Queue,
                                         public std::enable_shared_from_this<SerialQueue> {
 public:
  SerialQueue(ThreadedEnvironment* env, std::string label) : env_(env), label_(std::move(label)) {}

  void async(kit::Task task) override {
    bool schedule;
    {
      std::lock_guard lock(mu_);
      tasks_.push_back(std::move(task));
      schedule = !scheduled_;
      scheduled_ = true;
    }
    if (schedule) env_->submit(kit::QoS::Default, [self = shared_from_this()] { self->drain(); });
  }
  void asyncAfter(double seconds, kit::Task task) override {
    env_->submitAfter(seconds, this, [self = shared_from_this(), task = std::move(task)] { task(); });
  }
  void sync(kit::Task task) override {
    if (tCurrentQueue == this) kit::fatal("sync onto " + label_ + " from itself deadlocks");
    runAndWait(*this, std::move(task));
  }
  const std::string& label() const override { return label_; }

 private:
  // Runs the queued tasks one at a time until none is left.
  void drain() {
    CurrentQueue current(this);
    while (true) {
      kit::Task task;
      {
        std::lock_guard lock(mu_);
        if (tasks_.empty()) {
          scheduled_ = false;
          return;
        }
        task = std::move(tasks_.front());
        tasks_.pop_front();
      }
      task();
    }
  }

  ThreadedEnvironment* env_;
  std::string label_;
  std::mutex mu_;
  std::deque<kit::Task> tasks_;
  bool scheduled_ = false;
};

class ThreadedEnvironment::LoopTimer : public kit::Timer {
 public:
  LoopTimer(MainLoop* loop, double interval, bool repeats, kit::TimerBlock block)
      : loop_(loop), interval_(interval), repeats_(repeats), block_(std::move(block)) {}

  void start() {
    due_ = SteadyClock::now() + toDuration(interval_);
    arm();
  }
  void invalidate() override {
    valid_.store(false);
    std::lock_guard lock(mu_);
    block_ = nullptr;
  }
  bool isValid() const override { return valid_.load(); }
  double timeInterval() const override { return interval_; }
  bool repeats() const override { return repeats_; }

 private:
  // The loop keeps a valid timer alive through the posted firing.
  void arm() {
    double delay = std::chrono::duration<double>(due_ - SteadyClock::now()).count();
    loop_->postAfter(delay, [self = sharedAs<LoopTimer>()] { self->fire(); });
  }
  void fire() {
    if (!valid_.load()) return;
    kit::TimerBlock block;
    {
      std::lock_guard lock(mu_);
      block = block_;
    }
    if (repeats_) {
      due_ += toDuration(std::max(interval_, 1e-4));
      arm();
    } else {
      invalidate();
    }
    if (block) block(*this);
    kit::runLayoutPass();
  }

  MainLoop* loop_;
  double interval_;
  bool repeats_;
  std::mutex mu_;
  kit::TimerBlock block_;
  std::atomic<bool> valid_{true};
  SteadyClock::time_point due_;
};

ThreadedEnvironment::ThreadedEnvironment(std::shared_ptr<MainLoop> loop, int workers)
    : loop_(std::move(loop)), start_(SteadyClock::now()) {
  if (!loop_) {
    auto standalone = std::make_shared<StandaloneLoop>();
    standalone_ = standalone.get();
    loop_ = std::move(standalone);
  }
  main_ = std::make_unique<MainQueue>(this);
  const std::pair<kit::QoS, const char*> kinds[] = {
      {kit::QoS::Background, "global.background"}, {kit::QoS::Utility, "global.utility"},
      {kit::QoS::Default, "global.default"},       {kit::QoS::UserInitiated, "global.user-initiated"},
      {kit::QoS::UserInteractive, "global.user-interactive"}};
  for (auto [qos, label] : kinds) globals_[qos] = std::make_unique<GlobalQueue>(this, qos, label);
  if (workers <= 0) workers = std::max(2, static_cast<int>(std::thread::hardware_concurrency()));
  for (int i = 0; i < workers; ++i) workers_.emplace_back([this] { workerLoop(); });
  scheduler_ = std::thread([this] { schedulerLoop(); });
  install();
}

ThreadedEnvironment::~ThreadedEnvironment() {
  {
    std::scoped_lock lock(poolMu_, schedMu_);
    stopping_ = true;
  }
  poolCv_.notify_all();
  schedCv_.notify_all();
  for (auto& t : workers_) t.join();
  scheduler_.join();
  uninstall();
}

kit::Queue& ThreadedEnvironment::mainQueue() { return *main_; }

kit::Queue& ThreadedEnvironment::globalQueue(kit::QoS qos) { return *globals_.at(qos); }

std::shared_ptr<kit::Queue> ThreadedEnvironment::makeSerialQueue(std::string label) {
  return std::make_shared<SerialQueue>(this, std::move(label));
}

std::shared_ptr<kit::Timer> ThreadedEnvironment::scheduledTimer(double interval, bool repeats,
                                                                kit::TimerBlock block) {
  auto timer = std::make_shared<LoopTimer>(loop_.get(), interval, repeats, std::move(block));
  timer->start();
  return timer;
}

double ThreadedEnvironment::now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

double ThreadedEnvironment::uptime() {
  return std::chrono::duration<double>(SteadyClock::now().time_since_epoch()).count();
}

void ThreadedEnvironment::submit(kit::QoS qos, kit::Task task) {
  {
    std::lock_guard lock(poolMu_);
    if (stopping_) return;
    pool_[qos].push_back(std::move(task));
  }
  poolCv_.notify_one();
}

void ThreadedEnvironment::submitAfter(double seconds, kit::Queue* target, kit::Task task) {
  {
    std::lock_guard lock(schedMu_);
    if (stopping_) return;
    delayed_.emplace(std::make_pair(SteadyClock::now() + toDuration(seconds), seq_++),
                     Pending{target, std::move(task)});
  }
  schedCv_.notify_one();
}

void ThreadedEnvironment::workerLoop() {
  while (true) {
    kit::Task task;
    {
      std::unique_lock lock(poolMu_);
      poolCv_.wait(lock, [this] {
        if (stopping_) return true;
        for (auto& [qos, tasks] : pool_) {
          if (!tasks.empty()) return true;
        }
        return false;
      });
      if (stopping_) return;
      // Highest quality of service first: the map orders classes from background upwards.
      for (auto it = pool_.rbegin(); it != pool_.rend(); ++it) {
        if (!it->second.empty()) {
          task = std::move(it->second.front());
          it->second.pop_front();
          ++running_;
          break;
        }
      }
    }
    if (!task) continue;
    struct Done {
      ThreadedEnvironment* env;
      ~Done() {
        std::lock_guard lock(env->poolMu_);
        --env->running_;
      }
    } done{this};
    task();
  }
}

bool ThreadedEnvironment::isBackgroundIdle() {
  std::scoped_lock lock(poolMu_, schedMu_);
  if (running_ > 0 || dispatching_ > 0 || !delayed_.empty()) return false;
  for (const auto& [qos, tasks] : pool_) {
    if (!tasks.empty()) return false;
  }
  return true;
}

void ThreadedEnvironment::schedulerLoop() {
  std::unique_lock lock(schedMu_);
  while (true) {
    if (stopping_) return;
    auto now = SteadyClock::now();
    if (!delayed_.empty() && delayed_.begin()->first.first <= now) {
      auto node = delayed_.extract(delayed_.begin());
      ++dispatching_;
      lock.unlock();
      node.mapped().target->async(std::move(node.mapped().task));
      lock.lock();
      --dispatching_;
      continue;
    }
    if (delayed_.empty()) {
      schedCv_.wait(lock);
    } else {
      schedCv_.wait_until(lock, delayed_.begin()->first.first);
    }
  }
}

}  // namespace desktop
