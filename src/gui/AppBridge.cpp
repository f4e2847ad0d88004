#include "gui/AppBridge.h"

#include <QFile>
#include <QTimer>

#include "kit/AlertController.h"
#include "kit/ProgressHUD.h"
#include "kit/Toast.h"

namespace gui {

AppBridge::AppBridge(std::shared_ptr<kit::Window> window, QObject* parent)
    : QObject(parent), window_(std::move(window)) {
  screenToken_ = kit::ScreenEvents::addListener([this](const kit::ScreenEvent& e) { onScreenEvent(e); });
  toastToken_ = kit::ToastManager::shared().addObserver([this](std::string_view) { emit toastsChanged(); });
  hudToken_ = kit::ProgressHUD::shared().addObserver([this](std::string_view) { emit hudChanged(); });
  windowToken_ = window_->addObserver([this](std::string_view p) {
    if (p == "rootViewController") rebuildStack(2, false);
  });
  rebuildStack(2, false);
  // Controllers already presented when the bridge comes (a window drawn mid-journey).
  auto root = window_->rootViewController();
  for (auto vc = root ? root->presentedViewController() : nullptr; vc; vc = vc->presentedViewController()) {
    overlays_.push_back(vc);
  }
}

AppBridge::~AppBridge() {
  cancelQuestions();
  kit::ScreenEvents::removeListener(screenToken_);
  kit::ToastManager::shared().removeObserver(toastToken_);
  kit::ProgressHUD::shared().removeObserver(hudToken_);
  window_->removeObserver(windowToken_);
}

OutletsProxy* AppBridge::proxyFor(const std::shared_ptr<kit::ViewController>& controller) {
  auto it = proxies_.find(controller.get());
  if (it != proxies_.end() && !it->second.first.expired()) return it->second.second;
  auto* proxy = new OutletsProxy(controller, this);
  proxies_[controller.get()] = {controller, proxy};
  return proxy;
}

void AppBridge::rebuildStack(int kind, bool animated) {
  stack_.clear();
  auto root = window_->rootViewController();
  if (auto nav = std::dynamic_pointer_cast<kit::NavigationController>(root)) {
    stack_ = nav->viewControllers();
  } else if (root) {
    stack_.push_back(root);
  }
  prune();
  emit stackChanged(kind, animated);
}

void AppBridge::onScreenEvent(const kit::ScreenEvent& event) {
  auto root = window_->rootViewController();
  switch (event.kind) {
    case kit::ScreenEvent::Push:
    case kit::ScreenEvent::Pop:
    case kit::ScreenEvent::SetStack:
      if (event.container == root.get()) {
        rebuildStack(event.kind == kit::ScreenEvent::Push ? 0 : event.kind == kit::ScreenEvent::Pop ? 1 : 2,
                     event.animated);
      }
      break;
    case kit::ScreenEvent::Present:
      overlays_.push_back(event.controller);
      emit overlaysChanged();
      break;
    case kit::ScreenEvent::Dismiss:
      std::erase(overlays_, event.controller);
      prune();
      emit overlaysChanged();
      break;
  }
}

void AppBridge::prune() {
  for (auto it = proxies_.begin(); it != proxies_.end();) {
    auto vc = it->second.first.lock();
    bool shown = vc && (std::find(stack_.begin(), stack_.end(), vc) != stack_.end() ||
                        std::find(overlays_.begin(), overlays_.end(), vc) != overlays_.end());
    if (!shown) {
      // QML may still hold the page while its pop transition runs: let that finish first.
      QTimer::singleShot(2000, it->second.second, &QObject::deleteLater);
      it = proxies_.erase(it);
    } else {
      ++it;
    }
  }
}

QVariantList AppBridge::stack() const {
  QVariantList list;
  for (const auto& vc : stack_) list.append(QVariant::fromValue<QObject*>(const_cast<AppBridge*>(this)->proxyFor(vc)));
  return list;
}

QVariantList AppBridge::overlays() const {
  QVariantList list;
  for (const auto& vc : overlays_) list.append(QVariant::fromValue<QObject*>(const_cast<AppBridge*>(this)->proxyFor(vc)));
  return list;
}

QVariantList AppBridge::toasts() const {
  QVariantList list;
  for (const kit::Toast& t : kit::ToastManager::shared().activeToasts()) {
    QVariantMap m;
    m["id"] = t.id;
    m["message"] = t.message ? QString::fromStdString(*t.message) : QString();
    m["title"] = t.title ? QString::fromStdString(*t.title) : QString();
    m["position"] = t.position == kit::ToastPosition::Top ? "top" : t.position == kit::ToastPosition::Center ? "center" : "bottom";
    list.append(m);
  }
  return list;
}

bool AppBridge::hudVisible() const { return kit::ProgressHUD::shared().isVisible(); }

QString AppBridge::hudMessage() const {
  const auto& m = kit::ProgressHUD::shared().message();
  return m ? QString::fromStdString(*m) : QString();
}

QString AppBridge::hudStyle() const {
  switch (kit::ProgressHUD::shared().style()) {
    case kit::HUDStyle::Success: return "success";
    case kit::HUDStyle::Error: return "error";
    case kit::HUDStyle::Info: return "info";
    default: return "activity";
  }
}

QString AppBridge::screenFile(const QString& identifier) const {
  QString path = ":/qml/" + identifier + ".qml";
  if (!identifier.isEmpty() && QFile::exists(path)) return "qrc" + path;
  return "qrc:/qml/PlainPage.qml";
}

void AppBridge::ask(QString title, QString message, QStringList buttons, std::function<void(int)> answer) {
  questions_.push_back({std::move(title), std::move(message), std::move(buttons), std::move(answer)});
  if (questions_.size() == 1) emit promptChanged();
}

QVariantMap AppBridge::prompt() const {
  QVariantMap m;
  m["active"] = !questions_.empty();
  if (!questions_.empty()) {
    m["title"] = questions_.front().title;
    m["message"] = questions_.front().message;
    m["buttons"] = questions_.front().buttons;
  }
  return m;
}

void AppBridge::answerPrompt(int index) {
  if (questions_.empty()) return;
  Question q = std::move(questions_.front());
  questions_.pop_front();
  emit promptChanged();
  if (q.answer) q.answer(index);
}

void AppBridge::cancelQuestions() {
  auto questions = std::move(questions_);
  questions_.clear();
  emit promptChanged();
  for (auto& q : questions) {
    if (q.answer) q.answer(-1);
  }
}

void AppBridge::tapToast(int id) { kit::ToastManager::shared().tapToast(id); }

namespace {
kit::AlertController* alertOf(QObject* object) {
  auto* proxy = qobject_cast<OutletsProxy*>(object);
  return proxy ? dynamic_cast<kit::AlertController*>(proxy->controller().get()) : nullptr;
}
}  // namespace

bool AppBridge::chooseAlertAction(QObject* alert, int index) {
  auto* a = alertOf(alert);
  return a && index >= 0 && a->chooseAction(static_cast<std::size_t>(index));
}

QVariantMap AppBridge::alertInfo(QObject* alert) const {
  QVariantMap info;
  auto* a = alertOf(alert);
  if (!a) return info;
  info["title"] = a->alertTitle() ? QString::fromStdString(*a->alertTitle()) : QString();
  info["message"] = a->message() ? QString::fromStdString(*a->message()) : QString();
  info["actionSheet"] = a->preferredStyle() == kit::AlertStyle::ActionSheet;
  QVariantList actions;
  for (const auto& action : a->actions()) {
    QVariantMap m;
    m["title"] = action->title() ? QString::fromStdString(*action->title()) : QString();
    m["style"] = static_cast<int>(action->style());
    m["enabled"] = action->isEnabled();
    actions.append(m);
  }
  info["actions"] = actions;
  return info;
}

}  // namespace gui
