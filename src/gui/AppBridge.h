// AppBridge: what the window shows, for QML: the navigation stack of the key window's root,
// the presented controllers over it (alerts, ads, prompts), the toasts and the progress HUD.
// GUI (main) thread only.
#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "gui/Proxies.h"
#include "kit/NavigationController.h"
#include "kit/Window.h"

namespace gui {

class AppBridge : public QObject {
  Q_OBJECT
  Q_PROPERTY(QVariantList stack READ stack NOTIFY stackChanged)
  Q_PROPERTY(QVariantList overlays READ overlays NOTIFY overlaysChanged)
  Q_PROPERTY(QVariantList toasts READ toasts NOTIFY toastsChanged)
  Q_PROPERTY(bool hudVisible READ hudVisible NOTIFY hudChanged)
  Q_PROPERTY(QString hudMessage READ hudMessage NOTIFY hudChanged)
  Q_PROPERTY(QString hudStyle READ hudStyle NOTIFY hudChanged)
  Q_PROPERTY(QVariantMap prompt READ prompt NOTIFY promptChanged)

 public:
  // Mirrors `window` (its root controller: a navigation controller or a single screen).
  explicit AppBridge(std::shared_ptr<kit::Window> window, QObject* parent = nullptr);
  ~AppBridge() override;

  QVariantList stack() const;
  QVariantList overlays() const;
  QVariantList toasts() const;
  bool hudVisible() const;
  QString hudMessage() const;
  QString hudStyle() const;

  // The QML file that draws the screen `identifier` ("qrc:/qml/<identifier>.qml", or the plain
  // page when there is none).
  Q_INVOKABLE QString screenFile(const QString& identifier) const;
  Q_INVOKABLE void tapToast(int id);
  // Chooses the action at `index` of the presented alert `alert`.
  Q_INVOKABLE bool chooseAlertAction(QObject* alert, int index);
  // Describes an alert for QML: title, message, style and its actions' titles and styles.
  Q_INVOKABLE QVariantMap alertInfo(QObject* alert) const;

  // Shows a question of the platform with `buttons` (in order) until one is chosen; `answer`
  // receives its index. Questions asked meanwhile wait their turn.
  void ask(QString title, QString message, QStringList buttons, std::function<void(int)> answer);
  QVariantMap prompt() const;
  Q_INVOKABLE void answerPrompt(int index);
  // Answers every question waiting with -1 (the app is closing).
  void cancelQuestions();

  // The proxy of `controller`, made on first use and kept while it is shown.
  OutletsProxy* proxyFor(const std::shared_ptr<kit::ViewController>& controller);

 signals:
  // `kind`: 0 push, 1 pop, 2 replace.
  void stackChanged(int kind, bool animated);
  void overlaysChanged();
  void toastsChanged();
  void hudChanged();
  void promptChanged();

 private:
  void onScreenEvent(const kit::ScreenEvent& event);
  void rebuildStack(int kind, bool animated);
  void prune();

  struct Question {
    QString title, message;
    QStringList buttons;
    std::function<void(int)> answer;
  };
  std::deque<Question> questions_;
  std::shared_ptr<kit::Window> window_;
  std::vector<std::shared_ptr<kit::ViewController>> stack_;
  std::vector<std::shared_ptr<kit::ViewController>> overlays_;
  std::map<const kit::ViewController*, std::pair<std::weak_ptr<kit::ViewController>, OutletsProxy*>> proxies_;
  int screenToken_ = 0;
  int toastToken_ = 0;
  int hudToken_ = 0;
  int windowToken_ = 0;
};

}  // namespace gui
