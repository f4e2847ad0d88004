#include "flow/FlowFile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <unistd.h>

namespace flow {
namespace {

// The error a text raises, as "LINE: message".
std::string errorOf(const std::string& text) {
  try {
    parseFlow("f.yaml", text);
  } catch (const FlowSyntaxError& e) {
    return std::to_string(e.line()) + ": " + e.what();
  }
  return "no error";
}

TEST(FlowFileTest, HeaderWorldAndCommandsAreRead) {
  Flow flow = parseFlow("f.yaml",
                        "appId: solvanta\n"
                        "world:\n"
                        "  now: \"2026-03-01T08:00:00+01:00\"\n"
                        "  timeZone: \"-05:30\"\n"
                        "  photos:\n"
                        "    - {name: A.JPG, created: \"2023-06-10T09:15:00Z\"}\n"
                        "    - {created: null}\n"
                        "    - {}\n"
                        "  videos: [{duration: 10.5}]\n"
                        "  answers: {photos: never}\n"
                        "  ads: {interstitial: noFill, latency: 2}\n"
                        "  preferences: {FULLSERVICECOUNT: 3, IS_PIN_SET: true}\n"
                        "---\n"
                        "- launchApp\n"
                        "- tapOn: {id: tableView, section: 0, row: 1}\n"
                        "- repeat:\n"
                        "    times: 2\n"
                        "    commands: [back, {advance: 1.5}]\n");
  EXPECT_DOUBLE_EQ(flow.world.now, 1772348400.0);
  EXPECT_EQ(flow.world.timeZoneOffset, -(5 * 3600 + 30 * 60));
  ASSERT_EQ(flow.world.photos.size(), 3u);
  EXPECT_EQ(flow.world.photos[0].name, "A.JPG");
  EXPECT_DOUBLE_EQ(*flow.world.photos[0].created, 1686388500.0);
  EXPECT_EQ(flow.world.photos[1].name, "IMG_2.JPG");
  EXPECT_FALSE(flow.world.photos[1].created.has_value());
  // Unstated dates are a minute apart, so that defaults never make duplicates.
  EXPECT_DOUBLE_EQ(*flow.world.photos[2].created, 1735689600.0 + 120);
  EXPECT_EQ(flow.world.videos[0].name, "VID_1.MOV");
  EXPECT_DOUBLE_EQ(flow.world.videos[0].duration, 10.5);
  EXPECT_EQ(flow.world.photosAnswer, Answer::Never);
  EXPECT_FALSE(flow.world.adFill.at("interstitial"));
  EXPECT_TRUE(flow.world.adFill.at("banner"));
  EXPECT_EQ(flow.world.preferences.at("FULLSERVICECOUNT").asInteger(), 3);
  EXPECT_EQ(flow.world.preferences.at("IS_PIN_SET").asBool(), true);

  ASSERT_EQ(flow.steps.size(), 3u);
  EXPECT_EQ(flow.steps[0].command, "launchApp");
  EXPECT_EQ(flow.steps[0].line, 14);
  EXPECT_EQ(flow.steps[1].line, 15);
  EXPECT_EQ(flow.steps[2].times, 2);
  ASSERT_EQ(flow.steps[2].steps.size(), 2u);
  EXPECT_EQ(flow.steps[2].steps[1].command, "advance");
  EXPECT_EQ(flow.steps[2].steps[1].line, 18);
}

TEST(FlowFileTest, AListAloneIsAFlowOnTheDefaultWorld) {
  Flow flow = parseFlow("f.yaml", "- launchApp\n- assertScreen: HomeVC\n");
  EXPECT_EQ(flow.steps.size(), 2u);
  EXPECT_EQ(flow.world.photoAccess, "notDetermined");
  EXPECT_TRUE(flow.world.eagerMain);
}

TEST(FlowFileTest, FaultsNameTheirLineAndTheKnownNames) {
  EXPECT_EQ(errorOf("- launchApp\n- tapOnn: x\n").substr(0, 30), "2: unknown command 'tapOnn' (k");
  EXPECT_NE(errorOf("- tapOnn: x\n").find("takeScreenshot, tapOn, waitFor"), std::string::npos);
  EXPECT_NE(errorOf("world: {photoz: []}\n---\n- back\n").find("1: world: unknown key 'photoz' (known: now, "),
            std::string::npos);
  EXPECT_EQ(errorOf("appId: other\n---\n- back\n"), "1: appId: expected solvanta");
  EXPECT_EQ(errorOf("appId: solvanta\nname: x\n---\n[]\n"), "2: unknown header key 'name' (known: appId, world)");
  EXPECT_EQ(errorOf("- launchApp\n- advance: -1\n"),
            "2: advance: expected seconds, 0 or more (the clock never goes back)");
  EXPECT_EQ(errorOf("- tapOn: {id: x, colour: red}\n"),
            "1: tapOn: unknown key 'colour' (known: id, text, index, section, row, in)");
  EXPECT_EQ(errorOf("- tapOn: {index: 2}\n"), "1: tapOn: a selector needs id or text");
  EXPECT_EQ(errorOf("- tapOn: {id: t, index: 1, row: 2}\n"), "1: tapOn: index and section/row exclude each other");
  EXPECT_EQ(errorOf("- assertVisible: {text: a, enabled: maybe}\n"), "1: assertVisible: enabled: expected true or false");
  EXPECT_EQ(errorOf("- repeat: {times: -1, commands: []}\n"), "1: repeat: times: expected a count from 0 to 10000");
  EXPECT_EQ(errorOf("- back: now\n"), "1: back: takes no argument");
  EXPECT_EQ(errorOf("- {back: null, dump: null}\n"), "1: a command is a name, or a map of one name to its argument");
  EXPECT_EQ(errorOf("- takeScreenshot: ../x\n"),
            "1: takeScreenshot: expected a name of letters, digits, '-', '_' and '.'");
  EXPECT_EQ(errorOf("- waitFor: {visible: a, screen: HomeVC}\n"),
            "1: waitFor: expected exactly one of visible, notVisible, screen");
}

TEST(FlowFileTest, WorldValuesOfTheWrongTypeOrRange) {
  auto world = [](const std::string& body) { return errorOf("world:\n  " + body + "\n---\n- back\n"); };
  EXPECT_EQ(world("now: yesterday"), "2: world.now: expected a time like \"2026-01-01T12:00:00Z\"");
  EXPECT_EQ(world("photoAccess: granted"),
            "2: world.photoAccess: expected one of notDetermined | restricted | denied | authorized | limited");
  EXPECT_EQ(world("photos: {name: x}"), "2: world.photos: expected a list of assets");
  EXPECT_EQ(world("photos: [{created: \"2023-13-01\"}]"),
            "2: world.photos: item 1: created: expected a time like \"2023-06-10T09:15:00Z\" or null");
  EXPECT_EQ(world("videos: [{duration: -2}]"), "2: world.videos: item 1: duration: expected seconds, 0 or more");
  EXPECT_EQ(world("disk: {freeBytes: lots}"), "2: world.disk: freeBytes: expected a whole number of bytes, 0 or more");
  EXPECT_EQ(world("eagerMain: 1"), "2: world.eagerMain: expected true or false");
  EXPECT_EQ(world("answers: {delete: never}"), "2: world.answers: delete: never is not available (allow | deny)");
  EXPECT_EQ(world("photos: [{name: A}, {name: A}]"), "2: world: two assets are named 'A'");
  EXPECT_EQ(world("timeZone: Mars/Base"), "2: world.timeZone: expected UTC or an offset like +02:00");
}

TEST(FlowFileTest, SecretFilesWorldValuesOfTheWrongTypeOrRange) {
  auto world = [](const std::string& body) { return errorOf("world:\n  " + body + "\n---\n- back\n"); };
  EXPECT_EQ(world("camera: front"), "2: world.camera: expected one of available | none");
  EXPECT_EQ(world("captures: [photo, flash]"), "2: world.captures: expected one of photo | video | nothing | unreadable");
  EXPECT_EQ(world("captures: photo"), "2: world.captures: expected a list of photo, video, nothing or unreadable");
  EXPECT_EQ(world("secretFiles: [{name: a/b}]"), "2: world.secretFiles: name: expected a file name without \"/\"");
  EXPECT_EQ(world("secretFiles: [{name: a, kind: movie}]"),
            "2: world.secretFiles: kind: expected one of photo | text | empty | folder | link");
  EXPECT_EQ(world("writableBytes: -1"), "2: world.writableBytes: expected unlimited or a whole number of bytes, 0 or more");
  EXPECT_EQ(world("share: maybe"), "2: world.share: expected one of completes | cancels");
  EXPECT_EQ(world("writableBytes: unlimited"), "no error");
}

TEST(FlowFileTest, InterstitialFormatsAreOneOrAListInOrder) {
  auto formats = [](const std::string& value) {
    return parseFlow("f.yaml", "world:\n  ads: {format: " + value + "}\n---\n- back\n").world.interstitialFormats;
  };
  EXPECT_EQ(formats("video"), std::vector<std::string>{"video"});
  EXPECT_EQ(formats("[image, image, video]"), (std::vector<std::string>{"image", "image", "video"}));
  EXPECT_EQ(parseFlow("f.yaml", "- back\n").world.interstitialFormats, std::vector<std::string>{"image"});
  auto world = [](const std::string& body) { return errorOf("world:\n  " + body + "\n---\n- back\n"); };
  EXPECT_EQ(world("ads: {format: gif}"), "2: world.ads: format: expected one of image | video, or a list of them");
  EXPECT_EQ(world("ads: {format: [image, gif]}"), "2: world.ads: format: expected one of image | video");
  EXPECT_EQ(world("ads: {format: []}"), "2: world.ads: format: expected image or video, or a list of them");
}

TEST(FlowFileTest, AliasesThatContainThemselvesAreRefused) {
  EXPECT_EQ(errorOf("- tapOn: &s {id: x, in: *s}\n").substr(0, 20), "1: tapOn: in: in: in");
  EXPECT_NE(errorOf("- tapOn: &s {id: x, in: *s}\n").find("selectors nest too deeply"), std::string::npos);
  EXPECT_NE(errorOf("- &r {repeat: {times: 1, commands: [*r]}}\n").find("commands nest too deeply"), std::string::npos);
  // Aliases that multiply: three to the sixteenth commands from three lines.
  EXPECT_EQ(errorOf("- &a {repeat: {times: 1, commands: [back, back, back]}}\n"
                    "- &b {repeat: {times: 1, commands: [*a, *a, *a]}}\n"
                    "- &c {repeat: {times: 1, commands: [*b, *b, *b]}}\n"
                    "- &d {repeat: {times: 1, commands: [*c, *c, *c]}}\n"
                    "- &e {repeat: {times: 1, commands: [*d, *d, *d]}}\n"
                    "- &f {repeat: {times: 1, commands: [*e, *e, *e]}}\n"
                    "- &g {repeat: {times: 1, commands: [*f, *f, *f]}}\n"
                    "- &h {repeat: {times: 1, commands: [*g, *g, *g]}}\n"
                    "- &i {repeat: {times: 1, commands: [*h, *h, *h]}}\n"
                    "- &j {repeat: {times: 1, commands: [*i, *i, *i]}}\n"
                    "- &k {repeat: {times: 1, commands: [*j, *j, *j]}}\n"),
            "1: more than 100000 commands in all");
}

TEST(FlowFileTest, YamlThatDoesNotParseNamesItsLine) {
  EXPECT_EQ(errorOf("- launchApp\n- tapOn: {id: x\n- back\n").substr(0, 20), "4: not valid YAML: e");
  EXPECT_EQ(errorOf("a: 1\n---\n- b\n---\n- c\n").substr(0, 40), "4: a flow is a header, '---', and a list");
  // A stray comma after the last node: the reader would find documents without end.
  EXPECT_EQ(errorOf(",").substr(0, 40), "1: a flow is a header, '---', and a list");
  EXPECT_EQ(errorOf("- launchApp\n,\n").substr(0, 40), "2: a flow is a header, '---', and a list");
  EXPECT_EQ(errorOf("appId: solvanta\n---\nlaunchApp: {}\n"), "3: expected a list of commands");
}

TEST(FlowFileTest, RunFlowReadsItsFileRelativeToTheFlowAndRefusesCycles) {
  auto dir = std::filesystem::temp_directory_path() / ("flowfile-test-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir / "sub");
  std::ofstream(dir / "main.yaml") << "- launchApp\n- runFlow: sub/open.yaml\n";
  std::ofstream(dir / "sub/open.yaml") << "appId: solvanta\n---\n- back\n- tapOn: Go\n";
  std::ofstream(dir / "loop.yaml") << "- runFlow: loop2.yaml\n";
  std::ofstream(dir / "loop2.yaml") << "- back\n- runFlow: loop.yaml\n";
  std::ofstream(dir / "missing.yaml") << "- runFlow: nowhere.yaml\n";

  Flow flow = loadFlowFile((dir / "main.yaml").string());
  ASSERT_EQ(flow.steps[1].steps.size(), 2u);
  EXPECT_EQ(flow.steps[1].steps[1].file, (dir / "sub/open.yaml").string());
  EXPECT_EQ(flow.steps[1].steps[1].line, 4);

  try {
    loadFlowFile((dir / "loop.yaml").string());
    ADD_FAILURE() << "a cycle parsed";
  } catch (const FlowSyntaxError& e) {
    EXPECT_EQ(e.file(), (dir / "loop2.yaml").string());
    EXPECT_EQ(e.line(), 2);
    EXPECT_NE(std::string(e.what()).find("runs itself in the end"), std::string::npos);
  }
  try {
    loadFlowFile((dir / "missing.yaml").string());
    ADD_FAILURE() << "a missing file parsed";
  } catch (const FlowSyntaxError& e) {
    EXPECT_EQ(e.located(), (dir / "missing.yaml").string() + ":1: runFlow: cannot read " + (dir / "nowhere.yaml").string());
  }
  // Only regular files are read: a device would never end.
  EXPECT_NE(errorOf("- runFlow: /dev/zero\n").find("runFlow: cannot read /dev/zero"), std::string::npos);
  std::filesystem::remove_all(dir);
}

TEST(FlowFileTest, Timestamps) {
  EXPECT_EQ(parseTimestamp("1970-01-01T00:00:00Z"), 0.0);
  EXPECT_EQ(parseTimestamp("2024-02-29"), 1709164800.0);
  EXPECT_EQ(parseTimestamp("2024-02-29T00:00:01.5-00:30"), 1709164800.0 + 1.5 + 1800);
  EXPECT_EQ(parseTimestamp("1969-12-31T23:59:59Z"), -1.0);
  for (const char* bad : {"", "2024-2-29", "2024-02-29T", "2024-02-29T25:00:00Z", "2024-02-29T10:00:00+5",
                          "2024-02-29T10:00:00.Z", "2024-02-29T10:00:00Zjunk"}) {
    EXPECT_FALSE(parseTimestamp(bad).has_value()) << bad;
  }
}

}  // namespace
}  // namespace flow
