// The keychain: a small store of named items that outlives the app's own data (a reinstall,
// a reset of the app's folders). Items are short texts under a service and an account name.
#pragma once

#include <optional>
#include <string>

#include "platform/Types.h"

namespace platform {

class Keychain {
 public:
  virtual ~Keychain() = default;
  // The item of `service` and `account`, or nothing when there is none or it cannot be read
  // (then `error`, when non-null, is filled). Any thread.
  virtual std::optional<std::string> stringForKey(const std::string& service,
                                                  const std::string& account, Error* error) = 0;
  // Stores `value` as the item, replacing what was there; the store is never left half
  // written. False with `error` filled on failure. Any thread.
  virtual bool setString(const std::string& value, const std::string& service,
                         const std::string& account, Error* error) = 0;
  // Removes the item; removing a missing item succeeds. Any thread.
  virtual bool removeKey(const std::string& service, const std::string& account,
                         Error* error) = 0;
};

}  // namespace platform
