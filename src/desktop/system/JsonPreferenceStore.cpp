#include "desktop/system/JsonPreferenceStore.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include <cmath>
#include <cstring>
#include <limits>

#include "desktop/system/FileUtil.h"

namespace desktop {
namespace {

using Json = nlohmann::json;

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string toBase64(const kit::Data& data) {
  std::string out;
  out.reserve((data.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < data.size(); i += 3) {
    std::uint32_t n = static_cast<std::uint32_t>(data[i]) << 16;
    if (i + 1 < data.size()) n |= static_cast<std::uint32_t>(data[i + 1]) << 8;
    if (i + 2 < data.size()) n |= data[i + 2];
    out += kBase64[(n >> 18) & 63];
    out += kBase64[(n >> 12) & 63];
    out += i + 1 < data.size() ? kBase64[(n >> 6) & 63] : '=';
    out += i + 2 < data.size() ? kBase64[n & 63] : '=';
  }
  return out;
}

std::optional<kit::Data> fromBase64(const std::string& text) {
  if (text.size() % 4 != 0) return std::nullopt;
  kit::Data out;
  std::uint32_t bits = 0;
  int count = 0;
  std::size_t padding = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '=') {
      if (i + 2 < text.size()) return std::nullopt;
      ++padding;
      bits <<= 6;
    } else {
      const char* at = std::strchr(kBase64, c);
      if (!at || c == '\0' || padding) return std::nullopt;
      bits = (bits << 6) | static_cast<std::uint32_t>(at - kBase64);
    }
    if (++count == 4) {
      out.push_back(static_cast<std::uint8_t>(bits >> 16));
      out.push_back(static_cast<std::uint8_t>(bits >> 8));
      out.push_back(static_cast<std::uint8_t>(bits));
      bits = 0;
      count = 0;
    }
  }
  out.resize(out.size() - padding);
  return out;
}

Json toJson(const kit::Value& value);

Json objectOf(const kit::Dictionary& dict) {
  Json object = Json::object();
  bool tagged = false;
  for (const auto& [key, member] : dict) {
    object[key] = toJson(member);
    if (!key.empty() && key[0] == '$') tagged = true;
  }
  return tagged ? Json{{"$dict", std::move(object)}} : object;
}

Json toJson(const kit::Value& value) {
  return std::visit(
      [](const auto& v) -> Json {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          return nullptr;
        } else if constexpr (std::is_same_v<T, double>) {
          if (std::isnan(v)) return Json{{"$real", "nan"}};
          if (std::isinf(v)) return Json{{"$real", v > 0 ? "inf" : "-inf"}};
          return v;
        } else if constexpr (std::is_same_v<T, kit::Data>) {
          return Json{{"$data", toBase64(v)}};
        } else if constexpr (std::is_same_v<T, kit::Array>) {
          Json array = Json::array();
          for (const auto& item : v) array.push_back(toJson(item));
          return array;
        } else if constexpr (std::is_same_v<T, kit::Dictionary>) {
          return objectOf(v);
        } else {
          return v;  // bool, std::int64_t, std::string
        }
      },
      value.storage());
}

kit::Value fromJson(const Json& json);

kit::Dictionary dictionaryOf(const Json& object) {
  kit::Dictionary dict;
  for (const auto& [key, member] : object.items()) dict[key] = fromJson(member);
  return dict;
}

