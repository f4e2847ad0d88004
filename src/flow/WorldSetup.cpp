#include "flow/WorldSetup.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

#include "flow/YamlValues.h"
#include "sim/World.h"

namespace flow {

int lineOf(const YAML::Node& node) {
  if (!node.IsDefined()) return 0;
  const YAML::Mark mark = node.Mark();
  return mark.line < 0 ? 0 : mark.line + 1;
}

namespace {

// 2025-01-01T00:00:00Z.
constexpr double kDefaultCreated = 1735689600.0;

// Days from 1970-01-01 to the civil date y-m-d (proleptic Gregorian).
long long daysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

bool digits(const std::string& s, std::size_t at, std::size_t n, int* out) {
  if (at + n > s.size()) return false;
  int v = 0;
  for (std::size_t i = at; i < at + n; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    v = v * 10 + (s[i] - '0');
  }
  *out = v;
  return true;
}

// One of `choices`, or an error naming them.
std::string choice(const YAML::Node& n, std::initializer_list<const char*> choices, std::string* out) {
  std::string known;
  for (const char* c : choices) {
    if (isScalar(n) && n.Scalar() == c) {
      *out = c;
      return {};
    }
    known += known.empty() ? c : std::string(" | ") + c;
  }
  return "expected one of " + known;
}

std::string readAnswer(const YAML::Node& n, Answer* out) {
  std::string v;
  if (auto e = choice(n, {"allow", "deny", "never"}, &v); !e.empty()) return e;
  *out = v == "allow" ? Answer::Allow : v == "deny" ? Answer::Deny : Answer::Never;
  return {};
}

// Checks that `map` is a map whose keys are among `known`.
std::string knownKeys(const YAML::Node& map, std::initializer_list<const char*> known) {
  if (!map.IsMap()) return "expected a map";
  for (const auto& kv : map) {
    const std::string key = kv.first.Scalar();
    bool found = false;
    std::string names;
    for (const char* k : known) {
      found = found || key == k;
      names += names.empty() ? k : std::string(", ") + k;
    }
    if (!found) return "unknown key '" + key + "' (known: " + names + ")";
  }
  return {};
}

std::string readAssets(const YAML::Node& n, std::vector<WorldAsset>* out, bool videos) {
  if (!n.IsSequence()) return "expected a list of assets";
  out->clear();
  for (std::size_t i = 0; i < n.size(); ++i) {
    const YAML::Node item = n[i];
    const std::string where = "item " + std::to_string(i + 1) + ": ";
    if (auto e = videos ? knownKeys(item, {"name", "created", "duration"}) : knownKeys(item, {"name", "created"});
        !e.empty()) {
      return where + e;
    }
    WorldAsset asset;
    asset.name = (videos ? "VID_" : "IMG_") + std::to_string(i + 1) + (videos ? ".MOV" : ".JPG");
    if (item["name"]) {
      if (!isScalar(item["name"]) || item["name"].Scalar().empty()) return where + "name: expected a text";
      asset.name = item["name"].Scalar();
    }
    const YAML::Node created = item["created"];
    if (created && !created.IsNull()) {
      auto when = isScalar(created) ? parseTimestamp(created.Scalar()) : std::nullopt;
      if (!when) return where + "created: expected a time like \"2023-06-10T09:15:00Z\" or null";
      asset.created = when;
    } else if (!created) {
      // Unstated: a minute apart from the start of 2025, so that no two are duplicates.
      asset.created = kDefaultCreated + 60.0 * static_cast<double>(i);
    }
    if (videos) {
      if (item["duration"]) {
        auto d = number(item["duration"]);
        if (!d || *d < 0) return where + "duration: expected seconds, 0 or more";
        asset.duration = *d;
      }
    }
    out->push_back(asset);
  }
  return {};
}

std::string readNow(const YAML::Node& n, WorldSetup& s) {
  auto when = isScalar(n) ? parseTimestamp(n.Scalar()) : std::nullopt;
  if (!when) return "expected a time like \"2026-01-01T12:00:00Z\"";
  s.now = *when;
  return {};
}

std::string readTimeZone(const YAML::Node& n, WorldSetup& s) {
  if (!isScalar(n)) return "expected UTC or an offset like +02:00";
  const std::string& z = n.Scalar();
  if (z == "UTC" || z == "GMT") {
    s.timeZone = z;
    s.timeZoneOffset = 0;
    return {};
  }
  int h = 0, m = 0;
  if (z.size() == 6 && (z[0] == '+' || z[0] == '-') && digits(z, 1, 2, &h) && z[3] == ':' && digits(z, 4, 2, &m) &&
      h <= 14 && m < 60) {
    s.timeZone = z;
    s.timeZoneOffset = (z[0] == '-' ? -1 : 1) * (h * 3600L + m * 60L);
    return {};
  }
  return "expected UTC or an offset like +02:00";
}

std::string readPhotos(const YAML::Node& n, WorldSetup& s) { return readAssets(n, &s.photos, false); }
std::string readVideos(const YAML::Node& n, WorldSetup& s) { return readAssets(n, &s.videos, true); }

std::string readPhotoAccess(const YAML::Node& n, WorldSetup& s) {
  return choice(n, {"notDetermined", "restricted", "denied", "authorized", "limited"}, &s.photoAccess);
}

std::string readAnswers(const YAML::Node& n, WorldSetup& s) {
  if (auto e = knownKeys(n, {"photos", "delete", "contacts"}); !e.empty()) return e;
  if (n["contacts"]) {
    if (auto e = readAnswer(n["contacts"], &s.contactsAnswer); !e.empty()) return "contacts: " + e;
  }
  if (n["photos"]) {
    if (auto e = readAnswer(n["photos"], &s.photosAnswer); !e.empty()) return "photos: " + e;
  }
  if (n["delete"]) {
    if (auto e = readAnswer(n["delete"], &s.deleteAnswer); !e.empty()) return "delete: " + e;
    // The simulated library settles a deletion at once; it keeps no question waiting.
    if (s.deleteAnswer == Answer::Never) return "delete: never is not available (allow | deny)";
  }
  return {};
}

std::string readDeletion(const YAML::Node& n, WorldSetup& s) {
  return choice(n, {"succeed", "decline", "fail"}, &s.deletion);
}

std::string readAds(const YAML::Node& n, WorldSetup& s) {
  if (auto e = knownKeys(n, {"interstitial", "appOpen", "banner", "latency", "format"}); !e.empty()) return e;
  for (const char* kind : {"interstitial", "appOpen", "banner"}) {
    if (!n[kind]) continue;
    std::string v;
    if (auto e = choice(n[kind], {"fill", "noFill"}, &v); !e.empty()) return std::string(kind) + ": " + e;
    s.adFill[kind] = v == "fill";
  }
  if (n["latency"]) {
    auto d = number(n["latency"]);
    if (!d || *d < 0) return "latency: expected seconds, 0 or more";
    s.adLatency = *d;
  }
  if (const YAML::Node format = n["format"]) {
    std::vector<std::string> formats;
    if (format.IsSequence()) {
      for (const auto& item : format) {
        std::string v;
        if (auto e = choice(item, {"image", "video"}, &v); !e.empty()) return "format: " + e;
        formats.push_back(v);
      }
    } else {
      std::string v;
      if (auto e = choice(format, {"image", "video"}, &v); !e.empty()) return "format: " + e + ", or a list of them";
      formats.push_back(v);
    }
    if (formats.empty()) return "format: expected image or video, or a list of them";
    s.interstitialFormats = std::move(formats);
  }
  return {};
}

std::string readPreferences(const YAML::Node& n, WorldSetup& s) {
  if (!n.IsMap()) return "expected a map of keys to values";
  for (const auto& kv : n) {
    if (!isScalar(kv.second)) return kv.first.Scalar() + ": expected a number, true/false or a text";
    s.preferences[kv.first.Scalar()] = scalarValue(kv.second);
  }
  return {};
}

std::string readDisk(const YAML::Node& n, WorldSetup& s) {
  if (auto e = knownKeys(n, {"totalBytes", "freeBytes"}); !e.empty()) return e;
  for (auto [key, field] : {std::pair{"totalBytes", &s.diskTotalBytes}, std::pair{"freeBytes", &s.diskFreeBytes}}) {
    if (!n[key]) continue;
    auto v = integer(n[key]);
    if (!v || *v < 0) return std::string(key) + ": expected a whole number of bytes, 0 or more";
    *field = *v;
  }
  return {};
}

std::string readEagerMain(const YAML::Node& n, WorldSetup& s) {
  auto b = boolean(n);
  if (!b) return "expected true or false";
  s.eagerMain = *b;
  return {};
}

std::string readMail(const YAML::Node& n, WorldSetup& s) { return choice(n, {"none", "fails", "sends"}, &s.mail); }

std::string readRating(const YAML::Node& n, WorldSetup& s) { return choice(n, {"shows", "ignored"}, &s.rating); }

std::string readContacts(const YAML::Node& n, WorldSetup& s) {
  if (!n.IsSequence()) return "expected a list of contacts ({given, family, organization, phones})";
  for (std::size_t i = 0; i < n.size(); ++i) {
    const YAML::Node& item = n[i];
    const std::string where = "[" + std::to_string(i) + "] ";
    if (!item.IsMap()) return where + "expected a map with given, family, organization, phones";
    if (auto e = knownKeys(item, {"given", "family", "organization", "phones"}); !e.empty()) return where + e;
    WorldContact c;
    for (auto [key, field] : {std::pair{"given", &c.given}, std::pair{"family", &c.family},
                              std::pair{"organization", &c.organization}}) {
      if (!item[key]) continue;
      if (!isScalar(item[key])) return where + key + ": expected a text";
      *field = item[key].Scalar();
    }
    if (item["phones"]) {
      if (!item["phones"].IsSequence()) return where + "phones: expected a list of numbers";
      for (const auto& p : item["phones"]) {
        if (!isScalar(p)) return where + "phones: expected a list of numbers";
        c.phones.push_back(p.Scalar());
      }
    }
    s.contacts.push_back(std::move(c));
  }
  return {};
}

std::string readContactsAccess(const YAML::Node& n, WorldSetup& s) {
  return choice(n, {"notDetermined", "restricted", "denied", "authorized"}, &s.contactsAccess);
}

void applyContacts(const WorldSetup& s, sim::World& world) {
  std::vector<platform::ContactPtr> book;
  for (const auto& c : s.contacts) book.push_back(sim::contact(c.given, c.family, c.phones, c.organization));
  world.platform.contacts().setContacts(std::move(book));
  const std::vector<std::string> statuses = {"notDetermined", "restricted", "denied", "authorized"};
  for (std::size_t i = 0; i < statuses.size(); ++i) {
    if (statuses[i] == s.contactsAccess) world.platform.contacts().setStatus(static_cast<platform::AuthorizationStatus>(i));
  }
}

void applyFeedback(const WorldSetup& s, sim::World& world) {
  using Outcome = sim::MailComposer::Outcome;
  world.platform.mail().setOutcome(s.mail == "none" ? Outcome::None : s.mail == "fails" ? Outcome::Fails : Outcome::Sends);
  world.platform.review().setShows(s.rating == "shows");
}

std::string readCamera(const YAML::Node& n, WorldSetup& s) { return choice(n, {"available", "none"}, &s.camera); }

std::string readCaptures(const YAML::Node& n, WorldSetup& s) {
  if (!n.IsSequence()) return "expected a list of photo, video, nothing or unreadable";
  for (const auto& item : n) {
    std::string v;
    if (auto e = choice(item, {"photo", "video", "nothing", "unreadable"}, &v); !e.empty()) return e;
    s.captures.push_back(v);
  }
  return {};
}

std::string readSecretFiles(const YAML::Node& n, WorldSetup& s) {
  if (!n.IsSequence()) return "expected a list of {name, kind}";
  for (const auto& item : n) {
    if (!item.IsMap()) return "expected {name, kind}";
    if (auto e = knownKeys(item, {"name", "kind"}); !e.empty()) return e;
    if (!item["name"] || !isScalar(item["name"]) || item["name"].Scalar().empty() ||
        item["name"].Scalar().find('/') != std::string::npos) {
      return "name: expected a file name without \"/\"";
    }
    std::string kind = "photo";
    if (item["kind"]) {
      if (auto e = choice(item["kind"], {"photo", "text", "empty", "folder", "link"}, &kind); !e.empty()) return "kind: " + e;
    }
    s.secretFiles.emplace_back(item["name"].Scalar(), kind);
  }
  return {};
}

std::string readWritableBytes(const YAML::Node& n, WorldSetup& s) {
  if (isScalar(n) && n.Scalar() == "unlimited") {
    s.writableBytes.reset();
    return {};
  }
  auto v = integer(n);
  if (!v || *v < 0) return "expected unlimited or a whole number of bytes, 0 or more";
  s.writableBytes = *v;
  return {};
}

std::string readShare(const YAML::Node& n, WorldSetup& s) { return choice(n, {"completes", "cancels"}, &s.share); }

void applySecretFiles(const WorldSetup& s, sim::World& world) {
  world.platform.fileExport().setChoice(s.share == "completes" ? std::optional<std::string>("/sim/Exports") : std::nullopt);
  world.platform.files().putFolder("/sim/Exports");
  auto& camera = world.platform.camera();
  camera.setAvailable(s.camera == "available");
  std::deque<sim::Camera::Capture> captures;
  for (const auto& c : s.captures) {
    using C = sim::Camera::Capture;
    captures.push_back(c == "video" ? C::Video : c == "nothing" ? C::Nothing : c == "unreadable" ? C::UnreadableVideo : C::Photo);
  }
  camera.queueCaptures(std::move(captures));
  auto& files = world.platform.files();
  const std::string folder = "/sim/Documents/Cleaner";
  for (const auto& [name, kind] : s.secretFiles) {
    std::string path = folder + "/" + name;
    if (kind == "folder") {
      files.putFolder(path);
    } else if (kind == "link") {
      files.putLink(path, "/sim/Library/Preferences/secret.plist");
    } else if (kind == "photo") {
      std::vector<std::uint8_t> px(4 * 4 * 4, 0x60);
      files.putFile(path, *world.platform.codec().jpegData(kit::Image::fromPixels(4, 4, std::move(px)), 1.0));
    } else if (kind == "text") {
      std::string text = "not a picture";
      files.putFile(path, std::vector<std::uint8_t>(text.begin(), text.end()));
    } else {
      files.putFile(path, {});
    }
  }
  files.setWriteCapacity(s.writableBytes);
}

}  // namespace

std::optional<double> parseTimestamp(const std::string& t) {
  int y, mo, d, h = 0, mi = 0, sec = 0;
  if (!digits(t, 0, 4, &y) || t.size() < 10 || t[4] != '-' || !digits(t, 5, 2, &mo) || t[7] != '-' ||
      !digits(t, 8, 2, &d)) {
    return std::nullopt;
  }
  if (mo < 1 || mo > 12 || d < 1 || d > 31) return std::nullopt;
  std::size_t at = 10;
  double fraction = 0;
  long offset = 0;
  if (at < t.size()) {
    if (t[at] != 'T' && t[at] != ' ') return std::nullopt;
    if (!digits(t, at + 1, 2, &h) || t.size() < at + 9 || t[at + 3] != ':' || !digits(t, at + 4, 2, &mi) ||
        t[at + 6] != ':' || !digits(t, at + 7, 2, &sec)) {
      return std::nullopt;
    }
    if (h > 23 || mi > 59 || sec > 60) return std::nullopt;
    at += 9;
    if (at < t.size() && t[at] == '.') {
      double scale = 0.1;
      std::size_t start = ++at;
      while (at < t.size() && t[at] >= '0' && t[at] <= '9') {
        fraction += (t[at] - '0') * scale;
        scale /= 10;
        ++at;
      }
      if (at == start) return std::nullopt;
    }
    if (at < t.size()) {
      if (t[at] == 'Z' && at + 1 == t.size()) {
        ++at;
      } else if ((t[at] == '+' || t[at] == '-') && t.size() == at + 6) {
        int oh, om;
        if (!digits(t, at + 1, 2, &oh) || t[at + 3] != ':' || !digits(t, at + 4, 2, &om) || oh > 23 || om > 59) {
          return std::nullopt;
        }
        offset = (t[at] == '-' ? -1 : 1) * (oh * 3600L + om * 60L);
        at = t.size();
      } else {
        return std::nullopt;
      }
    }
  }
  if (at != t.size()) return std::nullopt;
  long long days = daysFromCivil(y, static_cast<unsigned>(mo), static_cast<unsigned>(d));
  return static_cast<double>(days * 86400 + h * 3600LL + mi * 60LL + sec - offset) + fraction;
}

kit::Value scalarValue(const YAML::Node& node) {
  if (auto b = boolean(node)) return kit::Value(*b);
  if (auto i = integer(node)) return kit::Value(*i);
  if (auto d = number(node)) return kit::Value(*d);
  return kit::Value(node.Scalar());
}

const std::vector<WorldKey>& worldKeys() {
  static const std::vector<WorldKey> keys = {
      {"now", "\"2026-01-01T12:00:00Z\"", readNow},
      {"timeZone", "UTC", readTimeZone},
      {"photos", "[]; an item's name IMG_<n>.JPG, created a minute after the one before from 2025-01-01T00:00:00Z",
       readPhotos},
      {"videos", "[]; as photos, names VID_<n>.MOV, duration 0", readVideos},
      {"photoAccess", "notDetermined", readPhotoAccess},
      {"answers", "{photos: allow, delete: allow, contacts: allow}", readAnswers},
      {"deletion", "succeed", readDeletion},
      {"ads", "{interstitial: fill, appOpen: fill, banner: fill, latency: 0, format: image}", readAds},
      {"preferences", "{} (unset keys read as 0, false or empty)", readPreferences},
      {"disk", "{totalBytes: 128000000000, freeBytes: 64000000000}", readDisk},
      {"eagerMain", "true", readEagerMain},
      {"mail", "sends", readMail},
      {"rating", "shows", readRating},
      {"camera", "available", readCamera},
      {"captures", "[] (each capture a photo)", readCaptures},
      {"secretFiles", "[]; {name, kind: photo (default), text, empty, folder or link}", readSecretFiles},
      {"writableBytes", "unlimited", readWritableBytes},
      {"share", "completes", readShare},
      {"contacts", "[]; a contact is {given, family, organization, phones: [...]}, every key optional", readContacts},
      {"contactsAccess", "notDetermined", readContactsAccess},
  };
  return keys;
}

std::string readWorld(const YAML::Node& world, WorldSetup& setup, int* line) {
  *line = lineOf(world);
  if (world.IsNull()) return {};
  if (!world.IsMap()) return "world: expected a map of world keys";
  std::string known;
  for (const auto& k : worldKeys()) known += known.empty() ? k.name : std::string(", ") + k.name;
  for (const auto& kv : world) {
    const std::string key = kv.first.IsScalar() ? kv.first.Scalar() : "?";
    *line = lineOf(kv.first);
    const WorldKey* found = nullptr;
    for (const auto& k : worldKeys()) {
      if (key == k.name) found = &k;
    }
    if (!found) return "world: unknown key '" + key + "' (known: " + known + ")";
    if (std::string e = found->read(kv.second, setup); !e.empty()) {
      *line = lineOf(kv.second) ? lineOf(kv.second) : *line;
      return "world." + key + ": " + e;
    }
  }
  std::set<std::string> names;
  for (const auto* list : {&setup.photos, &setup.videos}) {
    for (const auto& a : *list) {
      if (!names.insert(a.name).second) {
        *line = lineOf(world);
        return "world: two assets are named '" + a.name + "'";
      }
    }
  }
  return {};
}

void WorldSetup::applyTo(sim::World& world) const {
  world.env.setNow(now);
  world.env.setTimeZone(timeZoneOffset == 0 ? kit::TimeZone::utc() : kit::TimeZone::fixed(timeZoneOffset, timeZone));
  world.env.setEagerMain(eagerMain);

  std::vector<std::shared_ptr<const platform::Asset>> assets;
  for (const auto& p : photos) {
    std::optional<kit::Date> date;
    if (p.created) date = kit::Date::fromSeconds(*p.created);
    assets.push_back(std::make_shared<sim::Asset>(p.name, date, platform::MediaType::Image, 0.0, p.name));
  }
  for (const auto& v : videos) {
    std::optional<kit::Date> date;
    if (v.created) date = kit::Date::fromSeconds(*v.created);
    assets.push_back(std::make_shared<sim::Asset>(v.name, date, platform::MediaType::Video, v.duration, v.name, 1920, 1080));
  }
  auto& library = world.platform.photos();
  library.setAssets(std::move(assets));
  const std::vector<std::string> statuses = {"notDetermined", "restricted", "denied", "authorized", "limited"};
  for (std::size_t i = 0; i < statuses.size(); ++i) {
    if (statuses[i] == photoAccess) library.setRawStatus(static_cast<int>(i));
  }
  using Outcome = sim::PhotoLibrary::DeletionOutcome;
  Outcome outcome = deletion == "decline" ? Outcome::Decline : deletion == "fail" ? Outcome::Fail : Outcome::Succeed;
  if (deleteAnswer == Answer::Deny) outcome = Outcome::Decline;
  library.setDeletionOutcome(outcome);

  auto& ads = world.platform.ads();
  for (const auto& [kind, fill] : adFill) {
    ads.setDefaultOutcome(kind, fill ? sim::AdsNetwork::Outcome::Fill : sim::AdsNetwork::Outcome::Fail);
  }
  ads.setLatency(adLatency);
  std::vector<sim::AdsNetwork::Format> formats;
  for (const auto& f : interstitialFormats)
    formats.push_back(f == "video" ? sim::AdsNetwork::Format::Video : sim::AdsNetwork::Format::Image);
  ads.setInterstitialFormats(std::move(formats));
  if (std::find(interstitialFormats.begin(), interstitialFormats.end(), "video") != interstitialFormats.end()) {
    // The house clip: six seconds of 1280x720, playing by itself on the flow's clock.
    world.platform.videoPlayers().setPlaysOnClock(true);
    world.platform.videoPlayers().setItemFacts(6.0, {1280, 720});
  }

  for (const auto& [key, value] : preferences) world.platform.preferences().setObject(value, key);
  world.platform.files().setFileSystem(diskTotalBytes, diskFreeBytes);
  applyFeedback(*this, world);
  applySecretFiles(*this, world);
  applyContacts(*this, world);
}

}  // namespace flow
