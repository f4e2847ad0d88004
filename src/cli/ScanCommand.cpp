#include "cli/ScanCommand.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <mutex>

#include "cli/ScanListener.h"
#include "cli/ScanReport.h"
#include "desktop/Platform.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Console.h"
#include "media/Scan.h"
#include "platform/Platform.h"

namespace cli {

const char* const kScanUsage =
    "Usage: solvanta scan [--videos] [--library DIR] [--json] [--delete] [--yes] [--verbose]\n"
    "\n"
    "Scans the photo library for duplicates and prints them, section by section: each\n"
    "member's file, its capture time and whether it is marked for deletion (the first, oldest\n"
    "member of a section is kept; the others are marked). Photos are duplicates when taken\n"
    "less than five seconds after the previous member of their section; videos when they are\n"
    "neighbours in time with exactly the same length.\n"
    "\n"
    "Options:\n"
    "  --videos       scan the videos instead of the photos\n"
    "  --library DIR  the library folder (default: $SOLVANTA_LIBRARY, else the XDG pictures\n"
    "                 folder, usually ~/Pictures)\n"
    "  --json         print the sections as JSON\n"
    "  --delete       then move every file marked for deletion to the Trash\n"
    "  --yes          answer yes to Solvanta's questions (access to the photos, deletion)\n"
    "  --verbose      also show the app's own console messages\n"
    "  --help         show this text\n"
    "\n"
    "Progress goes to standard error when it is a terminal; files skipped as damaged, foreign\n"
    "or unreadable are listed there with a count at the end.\n"
    "\n"
    "Exit status: 0 done; 1 the deletion was refused or failed; 2 bad arguments; 3 the library\n"
    "cannot be read (missing, not a folder, no permission, or access to the photos not granted).\n";

std::optional<ScanOptions> parseScanArguments(const std::vector<std::string>& args,
                                              std::string* error) {
  ScanOptions options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--videos") {
      options.videos = true;
    } else if (a == "--json") {
      options.json = true;
    } else if (a == "--yes" || a == "-y") {
      options.yes = true;
    } else if (a == "--delete") {
      options.deleteMarked = true;
    } else if (a == "--verbose" || a == "-v") {
      options.verbose = true;
    } else if (a == "--help" || a == "-h") {
      options.help = true;
    } else if (a == "--library" || a.rfind("--library=", 0) == 0) {
      std::string value;
      if (a == "--library") {
        if (i + 1 >= args.size()) {
          *error = "--library needs a folder";
          return std::nullopt;
        }
        value = args[++i];
      } else {
        value = a.substr(std::strlen("--library="));
      }
      if (value.empty()) {
        *error = "--library needs a folder";
        return std::nullopt;
      }
      if (options.library) {
        *error = "--library given twice";
        return std::nullopt;
      }
      options.library = value;
    } else {
      *error = "unknown argument '" + a + "'";
      return std::nullopt;
    }
  }
  return options;
}

namespace {

// The console of the app: its printed lines go to standard error with --verbose, nowhere
// otherwise, so that standard output holds the sections alone.
class ConsoleToStderr : public kit::ConsoleSink {
 public:
  ConsoleToStderr(std::FILE* err, bool show)
      : err_(err), show_(show), previous_(kit::setConsoleSink(this)) {}
  ~ConsoleToStderr() override { kit::setConsoleSink(previous_); }
  void write(std::string_view line) override {
    if (show_) std::fprintf(err_, "%.*s\n", static_cast<int>(line.size()), line.data());
  }

 private:
  std::FILE* err_;
  bool show_;
  kit::ConsoleSink* previous_;
};

// Questions on the terminal. Only one at a time; the answer is "yes" when the reply starts
// with y or Y. With no terminal to ask on, there is no answer.
class TerminalQuestions {
 public:
  TerminalQuestions(std::FILE* err, bool yes)
      : err_(err), yes_(yes), interactive_(::isatty(0) && ::isatty(2)) {}

  // True, false, or nothing when it could not be asked.
  std::optional<bool> ask(const std::string& question) {
    if (yes_) return true;
    if (!interactive_) return std::nullopt;
    std::lock_guard lock(mu_);
    std::fprintf(err_, "%s [y/N] ", question.c_str());
    std::fflush(err_);
    std::string line;
    if (!std::getline(std::cin, line)) {
      std::fputc('\n', err_);
      return std::nullopt;
    }
    return !line.empty() && (line[0] == 'y' || line[0] == 'Y');
  }
  bool interactive() const { return interactive_; }

