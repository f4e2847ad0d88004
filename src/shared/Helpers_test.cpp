#include <gtest/gtest.h>

#include "kit/Console.h"
#include "kit/NavigationController.h"
#include "kit/Views.h"
#include "kit/Window.h"
#include "shared/AssetImages.h"
#include "shared/CollectionViewFlowLayOut.h"
#include "shared/FullAdsCount.h"
#include "shared/PreferenceKeys.h"
#include "shared/ViewHelpers.h"
#include "sim/World.h"

namespace {

struct HelpersTest : ::testing::Test {
  sim::World world;
};

TEST_F(HelpersTest, AFreshStoreReadsZeroValuesForEveryKey) {
  auto& d = platform::preferences();
  for (const char* key : {shared::IS_PIN_SET, shared::SINGLE_TIME_CALL, shared::LOGIN_STATUS, shared::CHECK_STATUS,
                          shared::KEY_CONTROLLER_STATE_CHECK}) {
    EXPECT_FALSE(d.boolForKey(key)) << key;
  }
  for (const char* key : {shared::FULLSERVICECOUNT, shared::OPEN_ADS_COUNT, shared::VAULT_ITEM_COUNT}) {
    EXPECT_EQ(d.integerForKey(key), 0) << key;
  }
  EXPECT_FALSE(d.stringForKey(shared::SAVE_PIN));
  EXPECT_FALSE(d.arrayForKey(shared::CONTACT_DATA_NAME));
}

TEST_F(HelpersTest, SaveFullAdsCountCountsOnNegativeAndStoresOtherwise) {
  kit::ConsoleCapture console;
  shared::SaveFullAdsCount(0);
  EXPECT_FALSE(platform::preferences().objectForKey(shared::FULLSERVICECOUNT).isNull());
  shared::SaveFullAdsCount(-1);
  shared::SaveFullAdsCount(-7);
  EXPECT_EQ(shared::GetFullAdsCount(), 2);
  shared::SaveFullAdsCount(5);
  EXPECT_EQ(shared::GetFullAdsCount(), 5);
  EXPECT_EQ(console.lines(), (std::vector<std::string>{"dataCheck 0  0 0", "dataCheck -1  1 0", "dataCheck -7  2 1",
                                                        "GetFullAdsCount 2", "dataCheck 5  5 2", "GetFullAdsCount 5"}));
}

TEST_F(HelpersTest, SaveFullAdsCountOverflowIsFatal) {
  platform::preferences().setInteger(INT64_MAX, shared::FULLSERVICECOUNT);
  EXPECT_THROW(shared::SaveFullAdsCount(-1), kit::FatalError);
  EXPECT_EQ(platform::preferences().integerForKey(shared::FULLSERVICECOUNT), INT64_MAX);
}

TEST_F(HelpersTest, ColorFromHexParsesLikeTheScanner) {
  kit::Color accent = shared::colorFromHex("2485EF");
  EXPECT_DOUBLE_EQ(accent.red, 0x24 / 255.0);
  EXPECT_DOUBLE_EQ(accent.green, 0x85 / 255.0);
  EXPECT_DOUBLE_EQ(accent.blue, 0xEF / 255.0);
  EXPECT_EQ(shared::colorFromHex("  #2485ef\n"), accent);
  EXPECT_EQ(shared::colorFromHex("#FFF"), kit::Color::gray());
  EXPECT_EQ(shared::colorFromHex(""), kit::Color::gray());
  EXPECT_EQ(shared::colorFromHex("##2485E"), kit::Color::black());  // scan stops at the second "#"
  EXPECT_EQ(shared::colorFromHex("12ZZ56"), shared::colorFromHex("000012"));  // scans as far as it can
  EXPECT_EQ(shared::colorFromHex("525252"), kit::Color::rgb(0x52, 0x52, 0x52));
  // The scanner skips whitespace before the number, any the platform counts as such.
  EXPECT_EQ(shared::colorFromHex("# 2485E"), kit::Color::rgb(0x02, 0x48, 0x5E));
  EXPECT_EQ(shared::colorFromHex("#\u00A02485E"), kit::Color::rgb(0x02, 0x48, 0x5E));
  EXPECT_EQ(shared::colorFromHex("\u20030x2485"), kit::Color::rgb(0x00, 0x24, 0x85));
  // Lengths count characters (UTF-16 units), after a Unicode upper-casing that may grow them.
  EXPECT_EQ(shared::colorFromHex("\u00E912345"), kit::Color::black());  // six, "É" stops the scan
  EXPECT_EQ(shared::colorFromHex("\u00DF12345"), kit::Color::gray());    // "ß" becomes "SS": seven
  EXPECT_EQ(shared::colorFromHex("\u2028#2485ef\u3000"), accent);       // trimmed at both ends
}

TEST_F(HelpersTest, RoundCornersMasksTopCornersWithAShadow) {
  auto view = kit::make<kit::View>(kit::makeRect(0, 0, 300, 200));
  view->setCornerRadius(8);
  shared::roundCorners(*view, 3, 20.0);
  EXPECT_EQ(view->maskedCorners(), kit::kRectCornerTopLeft | kit::kRectCornerTopRight);
  EXPECT_DOUBLE_EQ(view->maskCornerRadius(), 20.0);
  EXPECT_DOUBLE_EQ(view->cornerRadius(), 0.0);
  EXPECT_EQ(view->shadowColor(), kit::Color::gray());
  EXPECT_DOUBLE_EQ(view->shadowOpacity(), 0.5);
  EXPECT_DOUBLE_EQ(view->shadowRadius(), 4.0);
}

TEST_F(HelpersTest, ForceLightStyleNeedsVersion13) {
  auto window = kit::make<kit::Window>();
  platform::application().addWindow(window);
  world.platform.device().version = "12.4";
  shared::forceLightInterfaceStyle();
  EXPECT_EQ(window->overrideUserInterfaceStyle(), 0);
  world.platform.device().version = "13.0";
  shared::forceLightInterfaceStyle();
  EXPECT_EQ(window->overrideUserInterfaceStyle(), 1);
}

TEST_F(HelpersTest, ItemSizeFollowsTheCollectionsWidth) {
  auto collection = kit::make<kit::CollectionView>();
  auto layout = std::make_shared<shared::CollectionViewFlowLayOut>();
  collection->setCollectionViewLayout(layout);
  collection->setFrame(kit::makeRect(0, 0, 320, 150));
  EXPECT_EQ(layout->itemSize(), (kit::Size{100.0, 140.0}));
  layout->setItemSize({10, 10});
  EXPECT_EQ(layout->itemSize(), (kit::Size{100.0, 140.0}));
  EXPECT_EQ(layout->scrollDirection(), 1);
  EXPECT_DOUBLE_EQ(layout->minimumLineSpacing(), 1.0);
}

TEST_F(HelpersTest, AssetImageHelpers) {
  auto photo = sim::photo(100, "p");
  auto video = sim::video(100, 3, "v");
  EXPECT_TRUE(shared::thumbnailForAsset(photo));
  auto full = shared::fullImageForAsset(photo);
  EXPECT_FALSE(full->isEmpty());
  auto forVideo = shared::fullImageForAsset(video);
  ASSERT_TRUE(forVideo);
  EXPECT_TRUE(forVideo->isEmpty());
  world.platform.images().failAssets({"p"});
  EXPECT_EQ(shared::thumbnailForAsset(photo), nullptr);
  EXPECT_TRUE(shared::fullImageForAsset(photo)->isEmpty());
  EXPECT_EQ(*shared::fileNameOfAsset(video)->rbegin(), 'V');
}

TEST_F(HelpersTest, ThumbnailForVideoURLPrintsItsFailure) {
  kit::ConsoleCapture console;
  world.platform.frames().addVideo("file:///a.mov");
  EXPECT_TRUE(shared::thumbnailForVideoURL("file:///a.mov"));
  EXPECT_TRUE(console.lines().empty());
  EXPECT_EQ(shared::thumbnailForVideoURL("file:///missing.mov"), nullptr);
  EXPECT_EQ(console.lines().size(), 1u);
}

TEST_F(HelpersTest, DismissKeyboardEndsEditing) {
  auto vc = std::make_shared<kit::ViewController>();
  auto field = kit::make<kit::TextField>();
  vc->view().addSubview(field);
  field->becomeFirstResponder();
  shared::dismissKeyboard(*vc);
  EXPECT_FALSE(field->isFirstResponder());
  // Also an action of every controller by name, as a tap recogniser's target names it.
  field->becomeFirstResponder();
  EXPECT_TRUE(vc->performAction("dismissKeyboard"));
  EXPECT_FALSE(field->isFirstResponder());
}

}  // namespace
