#include "desktop/contacts/VdirContactStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <set>
#include <unordered_map>

#include "desktop/contacts/VCardReader.h"

namespace desktop {

namespace fs = std::filesystem;

namespace {

platform::Error storeError(int code, std::string text, std::string path = {}) {
  platform::Error e{"CNErrorDomain", code, std::move(text)};
  if (!path.empty()) e.userInfo["NSFilePath"] = path;
  return e;
}

// The order of paths compared folder by folder: as a string order in which the separator sorts
// before every other character ("work/a.vcf" before "work-old.vcf").
bool pathOrder(const std::string& a, const std::string& b) {
  std::size_t n = std::min(a.size(), b.size());
  auto [x, y] = std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(n), b.begin());
  if (x == a.begin() + static_cast<std::ptrdiff_t>(n)) return a.size() < b.size();
  auto key = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c) + 1; };
  return key(*x) < key(*y);
}

bool isVcf(const fs::path& p) {
  std::string ext = p.extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext == ".vcf" || ext == ".vcard";
}

}  // namespace

std::string defaultContactsRoot(const std::string& dataHome) {
  if (const char* env = std::getenv("SOLVANTA_CONTACTS"); env && *env) return env;
  return dataHome + "/contacts";
}

VdirContactStore::VdirContactStore(VdirContactStoreOptions options) : options_(std::move(options)) {}

void VdirContactStore::warn(const std::string& line) const {
  if (options_.warn) {
    options_.warn(line);
  } else {
    std::cerr << "contacts: " << line << "\n";
  }
}

platform::AuthorizationStatus VdirContactStore::authorizationStatusForEntityType(int) {
  return options_.permissions->status(PermissionKind::Contacts);
}

bool VdirContactStore::granted() {
  return options_.permissions->status(PermissionKind::Contacts) == platform::AuthorizationStatus::Authorized;
}

void VdirContactStore::requestAccessForEntityType(int,
                                                  std::function<void(bool, std::optional<platform::Error>)> completion) {
  options_.permissions->request(PermissionKind::Contacts, [completion = std::move(completion)](platform::AuthorizationStatus s) {
    bool ok = s == platform::AuthorizationStatus::Authorized;
    completion(ok, ok ? std::nullopt : std::optional(storeError(100, "Access Denied")));
  });
}

VdirContactStore::Stamp VdirContactStore::stampOf(const struct stat& st) {
  return Stamp{static_cast<long long>(st.st_size),
               static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec,
               static_cast<unsigned long long>(st.st_ino)};
}

std::vector<platform::ContactPtr> VdirContactStore::readAll() {
  std::vector<std::string> files;
  std::error_code ec;
  fs::recursive_directory_iterator it(options_.root, fs::directory_options::skip_permission_denied, ec);
  if (ec) {
    warn(options_.root + ": the address book cannot be read (" + ec.message() + ")");
    return {};
  }
  for (; it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (ec) {
      warn(options_.root + ": " + ec.message());
      break;
    }
    const fs::path& p = it->path();
    // Hidden files and folders (vdirsyncer's status, editors' backups) are not cards.
    if (p.filename().string().rfind('.', 0) == 0) {
      if (it->is_directory(ec)) it.disable_recursion_pending();
      continue;
    }
    if (it->is_regular_file(ec) && !it->is_symlink(ec) && isVcf(p)) files.push_back(p.string());
  }
  std::sort(files.begin(), files.end(), pathOrder);

  std::vector<platform::ContactPtr> out;
  std::map<std::string, Stamp> stamps;
  std::unordered_map<std::string, Parsed> parsed;
  std::set<std::string> uids;
  for (const auto& path : files) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
      warn(path + ": skipped, it is gone");
      continue;
    }
    std::optional<Parsed> card = cached(path, stampOf(st));
    if (!card) {
      std::string why;
      card = readCard(path, &why);
      if (!card) {
        warn(path + ": skipped, " + why);
        continue;
      }
    }
    if (!card->uid.empty() && !uids.insert(card->uid).second) {
      warn(path + ": skipped, another card has the same UID " + card->uid);
      continue;
    }
    stamps[path] = card->stamp;
    out.push_back(card->contact);
    parsed.emplace(path, std::move(*card));
  }
  std::lock_guard lock(mu_);
  for (auto& [path, stamp] : stamps) stamps_[path] = stamp;
  parsed_ = std::move(parsed);
  return out;
}

