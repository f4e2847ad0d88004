// The hidden files below the screens: names, rows, the import's copies and its removal
// question, the camera's files, deletions and their failures, on the simulated phone.
#include <gtest/gtest.h>

#include "kit/AlertController.h"
#include "kit/Console.h"
#include "kit/Fatal.h"
#include "shared/PreferenceKeys.h"
#include "sim/Camera.h"
#include "vault/ImagePreviewVC.h"
#include "vault/SecretDataViewController.h"
#include "vault/SecretFilesVC.h"
#include "vault/VaultFixture.h"

namespace vault {
namespace {

const std::string kFolder = "/sim/Documents/Cleaner";

TEST(SecretFileNames, FollowTheirFixedPatterns) {
  EXPECT_EQ(cameraImageName(1767268800), "Image(Function)_1767268800");
  EXPECT_EQ(cameraVideoName(1767268800), "CAMERA_VIDEO1767268800.MOV");
  EXPECT_EQ(importName("<Solvanta.SecretFile: 0x10>", 5, std::string("HEIC")),
            "Image<Solvanta.SecretFile: 0x10>_5_Optional(\"HEIC\")");
  EXPECT_EQ(importName("<Solvanta.SecretFile: 0x10>", 5, std::nullopt), "Image<Solvanta.SecretFile: 0x10>_5_nil");
  // Two picker objects alive at once never share a description, so never a name.
  SecretFile a(nullptr), b(nullptr);
  EXPECT_NE(describeSecretFile(&a), describeSecretFile(&b));
  EXPECT_EQ(describeSecretFile(&a).rfind("<Solvanta.SecretFile: 0x", 0), 0u);
}

TEST(SecretFileNames, TheVideoTestReadsTheEscapedUrlCaseSensitively) {
  std::string mov = platform::fileURLWithPath(kFolder + "/" + importName("<Solvanta.SecretFile: 0x1>", 1, "MOV"));
  EXPECT_NE(mov.find("Optional(%22MOV%22)"), std::string::npos) << mov;
  EXPECT_TRUE(isVideoType(mov));
  EXPECT_TRUE(isVideoType(platform::fileURLWithPath("/x/clip.MP4")));
  EXPECT_FALSE(isVideoType(platform::fileURLWithPath("/x/clip.mov")));
  EXPECT_FALSE(isVideoType(platform::fileURLWithPath("/x/Image(Function)_12")));
  EXPECT_TRUE(isCameraVideoPath("/x/CAMERA_VIDEO12.MOV"));
}

TEST(SecretFileNames, FileUrlsRoundTripAnyName) {
  for (std::string name : {"plain", "with space", "100%", "quote\"d<>", "ünï", "a#b?c", "Image(Function)_1"}) {
    std::string path = kFolder + "/" + name;
    std::string url = platform::fileURLWithPath(path);
    EXPECT_EQ(url.find(' '), std::string::npos);
    EXPECT_EQ(platform::pathOfFileURL(url), path) << url;
  }
  EXPECT_FALSE(platform::pathOfFileURL("https://example.com/a"));
  EXPECT_FALSE(platform::pathOfFileURL("file://relative"));
  EXPECT_EQ(pathExtension("IMG_1.HEIC"), "HEIC");
  EXPECT_EQ(pathExtension(".hidden"), "");
  EXPECT_EQ(pathExtension("noext"), "");
}

struct SecretFilesTest : VaultFixture {
  kit::ConsoleCapture console;

