#include "measurement/proto/APMPB.h"

#include <pb_common.h>
#include <pb_decode.h>
#include <pb_encode.h>

#include <bit>
#include <cstddef>
#include <cstring>
#include <limits>
#include <vector>

#include "measurement/APMError.h"
#include "measurement/APMMonitor.h"

// The bundle's fields stand in declaration order: tag 26 right after tag 6, tag 27 right
// after tag 19.
static_assert(std::endian::native == std::endian::little, "fixed-width fields are copied as stored");
static_assert(offsetof(APMPBMeasurementBundle, bundle_end_timestamp_millis) <
              offsetof(APMPBMeasurementBundle, previous_bundle_start_timestamp_millis));
static_assert(offsetof(APMPBMeasurementBundle, previous_bundle_start_timestamp_millis) <
              offsetof(APMPBMeasurementBundle, previous_bundle_end_timestamp_millis));
static_assert(offsetof(APMPBMeasurementBundle, resettable_device_id) <
              offsetof(APMPBMeasurementBundle, vendor_device_id));
static_assert(offsetof(APMPBMeasurementBundle, vendor_device_id) <
              offsetof(APMPBMeasurementBundle, limited_ad_tracking));

namespace {

constexpr int kMessageCodeStreamTooBig = 30001;
// Room for a bundle or a batch under the default upload size limit (64 KiB) and its header.
constexpr std::size_t kScratchSize = 128 * 1024;

bool refuseTooBig(std::size_t size, std::size_t limit, platform::Error* error) {
  char text[128];
  std::snprintf(text, sizeof text, "Unable to process proto stream. Buffer is too big. %zu > %d",
                size, static_cast<int>(std::min<std::size_t>(limit, INT32_MAX)));
  APMMonitor::log(kAPMMonitorLevelError, kMessageCodeStreamTooBig, text);
  return APMSetError(error, kAPMErrorCodeFailedStep, text);
}

// The direct writer of events and their parameters: fields in declaration order (which is
// tag order for both), present as nanopb has them (allocated strings and repeated fields when
// set, scalars by their has_ flags), scalars in nanopb's wire forms.
std::size_t varintSize(std::uint64_t value) {
  std::size_t n = 1;
  while (value >= 0x80) {
    value >>= 7;
    ++n;
  }
  return n;
}

void putVarint(std::uint8_t*& at, std::uint64_t value) {
  while (value >= 0x80) {
    *at++ = static_cast<std::uint8_t>(value | 0x80);
    value >>= 7;
  }
  *at++ = static_cast<std::uint8_t>(value);
}

// Keys of fields 1 to 15 take one byte.
void putKey(std::uint8_t*& at, std::uint32_t field, std::uint32_t wireType) {
  putVarint(at, (field << 3) | wireType);
}

std::size_t stringFieldSize(const char* text) {
  if (!text) return 0;
  std::size_t length = std::strlen(text);
  return 1 + varintSize(length) + length;
}

void putString(std::uint8_t*& at, std::uint32_t field, const char* text) {
  if (!text) return;
  std::size_t length = std::strlen(text);
  putKey(at, field, PB_WT_STRING);
  putVarint(at, length);
  std::memcpy(at, text, length);
  at += length;
}

std::size_t paramBodySize(const APMPBEventParam& p) {
  std::size_t size = stringFieldSize(p.name) + stringFieldSize(p.string_value);
  if (p.has_int_value) size += 1 + varintSize(static_cast<std::uint64_t>(p.int_value));
  if (p.has_float_value) size += 1 + 4;
  if (p.has_double_value) size += 1 + 8;
  for (pb_size_t i = 0; i < p.param_value_count; ++i) {
    std::size_t inner = paramBodySize(p.param_value[i]);
    size += 1 + varintSize(inner) + inner;
  }
  return size;
}

template <class T>
void putFixed(std::uint8_t*& at, T value) {
  // Little-endian, as the wire has it and as this machine stores it.
  std::memcpy(at, &value, sizeof value);
  at += sizeof value;
}

void putParamBody(std::uint8_t*& at, const APMPBEventParam& p) {
  putString(at, 1, p.name);
  putString(at, 2, p.string_value);
  if (p.has_int_value) {
    putKey(at, 3, PB_WT_VARINT);
    putVarint(at, static_cast<std::uint64_t>(p.int_value));
  }
  if (p.has_float_value) {
    putKey(at, 4, PB_WT_32BIT);
    putFixed(at, p.float_value);
  }
  if (p.has_double_value) {
    putKey(at, 5, PB_WT_64BIT);
    putFixed(at, p.double_value);
  }
  for (pb_size_t i = 0; i < p.param_value_count; ++i) {
    putKey(at, 6, PB_WT_STRING);
    putVarint(at, paramBodySize(p.param_value[i]));
    putParamBody(at, p.param_value[i]);
  }
}

std::size_t eventBodySize(const APMPBEvent& e) {
  std::size_t size = 0;
  for (pb_size_t i = 0; i < e.params_count; ++i) {
    std::size_t inner = paramBodySize(e.params[i]);
    size += 1 + varintSize(inner) + inner;
  }
  size += stringFieldSize(e.name);
  if (e.has_timestamp_millis) size += 1 + varintSize(static_cast<std::uint64_t>(e.timestamp_millis));
  if (e.has_previous_timestamp_millis) {
    size += 1 + varintSize(static_cast<std::uint64_t>(e.previous_timestamp_millis));
  }
  // An int32 goes out sign-extended to 64 bits.
  if (e.has_count) size += 1 + varintSize(static_cast<std::uint64_t>(std::int64_t{e.count}));
  return size;
}

void putEventBody(std::uint8_t*& at, const APMPBEvent& e) {
  for (pb_size_t i = 0; i < e.params_count; ++i) {
    putKey(at, 1, PB_WT_STRING);
    putVarint(at, paramBodySize(e.params[i]));
    putParamBody(at, e.params[i]);
  }
  putString(at, 2, e.name);
  if (e.has_timestamp_millis) {
    putKey(at, 3, PB_WT_VARINT);
    putVarint(at, static_cast<std::uint64_t>(e.timestamp_millis));
  }
  if (e.has_previous_timestamp_millis) {
    putKey(at, 4, PB_WT_VARINT);
    putVarint(at, static_cast<std::uint64_t>(e.previous_timestamp_millis));
  }
  if (e.has_count) {
    putKey(at, 5, PB_WT_VARINT);
    putVarint(at, static_cast<std::uint64_t>(std::int64_t{e.count}));
  }
}

}  // namespace

