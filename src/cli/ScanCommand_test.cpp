// `solvanta scan` as a person runs it: the built program on generated libraries, with its own
// home and the time zone the sample library's manifest names.
#include "cli/ScanCommand.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "samplegen/SampleMedia.h"

extern char** environ;

namespace cli {
namespace {

using Json = nlohmann::json;

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

struct Outcome {
  int status = -1;
  std::string out, err;
};

class ScanProgramTest : public ::testing::Test {
 protected:
  ScanProgramTest() {
    char pattern[] = "/tmp/solvanta-cli-XXXXXX";
    EXPECT_TRUE(::mkdtemp(pattern));
    dir_ = pattern;
    ::mkdir((dir_ + "/home").c_str(), 0700);
  }
  ~ScanProgramTest() override { run({"rm", "-rf", dir_}); }

  std::string path(const std::string& relative) const { return dir_ + "/" + relative; }

  // Runs `argv` (argv[0] a path or a name in PATH) with standard input from /dev/null, HOME
  // and the XDG folders in the test's folder, and TZ=UTC.
  Outcome run(const std::vector<std::string>& argv) const {
    std::vector<std::string> env = {"HOME=" + dir_ + "/home",
                                    "XDG_CONFIG_HOME=" + dir_ + "/home/.config",
                                    "XDG_DATA_HOME=" + dir_ + "/home/.local/share",
                                    "XDG_CACHE_HOME=" + dir_ + "/home/.cache", "TZ=UTC"};
    for (char** e = environ; *e; ++e) {
      std::string v = *e;
      if (v.rfind("HOME=", 0) && v.rfind("XDG_", 0) && v.rfind("TZ=", 0) && v.rfind("SOLVANTA_", 0))
        env.push_back(v);
    }
    std::vector<char*> envp, args;
    for (auto& v : env) envp.push_back(v.data());
    envp.push_back(nullptr);
    std::vector<std::string> copy = argv;
    for (auto& a : copy) args.push_back(a.data());
    args.push_back(nullptr);
    std::string outPath = dir_ + "/.stdout", errPath = dir_ + "/.stderr";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                     0600);
    pid_t pid = 0;
    Outcome result;
    if (posix_spawnp(&pid, args[0], &actions, nullptr, args.data(), envp.data()) == 0) {
      int status = 0;
      ::waitpid(pid, &status, 0);
      result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    posix_spawn_file_actions_destroy(&actions);
    result.out = slurp(outPath);
    result.err = slurp(errPath);
    return result;
  }

  Outcome scan(std::vector<std::string> args) const {
    args.insert(args.begin(), {SOLVANTA_PROGRAM, "scan"});
    return run(args);
  }

  // The sample library, written by the tool into the test's folder.
  std::string sample() const {
    std::string root = path("sample");
    Outcome made = run({SAMPLE_TOOL, root});
    EXPECT_EQ(made.status, 0) << made.err;
    return root;
  }

  void photo(const std::string& relative, const std::string& exifTime) const {
    std::string file = path(relative);
    ::mkdir(file.substr(0, file.find_last_of('/')).c_str(), 0755);
    auto bytes = samplegen::withExif(samplegen::encodeImage("JPEG", 16, 16, 1), {exifTime});
    ASSERT_TRUE(samplegen::writeFile(file, bytes));
  }

