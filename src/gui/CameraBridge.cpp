#include "gui/CameraBridge.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QCameraDevice>
#include <QMediaDevices>

namespace gui {

CameraBridge::CameraBridge(QString folder, QObject* parent) : QObject(parent), folder_(std::move(folder)) {}

CameraBridge::~CameraBridge() {
  if (done_) finish({}, {});
}

bool CameraBridge::available() { return !QMediaDevices::videoInputs().isEmpty(); }

void CameraBridge::openView(Done done) {
  if (done_) finish({}, {});
  done_ = std::move(done);
  emit openChanged();
}

QString CameraBridge::newFile(const QString& extension) const {
  if (!QDir().mkpath(folder_)) return {};
  QFile::setPermissions(folder_, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
  QString name = QString("capture-%1.%2").arg(QDateTime::currentMSecsSinceEpoch()).arg(extension);
  return QDir(folder_).filePath(name);
}

void CameraBridge::photoTaken(const QString& path) { finish(path, {}); }

void CameraBridge::movieRecorded(const QUrl& location) {
  finish({}, location.isLocalFile() ? location.toLocalFile() : location.toString());
}

void CameraBridge::close() { finish({}, {}); }

void CameraBridge::finish(const QString& photoPath, const QString& moviePath) {
  if (!done_) return;
  Done done = std::move(done_);
  done_ = nullptr;
  emit openChanged();
  done(photoPath, moviePath);
}

}  // namespace gui
