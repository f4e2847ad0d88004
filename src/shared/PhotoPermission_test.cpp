#include "shared/PhotoPermission.h"

#include <gtest/gtest.h>

#include "sim/World.h"

namespace {

class Recorder : public shared::PhotosPermissionCallbackDelegate {
 public:
  void permissionResult(bool granted, const std::string& name) override {
    results.push_back(granted);
    names.push_back(name);
    onMain.push_back(kit::isMainThread());
  }
  std::vector<bool> results;
  std::vector<std::string> names;
  std::vector<bool> onMain;
};

struct PhotoPermissionTest : ::testing::Test {
  sim::World world;
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
  void SetUp() override { shared::PhotosPermissionCallback::shared()->itemdelegates.store(recorder); }
};

TEST_F(PhotoPermissionTest, DeterminedStatusesAnswerAtOnce) {
  world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  EXPECT_TRUE(shared::checkPhotoPermission());
  world.platform.photos().setStatus(platform::AuthorizationStatus::Denied);
  EXPECT_FALSE(shared::checkPhotoPermission());
  world.platform.photos().setStatus(platform::AuthorizationStatus::Restricted);
  EXPECT_FALSE(shared::checkPhotoPermission());
  EXPECT_EQ(recorder->results, (std::vector<bool>{true, false, false}));
  EXPECT_EQ(recorder->names, (std::vector<std::string>(3, "STORAGE")));
  EXPECT_EQ(world.platform.photos().authorizationRequestCount(), 0);
}

TEST_F(PhotoPermissionTest, LimitedAccessIsSilent) {
  world.platform.photos().setStatus(platform::AuthorizationStatus::Limited);
  EXPECT_FALSE(shared::checkPhotoPermission());
  world.platform.photos().setRawStatus(7);
  EXPECT_FALSE(shared::checkPhotoPermission());
  world.env.runUntilIdle();
  EXPECT_TRUE(recorder->results.empty());
}

TEST_F(PhotoPermissionTest, NotDeterminedAsksFromTheMainQueueAndReportsTheAnswer) {
  EXPECT_FALSE(shared::checkPhotoPermission());
  EXPECT_EQ(world.platform.photos().authorizationRequestCount(), 0);  // queued, not yet asked
  world.env.runMain();
  EXPECT_EQ(world.platform.photos().pendingAuthorizationRequests(), 1);
  world.platform.photos().answerAuthorization(platform::AuthorizationStatus::Limited);
  world.env.runUntilIdle();
  EXPECT_EQ(recorder->results, (std::vector<bool>{false}));  // only 3 grants
  EXPECT_EQ(recorder->onMain, (std::vector<bool>{false}));
}

TEST_F(PhotoPermissionTest, WithoutADelegateTheCheckStillAnswers) {
  shared::PhotosPermissionCallback::shared()->itemdelegates.store(nullptr);
  world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  EXPECT_TRUE(shared::checkPhotoPermission());
}

}  // namespace
