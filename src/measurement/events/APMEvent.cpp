#include "measurement/events/APMEvent.h"

#include <openssl/evp.h>

#include <cmath>
#include <cstring>

#include "kit/Console.h"
#include "measurement/APMMonitor.h"
#include "measurement/events/APMParameterCleaning.h"

namespace {
constexpr int kCodePreviousAfterCurrent = 3001;

// Protocol Buffers wire writing, as the message serialiser does it for the event's fields.
enum WireType : std::uint8_t { kVarint = 0, kFixed64 = 1, kLengthDelimited = 2 };

void putVarint(kit::Data& out, std::uint64_t value) {
  while (value >= 0x80) {
    out.push_back(static_cast<std::uint8_t>(value | 0x80));
    value >>= 7;
  }
  out.push_back(static_cast<std::uint8_t>(value));
}

void putTag(kit::Data& out, std::uint32_t field, WireType type) {
  putVarint(out, (field << 3) | type);
}

// A string field. The message keeps C strings, so text after a NUL never reaches the wire.
void putString(kit::Data& out, std::uint32_t field, const std::string& text) {
  std::size_t size = std::strlen(text.c_str());
  putTag(out, field, kLengthDelimited);
  putVarint(out, size);
  out.insert(out.end(), text.data(), text.data() + size);
}

// A nested message whose body `fill` appends; its length goes in front once known.
template <class Fill>
void putMessage(kit::Data& out, std::uint32_t field, Fill fill) {
  putTag(out, field, kLengthDelimited);
  std::size_t at = out.size();
  out.push_back(0);
  fill();
  std::size_t size = out.size() - at - 1;
  if (size < 0x80) {
    out[at] = static_cast<std::uint8_t>(size);
    return;
  }
  kit::Data prefix;
  putVarint(prefix, size);
  out[at] = prefix[0];
  out.insert(out.begin() + static_cast<std::ptrdiff_t>(at) + 1, prefix.begin() + 1, prefix.end());
}

// The body of an EventParam: the fields APMFillEventParam sets, in tag order.
void putParamBody(kit::Data& out, const std::string* name, const APMValue& value) {
  if (name) putString(out, 1, *name);
  switch (value.valueType()) {
    case APMValueType::kString:
      putString(out, 2, value.stringValue());
      break;
    case APMValueType::kInt64:
      putTag(out, 3, kVarint);
      putVarint(out, static_cast<std::uint64_t>(value.int64Value()));
      break;
    case APMValueType::kDouble: {
      double d = value.doubleValue();
      std::uint64_t bits;
      std::memcpy(&bits, &d, sizeof bits);
      putTag(out, 5, kFixed64);
      for (int i = 0; i < 8; ++i) out.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
      break;
    }
    case APMValueType::kArray:
      for (const APMParameters& item : value.arrayValue()) {
        putMessage(out, 6, [&] {
          for (const auto& child : item) {
            putMessage(out, 6, [&] { putParamBody(out, &child.first, child.second); });
          }
        });
      }
      break;
  }
}

}  // namespace

std::optional<APMEvent> APMEvent::create(std::string origin, std::string name, double timestamp,
                                         double previousTimestamp, APMParameters parameters) {
  if (name.empty() || !APMIsValidEventOrigin(origin)) return std::nullopt;
  if (previousTimestamp > timestamp) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodePreviousAfterCurrent,
                    "Event created with previous timestamp after current timestamp", name,
                    previousTimestamp, timestamp);
  }
  APMEvent event;
  event.origin_ = std::move(origin);
  event.name_ = std::move(name);
  event.timestamp_ = timestamp;
  event.previousTimestamp_ = previousTimestamp;
  event.parameters_ = std::move(parameters);
  event.parameters_.insert_or_assign("_o", APMValue::fromString(event.origin_));
  return event;
}

std::optional<APMEvent> APMEvent::fromProto(const APMPBEvent& proto) {
  if (!proto.name || !*proto.name) return std::nullopt;
  APMEvent event;
  event.name_ = proto.name;
  event.timestamp_ = static_cast<double>(proto.timestamp_millis) / 1000.0;
  event.previousTimestamp_ =
      proto.has_previous_timestamp_millis ? proto.previous_timestamp_millis / 1000.0 : 0;
  for (const APMPBEventParam& param : APMPBItems(proto.params, proto.params_count)) {
    if (!param.name) continue;
    if (auto value = APMValueOfEventParam(param)) event.parameters_.emplace(param.name, *value);
  }
  const APMValue* origin = event.parameter("_o");
  event.origin_ = origin && origin->isString() ? origin->stringValue() : "app";
  return event;
}

const APMValue* APMEvent::parameter(const std::string& name) const {
  auto it = parameters_.find(name);
  return it == parameters_.end() ? nullptr : &it->second;
}

std::optional<std::int64_t> APMEvent::integerParameter(const std::string& name) const {
  const APMValue* value = parameter(name);
  if (!value) return std::nullopt;
  if (value->isInt64()) return value->int64Value();
  if (value->isDouble() && std::isfinite(value->doubleValue())) {
    return static_cast<std::int64_t>(value->doubleValue());
  }
  return std::nullopt;
}

void APMEvent::setParameter(const std::string& name, APMValue value) {
  parameters_.insert_or_assign(name, std::move(value));
}