  void SetUp() override {
    VaultFixture::SetUp();
    world.env.setEagerMain(true);
    world.platform.photos().setStatus(platform::AuthorizationStatus::Authorized);
  }
  std::shared_ptr<SecretFilesVC> openFiles() {
    auto files = kit::Storyboard::named("Main").instantiate<SecretFilesVC>("SecretFilesVC");
    nav->pushViewController(files, false);
    world.env.runUntilIdle();
    return files;
  }
  std::shared_ptr<SecretDataViewController> openPicker(SecretFilesVC& files) {
    files.openGallery();
    world.env.runUntilIdle();
    return std::dynamic_pointer_cast<SecretDataViewController>(nav->viewControllers().back());
  }
  std::shared_ptr<kit::AlertController> alert() {
    return std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
  }
  std::vector<std::string> stored() { return world.platform.files().namesIn(kFolder); }
  bool printedStarting(const std::string& prefix) {
    for (const auto& line : console.lines()) {
      if (line.rfind(prefix, 0) == 0) return true;
    }
    return false;
  }
};

TEST_F(SecretFilesTest, ImportWritesOneStillPerPickedItemAndAsksOncePerItemWithAGrowingList) {
  world.platform.photos().setAssets({sim::photo(100, "p1"), sim::video(200, 3, "v1"), sim::photo(300, "p2")});
  auto files = openFiles();
  auto picker = openPicker(*files);
  ASSERT_TRUE(picker);
  ASSERT_EQ(picker->tempArray.size(), 3u);
  picker->galleryCollectionView->userSelectItem({0, 0});
  picker->galleryCollectionView->userSelectItem({0, 2});
  world.env.runUntilIdle();
  kit::tap(*picker->importBtn);
  world.env.runUntilIdle();
  // Two stills, each a JPEG of a 100 by 100 request, named after the library's extensions.
  auto names = stored();
  ASSERT_EQ(names.size(), 2u);
  for (const auto& name : names) {
    auto image = sim::ImageCodec::decode(*world.platform.files().bytesAt(kFolder + "/" + name));
    ASSERT_TRUE(image) << name;
    EXPECT_EQ(image->pixelWidth(), 64);  // the simulated library's largest thumbnail
  }
  // The second question came while the first was up, and was refused: only the first counts.
  ASSERT_TRUE(alert());
  EXPECT_EQ(alert()->alertTitle(), "Hide Media?");
  alert()->chooseActionTitled("Remove");
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), std::vector<std::string>{"p2"});
  EXPECT_EQ(topIdentifier(), "HomeVC");  // the picker popped, then the list
}

TEST_F(SecretFilesTest, AStillThatComesTooLateIsNotWrittenButRemovalIsStillOffered) {
  world.platform.cachingImages().setDeliversAtOnce(false);
  world.platform.photos().setAssets({sim::photo(100, "p1")});
  auto files = openFiles();
  auto picker = openPicker(*files);
  picker->selectUnselectAll();
  kit::tap(*picker->importBtn);
  world.env.runUntilIdle();
  EXPECT_TRUE(stored().empty());
  ASSERT_TRUE(alert());
  alert()->chooseActionTitled("Remove");
  world.env.runUntilIdle();
  // The photo leaves the library with no copy in the store: the desktop keeps it in the Trash.
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), std::vector<std::string>{"p1"});
}

TEST_F(SecretFilesTest, AFullDiskPrintsTheErrorLeavesNoFileAndTheQuestionStillComes) {
  world.platform.photos().setAssets({sim::photo(100, "p1"), sim::photo(200, "p2")});
  auto files = openFiles();
  world.platform.files().setWriteCapacity(0);
  auto picker = openPicker(*files);
  picker->selectUnselectAll();
  kit::tap(*picker->importBtn);
  world.env.runUntilIdle();
  EXPECT_TRUE(printedStarting("error: Error Domain=NSCocoaErrorDomain Code=640"));
  EXPECT_TRUE(stored().empty());
  ASSERT_TRUE(alert());
  alert()->chooseActionTitled("Cancel");
  world.env.runUntilIdle();
  EXPECT_TRUE(world.platform.photos().deletedIdentifiers().empty());
}

