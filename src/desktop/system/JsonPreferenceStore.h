// The preference store on Linux: one JSON file (normally
// $XDG_CONFIG_HOME/solvanta/preferences.json) holding one object, key to value.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "kit/Value.h"
#include "platform/PreferenceStore.h"

namespace desktop {

// Values keep their exact kind through a save and a load: truth values as JSON booleans,
// integers as JSON integers, reals as JSON numbers with a decimal point, texts, arrays and
// dictionaries as themselves. Kinds JSON lacks are tagged objects with one member:
// {"$data": "<base64>"} for bytes, {"$real": "nan" | "inf" | "-inf"} for reals JSON cannot
// hold, and {"$dict": {...}} for a dictionary whose own keys start with "$".
class JsonPreferenceStore : public platform::PreferenceStore {
 public:
  // Loads `path`. A missing file is an empty store. A file that cannot be parsed is renamed
  // to `path` + ".bad" (reported through desktop::diagnose) and the store starts empty. The
  // folder of `path` must exist for writes to succeed.
  explicit JsonPreferenceStore(std::string path);

  // Any thread.
  kit::Value objectForKey(const std::string& key) override;
  // Any thread. Changes the value in memory and rewrites the file atomically before
  // returning; a failed write is reported through desktop::diagnose and the value stays set
  // in memory for this run. Storing the value a key already holds (or removing an absent
  // key) writes nothing while the file is known to match memory.
  void setObject(kit::Value value, const std::string& key) override;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::mutex mu_;
  std::map<std::string, kit::Value> values_;
  // The file holds exactly `values_`: false until the first write succeeds (a file read at
  // start may be absent or damaged) and after any failed write.
  bool fileCurrent_ = false;
};

// The JSON text of `values` (one object), and back. Exposed for tests and other stores.
std::string encodeValues(const std::map<std::string, kit::Value>& values);
// Nothing, with `error` filled, when `text` is not a JSON object.
std::optional<std::map<std::string, kit::Value>> decodeValues(std::string_view text,
                                                              std::string* error = nullptr);

}  // namespace desktop