bool APMPBEncodeBundle(const APMPBMeasurementBundle& bundle, kit::Data* out,
                       platform::Error* error, std::size_t limit) {
  // Everything but the events through the ordinary writer, from a shallow copy that is never
  // released; the events then go in where they are declared, before the fields after them.
  APMPBMeasurementBundle rest = bundle;
  rest.events = nullptr;
  rest.events_count = 0;
  kit::Data head;
  if (!APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), &rest, &head, error, SIZE_MAX)) {
    return false;
  }
  auto tail = APMPBEncodedSizeAfterField(rest, apm_MeasurementBundle_events_tag);
  if (!tail || *tail > head.size()) {
    return APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), &bundle, out, error, limit);
  }
  thread_local std::vector<std::size_t> sizes;
  sizes.clear();
  std::size_t eventsSize = 0;
  for (pb_size_t i = 0; i < bundle.events_count; ++i) {
    sizes.push_back(eventBodySize(bundle.events[i]));
    eventsSize += 1 + varintSize(sizes.back()) + sizes.back();
  }
  std::size_t total = head.size() + eventsSize;
  if (total > limit) return refuseTooBig(total, limit, error);
  out->resize(total);
  if (total == 0) return true;
  std::size_t split = head.size() - *tail;
  if (split) std::memcpy(out->data(), head.data(), split);
  std::uint8_t* at = out->data() + split;
  for (pb_size_t i = 0; i < bundle.events_count; ++i) {
    putKey(at, apm_MeasurementBundle_events_tag, PB_WT_STRING);
    putVarint(at, sizes[i]);
    putEventBody(at, bundle.events[i]);
  }
  if (*tail) std::memcpy(at, head.data() + split, *tail);
  return true;
}

bool APMPBEncode(const pb_msgdesc_t* fields, const void* message, kit::Data* out,
                 platform::Error* error, std::size_t limit) {
  // Most messages fit the scratch buffer and are written in one pass.
  thread_local kit::Data scratch(kScratchSize);
  pb_ostream_t quick = pb_ostream_from_buffer(scratch.data(), scratch.size());
  if (pb_encode(&quick, fields, message)) {
    if (quick.bytes_written > limit) return refuseTooBig(quick.bytes_written, limit, error);
    out->assign(scratch.begin(), scratch.begin() + static_cast<long>(quick.bytes_written));
    return true;
  }
  // Larger ones: the first pass sizes the message, with every repeated field counted; the
  // second fills a buffer of exactly that size.
  std::size_t size = 0;
  if (!pb_get_encoded_size(&size, fields, message)) {
    return APMSetError(error, kAPMErrorCodeFailedStep, "Unable to compute proto message size");
  }
  if (size > limit) return refuseTooBig(size, limit, error);
  out->resize(size);
  pb_ostream_t stream = pb_ostream_from_buffer(out->data(), size);
  if (!pb_encode(&stream, fields, message) || stream.bytes_written != size) {
    out->clear();
    return APMSetError(error, kAPMErrorCodeFailedStep,
                       std::string("Unable to encode proto message: ") + PB_GET_ERROR(&stream));
  }
  return true;
}

