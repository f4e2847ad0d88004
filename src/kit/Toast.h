// Toasts: short messages over a view that go away after a duration. The manager holds the
// shared defaults (duration, position, style) and the toasts now shown, which a renderer or a
// test reads. Main thread only.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kit/Color.h"
#include "kit/Dispatch.h"
#include "kit/Observable.h"
#include "kit/View.h"

namespace kit {

enum class ToastPosition { Top, Center, Bottom };

struct ToastStyle {
  Color backgroundColor{0, 0, 0, 0.8};
  Color titleColor = Color::white();
  Color messageColor = Color::white();
  double titleFontSize = 16;
  double messageFontSize = 16;
  double cornerRadius = 10;
  bool displayShadow = false;
};

struct Toast {
  int id = 0;
  std::optional<std::string> message;
  std::optional<std::string> title;
  ToastPosition position = ToastPosition::Bottom;
  double duration = 3.0;
  ToastStyle style;
  std::weak_ptr<View> view;
};

class ToastManager : public Observable {
 public:
  static ToastManager& shared();

  // Shared defaults.
  ToastStyle style;
  double duration = 3.0;
  ToastPosition position = ToastPosition::Bottom;
  bool isTapToDismissEnabled = true;
  // When true, a toast waits until the one shown before it has gone.
  bool isQueueEnabled = false;

  // Shows a toast over `view` with the given values or the shared defaults; `completion`
  // receives whether the toast was tapped away. Returns the toast's id.
  int makeToast(View& view, std::optional<std::string> message,
                std::optional<double> duration = std::nullopt,
                std::optional<ToastPosition> position = std::nullopt,
                std::optional<std::string> title = std::nullopt,
                std::optional<ToastStyle> style = std::nullopt,
                std::function<void(bool didTap)> completion = {});

  const std::vector<Toast>& activeToasts() const { return active_; }
  std::size_t queuedCount() const { return queue_.size(); }
  // A user's tap on a shown toast (when tap-to-dismiss is on).
  bool tapToast(int id);
  void hideAllToasts();

 private:
  struct Entry {
    Toast toast;
    std::function<void(bool)> completion;
    std::shared_ptr<Timer> timer;
  };
  void show(Entry entry);
  void finish(int id, bool didTap);

  std::vector<Toast> active_;
  std::vector<Entry> entries_;
  std::vector<Entry> queue_;
  int nextId_ = 1;
};

// The toast framework's view extension: a toast over `view` with the shared defaults.
inline int makeToast(View& view, std::string message) {
  return ToastManager::shared().makeToast(view, std::move(message));
}

}  // namespace kit
