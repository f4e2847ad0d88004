// The bridge on a small screen of its own: kit changes reach QML, QML's taps and actions reach
// the kit, table reloads reach the list model.
#include <gtest/gtest.h>

#include <QSignalSpy>

#include <QAbstractItemModelTester>
#include <QGuiApplication>
#include <QQmlComponent>
#include <QQmlContext>
#include <QQmlEngine>

#include "gui/AppBridge.h"
#include "gui/GuiApp.h"
#include "gui/ImageRegistry.h"
#include "gui/Proxies.h"
#include "kit/AlertController.h"
#include "kit/NavigationController.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "sim/World.h"

namespace {

// One QGuiApplication for the whole program, on the offscreen platform.
class QtEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
    static int argc = 1;
    static char name[] = "gui_tests";
    static char* argv[] = {name, nullptr};
    app_ = new QGuiApplication(argc, argv);
  }
  void TearDown() override {
    delete app_;
    app_ = nullptr;
  }

 private:
  QGuiApplication* app_ = nullptr;
};
const auto* const kQt = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

class Rows : public kit::TableViewDataSource {
 public:
  int numberOfRowsInSection(kit::TableView&, int) override { return rows; }
  std::shared_ptr<kit::TableViewCell> cellForRowAtIndexPath(kit::TableView& t, kit::IndexPath p) override {
    auto cell = t.dequeueReusableCellWithIdentifier("Row", p);
    cell->outlet<kit::Label>("name").setText("row " + std::to_string(p.row));
    return cell;
  }
  int rows = 3;
};

class RowCell : public kit::TableViewCell {
 public:
  void awakeFromNib() override {
    auto label = kit::make<kit::Label>();
    contentView().addSubview(label);
    registerOutlet("name", label);
  }
};

class Sample : public kit::ViewController {
 public:
  Sample() { registerAction("doIt:", [this](kit::Object*) { ++done; }); }
  void loadView() override {
    kit::ViewController::loadView();
    addOutlet<kit::Label>("label")->setText(std::string("before"));
    connect(*addOutlet<kit::Button>("button"), "doIt:");
    auto table = addOutlet<kit::TableView>("table");
    table->registerCell("Row", [] { return kit::make<RowCell>(); });
    table->setDataSource(rows);
  }
  std::shared_ptr<Rows> rows = std::make_shared<Rows>();
  int done = 0;
};

struct BridgeTest : ::testing::Test {
  sim::World world;
  QQmlEngine engine;
  std::shared_ptr<Sample> screen = std::make_shared<Sample>();

  void SetUp() override { gui::registerResources(engine); }

  // An object made from `qml` with `screen` bound to a proxy of the sample screen.
  std::unique_ptr<QObject> load(const QByteArray& qml, gui::OutletsProxy& proxy) {
    QQmlComponent component(&engine);
    component.setData(qml, QUrl("qrc:/qml/Test.qml"));
    std::unique_ptr<QObject> object(component.createWithInitialProperties({{"screen", QVariant::fromValue<QObject*>(&proxy)}}));
    EXPECT_TRUE(object) << component.errorString().toStdString();
    return object;
  }
};

TEST_F(BridgeTest, KitChangesReachQmlBindings) {
  gui::OutletsProxy proxy(screen);
  auto object = load(R"(
    import QtQuick
    Item {
      property var screen
      property string label: screen.outlets.label.text
      property bool labelHidden: screen.outlets.label.hidden
      property string kind: screen.outlets.button.kind
    })", proxy);
  ASSERT_TRUE(object);
  EXPECT_EQ(object->property("label").toString(), "before");
  EXPECT_EQ(object->property("kind").toString(), "Button");
  QSignalSpy changes(proxy.outlet("label"), SIGNAL(changed()));
  screen->outlet<kit::Label>("label").setText(std::string("after"));
  screen->outlet<kit::Label>("label").setHidden(true);
  screen->outlet<kit::Label>("label").setHidden(true);  // no change
  EXPECT_EQ(object->property("label").toString(), "before");  // until the loop turns
  QCoreApplication::processEvents();
  EXPECT_EQ(object->property("label").toString(), "after");
  EXPECT_TRUE(object->property("labelHidden").toBool());
  EXPECT_EQ(changes.count(), 1);  // the changes of one turn reach QML as one
}

