#include "kit/Toast.h"

#include <algorithm>

#include "kit/Singleton.h"

namespace kit {

ToastManager& ToastManager::shared() { return *sharedInstance<ToastManager>(); }

int ToastManager::makeToast(View& view, std::optional<std::string> message,
                            std::optional<double> d, std::optional<ToastPosition> p,
                            std::optional<std::string> title, std::optional<ToastStyle> s,
                            std::function<void(bool)> completion) {
  if (!message && !title) return 0;
  Entry entry;
  entry.toast.id = nextId_++;
  entry.toast.message = std::move(message);
  entry.toast.title = std::move(title);
  entry.toast.position = p.value_or(position);
  entry.toast.duration = d.value_or(duration);
  entry.toast.style = s.value_or(style);
  entry.toast.view = std::static_pointer_cast<View>(view.shared_from_this());
  entry.completion = std::move(completion);
  int id = entry.toast.id;
  if (isQueueEnabled && !entries_.empty()) {
    queue_.push_back(std::move(entry));
  } else {
    show(std::move(entry));
  }
  return id;
}

void ToastManager::show(Entry entry) {
  int id = entry.toast.id;
  entry.timer = scheduledTimer(entry.toast.duration, false, [this, id](Timer&) { finish(id, false); });
  active_.push_back(entry.toast);
  entries_.push_back(std::move(entry));
  notify("toasts");
}

void ToastManager::finish(int id, bool didTap) {
  auto it = std::find_if(entries_.begin(), entries_.end(), [id](const Entry& e) { return e.toast.id == id; });
  if (it == entries_.end()) return;
  Entry entry = std::move(*it);
  entries_.erase(it);
  std::erase_if(active_, [id](const Toast& t) { return t.id == id; });
  if (entry.timer) entry.timer->invalidate();
  notify("toasts");
  if (entry.completion) entry.completion(didTap);
  if (!queue_.empty() && (entries_.empty() || !isQueueEnabled)) {
    Entry next = std::move(queue_.front());
    queue_.erase(queue_.begin());
    show(std::move(next));
  }
}

bool ToastManager::tapToast(int id) {
  if (!isTapToDismissEnabled) return false;
  bool shown = std::any_of(active_.begin(), active_.end(), [id](const Toast& t) { return t.id == id; });
  if (shown) {
    finish(id, true);
    runLayoutPass();
  }
  return shown;
}

void ToastManager::hideAllToasts() {
  queue_.clear();
  while (!entries_.empty()) finish(entries_.front().toast.id, false);
}

}  // namespace kit