void APMEvent::setFlag(const char* name, bool on) {
  if (on) {
    parameters_.insert_or_assign(name, APMValue::fromInt64(1));
  } else {
    parameters_.erase(name);
  }
}

void APMEvent::clearConversion() { APMClearConversion(parameters_); }

APMEvent APMEvent::copyWithName(std::string name) const {
  APMEvent copy = *this;
  copy.name_ = std::move(name);
  return copy;
}

APMEvent APMEvent::copyWithPreviousTimestamp(double previousTimestamp) const {
  APMEvent copy = *this;
  copy.previousTimestamp_ = previousTimestamp;
  return copy;
}

std::string APMDescribeValue(const APMValue& value) {
  switch (value.valueType()) {
    case APMValueType::kString:
      return value.stringValue();
    case APMValueType::kInt64:
      return std::to_string(value.int64Value());
    case APMValueType::kDouble:
      return kit::describe(value.doubleValue());
    case APMValueType::kArray:
      break;
  }
  std::string out = "[";
  for (std::size_t i = 0; i < value.arrayValue().size(); ++i) {
    if (i) out += ", ";
    out += APMDescribeParameters(value.arrayValue()[i]);
  }
  return out + "]";
}

std::string APMDescribeParameters(const APMParameters& parameters) {
  std::string out = "{";
  bool first = true;
  for (const auto& [name, value] : parameters) {
    if (!first) out += ", ";
    first = false;
    out += name + "=" + APMDescribeValue(value);
  }
  return out + "}";
}

std::int64_t APMMilliseconds(double seconds) {
  return static_cast<std::int64_t>(std::llround(seconds * 1000.0));
}

void APMFillEventParam(APMPBEventParam& param, const APMValue& value) {
  switch (value.valueType()) {
    case APMValueType::kString:
      APMPBSetString(&param.string_value, value.stringValue());
      break;
    case APMValueType::kInt64:
      param.has_int_value = true;
      param.int_value = value.int64Value();
      break;
    case APMValueType::kDouble:
      param.has_double_value = true;
      param.double_value = value.doubleValue();
      break;
    case APMValueType::kArray:
      for (const APMParameters& item : value.arrayValue()) {
        APMPBEventParam& element = APMPBAppend(&param.param_value, &param.param_value_count);
        for (const auto& [name, member] : item) {
          APMPBEventParam& child = APMPBAppend(&element.param_value, &element.param_value_count);
          APMPBSetString(&child.name, name);
          APMFillEventParam(child, member);
        }
      }
      break;
  }
}

std::optional<APMValue> APMValueOfEventParam(const APMPBEventParam& param) {
  if (param.string_value) return APMValue::fromString(param.string_value);
  if (param.has_int_value) return APMValue::fromInt64(param.int_value);
  if (param.has_double_value) return APMValue::fromDouble(param.double_value);
  if (param.has_float_value) return APMValue::fromDouble(param.float_value);
  if (param.param_value_count == 0) return std::nullopt;
  std::vector<APMParameters> items;
  for (const APMPBEventParam& element : APMPBItems(param.param_value, param.param_value_count)) {
    APMParameters item;
    for (const APMPBEventParam& child :
         APMPBItems(element.param_value, element.param_value_count)) {
      if (!child.name) continue;
      if (auto value = APMValueOfEventParam(child)) item.emplace(child.name, *value);
    }
    items.push_back(std::move(item));
  }
  return APMValue::fromArray(std::move(items));
}

APMPBMessage<APMPBEvent> APMEvent::protoEvent() const {
  APMPBMessage<APMPBEvent> proto;
  APMPBSetString(&proto->name, name_);
  proto->has_timestamp_millis = true;
  proto->timestamp_millis = APMMilliseconds(timestamp_);
  if (previousTimestamp_ != 0) {
    proto->has_previous_timestamp_millis = true;
    proto->previous_timestamp_millis = APMMilliseconds(previousTimestamp_);
  }
  for (const auto& [name, value] : parameters_) {
    APMPBEventParam& param = APMPBAppend(&proto->params, &proto->params_count);
    APMPBSetString(&param.name, name);
    APMFillEventParam(param, value);
  }
  return proto;
}

bool APMEvent::encodeWithoutName(kit::Data* out, platform::Error* error) const {
  out->clear();
  for (const auto& parameter : parameters_) {
    putMessage(*out, 1, [&] { putParamBody(*out, &parameter.first, parameter.second); });
  }
  putTag(*out, 3, kVarint);
  putVarint(*out, static_cast<std::uint64_t>(APMMilliseconds(timestamp_)));
  if (previousTimestamp_ != 0) {
    putTag(*out, 4, kVarint);
    putVarint(*out, static_cast<std::uint64_t>(APMMilliseconds(previousTimestamp_)));
  }
  if (out->size() <= kAPMPBStreamLimit) return true;
  // Too big: the serialiser refuses it in its own words.
  auto proto = protoEvent();
  APMPBClearString(&proto->name);
  return APMPBEncode(APMPBMessage<APMPBEvent>::fields(), &*proto, out, error);
}

std::int64_t apm_64LSBMD5(const kit::Data& data) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (!EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr) ||
      length != 16) {
    return 0;
  }
  std::uint64_t bits = 0;
  for (unsigned i = 8; i < 16; ++i) bits = (bits << 8) | digest[i];
  return static_cast<std::int64_t>(bits);
}
