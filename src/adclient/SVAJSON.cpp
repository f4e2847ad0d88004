#include "adclient/SVAJSON.h"

#include <cmath>
#include <cstdio>

namespace adclient {
namespace {

void appendString(std::string& out, const std::string& s) {
  out += '"';
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  out += '"';
}

void append(std::string& out, const kit::Value& value) {
  if (value.isNull()) {
    out += "null";
  } else if (auto b = value.asBool()) {
    out += *b ? "true" : "false";
  } else if (auto i = value.asInteger()) {
    out += std::to_string(*i);
  } else if (auto d = value.asReal()) {
    if (!std::isfinite(*d)) {
      out += "null";
    } else {
      char buf[32];
      std::snprintf(buf, sizeof buf, "%.17g", *d);
      out += buf;
    }
  } else if (auto s = value.asString()) {
    appendString(out, *s);
  } else if (auto data = value.asData()) {
    out += '[';
    for (std::size_t k = 0; k < data->size(); ++k) out += (k ? "," : "") + std::to_string((*data)[k]);
    out += ']';
  } else if (auto a = value.asArray()) {
    out += '[';
    for (std::size_t k = 0; k < a->size(); ++k) {
      if (k) out += ',';
      append(out, (*a)[k]);
    }
    out += ']';
  } else if (auto m = value.asDictionary()) {
    out += '{';
    bool first = true;
    for (const auto& [key, item] : *m) {
      if (!first) out += ',';
      first = false;
      appendString(out, key);
      out += ':';
      append(out, item);
    }
    out += '}';
  }
}

}  // namespace

std::string SVAJSONString(const kit::Value& value) {
  std::string out;
  append(out, value);
  return out;
}

}  // namespace adclient
