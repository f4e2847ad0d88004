#include "kit/NavigationController.h"

#include <gtest/gtest.h>

#include "kit/Storyboard.h"
#include "kit/Window.h"
#include "sim/Environment.h"

namespace {

using Log = std::vector<std::string>;

class Screen : public kit::ViewController {
 public:
  Screen(std::string name, Log* log) : name_(std::move(name)), log_(log) {}
  void viewDidLoad() override {
    log_->push_back(name_ + ".viewDidLoad");
    if (onLoad) onLoad();
  }
  void viewWillAppear(bool) override { log_->push_back(name_ + ".viewWillAppear"); }
  void viewDidAppear(bool) override { log_->push_back(name_ + ".viewDidAppear"); }
  void viewWillDisappear(bool) override { log_->push_back(name_ + ".viewWillDisappear"); }
  void viewDidDisappear(bool) override { log_->push_back(name_ + ".viewDidDisappear"); }
  void viewDidLayoutSubviews() override { log_->push_back(name_ + ".viewDidLayoutSubviews"); }
  void didMoveToParentViewController(kit::ViewController* parent) override {
    log_->push_back(name_ + (parent ? ".didMoveToParent" : ".didMoveToNoParent"));
  }
  std::function<void()> onLoad;

 private:
  std::string name_;
  Log* log_;
};

struct NavigationTest : ::testing::Test {
  sim::Environment env;
  Log log;
  std::shared_ptr<Screen> home = std::make_shared<Screen>("home", &log);
  std::shared_ptr<kit::NavigationController> nav = std::make_shared<kit::NavigationController>(home);
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  void SetUp() override {
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    log.clear();
  }
};

TEST_F(NavigationTest, ShowingTheWindowShowsTheRoot) {
  Log shown;
  auto root = std::make_shared<Screen>("root", &shown);
  auto n = std::make_shared<kit::NavigationController>(root);
  auto w = kit::make<kit::Window>();
  w->setRootViewController(n);
  EXPECT_TRUE(shown.empty());
  w->makeKeyAndVisible();
  EXPECT_EQ(shown, (Log{"root.viewDidLoad", "root.viewWillAppear", "root.viewDidLayoutSubviews",
                        "root.viewDidAppear", "root.didMoveToParent"}));
}

TEST_F(NavigationTest, PushRunsTheLifecycleInThePlatformsOrder) {
  auto next = std::make_shared<Screen>("next", &log);
  nav->pushViewController(next, false);
  EXPECT_EQ(log, (Log{"next.viewDidLoad", "home.viewWillDisappear", "next.viewWillAppear",
                      "next.viewDidLayoutSubviews", "home.viewDidDisappear", "next.viewDidAppear",
                      "next.didMoveToParent"}));
  EXPECT_EQ(nav->topViewController(), next.get());
  EXPECT_EQ(next->navigationController(), nav.get());
}

TEST_F(NavigationTest, PopRunsTheLifecycleAndReturnsThePopped) {
  auto next = std::make_shared<Screen>("next", &log);
  nav->pushViewController(next, false);
  log.clear();
  auto popped = nav->popViewControllerAnimated(true);
  EXPECT_EQ(popped, next);
  EXPECT_EQ(log, (Log{"next.viewWillDisappear", "home.viewWillAppear", "home.viewDidLayoutSubviews",
                      "next.viewDidDisappear", "home.viewDidAppear", "next.didMoveToNoParent"}));
  EXPECT_EQ(next->navigationController(), nullptr);
  EXPECT_EQ(nav->popViewControllerAnimated(false), nullptr);  // the root stays
}

TEST_F(NavigationTest, PushFromViewDidLoadGoesStraightToTheNewestTop) {
  auto second = std::make_shared<Screen>("second", &log);
  auto first = std::make_shared<Screen>("first", &log);
  first->onLoad = [&] { nav->pushViewController(second, false); };
  nav->pushViewController(first, false);
  EXPECT_EQ(log, (Log{"first.viewDidLoad", "second.viewDidLoad", "home.viewWillDisappear",
                      "second.viewWillAppear", "second.viewDidLayoutSubviews", "home.viewDidDisappear",
                      "second.viewDidAppear", "first.didMoveToParent", "second.didMoveToParent"}));
  EXPECT_EQ(nav->viewControllers().size(), 3u);
}

TEST_F(NavigationTest, PushingTheSameInstanceTwiceIsFatal) {
  auto next = std::make_shared<Screen>("next", &log);
  nav->pushViewController(next, false);
  EXPECT_THROW(nav->pushViewController(next, false), kit::FatalError);
}

TEST_F(NavigationTest, OffScreenPushesOnlyChangeTheStack) {
  Log offLog;
  auto root = std::make_shared<Screen>("root", &offLog);
  auto off = std::make_shared<kit::NavigationController>(root);
  off->pushViewController(std::make_shared<Screen>("pushed", &offLog), false);
  EXPECT_EQ(offLog, (Log{"root.didMoveToParent", "pushed.didMoveToParent"}));
  EXPECT_EQ(off->viewControllers().size(), 2u);
}

TEST(StoryboardTest, UnknownIdentifierAndFailedCastAreFatal) {
  sim::Environment env;
  Log log;
  auto& board = kit::Storyboard::named("Test");
  board.registerScene("Screen", [&log] { return std::make_shared<Screen>("s", &log); });
  auto vc = board.instantiate<Screen>("Screen");
  EXPECT_EQ(vc->storyboardIdentifier(), "Screen");
  EXPECT_EQ(vc->storyboard(), &board);
  EXPECT_THROW(board.instantiateViewControllerWithIdentifier("Missing"), kit::FatalError);
  EXPECT_THROW(board.instantiate<kit::NavigationController>("Screen"), kit::FatalError);
}

TEST(OutletTest, MissingOrMistypedOutletIsFatal) {
  sim::Environment env;
  struct WithOutlets : kit::ViewController {
    void loadView() override {
      kit::ViewController::loadView();
      addOutlet<kit::View>("panel");
    }
    kit::Outlet<kit::View> panel{this, "panel"};
    kit::Outlet<kit::View> missing{this, "missing"};
    kit::Outlet<kit::Window> wrong{this, "panel"};
  };
  auto vc = std::make_shared<WithOutlets>();
  vc->loadViewIfNeeded();
  vc->panel->setHidden(true);
  EXPECT_TRUE(vc->panel->isHidden());
  EXPECT_THROW(vc->missing->setHidden(true), kit::FatalError);
  EXPECT_THROW(vc->wrong->setHidden(true), kit::FatalError);
}

}  // namespace