bool APMPBWithinStreamLimit(std::size_t size, std::size_t limit, platform::Error* error) {
  return size <= limit || refuseTooBig(size, limit, error);
}

void APMPBAppendLengthDelimited(kit::Data* out, std::uint32_t tag,
                                std::span<const std::uint8_t> bytes) {
  auto varint = [out](std::uint64_t value) {
    while (value >= 0x80) {
      out->push_back(static_cast<std::uint8_t>(value | 0x80));
      value >>= 7;
    }
    out->push_back(static_cast<std::uint8_t>(value));
  };
  varint((static_cast<std::uint64_t>(tag) << 3) | PB_WT_STRING);
  varint(bytes.size());
  out->insert(out->end(), bytes.begin(), bytes.end());
}

std::optional<std::size_t> APMPBEncodedSizeAfterFieldRaw(const pb_msgdesc_t* fields,
                                                         const void* message,
                                                         std::size_t messageSize, pb_size_t tag) {
  // A shallow copy whose fields up to `tag` are absent: it shares the pointers of `message`
  // and is only sized, never released.
  thread_local std::vector<std::uint8_t> copy;
  copy.assign(static_cast<const std::uint8_t*>(message),
              static_cast<const std::uint8_t*>(message) + messageSize);
  pb_field_iter_t it;
  if (!pb_field_iter_begin(&it, fields, copy.data())) return std::nullopt;
  bool passed = false;
  do {
    if (passed) {
      if (PB_ATYPE(it.type) == PB_ATYPE_CALLBACK || PB_HTYPE(it.type) == PB_HTYPE_ONEOF) {
        return std::nullopt;
      }
      continue;
    }
    switch (PB_HTYPE(it.type)) {
      case PB_HTYPE_OPTIONAL:
      case PB_HTYPE_REPEATED:
        break;
      default:
        return std::nullopt;  // required, singular and oneof fields cannot simply be absent
    }
    if (PB_ATYPE(it.type) == PB_ATYPE_POINTER) {
      *static_cast<void**>(it.pField) = nullptr;
      if (PB_HTYPE(it.type) == PB_HTYPE_REPEATED) *static_cast<pb_size_t*>(it.pSize) = 0;
    } else if (PB_ATYPE(it.type) == PB_ATYPE_STATIC) {
      if (PB_HTYPE(it.type) == PB_HTYPE_REPEATED) {
        *static_cast<pb_size_t*>(it.pSize) = 0;
      } else if (it.pSize) {
        *static_cast<bool*>(it.pSize) = false;
      } else {
        return std::nullopt;
      }
    } else {
      return std::nullopt;
    }
    passed = it.tag == tag;
  } while (pb_field_iter_next(&it));
  if (!passed) return std::nullopt;
  std::size_t size = 0;
  if (!pb_get_encoded_size(&size, fields, copy.data())) return std::nullopt;
  return size;
}

bool APMPBDecode(const pb_msgdesc_t* fields, const std::uint8_t* data, std::size_t size,
                 void* message, platform::Error* error, std::size_t limit) {
  if (size > limit) return refuseTooBig(size, limit, error);
  pb_istream_t stream = pb_istream_from_buffer(data, size);
  if (!pb_decode(&stream, fields, message)) {
    pb_release(fields, message);
    return APMSetError(error, kAPMErrorCodeFailedStep,
                       std::string("Unable to decode proto message: ") + PB_GET_ERROR(&stream));
  }
  return true;
}

void APMPBSetString(char** field, std::string_view value) {
  char* copy = static_cast<char*>(std::malloc(value.size() + 1));
  if (!copy) kit::fatal("Out of memory for a proto string");
  std::memcpy(copy, value.data(), value.size());
  copy[value.size()] = '\0';
  std::free(*field);
  *field = copy;
}

void APMPBClearString(char** field) {
  std::free(*field);
  *field = nullptr;
}

void* APMPBAppendRaw(void** items, pb_size_t* count, std::size_t elementSize) {
  if (*count == std::numeric_limits<pb_size_t>::max()) kit::fatal("Proto repeated field overflow");
  void* grown = std::realloc(*items, (static_cast<std::size_t>(*count) + 1) * elementSize);
  if (!grown) kit::fatal("Out of memory for a proto repeated field");
  *items = grown;
  void* element = static_cast<char*>(grown) + static_cast<std::size_t>(*count) * elementSize;
  std::memset(element, 0, elementSize);
  ++*count;
  return element;
}

void APMPBAppendString(char*** items, pb_size_t* count, std::string_view value) {
  char*& slot = APMPBAppend(items, count);
  APMPBSetString(&slot, value);
}