  static Json parse(const Outcome& r) {
    Json json = Json::parse(r.out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << r.out << r.err;
    return json;
  }

  // The sections of a JSON report as lists of paths relative to `root`.
  static std::vector<std::vector<std::string>> groups(const Json& report, const std::string& root) {
    std::vector<std::vector<std::string>> out;
    for (const auto& section : report["sections"]) {
      std::vector<std::string> members;
      for (const auto& m : section["members"]) {
        std::string p = m["path"];
        members.push_back(p.rfind(root + "/", 0) == 0 ? p.substr(root.size() + 1) : p);
      }
      out.push_back(members);
    }
    return out;
  }

 private:
  std::string dir_;
};

TEST_F(ScanProgramTest, SampleLibraryGivesTheManifestsPhotoSections) {
  std::string root = sample();
  Json manifest = Json::parse(slurp(root + "/.manifest.json"));
  Outcome r = scan({"--json", "--yes", "--library", root});
  ASSERT_EQ(r.status, 0) << r.err;
  Json report = parse(r);
  EXPECT_EQ(report["library"], root);
  EXPECT_EQ(report["media"], "photos");
  EXPECT_EQ(report["scanned"], manifest["photos"].size());
  EXPECT_EQ(groups(report, root),
            manifest["photoGroups"].get<std::vector<std::vector<std::string>>>());

  // The oldest of each section is kept, the rest marked.
  for (const auto& section : report["sections"]) {
    for (std::size_t i = 0; i < section["members"].size(); ++i) {
      EXPECT_EQ(section["members"][i]["markedForDeletion"], i > 0) << section;
    }
  }
  const Json& burst = report["sections"][0];
  EXPECT_EQ(burst["header"], "10-06-23");
  EXPECT_EQ(burst["members"][0]["captureTime"], "2023-06-10T09:15:00+0000");
  // A section closed across midnight is headed by its later day.
  bool midnight = false;
  for (const auto& section : report["sections"]) {
    if (section["members"][0]["path"] == root + "/2023-06-14/midnight_1.jpg") {
      midnight = true;
      EXPECT_EQ(section["header"], "15-06-23");
    }
  }
  EXPECT_TRUE(midnight);

  // What is no media, damaged or never walked.
  std::map<std::string, std::string> skipped;
  for (const auto& s : report["skipped"])
    skipped[s["path"].get<std::string>().substr(root.size() + 1)] = s["kind"];
  for (const auto& p : manifest["notMedia"]) EXPECT_EQ(skipped[p], "not media") << p;
  for (const auto& p : manifest["damaged"]) EXPECT_EQ(skipped[p], "damaged") << p;
  for (const auto& p : manifest["neverScanned"]) {
    EXPECT_EQ(r.out.find(root + "/" + p.get<std::string>()), std::string::npos) << p;
  }
  EXPECT_NE(r.err.find("3 files that are no photos or videos"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("2 symbolic links not followed"), std::string::npos) << r.err;
}

TEST_F(ScanProgramTest, SampleLibraryGivesTheManifestsVideoSections) {
  std::string root = sample();
  Json manifest = Json::parse(slurp(root + "/.manifest.json"));
  Outcome r = scan({"--videos", "--json", "--yes", "--library", root});
  ASSERT_EQ(r.status, 0) << r.err;
  Json report = parse(r);
  EXPECT_EQ(report["media"], "videos");
  EXPECT_EQ(report["scanned"], manifest["videos"].size());
  EXPECT_EQ(groups(report, root),
            manifest["videoGroups"].get<std::vector<std::vector<std::string>>>());
}

TEST_F(ScanProgramTest, TextLinesNameEachMember) {
  photo("lib/a.jpg", "2023:06:10 09:15:00");
  photo("lib/b.jpg", "2023:06:10 09:15:03");
  photo("lib/c.jpg", "2023:06:10 10:00:00");
  Outcome r = scan({"--yes", "--library", path("lib")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Library: " + path("lib") +
                       "\nPhotos: 3 scanned, 1 section of duplicates, 1 marked for deletion\n"
                       "\nSection 1 of 1 (10-06-23), 2 photos\n"
                       "  keep    2023-06-10 09:15:00  " +
                       path("lib/a.jpg") +
                       "\n"
                       "  delete  2023-06-10 09:15:03  " +
                       path("lib/b.jpg") + "\n");
  EXPECT_EQ(r.err, "");
}

TEST_F(ScanProgramTest, ScansThatSendNoFinishedEventStillEnd) {
  // One photo: the grouping ends without a word.
  photo("one/a.jpg", "2023:06:10 09:15:00");
  Outcome one = scan({"--yes", "--library", path("one")});
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_NE(one.out.find("Photos: 1 scanned, 0 sections"), std::string::npos) << one.out;
  EXPECT_NE(one.out.find("No duplicate photos found."), std::string::npos);

  ::mkdir(path("empty").c_str(), 0755);
  Outcome none = scan({"--yes", "--library", path("empty")});
  EXPECT_EQ(none.status, 0) << none.err;
  EXPECT_NE(none.out.find("Photos: 0 scanned"), std::string::npos) << none.out;
  Outcome noVideos = scan({"--videos", "--yes", "--library", path("empty")});
  EXPECT_EQ(noVideos.status, 0) << noVideos.err;
}

TEST_F(ScanProgramTest, TheLastSectionComingAfterTheFinishedEventIsPrinted) {
  // The only section is the last group, which is reported after the finished event.
  photo("pair/a.jpg", "2023:06:10 09:15:00");
  photo("pair/b.jpg", "2023:06:10 09:15:01");
  Outcome r = scan({"--json", "--yes", "--library", path("pair")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(groups(parse(r), path("pair")),
            (std::vector<std::vector<std::string>>{{"a.jpg", "b.jpg"}}));
}

TEST_F(ScanProgramTest, NamesThatAreNotUtf8KeepTheJsonValid) {
  photo("lib/cafe.jpg", "2023:06:10 09:15:00");
  photo("lib/caf\xE9.jpg", "2023:06:10 09:15:01");
  Outcome json = scan({"--json", "--yes", "--library", path("lib")});
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_EQ(groups(parse(json), path("lib")),
            (std::vector<std::vector<std::string>>{{"cafe.jpg", "caf\xEF\xBF\xBD.jpg"}}));
  // Text keeps the name's own bytes, as other tools print them.
  Outcome text = scan({"--library", path("lib")});
  EXPECT_NE(text.out.find(path("lib/caf\xE9.jpg") + "\n"), std::string::npos) << text.out;
}

TEST_F(ScanProgramTest, BadArgumentsAndUnreadableLibraries) {
  Outcome bad = scan({"--bogus"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_NE(bad.err.find("unknown argument '--bogus'"), std::string::npos);
  EXPECT_NE(bad.err.find("Usage: solvanta scan"), std::string::npos);
  EXPECT_EQ(scan({"--library"}).status, 2);
  EXPECT_EQ(scan({"--library", "a", "--library", "b"}).status, 2);

  Outcome help = scan({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out, kScanUsage);

  Outcome missing = scan({"--yes", "--library", path("missing")});
  EXPECT_EQ(missing.status, 3);
  EXPECT_NE(missing.err.find("cannot read the library " + path("missing") +
                             ": No such file or directory"),
            std::string::npos)
      << missing.err;
  photo("file.jpg", "2023:06:10 09:15:00");
  EXPECT_EQ(scan({"--yes", "--library", path("file.jpg")}).status, 3);

  // No terminal to ask on and no --yes: access is not granted, and nothing is recorded.
  ::mkdir(path("lib").c_str(), 0755);
  Outcome denied = scan({"--library", path("lib")});
  EXPECT_EQ(denied.status, 3);
  EXPECT_NE(denied.err.find("--yes"), std::string::npos) << denied.err;
  EXPECT_EQ(scan({"--yes", "--library", path("lib")}).status, 0);
  // Granted once, it stays granted.
  EXPECT_EQ(scan({"--library", path("lib")}).status, 0);
}

TEST_F(ScanProgramTest, DeleteMovesTheMarkedFilesToTheTrash) {
  photo("lib/a.jpg", "2023:06:10 09:15:00");
  photo("lib/b.jpg", "2023:06:10 09:15:01");
  photo("lib/c.jpg", "2023:06:10 09:15:02");
  EXPECT_EQ(scan({"--yes", "--library", path("lib")}).status, 0);

  // Asked with no terminal to answer: refused, nothing moves.
  Outcome refused = scan({"--delete", "--library", path("lib")});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("nothing was moved to the Trash"), std::string::npos) << refused.err;
  EXPECT_EQ(::access(path("lib/b.jpg").c_str(), F_OK), 0);

  Outcome r = scan({"--delete", "--yes", "--json", "--library", path("lib")});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(parse(r)["deleted"], 2);
  EXPECT_EQ(::access(path("lib/a.jpg").c_str(), F_OK), 0);
  EXPECT_EQ(::access(path("home/.local/share/Trash/files/b.jpg").c_str(), F_OK), 0);
  EXPECT_EQ(::access(path("home/.local/share/Trash/info/c.jpg.trashinfo").c_str(), F_OK), 0);
  Outcome after = scan({"--json", "--library", path("lib")});
  EXPECT_TRUE(parse(after)["sections"].empty());
}

TEST_F(ScanProgramTest, AppConsoleLinesOnlyWithVerbose) {
  ::mkdir(path("empty").c_str(), 0755);
  Outcome quiet = scan({"--videos", "--json", "--yes", "--library", path("empty")});
  EXPECT_EQ(quiet.err.find("You got no Videos."), std::string::npos);
  EXPECT_FALSE(parse(quiet).is_discarded());
  Outcome verbose = scan({"--videos", "--verbose", "--library", path("empty")});
  EXPECT_NE(verbose.err.find("You got no Videos."), std::string::npos) << verbose.err;
}

TEST(ScanArguments, ParseEveryOption) {
  std::string error;
  auto o =
      parseScanArguments({"--videos", "--library=/x", "--json", "--yes", "--delete", "-v"}, &error);
  ASSERT_TRUE(o) << error;
  EXPECT_TRUE(o->videos && o->json && o->yes && o->deleteMarked && o->verbose);
  EXPECT_EQ(o->library, "/x");
  EXPECT_FALSE(parseScanArguments({"--library="}, &error));
  EXPECT_FALSE(parseScanArguments({"photos"}, &error));
  EXPECT_EQ(error, "unknown argument 'photos'");
}

}  // namespace
}  // namespace cli