 private:
  std::FILE* err_;
  bool yes_;
  bool interactive_;
  std::mutex mu_;
};

// A progress bar on standard error, redrawn at most every tenth of a second.
class ProgressBar {
 public:
  ProgressBar(std::FILE* err, bool enabled) : err_(err), enabled_(enabled) {}
  void update(std::int64_t done, std::int64_t total, const char* noun) {
    if (!enabled_ || total <= 0 || (done == done_ && total == total_)) return;
    auto now = std::chrono::steady_clock::now();
    if (drawn_ && now - last_ < std::chrono::milliseconds(100) && done < total) return;
    last_ = now;
    drawn_ = true;
    done_ = done;
    total_ = total;
    constexpr int kWidth = 30;
    int filled = static_cast<int>(kWidth * std::min(done, total) / total);
    std::fprintf(err_, "\r[%s%s] %lld/%lld %s",
                 std::string(static_cast<std::size_t>(filled), '#').c_str(),
                 std::string(static_cast<std::size_t>(kWidth - filled), ' ').c_str(),
                 static_cast<long long>(done), static_cast<long long>(total), noun);
    std::fflush(err_);
  }
  void clear() {
    if (drawn_) std::fprintf(err_, "\r\033[K");
    drawn_ = false;
  }

 private:
  std::FILE* err_;
  bool enabled_;
  bool drawn_ = false;
  std::int64_t done_ = -1, total_ = -1;
  std::chrono::steady_clock::time_point last_;
};

// Why the folder at `root` cannot be listed, or nothing when it can.
std::optional<std::string> unreadableFolder(const std::string& root) {
  DIR* dir = ::opendir(root.c_str());
  if (!dir) return std::string(std::strerror(errno));
  ::closedir(dir);
  return std::nullopt;
}

constexpr double kNoLimit = 1e9;
// The photo library's error code of a deletion the user did not confirm.
constexpr int kDeletionDeclined = 3072;

template <class Sections>
std::vector<ScanSection> sectionsOf(const Sections& sections) {
  std::vector<ScanSection> out;
  for (const auto& section : sections) {
    ScanSection s{section->header, {}};
    for (const auto& record : section->image) {
      auto file = std::dynamic_pointer_cast<const desktop::FileAsset>(record->imagePath);
      s.members.push_back({file ? file->path() : record->imagePath->localIdentifier(),
                           record->imagePath->creationDate().value_or(kit::Date{}),
                           record->isSelected.load()});
    }
    out.push_back(std::move(s));
  }
  return out;
}

template <class Sections>
std::vector<platform::AssetPtr> markedAssets(const Sections& sections) {
  std::vector<platform::AssetPtr> assets;
  for (const auto& section : sections) {
    for (const auto& record : section->image) {
      if (record->isSelected.load()) assets.push_back(record->imagePath);
    }
  }
  return assets;
}

}  // namespace