TEST_F(SecretFilesTest, TheImportNeedsBothDelegatesAndAnImageFromEveryRequest) {
  world.platform.photos().setAssets({sim::photo(100, "p1")});
  auto picker = kit::Storyboard::named("Main").instantiate<SecretDataViewController>("SecretDataViewController");
  nav->pushViewController(picker, false);
  world.env.runUntilIdle();
  EXPECT_THROW(picker->addNewPressed(), kit::FatalError);

  auto files = openFiles();
  auto second = openPicker(*files);
  world.platform.cachingImages().failAssets({"p1"});
  second->selectUnselectAll();
  EXPECT_THROW(second->addNewPressed(), kit::FatalError);
}

TEST_F(SecretFilesTest, TwoCameraPhotosInOneSecondKeepOneFileAndAMovieKeepsItsBytes) {
  world.platform.camera().queueCaptures({sim::Camera::Capture::Photo, sim::Camera::Capture::Photo,
                                         sim::Camera::Capture::Video});
  auto files = openFiles();
  files->openCamera();
  world.env.runUntilIdle();
  files->openCamera();
  world.env.runUntilIdle();
  EXPECT_EQ(stored().size(), 1u);
  files->openCamera();
  world.env.runUntilIdle();
  auto names = stored();
  ASSERT_EQ(names.size(), 2u);
  EXPECT_TRUE(isCameraVideoPath(names[0]));
  auto bytes = world.platform.files().bytesAt(kFolder + "/" + names[0]);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(std::string(bytes->begin(), bytes->end()), "sim movie 3");
  EXPECT_EQ(files->tempFile, platform::fileURLWithPath(kFolder + "/" + names[0]));
  EXPECT_EQ(files->totalLbl->text(), "Total : 2");
}

TEST_F(SecretFilesTest, AnUnreadableCaptureFileEndsTheProcess) {
  world.platform.camera().queueCaptures({sim::Camera::Capture::UnreadableVideo});
  auto files = openFiles();
  files->openCamera();
  EXPECT_THROW(world.env.runUntilIdle(), kit::FatalError);
  EXPECT_TRUE(stored().empty());
}

// Deleting "a" (whose removal fails) and "b": the loop decides by the rows' marks, which the
// first row's main-queue work clears when the main queue keeps up.
TEST_F(SecretFilesTest, AFailedRemovalHidesTheRowUntilTheNextReadingAndTheFirstDeletionClearsTheMarks) {
  for (bool eager : {true, false}) {
    SCOPED_TRACE(eager ? "main queue keeps up" : "main queue behind");
    world.env.setEagerMain(eager);
    world.platform.files().putFile(kFolder + "/a", {1});
    world.platform.files().putFile(kFolder + "/b", {2});
    world.platform.files().failRemovals({kFolder + "/a"});
    auto files = openFiles();
    files->longPressedWithLongPressGesture(kit::GestureState::Began, kit::IndexPath{0, 0});
    files->toggleSelectAll();
    files->confirmDeleteFiles();
    ASSERT_TRUE(alert());
    alert()->chooseActionTitled("Delete");
    world.env.runUntilIdle();
    EXPECT_TRUE(printedStarting("Could not delete file:  Error Domain=NSCocoaErrorDomain Code=4 "));
    EXPECT_FALSE(toasts().empty());
    EXPECT_EQ(files->counter, 0);
    EXPECT_EQ(files->selectedLbl->text(), "Selected : 0");
    if (eager) {
      // "b" was not reached before its mark went: it stays, in the list and on disk.
      EXPECT_EQ(files->list().size(), 1u);
      EXPECT_EQ(stored(), (std::vector<std::string>{"a", "b"}));
      EXPECT_EQ(defaults().integerForKey(shared::VAULT_ITEM_COUNT), 1);
    } else {
      EXPECT_EQ(files->list().size(), 0u);
      EXPECT_EQ(stored(), std::vector<std::string>{"a"});
      EXPECT_EQ(defaults().integerForKey(shared::VAULT_ITEM_COUNT), 0);
    }
    // The next reading finds the file that would not go.
    files->reloadFileList();
    world.env.runUntilIdle();
    EXPECT_EQ(files->list().size(), stored().size());
    nav->popViewControllerAnimated(false);
    world.env.runUntilIdle();
    kit::ToastManager::shared().hideAllToasts();
    world.platform.files().failRemovals({});
    for (const auto& name : stored()) world.platform.files().removeItemAtPath(kFolder + "/" + name, nullptr);
  }
}

