#include "desktop/system/LaunchServices.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>

#include "desktop/testing/DesktopTesting.h"
#include "desktop/threaded/ThreadedEnvironment.h"

namespace desktop {
namespace {

std::string contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

std::optional<platform::Error> load(platform::PersistentContainer& container, platform::PersistentStoreDescription* seen) {
  std::optional<platform::Error> result;
  container.loadPersistentStoresWithCompletionHandler(
      [&](const platform::PersistentStoreDescription& d, std::optional<platform::Error> e) {
        *seen = d;
        result = e;
      });
  return result;
}

TEST(SqlitePersistentStoresTest, ANewStoreIsMadeUnderTheFolderAndOpensAgain) {
  testing::TempDir dir;
  SqlitePersistentStores stores(dir / "Application Support");
  auto container = stores.containerWithName("ContactDataModel");
  platform::PersistentStoreDescription seen;
  EXPECT_FALSE(load(*container, &seen));
  EXPECT_TRUE(container->isLoaded());
  EXPECT_EQ(seen.type, "SQLite");
  EXPECT_EQ(seen.url, "file://" + (dir / "Application Support/ContactDataModel.sqlite"));
  container.reset();
  auto again = stores.containerWithName("ContactDataModel");
  EXPECT_FALSE(load(*again, &seen));
  EXPECT_EQ(testing::listFolder(dir / "Application Support"), std::vector<std::string>{"ContactDataModel.sqlite"});
}

TEST(SqlitePersistentStoresTest, ACorruptStoreFailsWithItsPathAndIsLeftAsItWas) {
  testing::TempDir dir;
  const std::string junk = std::string("this is no database, only text that fills a page of the file ") + std::string(4096, 'x');
  std::ofstream(dir / "ContactDataModel.sqlite", std::ios::binary) << junk;
  SqlitePersistentStores stores(dir.path());
  auto container = stores.containerWithName("ContactDataModel");
  platform::PersistentStoreDescription seen;
  auto error = load(*container, &seen);
  ASSERT_TRUE(error);
  EXPECT_FALSE(container->isLoaded());
  EXPECT_EQ(error->userInfo.at("NSFilePath"), dir / "ContactDataModel.sqlite");
  EXPECT_EQ(error->userInfo.at("NSSQLiteErrorDomain"), "26");
  EXPECT_EQ(contents(dir / "ContactDataModel.sqlite"), junk);
  EXPECT_EQ(testing::listFolder(dir.path()), std::vector<std::string>{"ContactDataModel.sqlite"});
}

TEST(LaunchServicesTest, MessagingReportsATokenChangeAndHasNoToken) {
  ThreadedEnvironment env{nullptr, 1};
  struct Delegate : platform::MessagingDelegate {
    void messagingDidReceiveRegistrationToken(platform::Messaging&, const std::string& token) override {
      heard = token.empty() ? 1 : 2;
    }
    std::atomic<int> heard{0};
  };
  auto delegate = std::make_shared<Delegate>();
  Messaging messaging;
  messaging.setDelegate(delegate);
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return delegate->heard.load() != 0; }, 30));
  EXPECT_EQ(delegate->heard.load(), 1);
  std::atomic<bool> done{false};
  std::optional<platform::Error> error;
  std::optional<std::string> token = "unset";
  messaging.tokenWithCompletion([&](std::optional<std::string> t, std::optional<platform::Error> e) {
    token = t;
    error = e;
    done = true;
  });
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return done.load(); }, 30));
  EXPECT_FALSE(token);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "messaging");
}

TEST(LaunchServicesTest, NotificationPermissionIsAskedOnceAndRecorded) {
  ThreadedEnvironment env{nullptr, 2};
  testing::TempDir dir;
  std::atomic<int> asked{0};
  auto permissions = std::make_shared<PermissionStore>(dir / "permissions.json", [&](PermissionKind kind) {
    EXPECT_EQ(kind, PermissionKind::Notifications);
    ++asked;
    return platform::AuthorizationStatus::Denied;
  });
  NotificationCenter center(permissions);
  for (int i = 0; i < 2; ++i) {
    std::atomic<int> granted{-1};
    center.requestAuthorizationWithOptions(7, [&](bool g, std::optional<platform::Error>) { granted = g ? 1 : 0; });
    ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return granted.load() != -1; }, 30));
    EXPECT_EQ(granted.load(), 0);
  }
  EXPECT_EQ(asked.load(), 1);
  EXPECT_EQ(center.authorizationStatus(), platform::AuthorizationStatus::Denied);
  EXPECT_EQ(permissions->status(PermissionKind::Photos), platform::AuthorizationStatus::NotDetermined);
}

}  // namespace
}  // namespace desktop