TEST_F(BridgeTest, TapsAndActionsByNameReachTheController) {
  gui::OutletsProxy proxy(screen);
  auto object = load(R"(
    import QtQuick
    Item {
      property var screen
      function tapButton() { return screen.outlets.button.tap() }
      function runAction() { return screen.invoke("doIt:") }
      function runMissing() { return screen.invoke("nothing:") }
    })", proxy);
  ASSERT_TRUE(object);
  QVariant result;
  QMetaObject::invokeMethod(object.get(), "tapButton", Q_RETURN_ARG(QVariant, result));
  EXPECT_TRUE(result.toBool());
  QMetaObject::invokeMethod(object.get(), "runAction", Q_RETURN_ARG(QVariant, result));
  QMetaObject::invokeMethod(object.get(), "runMissing", Q_RETURN_ARG(QVariant, result));
  EXPECT_FALSE(result.toBool());
  EXPECT_EQ(screen->done, 2);
  screen->outlet<kit::Button>("button").setEnabled(false);
  EXPECT_FALSE(proxy.tap("button"));
  EXPECT_EQ(screen->done, 2);
}

TEST_F(BridgeTest, TableReloadsReachTheModelAndOnlyVisibleRowsHaveCells) {
  gui::OutletsProxy proxy(screen);
  auto* tableProxy = qobject_cast<gui::ViewProxy*>(proxy.outlet("table"));
  ASSERT_NE(tableProxy, nullptr);
  auto* model = qobject_cast<gui::ListModel*>(tableProxy->model());
  ASSERT_NE(model, nullptr);
  QAbstractItemModelTester tester(model, QAbstractItemModelTester::FailureReportingMode::Warning);
  auto& table = screen->outlet<kit::TableView>("table");
  table.setVisibleRange(0, 2);
  table.reloadData();
  world.env.runMain();
  kit::runLayoutPass();
  EXPECT_EQ(model->rowCount(), 3);
  auto* first = qobject_cast<gui::OutletsProxy*>(model->data(model->index(0), gui::ListModel::CellRole).value<QObject*>());
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(qobject_cast<gui::ViewProxy*>(first->outlet("name"))->text(), "row 0");
  EXPECT_EQ(model->data(model->index(2), gui::ListModel::CellRole).value<QObject*>(), nullptr);
  model->setVisibleRange(1, 2);
  EXPECT_NE(model->data(model->index(2), gui::ListModel::CellRole).value<QObject*>(), nullptr);
  screen->rows->rows = 5;
  table.reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(model->rowCount(), 5);

  // A long list: a reload that adds a row is one insert at the end, and the data that changes
  // is that of the window's rows only, whatever the length of the list.
  screen->rows->rows = 10000;
  table.reloadData();
  kit::runLayoutPass();
  QSignalSpy resets(model, &QAbstractItemModel::modelReset);
  QSignalSpy inserts(model, &QAbstractItemModel::rowsInserted);
  QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
  screen->rows->rows = 10001;
  table.reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(resets.count(), 0);
  ASSERT_EQ(inserts.count(), 1);
  EXPECT_EQ(inserts.front().at(1).toInt(), 10000);
  ASSERT_EQ(changed.count(), 1);
  EXPECT_EQ(changed.front().at(0).value<QModelIndex>().row(), 1);
  EXPECT_EQ(changed.front().at(1).value<QModelIndex>().row(), 2);
  EXPECT_EQ(model->rowCount(), 10001);
  EXPECT_EQ(model->data(model->index(10000), gui::ListModel::ItemRole).toInt(), 10000);
  screen->rows->rows = 2;
  table.reloadData();
  kit::runLayoutPass();
  EXPECT_EQ(model->rowCount(), 2);
  EXPECT_EQ(resets.count(), 0);
}

