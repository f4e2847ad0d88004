// libFuzzer target: an audience definition from the server, validated and then evaluated,
// filter by filter, against an event and a user property made of the rest of the input.
//
// Input: two bytes (big-endian) giving the length of a serialised audience, the audience,
// then a text used as every parameter's and the property's value (as a string, and as the
// integer and double it may spell).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <span>
#include <string>

#include "measurement/APMMonitor.h"
#include "measurement/audiences/APMAudience.h"
#include "measurement/audiences/APMAudienceComparison.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool quiet = [] {
    APMMonitor::setConsoleLevel(-1);
    return true;
  }();
  (void)quiet;
  if (size < 2) return 0;
  std::size_t length = (std::size_t{data[0]} << 8) | data[1];
  if (length > size - 2) length = size - 2;
  auto audience = APMPBMessage<APMPBAudience>::parseFromData(std::span(data + 2, length));
  if (!audience) return 0;
  std::string text(reinterpret_cast<const char*>(data + 2 + length), size - 2 - length);

  APMAudience::Limits limits;
  std::set<std::int64_t> seen;
  (void)APMAudience::validationError(**audience, limits, seen);

  std::int64_t integer = std::strtoll(text.c_str(), nullptr, 10);
  double real = std::strtod(text.c_str(), nullptr);
  APMEventAggregates aggregates;
  aggregates.lifetimeCount = integer;
  aggregates.currentSessionCount = integer / 2;
  for (const APMPBEventFilter& f :
       APMPBItems((*audience)->event_filters, (*audience)->event_filters_count)) {
    std::string name(APMPBString(f.event_name));
    aggregates.name = name;
    for (const APMValue& value :
         {APMValue::fromString(text), APMValue::fromInt64(integer), APMValue::fromDouble(real)}) {
      APMParameters parameters;
      for (const APMPBFilter& p : APMPBItems(f.filters, f.filters_count)) {
        if (p.param_name) parameters.insert_or_assign(p.param_name, value);
      }
      (void)APMAudience::evaluateEventFilter(f, name, parameters, &aggregates);
    }
  }
  for (const APMPBPropertyFilter& f :
       APMPBItems((*audience)->property_filters, (*audience)->property_filters_count)) {
    APMUserAttribute property;
    property.name = std::string(APMPBString(f.property_name));
    for (const APMValue& value :
         {APMValue::fromString(text), APMValue::fromInt64(integer), APMValue::fromDouble(real)}) {
      property.value = value;
      (void)APMAudience::evaluatePropertyFilter(f, property);
    }
  }
  if (auto decimal = APMDecimal::parse(text)) (void)decimal->compare(APMDecimal::fromInt64(integer));
  return 0;
}
