#include "desktop/system/PermissionStore.h"

#include <gtest/gtest.h>

#include <atomic>

#include "desktop/system/Application.h"
#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"
#include "desktop/threaded/ThreadedEnvironment.h"

namespace desktop {
namespace {

using platform::AuthorizationStatus;

struct PermissionTest : ::testing::Test {
  std::shared_ptr<PermissionStore> makeStore() {
    return std::make_shared<PermissionStore>(path, [this](PermissionKind kind) {
      ++asked;
      lastKind = kind;
      return answer.load();
    });
  }
  // Requests through `request` and waits for the handler; returns the status it heard.
  AuthorizationStatus wait(const std::function<void(PermissionStore::Handler)>& request) {
    std::atomic<bool> done{false};
    std::atomic<int> heard{-1};
    std::atomic<bool> onMain{true};
    request([&](AuthorizationStatus s) {
      heard = static_cast<int>(s);
      onMain = kit::isMainThread();
      done = true;
    });
    EXPECT_TRUE(env.standaloneLoop()->runUntil([&] { return done.load(); }, 30));
    EXPECT_FALSE(onMain.load());
    return static_cast<AuthorizationStatus>(heard.load());
  }

  ThreadedEnvironment env{nullptr, 2};
  testing::TempDir dir;
  std::string path = dir / "permissions.json";
  std::atomic<int> asked{0};
  std::atomic<AuthorizationStatus> answer{AuthorizationStatus::Authorized};
  PermissionKind lastKind = PermissionKind::Contacts;
};

TEST_F(PermissionTest, AsksOnceAndRemembersAcrossRuns) {
  auto store = makeStore();
  EXPECT_EQ(store->status(PermissionKind::Photos), AuthorizationStatus::NotDetermined);
  // Two requests at once lead to one question.
  std::atomic<int> answered{0};
  store->request(PermissionKind::Photos, [&](AuthorizationStatus s) {
    EXPECT_EQ(s, AuthorizationStatus::Authorized);
    ++answered;
  });
  EXPECT_EQ(wait([&](auto h) { store->request(PermissionKind::Photos, h); }),
            AuthorizationStatus::Authorized);
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return answered.load() == 1; }, 30));
  EXPECT_EQ(asked.load(), 1);
  EXPECT_EQ(lastKind, PermissionKind::Photos);

  auto later = makeStore();
  EXPECT_EQ(later->status(PermissionKind::Photos), AuthorizationStatus::Authorized);
  EXPECT_EQ(later->status(PermissionKind::Contacts), AuthorizationStatus::NotDetermined);
  EXPECT_EQ(wait([&](auto h) { later->request(PermissionKind::Photos, h); }),
            AuthorizationStatus::Authorized);
  EXPECT_EQ(asked.load(), 1);
}

TEST_F(PermissionTest, AnUnansweredQuestionIsAskedAgainNextTime) {
  auto store = makeStore();
  answer = AuthorizationStatus::NotDetermined;
  EXPECT_EQ(wait([&](auto h) { store->request(PermissionKind::Photos, h); }),
            AuthorizationStatus::NotDetermined);
  answer = AuthorizationStatus::Denied;
  EXPECT_EQ(wait([&](auto h) { store->request(PermissionKind::Photos, h); }),
            AuthorizationStatus::Denied);
  EXPECT_EQ(asked.load(), 2);
  EXPECT_EQ(makeStore()->status(PermissionKind::Photos), AuthorizationStatus::Denied);
}

TEST_F(PermissionTest, TheSettingsPageAsksAgainWhateverWasAnswered) {
  auto store = makeStore();
  store->set(PermissionKind::Photos, AuthorizationStatus::Denied);
  Application application(store, [](const std::vector<std::string>&) { return false; });
  EXPECT_TRUE(application.canOpenURL(platform::kOpenSettingsURLString));
  std::atomic<bool> opened{false}, done{false}, onMain{false};
  application.openURL(platform::kOpenSettingsURLString, {}, [&](bool ok) {
    opened = ok;
    onMain = kit::isMainThread();
    done = true;
  });
  ASSERT_TRUE(env.standaloneLoop()->runUntil([&] { return done.load(); }, 30));
  EXPECT_TRUE(opened.load());
  EXPECT_TRUE(onMain.load());
  EXPECT_EQ(asked.load(), 1);
  EXPECT_EQ(store->status(PermissionKind::Photos), AuthorizationStatus::Authorized);
  EXPECT_EQ(makeStore()->status(PermissionKind::Photos), AuthorizationStatus::Authorized);
}

TEST_F(PermissionTest, DamagedRecordReadsAsNotDetermined) {
  testing::writeBytes(path, {'n', 'o', 'p', 'e'});
  std::vector<std::string> lines;
  auto previous = setDiagnosticHandler([&](const std::string& l) { lines.push_back(l); });
  auto store = makeStore();
  setDiagnosticHandler(previous);
  EXPECT_EQ(store->status(PermissionKind::Photos), AuthorizationStatus::NotDetermined);
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_EQ(wait([&](auto h) { store->request(PermissionKind::Photos, h); }),
            AuthorizationStatus::Authorized);
  EXPECT_EQ(makeStore()->status(PermissionKind::Photos), AuthorizationStatus::Authorized);
}

}  // namespace
}  // namespace desktop
