// WorldSetup: the simulated phone a flow runs on, as its header's `world` map describes it.
// Every key is optional and has a default (the README lists them). Each key is one entry of a
// table in WorldSetup.cpp: its name, its default as text, and a reader that checks the value
// and stores it here; adding a key is one field, one entry and one line in applyTo.
// Pure data; any thread.
#pragma once

#include <yaml-cpp/yaml.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "kit/Value.h"

namespace sim {
struct World;
}

namespace flow {

// How the platform's own questions are answered: at once yes, at once no, or not at all
// (a flow answers with `answerPrompt`).
enum class Answer { Allow, Deny, Never };

struct WorldAsset {
  std::string name;
  std::optional<double> created;  // seconds since 1970; nothing for an asset with no date
  double duration = 0;            // videos
};

// A contact of the address book.
struct WorldContact {
  std::string given, family, organization;
  std::vector<std::string> phones;
};

struct WorldSetup {
  double now = 1767268800.0;  // 2026-01-01T12:00:00Z
  std::string timeZone = "UTC";
  long timeZoneOffset = 0;  // seconds east of Greenwich
  std::vector<WorldAsset> photos;
  std::vector<WorldAsset> videos;
  std::string photoAccess = "notDetermined";
  Answer photosAnswer = Answer::Allow;
  Answer deleteAnswer = Answer::Allow;
  std::string deletion = "succeed";
  std::map<std::string, bool> adFill{{"interstitial", true}, {"appOpen", true}, {"banner", true}};
  double adLatency = 0;
  // What the interstitials that fill show, in order ("image" or "video"); the last one stays.
  // Video ads play a six-second clip through the ads client's video player.
  std::vector<std::string> interstitialFormats{"image"};
  std::map<std::string, kit::Value> preferences;
  long long diskTotalBytes = 128000000000LL;
  long long diskFreeBytes = 64000000000LL;
  bool eagerMain = true;
  // Feedback: the mail composer's outcome (none: no mail can be sent; fails; sends) and
  // whether a rating request shows its dialog (shows) or nothing (ignored).
  std::string mail = "sends";
  std::string rating = "shows";
  // Secret files: whether the phone has a camera (available | none), what its captures give
  // in order (photo | video | nothing | unreadable; photos once the list runs out), the files
  // already in the hidden folder ({name, kind: photo | text | empty | folder | link}), and how
  // many bytes may still be written before the disk is full (nothing: no limit).
  std::string camera = "available";
  std::vector<std::string> captures;
  std::vector<std::pair<std::string, std::string>> secretFiles;
  std::optional<long long> writableBytes;
  // The share sheet's "Save to…": the person picks a folder (completes) or declines (cancels).
  std::string share = "completes";
  // The address book, its permission and how its question is answered.
  std::vector<WorldContact> contacts;
  std::string contactsAccess = "notDetermined";
  Answer contactsAnswer = Answer::Allow;

  // Sets up `world`: clock, time zone, library, access, answers, deletion, ads, preferences,
  // disk and queue behaviour. Main thread, before the app starts.
  void applyTo(sim::World& world) const;
};

// A world key: its name, its default as the README shows it, and its reader, which returns
// an error text for a value of the wrong type or range (empty when the value was taken).
struct WorldKey {
  const char* name;
  const char* defaultText;
  std::string (*read)(const YAML::Node& value, WorldSetup& setup);
};

// The table of keys, in the order the README lists them.
const std::vector<WorldKey>& worldKeys();

// Reads a `world` map into `setup`. Returns an error text (prefixed by the key at fault), and
// sets `*line` to the 1-based line of the fault; empty on success.
std::string readWorld(const YAML::Node& world, WorldSetup& setup, int* line);

// Seconds since 1970 of "YYYY-MM-DDTHH:MM:SS[.fff](Z|+HH:MM|-HH:MM)" (a date alone, or a
// time without a zone, is read as UTC); nothing for another text.
std::optional<double> parseTimestamp(const std::string& text);

// A YAML scalar as a preference value: true/false, an integer, a real, else the text.
kit::Value scalarValue(const YAML::Node& node);

// The 1-based line of `node` (0 when it has no position).
int lineOf(const YAML::Node& node);

}  // namespace flow
