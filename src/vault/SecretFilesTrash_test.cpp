// The hidden files on the real desktop services: an import whose removal is accepted leaves
// every removed original in the freedesktop Trash with a valid record, also when its still
// could not be written; the store's folder is private and its writes leave no half files.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <regex>

#include "desktop/Platform.h"
#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"
#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "shell/MainStoryboard.h"
#include "sim/Environment.h"
#include "vault/SecretDataViewController.h"
#include "vault/SecretFilesVC.h"

namespace vault {
namespace {

// Passes everything to the desktop's file manager but fails the writes it is told to, as a
// full disk would.
class FailingWrites : public platform::FileManager {
 public:
  explicit FailingWrites(std::shared_ptr<platform::FileManager> inner) : inner_(std::move(inner)) {}
  int failNext = 0;
  std::vector<std::string> searchPathForDirectoriesInDomains(int d, int m, bool e) override {
    return inner_->searchPathForDirectoriesInDomains(d, m, e);
  }
  std::optional<kit::Dictionary> attributesOfFileSystemForPath(const std::string& p, platform::Error* e) override {
    return inner_->attributesOfFileSystemForPath(p, e);
  }
  bool fileExistsAtPath(const std::string& p, bool* d) override { return inner_->fileExistsAtPath(p, d); }
  bool createDirectoryAtPath(const std::string& p, bool i, platform::Error* e) override {
    return inner_->createDirectoryAtPath(p, i, e);
  }
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string& p, platform::Error* e) override {
    return inner_->contentsOfDirectoryAtPath(p, e);
  }
  bool writeData(const std::vector<std::uint8_t>& data, const std::string& p, platform::Error* e) override {
    if (failNext > 0) {
      --failNext;
      if (e) *e = platform::Error{"NSCocoaErrorDomain", 640, "No space left on device", {{"NSFilePath", p}}};
      return false;
    }
    return inner_->writeData(data, p, e);
  }
  std::optional<std::vector<std::uint8_t>> contentsAtPath(const std::string& p, platform::Error* e) override {
    return inner_->contentsAtPath(p, e);
  }
  bool removeItemAtPath(const std::string& p, platform::Error* e) override { return inner_->removeItemAtPath(p, e); }

 private:
  std::shared_ptr<platform::FileManager> inner_;
};

struct SecretFilesTrashTest : ::testing::Test {
  desktop::testing::IsolatedHome home;
  sim::Environment env;
  std::unique_ptr<desktop::Platform> platform;
  std::shared_ptr<FailingWrites> files;
  std::vector<std::string> questions;
  std::shared_ptr<kit::NavigationController> nav;
  std::shared_ptr<kit::Window> window = kit::make<kit::Window>();
  kit::ConsoleCapture console;

  std::string library() const { return home.folders().home + "/Pictures"; }
  std::string store() const { return home.folders().documents() + "/Cleaner"; }
  std::string trash() const { return home.folders().homeTrash(); }

  void SetUp() override {
    for (int i = 1; i <= 3; ++i)
      desktop::testing::writePhoto(library() + "/IMG_" + std::to_string(i) + ".jpg",
                                   {"2024:05:0" + std::to_string(i) + " 10:00:00"});
    desktop::PlatformOptions options;
    options.libraryRoot = library();
    options.permissionPrompt = [](desktop::PermissionKind) { return platform::AuthorizationStatus::Authorized; };
    options.confirmPrompt = [this](const std::string& message) {
      questions.push_back(message);
      return true;
    };
    platform = std::make_unique<desktop::Platform>(std::move(options));
    platform::Services services = platform::services();
    files = std::make_shared<FailingWrites>(services.fileManager);
    services.fileManager = files;
    platform::install(services);
    platform::photoLibrary().requestAuthorization([](platform::AuthorizationStatus) {});
    env.runUntilIdle();

    shell::registerMainStoryboard();
    nav = std::make_shared<kit::NavigationController>(
        kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("SecretSpaceVC"));
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    env.runUntilIdle();
  }
  void TearDown() override {
    kit::ToastManager::shared().hideAllToasts();
    nav.reset();
    platform::install(platform::Services{});
  }