kit::Value fromJson(const Json& json) {
  switch (json.type()) {
    case Json::value_t::boolean:
      return kit::Value(json.get<bool>());
    case Json::value_t::number_integer:
      return kit::Value(static_cast<long long>(json.get<std::int64_t>()));
    case Json::value_t::number_unsigned: {
      auto u = json.get<std::uint64_t>();
      if (u <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return kit::Value(static_cast<long long>(u));
      }
      return kit::Value(static_cast<double>(u));
    }
    case Json::value_t::number_float:
      return kit::Value(json.get<double>());
    case Json::value_t::string:
      return kit::Value(json.get<std::string>());
    case Json::value_t::array: {
      kit::Array array;
      for (const auto& item : json) array.push_back(fromJson(item));
      return kit::Value(std::move(array));
    }
    case Json::value_t::object: {
      if (json.size() == 1) {
        auto only = json.begin();
        const std::string& tag = only.key();
        const Json& inner = only.value();
        if (tag == "$data" && inner.is_string()) {
          if (auto data = fromBase64(inner.get<std::string>())) return kit::Value(std::move(*data));
        } else if (tag == "$real" && inner.is_string()) {
          const auto& s = inner.get_ref<const std::string&>();
          if (s == "nan") return kit::Value(std::numeric_limits<double>::quiet_NaN());
          if (s == "inf") return kit::Value(std::numeric_limits<double>::infinity());
          if (s == "-inf") return kit::Value(-std::numeric_limits<double>::infinity());
        } else if (tag == "$dict" && inner.is_object()) {
          return kit::Value(dictionaryOf(inner));
        }
      }
      return kit::Value(dictionaryOf(json));
    }
    default:
      return kit::Value();
  }
}

}  // namespace

std::string encodeValues(const std::map<std::string, kit::Value>& values) {
  Json object = Json::object();
  for (const auto& [key, value] : values) object[key] = toJson(value);
  // Texts that are not UTF-8 cannot be JSON; their bad bytes become U+FFFD.
  return object.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::optional<std::map<std::string, kit::Value>> decodeValues(std::string_view text,
                                                              std::string* error) {
  Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (json.is_discarded() || !json.is_object()) {
    if (error) *error = "not a JSON object";
    return std::nullopt;
  }
  std::map<std::string, kit::Value> values;
  for (const auto& [key, member] : json.items()) values[key] = fromJson(member);
  return values;
}

JsonPreferenceStore::JsonPreferenceStore(std::string path) : path_(std::move(path)) {
  std::string error;
  auto text = readWholeFile(path_, &error);
  if (!text) {
    if (!error.empty()) diagnose("preferences: " + error);
    return;
  }
  if (auto values = decodeValues(*text, &error)) {
    values_ = std::move(*values);
    return;
  }
  std::string aside = path_ + ".bad";
  diagnose("preferences: " + path_ + " is damaged (" + error + "); it was moved to " + aside +
           " and the app starts with no preferences");
  std::rename(path_.c_str(), aside.c_str());
}

kit::Value JsonPreferenceStore::objectForKey(const std::string& key) {
  std::lock_guard lock(mu_);
  auto it = values_.find(key);
  return it == values_.end() ? kit::Value() : it->second;
}

namespace {

// Whether storing `value` over `stored` leaves the file's text as it is. Only plain values are
// compared; reals by their bits, so that 0.0 and -0.0 stay apart.
bool sameText(const kit::Value& stored, const kit::Value& value) {
  return std::visit(
      [](const auto& a, const auto& b) -> bool {
        using A = std::decay_t<decltype(a)>;
        using B = std::decay_t<decltype(b)>;
        if constexpr (!std::is_same_v<A, B>) {
          return false;
        } else if constexpr (std::is_same_v<A, double>) {
          return std::memcmp(&a, &b, sizeof a) == 0;
        } else if constexpr (std::is_same_v<A, bool> || std::is_same_v<A, std::int64_t> ||
                             std::is_same_v<A, std::string>) {
          return a == b;
        } else {
          return false;
        }
      },
      stored.storage(), value.storage());
}

}  // namespace

void JsonPreferenceStore::setObject(kit::Value value, const std::string& key) {
  std::lock_guard lock(mu_);
  // Storing what is already stored, once the file holds it, leaves the file alone.
  if (fileCurrent_) {
    auto it = values_.find(key);
    if (value.isNull() ? it == values_.end() : it != values_.end() && sameText(it->second, value)) {
      return;
    }
  }
  if (value.isNull()) {
    values_.erase(key);
  } else {
    values_[key] = std::move(value);
  }
  std::string error;
  fileCurrent_ = writeFileAtomically(path_, encodeValues(values_), 0600, &error);
  if (!fileCurrent_) diagnose("preferences: " + error);
}

}  // namespace desktop
