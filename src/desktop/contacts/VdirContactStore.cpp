#include "desktop/contacts/VdirContactStore.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "desktop/contacts/VCardReader.h"

namespace desktop {

namespace fs = std::filesystem;

namespace {

platform::Error storeError(int code, std::string text, std::string path = {}) {
  platform::Error e{"CNErrorDomain", code, std::move(text)};
  if (!path.empty()) e.userInfo["NSFilePath"] = path;
  return e;
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

std::vector<platform::ContactPtr> VdirContactStore::readAll() {
  std::vector<fs::path> files;
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
    if (it->is_regular_file(ec) && !it->is_symlink(ec) && isVcf(p)) files.push_back(p);
  }
  std::sort(files.begin(), files.end());

  std::vector<platform::ContactPtr> out;
  std::map<std::string, Stamp> stamps;
  std::set<std::string> uids;
  for (const auto& p : files) {
    const std::string path = p.string();
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
      warn(path + ": skipped, it is gone");
      continue;
    }
    if (static_cast<std::size_t>(st.st_size) > kMaxVCardBytes) {
      warn(path + ": skipped, the file is larger than a contact card can be");
      continue;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      warn(path + ": skipped, it cannot be read");
      continue;
    }
    std::stringstream text;
    text << in.rdbuf();
    std::string why;
    auto card = readVCard(text.str(), &why);
    if (!card) {
      warn(path + ": skipped, " + why);
      continue;
    }
    if (!card->identifier.empty() && !uids.insert(card->identifier).second) {
      warn(path + ": skipped, another card has the same UID " + card->identifier);
      continue;
    }
    card->identifier = path;
    stamps[path] = Stamp{static_cast<long long>(st.st_size),
                         static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec,
                         static_cast<unsigned long long>(st.st_ino)};
    out.push_back(std::make_shared<const platform::Contact>(std::move(*card)));
  }
  std::lock_guard lock(mu_);
  for (auto& [path, stamp] : stamps) stamps_[path] = stamp;
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
    Stamp now{static_cast<long long>(st.st_size),
              static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec,
              static_cast<unsigned long long>(st.st_ino)};
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