TEST_F(SecretFilesTest, APreviewOfSomethingThatIsNoImageEndsTheProcess) {
  world.platform.files().putFile(kFolder + "/notes", {'h', 'i'});
  auto files = openFiles();
  EXPECT_THROW(
      {
        files->galleryCollectionView->userSelectItem({0, 0});
        world.env.runUntilIdle();
      },
      kit::FatalError);
}

// The second viewer, which no screen pushes: its name label, and the deletion of its asset
// from the photo library after "Alert!".
TEST_F(SecretFilesTest, PreviewVCShowsTheFileNameAndDeletesItsAssetAfterAYes) {
  auto data = platform::imageCodec().jpegData(kit::Image::fromPixels(2, 1, {1, 2, 3, 255, 4, 5, 6, 255}), 1.0);
  ASSERT_TRUE(data);
  world.platform.files().putFile("/pictures/My%20Photo.jpg", *data);
  auto asset = sim::photo(100, "p1");
  world.platform.photos().setAssets({asset, sim::photo(200, "p2")});
  auto preview = kit::Storyboard::named("Main").instantiate<PreviewVC>("PreviewVC");
  preview->imageUrl = platform::fileURLWithPath("/pictures/My%20Photo.jpg");
  preview->selectedImage = asset;
  nav->pushViewController(preview, false);
  world.env.runUntilIdle();
  EXPECT_EQ(preview->imageLabel->text(), "My%20Photo.jpg");
  EXPECT_TRUE(preview->imageView->image());

  preview->deleteButtonAction();
  ASSERT_TRUE(alert());
  EXPECT_EQ(alert()->alertTitle(), "Alert!");
  EXPECT_EQ(alert()->message(), "Are you sure you want to delete");
  alert()->chooseActionTitled("No");
  world.env.runUntilIdle();
  EXPECT_TRUE(world.platform.photos().deletedIdentifiers().empty());
  EXPECT_EQ(top(), preview.get());

  preview->deleteButtonAction();
  alert()->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  EXPECT_EQ(world.platform.photos().deletedIdentifiers(), std::vector<std::string>{"p1"});
  EXPECT_TRUE(printedStarting("Finished deleting asset. true"));
  EXPECT_NE(top(), preview.get());
  EXPECT_TRUE(defaults().boolForKey(shared::CHECK_STATUS));
}

TEST_F(SecretFilesTest, PreviewVCDeletingItsEmptyAssetChangesNothing) {
  auto data = platform::imageCodec().jpegData(kit::Image::fromPixels(1, 1, {1, 2, 3, 255}), 1.0);
  world.platform.files().putFile("/pictures/a.jpg", *data);
  world.platform.photos().setAssets({sim::photo(100, "p1")});
  world.platform.photos().setDeletionOutcome(sim::PhotoLibrary::DeletionOutcome::Fail);
  auto preview = kit::Storyboard::named("Main").instantiate<PreviewVC>("PreviewVC");
  preview->imageUrl = platform::fileURLWithPath("/pictures/a.jpg");
  nav->pushViewController(preview, false);
  world.env.runUntilIdle();
  preview->deleteButtonAction();
  alert()->chooseActionTitled("Yes");
  world.env.runUntilIdle();
  EXPECT_TRUE(printedStarting("Finished deleting asset. false"));
  EXPECT_TRUE(world.platform.photos().deletedIdentifiers().empty());
  EXPECT_FALSE(defaults().boolForKey(shared::CHECK_STATUS));
}

}  // namespace
}  // namespace vault
