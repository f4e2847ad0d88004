// The share sheet with files: which actions it offers, and "Save to…" copying into a folder
// without replacing what is there.
#include <gtest/gtest.h>

#include "kit/Console.h"
#include "shell/Feedback.h"
#include "sim/World.h"

namespace shell {
namespace {

std::vector<std::string> titles(std::vector<std::string> items) {
  auto sheet = std::make_shared<ActivityViewController>(std::move(items));
  std::vector<std::string> out;
  for (const auto& action : sheet->actions()) out.push_back(action->title().value_or(""));
  return out;
}

TEST(SharingTest, FileUrlsAloneAddSavingAndTheFolder) {
  sim::World world;
  EXPECT_EQ(titles({"file:///a/b"}),
            (std::vector<std::string>{"Save to\u2026", "Show in Folder", "Copy", "Mail", "Cancel"}));
  EXPECT_EQ(titles({"file:///a/b", "https://example.com"}),
            (std::vector<std::string>{"Copy", "Mail", "Cancel"}));
  EXPECT_EQ(titles({"/a/b"}), (std::vector<std::string>{"Copy", "Mail", "Cancel"}));
  EXPECT_EQ(titles(std::vector<std::string>{}), (std::vector<std::string>{"Copy", "Mail", "Cancel"}));
}

TEST(SharingTest, SavingKeepsWhatIsThereAndReportsWhatCouldNotBeRead) {
  sim::World world;
  kit::ConsoleCapture console;
  world.platform.files().putFile("/sim/Documents/Cleaner/a", {1, 2});
  world.platform.files().putFile("/sim/Exports/a", {9});
  world.platform.files().putFile("/sim/Exports/a 2", {8});
  std::vector<std::string> urls = {platform::fileURLWithPath("/sim/Documents/Cleaner/a"),
                                   platform::fileURLWithPath("/sim/Documents/Cleaner/gone")};
  EXPECT_EQ(saveFilesToFolder(urls, "/sim/Exports"), 1);
  EXPECT_EQ(world.platform.files().namesIn("/sim/Exports"), (std::vector<std::string>{"a", "a 2", "a 3"}));
  EXPECT_EQ(*world.platform.files().bytesAt("/sim/Exports/a"), std::vector<std::uint8_t>{9});
  EXPECT_EQ(*world.platform.files().bytesAt("/sim/Exports/a 3"), (std::vector<std::uint8_t>{1, 2}));
  ASSERT_EQ(console.lines().size(), 2u);
  EXPECT_EQ(console.lines()[0].rfind("Could not save gone: Error Domain=NSCocoaErrorDomain Code=260", 0), 0u)
      << console.lines()[0];
  EXPECT_EQ(console.lines()[1], "Saved 1 files to /sim/Exports");
}

}  // namespace
}  // namespace shell
