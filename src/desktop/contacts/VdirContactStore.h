// The address book on the desktop: a vdir, a folder of .vcf files with one contact each (as
// vdirsyncer and khard keep it), nested address-book folders read as one store. Cards are
// read in path order; a card is identified by its path. The only change the app makes,
// deleting a contact, moves its file to the freedesktop Trash, and only when the file is as it
// was read. Access goes through the platform's permission record (contacts). Thread-safe.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "desktop/library/Trash.h"
#include "desktop/system/PermissionStore.h"
#include "platform/ContactStore.h"

namespace desktop {

struct VdirContactStoreOptions {
  std::string root;
  std::shared_ptr<PermissionStore> permissions;
  std::shared_ptr<Trash> trash;
  // Where a skipped card or folder is reported (a line naming the file and the reason);
  // none: standard error.
  std::function<void(const std::string&)> warn;
};

// The folder of the address book: $SOLVANTA_CONTACTS when set, else $XDG_DATA_HOME/contacts
// (~/.local/share/contacts).
std::string defaultContactsRoot(const std::string& dataHome);

class VdirContactStore : public platform::ContactStore {
 public:
  explicit VdirContactStore(VdirContactStoreOptions options);

  platform::AuthorizationStatus authorizationStatusForEntityType(int entityType) override;
  void requestAccessForEntityType(int entityType,
                                  std::function<void(bool, std::optional<platform::Error>)> completion) override;
  // Reads every card (skipping, with a warning, files that are not a vCard, too large,
  // unreadable, and second cards of a UID already read); a missing or unreadable root is an
  // empty book with a warning.
  bool enumerateContactsWithFetchRequest(const platform::ContactFetchRequest& request, platform::Error* error,
                                         const std::function<void(const platform::ContactPtr&, bool*)>& block) override;
  std::optional<std::vector<platform::ContactPtr>> unifiedContactsMatchingName(
      const std::string& name, const std::vector<std::string>& keysToFetch, platform::Error* error) override;
  // Trashes the card of each deletion. Refused with an error, and the file left alone, when
  // the file is gone or changed (size, time or inode) since this store read it, or was never
  // read by it.
  bool executeSaveRequest(const platform::SaveRequest& request, platform::Error* error) override;

  const std::string& root() const { return options_.root; }

 private:
  struct Stamp {
    long long size = 0, mtimeNs = 0;
    unsigned long long inode = 0;
    bool operator==(const Stamp&) const = default;
  };
  // A card as it was parsed: the file's stamp then, the card's UID, the contact (whose
  // identifier is the path).
  struct Parsed {
    Stamp stamp;
    std::string uid;
    platform::ContactPtr contact;
  };
  static Stamp stampOf(const struct stat& st);
  bool granted();
  std::vector<platform::ContactPtr> readAll();
  // The card parsed at `path` by the last read, when the file still has `stamp`.
  std::optional<Parsed> cached(const std::string& path, const Stamp& stamp);
  // Reads and parses the card at `path`; none, with the reason in `why`, when it cannot.
  static std::optional<Parsed> readCard(const std::string& path, std::string* why);
  void warn(const std::string& line) const;

  VdirContactStoreOptions options_;
  std::mutex mu_;
  // What each card looked like when it was last read, by path.
  std::map<std::string, Stamp> stamps_;
  // The cards of the last read by path, so that reading the book again parses only the files
  // that changed (the screens read it several times in a row).
  std::unordered_map<std::string, Parsed> parsed_;
};

}  // namespace desktop
