// The camera view's bridge: one capture at a time, each ended once, and the view itself
// loading without a camera (this machine's case) and closing from its "Cancel" button.
#include "gui/CameraBridge.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>
#include <QTemporaryDir>

#include <memory>
#include <optional>
#include <utility>

#include "gui/GuiApp.h"

namespace gui {
namespace {

using Ending = std::optional<std::pair<QString, QString>>;

CameraBridge::Done recordInto(Ending& ending) {
  return [&ending](const QString& photo, const QString& movie) { ending = std::make_pair(photo, movie); };
}

TEST(CameraBridgeTest, EachCaptureEndsOnceWithWhatTheViewMade) {
  QTemporaryDir dir;
  CameraBridge bridge(dir.filePath("Camera"));
  Ending photo, movie, closed;
  bridge.openView(recordInto(photo));
  EXPECT_TRUE(bridge.isOpen());
  bridge.photoTaken("/tmp/a.jpg");
  EXPECT_FALSE(bridge.isOpen());
  EXPECT_EQ(photo, std::make_pair(QString("/tmp/a.jpg"), QString()));
  bridge.close();  // nothing open: nothing happens
  EXPECT_EQ(photo, std::make_pair(QString("/tmp/a.jpg"), QString()));

  bridge.openView(recordInto(movie));
  bridge.movieRecorded(QUrl::fromLocalFile("/tmp/my take.mp4"));
  EXPECT_EQ(movie, std::make_pair(QString(), QString("/tmp/my take.mp4")));

  // A second capture closes the first, which gets nothing.
  Ending second;
  bridge.openView(recordInto(closed));
  bridge.openView(recordInto(second));
  EXPECT_EQ(closed, std::make_pair(QString(), QString()));
  EXPECT_FALSE(second);
  bridge.close();
  EXPECT_EQ(second, std::make_pair(QString(), QString()));
}

TEST(CameraBridgeTest, NewFilesGoToAPrivateFolder) {
  QTemporaryDir dir;
  CameraBridge bridge(dir.filePath("cache/Camera"));
  QString path = bridge.newFile("jpg");
  ASSERT_FALSE(path.isEmpty());
  EXPECT_TRUE(path.startsWith(dir.filePath("cache/Camera/capture-")));
  EXPECT_TRUE(path.endsWith(".jpg"));
  EXPECT_EQ(QFileInfo(dir.filePath("cache/Camera")).permissions() & 0x0077, 0) << "only the owner may look in";
  // A folder that cannot be made gives no file.
  CameraBridge blocked("/proc/no-such-place/Camera");
  EXPECT_TRUE(blocked.newFile("mp4").isEmpty());
}

TEST(CameraBridgeTest, TheViewLoadsWithoutACameraAndCancelCloses) {
  if (qEnvironmentVariableIsEmpty("QT_MEDIA_BACKEND")) qputenv("QT_MEDIA_BACKEND", "ffmpeg");  // as the program
  QQmlEngine engine;
  registerResources(engine);
  QTemporaryDir dir;
  CameraBridge bridge(dir.filePath("Camera"));
  Ending ending;
  bridge.openView(recordInto(ending));
  engine.rootContext()->setContextProperty("cameraBridge", &bridge);
  QQmlComponent component(&engine, QUrl("qrc:/qml/CameraView.qml"));
  std::unique_ptr<QObject> view(component.create());
  ASSERT_TRUE(view) << component.errorString().toStdString();
  QObject* cancel = nullptr;
  for (QObject* child : view->findChildren<QObject*>()) {
    bool button = child->metaObject()->indexOfSignal("clicked()") >= 0;
    if (button && child->property("text").toString() == "Cancel") cancel = child;
  }
  ASSERT_TRUE(cancel);
  QMetaObject::invokeMethod(cancel, "clicked");
  EXPECT_EQ(ending, std::make_pair(QString(), QString()));
  EXPECT_FALSE(bridge.isOpen());
}

}  // namespace
}  // namespace gui