std::optional<VdirContactStore::Parsed> VdirContactStore::cached(const std::string& path, const Stamp& stamp) {
  std::lock_guard lock(mu_);
  auto at = parsed_.find(path);
  if (at == parsed_.end() || !(at->second.stamp == stamp)) return std::nullopt;
  return at->second;
}

std::optional<VdirContactStore::Parsed> VdirContactStore::readCard(const std::string& path, std::string* why) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *why = "it cannot be read";
    return std::nullopt;
  }
  struct stat st {};
  std::string text;
  bool ok = ::fstat(fd, &st) == 0;
  if (ok && static_cast<std::size_t>(st.st_size) > kMaxVCardBytes) {
    ::close(fd);
    *why = "the file is larger than a contact card can be";
    return std::nullopt;
  }
  if (ok) {
    // Read to the end: the file may have grown since fstat, up to the limit.
    text.resize(static_cast<std::size_t>(st.st_size) + 1);
    std::size_t got = 0;
    for (;;) {
      if (got == text.size()) {
        if (text.size() > kMaxVCardBytes) break;
        text.resize(text.size() * 2);
      }
      ssize_t n = ::read(fd, text.data() + got, text.size() - got);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        ok = n == 0;
        break;
      }
      got += static_cast<std::size_t>(n);
    }
    text.resize(got);
  }
  ::close(fd);
  if (!ok) {
    *why = "it cannot be read";
    return std::nullopt;
  }
  if (text.size() > kMaxVCardBytes) {
    *why = "the file is larger than a contact card can be";
    return std::nullopt;
  }
  auto card = readVCard(text, why);
  if (!card) return std::nullopt;
  Parsed out;
  out.stamp = stampOf(st);
  out.uid = std::move(card->identifier);
  card->identifier = path;
  out.contact = std::make_shared<const platform::Contact>(std::move(*card));
  return out;
}

bool VdirContactStore::enumerateContactsWithFetchRequest(
    const platform::ContactFetchRequest&, platform::Error* error,
    const std::function<void(const platform::ContactPtr&, bool*)>& block) {
  if (!granted()) {
    if (error) *error = storeError(100, "Access Denied");
    return false;
  }
  bool stop = false;
  for (const auto& c : readAll()) {
    block(c, &stop);
    if (stop) break;
  }
  return true;
}

std::optional<std::vector<platform::ContactPtr>> VdirContactStore::unifiedContactsMatchingName(
    const std::string& name, const std::vector<std::string>&, platform::Error* error) {
  if (!granted()) {
    if (error) *error = storeError(100, "Access Denied");
    return std::nullopt;
  }
  std::vector<platform::ContactPtr> out;
  for (const auto& c : readAll()) {
    if (platform::contactMatchesName(*c, name)) out.push_back(c);
  }
  return out;
}

bool VdirContactStore::executeSaveRequest(const platform::SaveRequest& request, platform::Error* error) {
  if (!granted()) {
    if (error) *error = storeError(100, "Access Denied");
    return false;
  }
  for (const auto& gone : request.deletions()) {
    const std::string& path = gone.identifier;
    std::optional<Stamp> seen;
    {
      std::lock_guard lock(mu_);
      auto it = stamps_.find(path);
      if (it != stamps_.end()) seen = it->second;
    }
    if (!seen) {
      if (error) *error = storeError(200, "The contact was not read from this address book.", path);
      return false;
    }
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
      if (error) *error = storeError(200, "The contact's card is gone.", path);
      return false;
    }
    Stamp now = stampOf(st);
    if (!(now == *seen)) {
      if (error) *error = storeError(201, "The contact's card changed since it was read; it was not deleted.", path);
      return false;
    }
    std::string why;
    if (!options_.trash->moveToTrash(path, &why)) {
      if (error) *error = storeError(500, "The contact's card could not be moved to the Trash: " + why, path);
      return false;
    }
    std::lock_guard lock(mu_);
    stamps_.erase(path);
  }
  return true;
}

}  // namespace desktop