  // Hides the item at `index` of the picker (newest first) and answers "Remove".
  void importAndRemove(int index) {
    auto list = kit::Storyboard::named("Main").instantiate<SecretFilesVC>("SecretFilesVC");
    nav->pushViewController(list, false);
    env.runUntilIdle();
    list->openGallery();
    env.runUntilIdle();
    auto picker = std::dynamic_pointer_cast<SecretDataViewController>(nav->viewControllers().back());
    ASSERT_TRUE(picker);
    picker->galleryCollectionView->userSelectItem({0, index});
    env.runUntilIdle();
    picker->addNewPressed();
    env.runUntilIdle();
    auto alert = std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
    ASSERT_TRUE(alert);
    ASSERT_TRUE(alert->chooseActionTitled("Remove"));
    env.runUntilIdle();
  }

  void expectTrashed(const std::string& name) {
    EXPECT_NE(::access((library() + "/" + name).c_str(), F_OK), 0) << name << " is still in the library";
    EXPECT_EQ(::access((trash() + "/files/" + name).c_str(), F_OK), 0) << name << " is not in the Trash";
    auto record = desktop::readWholeFile(trash() + "/info/" + name + ".trashinfo");
    ASSERT_TRUE(record) << name;
    std::regex valid("\\[Trash Info\\]\nPath=(.*)\nDeletionDate=\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(*record, match, valid)) << *record;
    EXPECT_EQ(match[1].str(), library() + "/" + name);
  }
};

TEST_F(SecretFilesTrashTest, RemovedOriginalsGoToTheTrashAlsoWithoutAStillInTheStore) {
  // The newest first: IMG_3, IMG_2, IMG_1. The first import's still cannot be written.
  files->failNext = 1;
  importAndRemove(0);
  EXPECT_TRUE(desktop::testing::listFolder(store()).empty());
  bool reported = false;
  for (const auto& line : console.lines())
    reported |= line.rfind("error: Error Domain=NSCocoaErrorDomain Code=640 \"No space left on device\"", 0) == 0;
  EXPECT_TRUE(reported);
  expectTrashed("IMG_3.jpg");

  importAndRemove(0);  // IMG_2 is now the newest
  auto stills = desktop::testing::listFolder(store());
  ASSERT_EQ(stills.size(), 1u);
  EXPECT_NE(stills[0].find("_Optional(\"jpg\")"), std::string::npos) << stills[0];
  auto still = platform::imageCodec().imageWithContentsOfFile(store() + "/" + stills[0]);
  ASSERT_TRUE(still);
  EXPECT_LE(std::max(still->pixelWidth(), still->pixelHeight()), 100);
  expectTrashed("IMG_2.jpg");

  EXPECT_EQ(questions, (std::vector<std::string>{"Allow Solvanta to delete 1 items?", "Allow Solvanta to delete 1 items?"}));
  EXPECT_EQ(::access((library() + "/IMG_1.jpg").c_str(), F_OK), 0);
}

TEST_F(SecretFilesTrashTest, TheStoreIsPrivateAndAFailedWriteLeavesNothingBehind) {
  platform::Error error;
  ASSERT_TRUE(ensureFolder(store(), &error));
  struct stat st {};
  ASSERT_EQ(::stat(store().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  auto& real = platform->files();
  ASSERT_TRUE(real.writeData({1, 2, 3}, store() + "/kept", &error));
  {
    desktop::testing::PermissionsEnforced enforced;
    ASSERT_EQ(::chmod(store().c_str(), 0500), 0);
    EXPECT_FALSE(real.writeData({4, 5, 6}, store() + "/new", &error));
    EXPECT_FALSE(real.writeData({4, 5, 6}, store() + "/kept", &error));
    ASSERT_EQ(::chmod(store().c_str(), 0700), 0);
  }
  EXPECT_EQ(desktop::testing::listFolder(store()), std::vector<std::string>{"kept"});
  EXPECT_EQ(*real.contentsAtPath(store() + "/kept", &error), (std::vector<std::uint8_t>{1, 2, 3}));
  // A link out of the folder is listed but never read as a picture.
  ASSERT_EQ(::symlink((library() + "/IMG_1.jpg").c_str(), (store() + "/escape").c_str()), 0);
  auto rows = readRows(store(), &error);
  ASSERT_TRUE(rows);
  EXPECT_EQ(rows->size(), 2u);
  EXPECT_FALSE(platform::imageCodec().imageWithContentsOfFile(store() + "/escape"));
  EXPECT_TRUE(platform::imageCodec().imageWithContentsOfFile(library() + "/IMG_1.jpg"));
  // Removing from the store moves to the Trash too.
  ASSERT_TRUE(real.removeItemAtPath(store() + "/kept", &error));
  EXPECT_EQ(::access((trash() + "/files/kept").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace vault