int runScan(const std::vector<std::string>& args, std::FILE* out, std::FILE* err) {
  std::string error;
  auto parsed = parseScanArguments(args, &error);
  if (!parsed) {
    std::fprintf(err, "solvanta scan: %s\n\n%s", error.c_str(), kScanUsage);
    return kExitBadArguments;
  }
  const ScanOptions options = *parsed;
  if (options.help) {
    std::fputs(kScanUsage, out);
    return kExitOk;
  }

  ConsoleToStderr console(err, options.verbose);
  desktop::ThreadedEnvironment env;
  desktop::StandaloneLoop& loop = *env.standaloneLoop();
  loop.adoptCurrentThread();
  auto questions = std::make_shared<TerminalQuestions>(err, options.yes);

  desktop::PlatformOptions platformOptions;
  if (options.library) platformOptions.libraryRoot = *options.library;
  platformOptions.permissionPrompt = [questions](desktop::PermissionKind) {
    auto answer = questions->ask("Allow Solvanta to access your photos?");
    if (!answer) return platform::AuthorizationStatus::NotDetermined;
    return *answer ? platform::AuthorizationStatus::Authorized
                   : platform::AuthorizationStatus::Denied;
  };
  platformOptions.confirmPrompt = [questions](const std::string& question) {
    return questions->ask(question).value_or(false);
  };
  desktop::Platform desktopPlatform(std::move(platformOptions));
  desktop::FolderPhotoLibrary& photos = desktopPlatform.photos();

  if (auto why = unreadableFolder(photos.root())) {
    std::fprintf(err, "solvanta: cannot read the library %s: %s\n", photos.root().c_str(),
                 why->c_str());
    return kExitLibraryUnreadable;
  }

  // Access: asked once; with --yes a refusal given earlier is asked again, as the app's page
  // of the system settings would.
  auto status = photos.authorizationStatus();
  if (status != platform::AuthorizationStatus::Authorized) {
    std::atomic<bool> answered{false};
    auto done = [&answered](auto&&...) { answered = true; };
    if (status == platform::AuthorizationStatus::NotDetermined) {
      photos.requestAuthorization(done);
    } else if (options.yes) {
      platform::application().openURL(platform::kOpenSettingsURLString, {}, done);
    } else {
      answered = true;
    }
    loop.runUntil([&] { return answered.load(); }, kNoLimit);
    status = photos.authorizationStatus();
  }
  if (status != platform::AuthorizationStatus::Authorized) {
    std::fprintf(err,
                 "solvanta: Solvanta may not read your photos (access %s). Run `solvanta scan "
                 "--yes` to allow it%s.\n",
                 status == platform::AuthorizationStatus::NotDetermined ? "not granted" : "refused",
                 questions->interactive() ? "" : ", or run it on a terminal to be asked");
    return kExitLibraryUnreadable;
  }

  // The scan, through the slots, as the scan screen runs it.
  auto listener = std::make_shared<ScanListener>();
  std::atomic<bool> started{false};
  kit::mainQueue().async([&, listener] {
    if (options.videos) {
      media::VideosCallBackListner::shared()->itemdelegates.store(listener);
      media::startScan(2);
    } else {
      media::PhotosCallBack::shared()->itemdelegates.store(listener);
      media::startScan(1);
    }
    started = true;
  });
  // Done when the scan has nothing left to run: no background work, nothing for the main
  // queue. A scan of fewer than two items sends no finished event, and the last photo section
  // comes after it, so neither event can end the wait.
  ProgressBar bar(err, ::isatty(2));
  const char* noun = options.videos ? "videos" : "photos";
  loop.runUntil(
      [&] {
        bar.update(options.videos ? 0 : listener->progress(), listener->total(), noun);
        return started.load() && env.isBackgroundIdle() && loop.pendingCount() == 0;
      },
      kNoLimit);
  bar.clear();

  ScanResult result;
  result.library = photos.root();
  result.videos = options.videos;
  result.scanned = std::max<std::int64_t>(listener->total(), 0);
  result.report = photos.lastFetchReport();
  std::vector<platform::AssetPtr> marked;
  if (options.videos) {
    result.sections = sectionsOf(listener->videoSections());
    marked = markedAssets(listener->videoSections());
  } else {
    result.sections = sectionsOf(listener->photoSections());
    marked = markedAssets(listener->photoSections());
  }

  // Sections first, so that a person sees them before being asked to delete.
  if (!options.json) std::fputs(renderText(result).c_str(), out);
  std::fflush(out);
  int exitCode = kExitOk;
  if (options.deleteMarked) {
    result.deleted = 0;
    if (!marked.empty()) {
      std::atomic<bool> finished{false};
      bool success = false;
      std::optional<platform::Error> failure;
      photos.performChanges(
          [marked](platform::ChangeRequest& request) { request.deleteAssets(marked); },
          [&](bool ok, std::optional<platform::Error> e) {
            success = ok;
            failure = std::move(e);
            finished = true;
          });
      loop.runUntil([&] { return finished.load(); }, kNoLimit);
      if (success) {
        result.deleted = static_cast<int>(marked.size());
      } else if (failure && failure->code == kDeletionDeclined) {
        std::fprintf(err,
                     "solvanta: the deletion was not confirmed; nothing was moved to the Trash\n");
        exitCode = kExitDeletionFailed;
      } else {
        std::fprintf(err, "solvanta: the deletion failed: %s\n",
                     failure ? failure->localizedDescription.c_str() : "unknown error");
        exitCode = kExitDeletionFailed;
      }
    }
    if (!options.json && exitCode == kExitOk) {
      std::fprintf(out, "\nMoved %s to the Trash.\n",
                   plural(result.deleted, "file", "files").c_str());
    }
  }
  if (options.json) std::fputs(renderJson(result).c_str(), out);
  std::fflush(out);
  std::fputs(renderIssues(result.report).c_str(), err);
  return exitCode;
}

}  // namespace cli
