// CameraBridge: the window's camera view, for QML (`cameraBridge`): open while a capture runs,
// with the folder its files go to. The view (CameraView.qml) takes a photo or records a movie
// with the first camera, and reports what it made, or that it was closed. GUI (main) thread
// only.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

namespace gui {

class CameraBridge : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool open READ isOpen NOTIFY openChanged)

 public:
  // What the view made: a photo's path, or a movie's path, or neither (both empty).
  using Done = std::function<void(const QString& photoPath, const QString& moviePath)>;

  // The view's files go to `folder` (made 0700 on first use).
  explicit CameraBridge(QString folder, QObject* parent = nullptr);
  void setFolder(QString folder) { folder_ = std::move(folder); }
  // Closes an open view.
  ~CameraBridge() override;

  // Whether a camera is connected now.
  static bool available();

  // Opens the view; `done` runs once when it closes. A view already open is closed first,
  // its capture getting nothing.
  void openView(Done done);
  bool isOpen() const { return static_cast<bool>(done_); }

  // The path of a new file in the folder for the view to write,
  // "capture-<ms since 1970>.<extension>"; empty when the folder cannot be made.
  Q_INVOKABLE QString newFile(const QString& extension) const;
  // The file URL of a local path.
  Q_INVOKABLE QUrl fileUrl(const QString& path) const { return QUrl::fromLocalFile(path); }
  // The view saved a photo at `path` / recorded a movie at `location`; either closes it.
  Q_INVOKABLE void photoTaken(const QString& path);
  Q_INVOKABLE void movieRecorded(const QUrl& location);
  // The person closed the view without capturing.
  Q_INVOKABLE void close();

 signals:
  void openChanged();

 private:
  void finish(const QString& photoPath, const QString& moviePath);

  QString folder_;
  Done done_;
};

}  // namespace gui
