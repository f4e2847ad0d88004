#include "flow/Runner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include <stdlib.h>

#include "flow/FlowCommand.h"

namespace flow {
namespace {

const char* const kWorld =
    "appId: solvanta\n"
    "world:\n"
    "  photoAccess: authorized\n"
    "  photos:\n"
    "    - {created: \"2023-06-10T09:15:00Z\"}\n"
    "    - {created: \"2023-06-10T09:15:02Z\"}\n"
    "    - {created: \"2023-06-10T10:00:00Z\"}\n"
    "---\n";

struct Played {
  FlowResult result;
  std::vector<StepReport> steps;
};

Played play(const std::string& commands, const std::string& header = kWorld) {
  Played p;
  RunOptions options;
  options.onStep = [&p](const StepReport& r) { p.steps.push_back(r); };
  p.result = runFlow(parseFlow("t.yaml", header + commands), options);
  return p;
}

// The failing command's line and message.
std::string failure(const Played& p) {
  if (p.result.passed) return "passed";
  return std::to_string(p.result.failure.line) + ": " + p.result.failure.command + ": " + p.result.failure.message;
}

TEST(RunnerTest, AJourneyThroughTheScanReadsWhatAPersonSees) {
  Played p = play(
      "- launchApp: {screen: HomeVC}\n"
      "- assertVisible: \"Total 3 photos\"\n"
      "- tapOn: {id: photoButton}\n"
      "- assertScreen: DuplicatePhotoVC\n"
      "- tapOn: \"Find Duplicate Photos\"\n"
      "- assertVisible: {id: cleanButton, text: \"Free up Space (1)\", enabled: true}\n"
      "- assertVisible: {id: headerCell, in: {id: tableView, row: 0}, text: \"Selected: 1\"}\n"
      "- tapOn: {id: collectionView, in: {id: tableView, row: 0}, index: 0}\n"
      "- assertVisible: {id: cleanButton, text: \"Free up Space (2)\"}\n"
      "- assertNotVisible: \"Find Duplicate Photos\"\n"
      "- assertConsole: progress2\n"
      "- assertPreference: {key: FULLSERVICECOUNT, equals: 1}\n");
  EXPECT_EQ(failure(p), "passed");
  EXPECT_EQ(p.result.commands, 12);
  ASSERT_EQ(p.steps.size(), 12u);
  EXPECT_EQ(p.steps[4].line, 13);
  EXPECT_TRUE(p.steps[4].ok);
}

TEST(RunnerTest, AFailureSaysWhatWasExpectedAndWhatWasFound) {
  Played p = play(
      "- launchApp: {screen: HomeVC}\n"
      "- assertVisible: \"Total 4 photos\"\n"
      "- back\n");
  EXPECT_EQ(p.result.failure.line, 10);
  EXPECT_NE(failure(p).find("10: assertVisible: expected \"Total 4 photos\" to be visible, found no such text on "
                            "HomeVC; shown: ["),
            std::string::npos)
      << failure(p);
  EXPECT_NE(failure(p).find("\"Total 3 photos\""), std::string::npos);
  EXPECT_EQ(p.result.screen["screen"], "HomeVC");
  // The run stops at the failure.
  EXPECT_EQ(p.result.commands, 2);
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_FALSE(p.steps[1].ok);
}

TEST(RunnerTest, SelectorsThatMatchNothingOrSeveralListTheCandidates) {
  EXPECT_NE(failure(play("- launchApp: {screen: HomeVC}\n- tapOn: {id: photoBtn}\n"))
                .find("no outlet 'photoBtn' on HomeVC (outlets: [adsView, menuButton, photoButton, secretButton"),
            std::string::npos);
  // The result screen shows "Selected: 1" in each of its two sections.
  const std::string twoSections =
      "appId: solvanta\n"
      "world:\n"
      "  photoAccess: authorized\n"
      "  photos: [{created: \"2023-01-01T00:00:00Z\"}, {created: \"2023-01-01T00:00:01Z\"},\n"
      "           {created: \"2023-02-01T00:00:00Z\"}, {created: \"2023-02-01T00:00:01Z\"}]\n"
      "---\n";
  Played several = play(
      "- launchApp: {screen: HomeVC}\n- tapOn: {id: photoButton}\n- tapOn: Find Duplicate Photos\n- assertVisible: \"Selected: 1\"\n"
      "- tapOn: \"Selected: 1\"\n",
      twoSections);
  EXPECT_NE(failure(several).find("11: tapOn: expected something to tap showing \"Selected: 1\", found only [Label "
                                  "headerCell \"Selected: 1\", Label headerCell \"Selected: 1\"]"),
            std::string::npos)
      << failure(several);
  Played index = play("- launchApp: {screen: HomeVC}\n- tapOn: {id: photoButton}\n- tapOn: Find Duplicate Photos\n"
                      "- tapOn: {id: tableView, index: 5}\n", twoSections);
  EXPECT_NE(failure(index).find("tableView index 5: the list shows 2 cells"), std::string::npos) << failure(index);
}

TEST(RunnerTest, QuestionsWaitWhenTheWorldNeverAnswers) {
  const std::string header =
      "world: {photos: [{}], answers: {photos: never}}\n"
      "---\n";
  Played p = play(
      "- launchApp: {screen: HomeVC}\n"
      "- tapOn: {id: photoButton}\n"
      "- assertVisible: \"Permission Needed\"\n"
      "- answerPrompt: allow\n"
      "- assertVisible: \"Find Duplicate Photos\"\n"
      "- answerPrompt: deny\n",
      header);
  EXPECT_EQ(failure(p), "8: answerPrompt: expected a question of the platform, found none waiting");
}

TEST(RunnerTest, WaitsMoveTheVirtualClockAndGiveUpAtTheirTimeout) {
  Played p = play(
      "- launchApp: {screen: HomeVC}\n"
      "- advance: 2.5\n"
      "- waitFor: {visible: \"Never shown\", timeout: 3}\n");
  EXPECT_EQ(failure(p).substr(0, 84),
            "11: waitFor: waited 3 virtual seconds for \"Never shown\" to be visible, found no such");
  EXPECT_NEAR(p.result.virtualTime, 5.5, 1e-3);
  EXPECT_NEAR(p.steps[1].virtualTime, 2.5, 1e-3);
  Played many = play("- repeat: {times: 10000, commands: [{repeat: {times: 10000, commands: [{assertAd: {shown: none}}]}}]}\n");
  EXPECT_EQ(failure(many), "9: assertAd: the flow ran more than 100000 commands");
  Played cap = play("- advance: 21000\n- advance: 601\n");
  EXPECT_EQ(failure(cap), "10: advance: the flow would move its clock past 21600 virtual seconds in all");
}

TEST(RunnerTest, ToastsAlertsAndTheLibraryAfterADeletion) {
  Played p = play(
      "- launchApp: {screen: HomeVC}\n"
      "- tapOn: {id: photoButton}\n"
      "- tapOn: Find Duplicate Photos\n"
      "- tapOn: {id: sectionDelete, in: {id: tableView, row: 0}}\n"
      "- assertAlert: {title: Delete Duplicate Media, actions: [\"No\", \"Yes\"]}\n"
      "- tapOn: \"Yes\"\n"
      "- assertToast: Deleted Successfully\n"
      "- assertLibrary: {photos: 2, deleted: [IMG_2.JPG]}\n"
      "- assertToast: Deleted Successfully\n"
      "- back\n"
      "- assertToast: Deleted Successfully\n");
  EXPECT_EQ(failure(p), "19: assertToast: expected the toast \"Deleted Successfully\", found no toast");
}

TEST(RunnerTest, FatalErrorsAndUnlaunchedAppsFailTheFlow) {
  EXPECT_EQ(failure(play("- tapOn: x\n")), "9: tapOn: the app is not running (launchApp first)");
  EXPECT_EQ(failure(play("- launchApp: {screen: HomeVC}\n- launchApp: {screen: HomeVC}\n")), "10: launchApp: the app is already running");
  EXPECT_NE(failure(play("- launchApp: {screen: NoSuchVC}\n")).find("no screen NoSuchVC in the storyboard (screens: ["),
            std::string::npos);
}

TEST(FlowCommandTest, ExitCodesAndReports) {
  char dir[] = "/tmp/flowcommand-test-XXXXXX";
  ASSERT_NE(mkdtemp(dir), nullptr);
  const std::string d = dir;
  std::FILE* good = std::fopen((d + "/a.yaml").c_str(), "w");
  std::fputs("- launchApp: {screen: HomeVC}\n- assertScreen: HomeVC\n", good);
  std::fclose(good);
  std::FILE* bad = std::fopen((d + "/b.yaml").c_str(), "w");
  std::fputs("- launchApp: {screen: HomeVC}\n- assertScreen: SettingVc\n", bad);
  std::fclose(bad);

  auto run = [](std::vector<std::string> args, std::string* out, std::string* err) {
    std::FILE* o = std::tmpfile();
    std::FILE* e = std::tmpfile();
    int code = runFlowCommand(args, o, e);
    for (auto [f, s] : {std::pair{o, out}, std::pair{e, err}}) {
      std::rewind(f);
      char buf[4096];
      s->clear();
      while (std::size_t n = std::fread(buf, 1, sizeof buf, f)) s->append(buf, n);
      std::fclose(f);
    }
    return code;
  };
  std::string out, err;
  EXPECT_EQ(run({d + "/a.yaml"}, &out, &err), 0);
  EXPECT_NE(out.find("PASS " + d + "/a.yaml"), std::string::npos);
  EXPECT_EQ(run({"--junit", d + "/r.xml", d}, &out, &err), 1);
  EXPECT_NE(err.find(d + "/b.yaml:2: assertScreen: expected the screen SettingVc, found HomeVC"), std::string::npos);
  EXPECT_NE(err.find("\"screen\": \"HomeVC\""), std::string::npos);
  EXPECT_NE(out.find("1 passed, 1 failed"), std::string::npos);
  std::FILE* xml = std::fopen((d + "/r.xml").c_str(), "r");
  ASSERT_NE(xml, nullptr);
  char buf[8192] = {};
  std::fread(buf, 1, sizeof buf - 1, xml);
  std::fclose(xml);
  EXPECT_NE(std::string(buf).find("tests=\"2\" failures=\"1\""), std::string::npos);
  EXPECT_NE(std::string(buf).find("<failure message=\"" + d + "/b.yaml:2: assertScreen: expected the screen SettingVc"),
            std::string::npos);

  EXPECT_EQ(run({"--json", d + "/a.yaml"}, &out, &err), 0);
  EXPECT_NE(out.find("{\"command\":\"assertScreen\",\"file\":\"" + d + "/a.yaml\",\"line\":2,\"message\":\"\",\"ok\":true,"
                     "\"virtualTime\":0.0}"),
            std::string::npos)
      << out;

  std::FILE* broken = std::fopen((d + "/c.yaml").c_str(), "w");
  std::fputs("- launchApp: {screen: HomeVC}\n- swipe: left\n", broken);
  std::fclose(broken);
  EXPECT_EQ(run({d}, &out, &err), 2);
  EXPECT_NE(err.find(d + "/c.yaml:2: unknown command 'swipe' (known: "), std::string::npos);
  EXPECT_EQ(out, "");  // nothing ran
  EXPECT_EQ(run({"--screenshots", d, d + "/a.yaml"}, &out, &err), 2);
  EXPECT_EQ(run({d + "/none.yaml"}, &out, &err), 2);
  std::filesystem::remove_all(d);
}

}  // namespace
}  // namespace flow
