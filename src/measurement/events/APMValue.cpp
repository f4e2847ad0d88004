#include "measurement/events/APMValue.h"

std::optional<APMValue> APMValue::valueFromObject(const kit::Value& object, bool allowArray) {
  if (auto b = object.asBool()) return fromInt64(*b ? 1 : 0);
  if (auto n = object.asInteger()) return fromInt64(*n);
  if (auto d = object.asReal()) return fromDouble(*d);
  if (const std::string* s = object.asString()) return fromString(*s);
  const kit::Array* array = object.asArray();
  if (!array || !allowArray) return std::nullopt;
  std::vector<APMParameters> items;
  items.reserve(array->size());
  for (const kit::Value& element : *array) {
    const kit::Dictionary* dictionary = element.asDictionary();
    if (!dictionary) return std::nullopt;
    APMParameters item;
    for (const auto& [name, member] : *dictionary) {
      if (auto converted = valueFromObject(member, false))
        item.emplace(name, std::move(*converted));
    }
    items.push_back(std::move(item));
  }
  return fromArray(std::move(items));
}

kit::Value APMValue::objectValue() const {
  switch (valueType()) {
    case APMValueType::kDouble:
      return kit::Value(doubleValue());
    case APMValueType::kInt64:
      return kit::Value(static_cast<long long>(int64Value()));
    case APMValueType::kString:
      return kit::Value(stringValue());
    case APMValueType::kArray:
      break;
  }
  kit::Array items;
  for (const APMParameters& item : arrayValue()) {
    kit::Dictionary dictionary;
    for (const auto& [name, value] : item) dictionary.emplace(name, value.objectValue());
    items.push_back(kit::Value(std::move(dictionary)));
  }
  return kit::Value(std::move(items));
}
