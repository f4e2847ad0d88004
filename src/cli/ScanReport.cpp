#include "cli/ScanReport.h"

#include <nlohmann/json.hpp>

namespace cli {
namespace {

using desktop::LibraryIssue;

const char* kindName(LibraryIssue::Kind kind) {
  switch (kind) {
    case LibraryIssue::Kind::NotMedia:
      return "not media";
    case LibraryIssue::Kind::Damaged:
      return "damaged";
    case LibraryIssue::Kind::UnreadableFile:
      return "unreadable file";
    case LibraryIssue::Kind::UnreadableFolder:
      return "unreadable folder";
    case LibraryIssue::Kind::FolderLoop:
      return "folder loop";
  }
  return "?";
}

}  // namespace

std::string plural(int n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

namespace {

int markedCount(const ScanResult& result) {
  int marked = 0;
  for (const auto& s : result.sections) {
    for (const auto& m : s.members) marked += m.markedForDeletion ? 1 : 0;
  }
  return marked;
}

}  // namespace

std::string renderText(const ScanResult& result) {
  const char* noun = result.videos ? "videos" : "photos";
  kit::DateFormatter time("yyyy-MM-dd HH:mm:ss");
  std::string out = "Library: " + result.library + "\n";
  out += std::string(result.videos ? "Videos" : "Photos") + ": " + std::to_string(result.scanned) +
         " scanned, " + plural(static_cast<int>(result.sections.size()), "section", "sections") +
         " of duplicates, " + std::to_string(markedCount(result)) + " marked for deletion\n";
  if (result.sections.empty()) out += "No duplicate " + std::string(noun) + " found.\n";
  for (std::size_t i = 0; i < result.sections.size(); ++i) {
    const ScanSection& s = result.sections[i];
    out += "\nSection " + std::to_string(i + 1) + " of " + std::to_string(result.sections.size()) +
           " (" + s.header + "), " + std::to_string(s.members.size()) + " " + noun + "\n";
    for (const auto& m : s.members) {
      out += std::string(m.markedForDeletion ? "  delete  " : "  keep    ") +
             time.stringFromDate(m.captureTime) + "  " + m.path + "\n";
    }
  }
  return out;
}

std::string renderJson(const ScanResult& result) {
  using Json = nlohmann::json;
  kit::DateFormatter time("yyyy-MM-dd'T'HH:mm:ssZ");
  Json sections = Json::array();
  for (const auto& s : result.sections) {
    Json members = Json::array();
    for (const auto& m : s.members) {
      members.push_back({{"path", m.path},
                         {"captureTime", time.stringFromDate(m.captureTime)},
                         {"markedForDeletion", m.markedForDeletion}});
    }
    sections.push_back({{"header", s.header}, {"members", std::move(members)}});
  }
  Json skipped = Json::array();
  for (const auto& issue : result.report.issues) {
    skipped.push_back(
        {{"path", issue.path}, {"kind", kindName(issue.kind)}, {"reason", issue.reason}});
  }
  Json out = {{"library", result.library},
              {"media", result.videos ? "videos" : "photos"},
              {"scanned", result.scanned},
              {"sections", std::move(sections)},
              {"skipped", std::move(skipped)}};
  if (result.deleted >= 0) out["deleted"] = result.deleted;
  return out.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string renderIssues(const desktop::FetchReport& report) {
  std::string out;
  for (const auto& issue : report.issues) {
    std::string what;
    switch (issue.kind) {
      case LibraryIssue::Kind::NotMedia:
        what = "skipped, not a photo or video";
        break;
      case LibraryIssue::Kind::Damaged:
        what = "damaged, dated by its file time";
        break;
      case LibraryIssue::Kind::UnreadableFile:
        what = "skipped, cannot be read";
        break;
      case LibraryIssue::Kind::UnreadableFolder:
        what = "folder skipped, cannot be read";
        break;
      case LibraryIssue::Kind::FolderLoop:
        what = "folder skipped, already walked";
        break;
    }
    out += "solvanta: " + issue.path + ": " + what + " (" + issue.reason + ")\n";
  }
  std::vector<std::string> parts;
  auto add = [&parts](int n, const char* one, const char* many) {
    if (n > 0) parts.push_back(plural(n, one, many));
  };
  add(report.count(LibraryIssue::Kind::NotMedia), "file that is no photo or video",
      "files that are no photos or videos");
  add(report.count(LibraryIssue::Kind::UnreadableFile), "unreadable file", "unreadable files");
  add(report.count(LibraryIssue::Kind::UnreadableFolder), "unreadable folder",
      "unreadable folders");
  add(report.count(LibraryIssue::Kind::FolderLoop), "folder reached twice",
      "folders reached twice");
  add(report.count(LibraryIssue::Kind::Damaged), "damaged file dated by its file time",
      "damaged files dated by their file times");
  add(report.symlinksSkipped, "symbolic link not followed", "symbolic links not followed");
  add(report.hardLinksSkipped, "second name of a file (hard link)",
      "second names of files (hard links)");
  if (!parts.empty()) {
    out += "solvanta: skipped or noted: ";
    for (std::size_t i = 0; i < parts.size(); ++i) out += (i ? ", " : "") + parts[i];
    out += "\n";
  }
  return out;
}

}  // namespace cli