TEST_F(BridgeTest, TheAppBridgeMirrorsNavigationPresentationAndToasts) {
  auto root = std::make_shared<kit::ViewController>();
  auto nav = std::make_shared<kit::NavigationController>(root);
  auto window = kit::make<kit::Window>();
  window->setRootViewController(nav);
  window->makeKeyAndVisible();
  gui::AppBridge bridge(window);
  std::vector<std::pair<int, bool>> changes;
  QObject::connect(&bridge, &gui::AppBridge::stackChanged, [&](int kind, bool animated) { changes.push_back({kind, animated}); });
  nav->pushViewController(screen, true);
  ASSERT_EQ(bridge.stack().size(), 2);
  nav->popViewControllerAnimated(false);
  EXPECT_EQ(bridge.stack().size(), 1);
  EXPECT_EQ(changes, (std::vector<std::pair<int, bool>>{{0, true}, {1, false}}));

  auto alert = kit::AlertController::make("Delete?", "Really", kit::AlertStyle::Alert);
  bool chosen = false;
  alert->addAction(std::make_shared<kit::AlertAction>("Delete", kit::AlertActionStyle::Destructive,
                                                      [&](kit::AlertAction&) { chosen = true; }));
  root->presentViewController(alert, true);
  ASSERT_EQ(bridge.overlays().size(), 1);
  QObject* alertProxy = bridge.overlays().first().value<QObject*>();
  EXPECT_EQ(bridge.alertInfo(alertProxy)["title"].toString(), "Delete?");
  EXPECT_TRUE(bridge.chooseAlertAction(alertProxy, 0));
  EXPECT_TRUE(chosen);
  EXPECT_TRUE(bridge.overlays().isEmpty());

  kit::makeToast(root->view(), "Saved");
  ASSERT_EQ(bridge.toasts().size(), 1);
  EXPECT_EQ(bridge.toasts().first().toMap()["message"].toString(), "Saved");
  bridge.tapToast(bridge.toasts().first().toMap()["id"].toInt());
  EXPECT_TRUE(bridge.toasts().isEmpty());

  int answer = -1;
  bridge.ask("Allow?", "", {"Don't Allow", "Allow"}, [&](int i) { answer = i; });
  EXPECT_TRUE(bridge.prompt()["active"].toBool());
  bridge.answerPrompt(1);
  EXPECT_EQ(answer, 1);
  EXPECT_FALSE(bridge.prompt()["active"].toBool());
}

TEST_F(BridgeTest, EveryScreenFileLoads) {
  // Each screen's QML file compiles (with its components and imports).
  for (const char* file : {"qrc:/qml/Main.qml", "qrc:/qml/HomeVC.qml", "qrc:/qml/DuplicatePhotoVC.qml", "qrc:/qml/PlainPage.qml",
                           "qrc:/qml/FullScreenAd.qml", "qrc:/qml/Alert.qml", "qrc:/qml/PromptDialog.qml"}) {
    QQmlComponent component(&engine, QUrl(file));
    EXPECT_FALSE(component.isError()) << file << ": " << component.errorString().toStdString();
  }
}

}  // namespace

// A playing video registers a picture per frame: the registry keeps the newest ones, within
// its byte bound, and the oldest go.
TEST(ImageRegistryTest, VideoFramesAreBoundedInBytesButTheNewestStay) {
  auto& registry = gui::ImageRegistry::shared();
  const int side = 1024;  // 4 MiB a frame
  std::vector<QString> urls;
  std::vector<kit::ImagePtr> frames;
  for (int i = 0; i < 80; ++i) {
    frames.push_back(kit::Image::fromPixels(side, side, std::vector<std::uint8_t>(std::size_t{side} * side * 4, 7)));
    urls.push_back(registry.urlFor(frames.back()));
  }
  const QString prefix = "image://kit/";
  EXPECT_TRUE(registry.imageFor(urls.front().mid(prefix.size())).isNull());
  for (std::size_t i = urls.size() - gui::ImageRegistry::kMinPixelImages; i < urls.size(); ++i)
    EXPECT_FALSE(registry.imageFor(urls[i].mid(prefix.size())).isNull()) << i;
}
