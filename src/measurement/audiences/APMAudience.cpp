#include "measurement/audiences/APMAudience.h"

#include <algorithm>

#include "measurement/APMMonitor.h"
#include "measurement/audiences/APMAudienceComparison.h"
#include "measurement/events/APMEventNames.h"

namespace {

enum : int {
  kCodeTooManyAudiences = 21001,
  kCodeInvalidAudience = 21002,
  kCodeTooManyResults = 21003,
  kCodeQueryEventFilters = 21004,
  kCodeQueryResult = 21005,
  kCodeCorruptFilter = 21006,
  kCodeSaveResults = 21007,
  kCodeEventFilterNil = 21008,
  kCodeNameMismatch = 21009,
  kCodeNoParamName = 21010,
  kCodeMissingParam = 21011,
  kCodeStringParamNoStringFilter = 21012,
  kCodeNotNumeric = 21013,
  kCodeNoFilter = 21014,
  kCodeUnsupportedValue = 21015,
  kCodePropertyFilter = 21016,
  kCodeUnknownPropertyType = 21017,
  kCodeNanoConversion = 21018,
  kCodeSequenceOrder = 21019,
  kCodeDynamicOrder = 21020,
  kCodeBundleResults = 21021,
  kCodeSessionClear = 21022,
  kCodeMissingArrays = 21023,
  kCodeQueryPropertyFilters = 21024,
  kCodeCorruptResult = 21025,
};

constexpr const char* kNotEvaluated = ". Audience filter will not be evaluated";

std::string notEvaluated(const char* message) { return std::string(message) + kNotEvaluated; }

bool hasFloatText(const char* text) {
  return text && std::string_view(text).find('.') != std::string_view::npos;
}

// A value against one parameter or property filter. `strictStrings`: a string value needs a
// string filter (event parameters); otherwise a numeric text may meet a number filter.
// `describe` makes the filter's description, only when a message needs it.
template <class Describe>
std::optional<bool> evaluateValue(const APMPreparedFilter& filter, const APMValue& value,
                                  bool strictStrings, const Describe& describe) {
  if (!filter.string && !filter.number) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNoFilter,
                    notEvaluated("Filter has neither a number nor string filter"));
    return std::nullopt;
  }
  if (value.isString()) {
    if (filter.string) return filter.string->evaluate(&value.stringValue());
    if (strictStrings) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeStringParamNoStringFilter,
                      notEvaluated("Event param is a string and the filter does not have a "
                                   "string filter") + ". Event name, event params, filter",
                      describe());
      return std::nullopt;
    }
    auto decimal = APMDecimal::parse(value.stringValue());
    if (!decimal) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeNotNumeric,
                      notEvaluated("String value is not a numeric value") + ". Value, filter",
                      value.stringValue(), describe());
      return std::nullopt;
    }
    return filter.number->evaluate(*decimal);
  }
  if (value.isInt64() || value.isDouble()) {
    if (!filter.number) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnsupportedValue,
                      notEvaluated("Number value and the filter does not have a number filter"),
                      describe());
      return std::nullopt;
    }
    if (value.isInt64()) return filter.number->evaluateInteger(value.int64Value());
    return filter.number->evaluateWithDouble(value.doubleValue());
  }
  APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnsupportedValue,
                  notEvaluated("Value of unsupported type"), describe());
  return std::nullopt;
}

std::optional<std::string> validateFilterIDs(bool hasID, std::int32_t id, const char* kind,
                                             std::set<std::int32_t>& seen) {
  std::string k(kind);
  if (!hasID) return "Missing " + std::string(1, static_cast<char>(std::tolower(k[0]))) + k.substr(1) + " filter ID";
  if (id < 0 || id > kAPMMaxAudienceFilterID) return k + " filter ID is out of range";
  if (!seen.insert(id).second) return "Duplicate " + std::string(1, static_cast<char>(std::tolower(k[0]))) + k.substr(1) + " filter ID";
  return std::nullopt;
}

template <class T>
std::optional<APMPBMessage<T>> copyOf(const T& message) {
  kit::Data bytes;
  if (!APMPBEncode(APMPBMessage<T>::fields(), &message, &bytes, nullptr)) return std::nullopt;
  return APMPBMessage<T>::parseFromData(bytes);
}

std::string mapped(const APMNameMap& map, const char* name) {
  std::string text(APMPBString(name));
  auto it = map.find(text);
  return it == map.end() ? text : it->second;
}

}  // namespace

// --- APMAudienceResultData ---

std::optional<APMAudienceResultData> APMAudienceResultData::parse(const kit::Data& bytes) {
  auto proto = APMPBMessage<APMPBResultData>::parseFromData(bytes);
  if (!proto) return std::nullopt;
  APMAudienceResultData data;
  data.status.assign((*proto)->status, (*proto)->status + (*proto)->status_count);
  data.results.assign((*proto)->results, (*proto)->results + (*proto)->results_count);
  for (const auto& t : APMPBItems((*proto)->dynamic_filter_timestamps,
                                  (*proto)->dynamic_filter_timestamps_count)) {
    data.dynamicTimestamps[t.filter_id] = t.eval_timestamp_millis;
  }
  for (const auto& t : APMPBItems((*proto)->sequence_filter_timestamps,
                                  (*proto)->sequence_filter_timestamps_count)) {
    data.sequenceTimestamps[t.filter_id].assign(t.eval_timestamps,
                                                t.eval_timestamps + t.eval_timestamps_count);
  }
  return data;
}

APMPBMessage<APMPBResultData> APMAudienceResultData::proto() const {
  APMPBMessage<APMPBResultData> message;
  for (std::uint64_t w : status) APMPBAppend(&message->status, &message->status_count) = w;
  for (std::uint64_t w : results) APMPBAppend(&message->results, &message->results_count) = w;
  for (const auto& [id, millis] : dynamicTimestamps) {
    auto& t = APMPBAppend(&message->dynamic_filter_timestamps,
                          &message->dynamic_filter_timestamps_count);
    t.has_filter_id = t.has_eval_timestamp_millis = true;
    t.filter_id = id;
    t.eval_timestamp_millis = millis;
  }
  for (const auto& [id, list] : sequenceTimestamps) {
    auto& t = APMPBAppend(&message->sequence_filter_timestamps,
                          &message->sequence_filter_timestamps_count);
    t.has_filter_id = true;
    t.filter_id = id;
    for (std::int64_t millis : list) APMPBAppend(&t.eval_timestamps, &t.eval_timestamps_count) = millis;
  }
  return message;
}

kit::Data APMAudienceResultData::serialize() const {
  return proto().protoBuffer().value_or(kit::Data());
}

std::optional<bool> APMAudienceResultData::filterResult(std::int32_t filterID) const {
  if (filterID < 0) return std::nullopt;
  std::size_t word = static_cast<std::size_t>(filterID) / 64;
  std::uint64_t bit = std::uint64_t{1} << (filterID % 64);
  // The shorter array reads as zero-extended.
  std::uint64_t s = word < status.size() ? status[word] : 0;
  std::uint64_t r = word < results.size() ? results[word] : 0;
  if (!(s & bit)) return std::nullopt;
  return (r & bit) != 0;
}

void APMAudienceResultData::setFilterResult(std::int32_t filterID, bool value) {
  std::size_t word = static_cast<std::size_t>(filterID) / 64;
  std::uint64_t bit = std::uint64_t{1} << (filterID % 64);
  std::size_t size = std::max({status.size(), results.size(), word + 1});
  status.resize(size, 0);
  results.resize(size, 0);
  status[word] |= bit;
  if (value) {
    results[word] |= bit;
  } else {
    results[word] &= ~bit;
  }
}

void APMAudienceResultData::clearFilter(std::int32_t filterID) {
  std::size_t word = static_cast<std::size_t>(filterID) / 64;
  std::uint64_t bit = std::uint64_t{1} << (filterID % 64);
  if (word < status.size()) status[word] &= ~bit;
  if (word < results.size()) results[word] &= ~bit;
  dynamicTimestamps.erase(filterID);
  sequenceTimestamps.erase(filterID);
}

bool APMAudienceResultData::isEmpty() const {
  return std::all_of(status.begin(), status.end(), [](std::uint64_t w) { return w == 0; }) &&
         dynamicTimestamps.empty() && sequenceTimestamps.empty();
}

// --- definitions ---

std::optional<std::string> APMAudience::validationError(const APMPBAudience& audience,
                                                        const Limits& limits,
                                                        std::set<std::int64_t>& seenAudienceIDs) {
  if (!audience.has_audience_id) return "Missing audience ID";
  if (audience.audience_id < 0) return "Audience ID is negative";
  if (!seenAudienceIDs.insert(audience.audience_id).second) return "Duplicate audience ID";
  std::int64_t filterCount = std::int64_t{audience.event_filters_count} + audience.property_filters_count;
  if (filterCount == 0) return "Audience missing filters arrays";
  if (filterCount > limits.maxFiltersPerAudience) return "Audience filter count out of range";
  std::set<std::int32_t> seenFilters;
  for (const APMPBEventFilter& f : APMPBItems(audience.event_filters, audience.event_filters_count)) {
    if (APMPBString(f.event_name).empty()) return "Event filter missing event name";
    if (auto e = validateFilterIDs(f.has_filter_id, f.filter_id, "Event", seenFilters)) return e;
    if (f.has_event_count_filter) {
      const APMPBNumberFilter& count = f.event_count_filter;
      if (hasFloatText(count.comparison_value) || hasFloatText(count.min_comparison_value) ||
          hasFloatText(count.max_comparison_value)) {
        return "Event filter has float event count filter";
      }
      if (!APMIsValidNumberFilter(count)) return "Event filter has invalid event count filter";
    }
    if (f.filters_count > limits.maxParametersPerFilter) {
      return "Event filter parameters filters count out of range";
    }
    for (const APMPBFilter& p : APMPBItems(f.filters, f.filters_count)) {
      if (APMPBString(p.param_name).empty()) return "Event filter missing parameter name";
      if (p.has_string_filter == p.has_number_filter) {
        return "Event filter must have exactly one of number or string filter";
      }
      if (p.has_number_filter && !APMIsValidNumberFilter(p.number_filter)) {
        return "Event filter has invalid number filter";
      }
      if (p.has_string_filter && !APMIsValidStringFilter(p.string_filter)) {
        return "Event filter has invalid string filter";
      }
    }
  }
  for (const APMPBPropertyFilter& f :
       APMPBItems(audience.property_filters, audience.property_filters_count)) {
    if (APMPBString(f.property_name).empty()) return "Property filter missing property name";
    if (auto e = validateFilterIDs(f.has_filter_id, f.filter_id, "Property", seenFilters)) return e;
    if (!f.has_filter) return "Property filter has no filter";
    if (f.filter.has_string_filter == f.filter.has_number_filter) {
      return "Property filter must have exactly one of number or string filter";
    }
    if (f.filter.has_string_filter && !APMIsValidStringFilter(f.filter.string_filter)) {
      return "Property filter has invalid string filter";
    }
    if (f.filter.has_number_filter && !APMIsValidNumberFilter(f.filter.number_filter)) {
      return "Property filter has invalid number filter";
    }
  }
  return std::nullopt;
}

bool APMAudience::updateAudiences(std::span<const APMPBAudience> audiences, const Limits& limits,
                                  platform::Error* error) {
  if (static_cast<std::int64_t>(audiences.size()) > limits.maxAudienceCount) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeTooManyAudiences,
                    "Configuration contains too many audiences. Audiences will not be saved. "
                    "Audience count",
                    static_cast<long long>(audiences.size()));
    return true;
  }
  std::vector<APMAudienceFilterRecord> eventRows;
  std::vector<APMAudienceFilterRecord> propertyRows;
  std::set<std::int64_t> seen;
  for (const APMPBAudience& audience : audiences) {
    if (auto reason = validationError(audience, limits, seen)) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeInvalidAudience,
                      "Audience definition is invalid. Audience will not be saved. Audience, error",
                      static_cast<long long>(audience.audience_id), *reason);
      continue;
    }
    for (const APMPBEventFilter& f : APMPBItems(audience.event_filters, audience.event_filters_count)) {
      auto copy = copyOf(f);
      if (!copy) continue;
      std::string publicName(APMPBString(f.event_name));
      std::string name = APMInternalEventName(publicName).value_or(publicName);
      APMPBSetString(&(*copy)->event_name, name);
      for (APMPBFilter& p : APMPBItems((*copy)->filters, (*copy)->filters_count)) {
        APMPBSetString(&p.param_name, mapped(APMParameterNameMap(), p.param_name));
      }
      eventRows.push_back({audience.audience_id, f.filter_id, name,
                           copy->protoBuffer().value_or(kit::Data()), f.session_scoped});
    }
    for (const APMPBPropertyFilter& f :
         APMPBItems(audience.property_filters, audience.property_filters_count)) {
      auto copy = copyOf(f);
      if (!copy) continue;
      std::string name = mapped(APMUserPropertyNameMap(), f.property_name);
      APMPBSetString(&(*copy)->property_name, name);
      propertyRows.push_back({audience.audience_id, f.filter_id, name,
                              copy->protoBuffer().value_or(kit::Data()), f.session_scoped});
    }
  }
  if (!database_->deleteAllAudienceFilters(error)) return false;
  for (const auto& row : eventRows) {
    if (!database_->insertEventFilter(row, error)) return false;
  }
  for (const auto& row : propertyRows) {
    if (!database_->insertPropertyFilter(row, error)) return false;
  }
  return maybeDeleteStaleFilterResults(limits.maxFilterResultCount, error);
}

bool APMAudience::maybeDeleteStaleFilterResults(std::int64_t maxFilterResultCount,
                                                platform::Error* error) {
  auto results = database_->queryAllFilterResults(error);
  if (!results) return false;
  if (static_cast<std::int64_t>(results->size()) <= maxFilterResultCount) return true;
  APMMonitor::log(kAPMMonitorLevelNotice, kCodeTooManyResults,
                  "Too many Audience filter results. Deleting filter results for deleted "
                  "Audiences. Filter result count, max filter result count",
                  static_cast<long long>(results->size()), maxFilterResultCount);
  auto live = database_->queryAllAudienceIDs(error);
  if (!live) return false;
  std::set<std::int64_t> liveSet(live->begin(), live->end());
  std::vector<std::int64_t> stale;
  for (const APMFilterResult& r : *results) {
    if (!liveSet.count(r.audienceID)) stale.push_back(r.audienceID);
  }
  return database_->deleteFilterResultsWithAudienceIDs(stale, error).has_value();
}

// --- evaluation of one filter ---

APMPreparedFilter::APMPreparedFilter(const APMPBFilter& filter) {
  if (filter.has_number_filter) number.emplace(filter.number_filter);
  if (filter.has_string_filter) string.emplace(filter.string_filter);
}

APMPreparedEventFilter::APMPreparedEventFilter(const APMPBEventFilter& filter,
                                               std::vector<std::string>* parameterNames)
    : eventName(APMPBString(filter.event_name)) {
  if (filter.has_event_count_filter) count.emplace(filter.event_count_filter);
  for (const APMPBFilter& p : APMPBItems(filter.filters, filter.filters_count)) {
    parameters.emplace_back(p);
    std::string_view name = APMPBString(p.param_name);
    auto known = std::find(parameterNames->begin(), parameterNames->end(), name);
    parameterSlots.push_back(static_cast<std::size_t>(known - parameterNames->begin()));
    if (known == parameterNames->end()) parameterNames->emplace_back(name);
  }
}

namespace {

// The event's value of each name in `names`, null where the event has none.
void lookUpParameters(const std::vector<std::string>& names, const APMParameters& parameters,
                      std::vector<const APMValue*>* values) {
  values->clear();
  for (const std::string& name : names) {
    auto found = parameters.find(name);
    values->push_back(found == parameters.end() ? nullptr : &found->second);
  }
}

}  // namespace

std::optional<bool> APMAudience::evaluateEventFilter(const APMPBEventFilter& filter,
                                                     const std::string& eventName,
                                                     const APMParameters& parameters,
                                                     const APMEventAggregates* aggregates) {
  std::vector<std::string> names;
  APMPreparedEventFilter prepared(filter, &names);
  std::vector<const APMValue*> values;
  lookUpParameters(names, parameters, &values);
  return evaluateEventFilter(filter, prepared, eventName, parameters, values, aggregates);
}

std::optional<bool> APMAudience::evaluateEventFilter(const APMPBEventFilter& filter,
                                                     const APMPreparedEventFilter& prepared,
                                                     const std::string& eventName,
                                                     const APMParameters& parameters,
                                                     std::span<const APMValue* const> values,
                                                     const APMEventAggregates* aggregates) {
  if (eventName.empty()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeEventFilterNil, notEvaluated("Event name is nil"));
    return std::nullopt;
  }
  if (prepared.eventName != eventName) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNameMismatch,
                    notEvaluated("Event filter name does not match event name"));
    return std::nullopt;
  }
  if (filter.has_event_count_filter) {
    if (!aggregates || aggregates->name != eventName) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeNameMismatch,
                      notEvaluated("Event aggregates name does not match event name"));
      return std::nullopt;
    }
    std::int64_t count =
        filter.session_scoped ? aggregates->currentSessionCount : aggregates->lifetimeCount;
    auto counted = prepared.count->evaluateInteger(count);
    if (!counted || !*counted) return counted;
  }
  for (std::size_t i = 0; i < filter.filters_count; ++i) {
    const APMPBFilter& p = filter.filters[i];
    if (!p.param_name || !*p.param_name) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeNoParamName,
                      notEvaluated("Event filter does not have parameter name"));
      return std::nullopt;
    }
    const APMValue* found = values[prepared.parameterSlots[i]];
    if (!found) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeMissingParam,
                      notEvaluated("Event does not have parameter required by filter"));
      return std::nullopt;
    }
    // The description is made only when a message needs it.
    auto result = evaluateValue(prepared.parameters[i], *found, true, [&] {
      return eventName + ", " + APMDescribeParameters(parameters) + ", " +
             std::string(APMPBString(p.param_name));
    });
    if (!result) return std::nullopt;
    bool value = p.complement ? !*result : *result;
    if (!value) return false;
  }
  return true;
}

std::optional<bool> APMAudience::evaluatePropertyFilter(const APMPBPropertyFilter& filter,
                                                        const APMUserAttribute& property) {
  return evaluatePropertyFilter(filter, APMPreparedFilter(filter.filter), property);
}

std::optional<bool> APMAudience::evaluatePropertyFilter(const APMPBPropertyFilter& filter,
                                                        const APMPreparedFilter& prepared,
                                                        const APMUserAttribute& property) {
  if (APMPBString(filter.property_name) != property.name) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodePropertyFilter,
                    notEvaluated("User property name does not match property filter name"));
    return std::nullopt;
  }
  if (!filter.has_filter) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodePropertyFilter,
                    notEvaluated("Property filter does not have filter"));
    return std::nullopt;
  }
  if (property.value.isArray()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeUnknownPropertyType,
                    notEvaluated("Unknown user property type") + ". Property Name", property.name);
    return std::nullopt;
  }
  auto result = evaluateValue(prepared, property.value, false, [&] { return property.name; });
  if (!result) return std::nullopt;
  return filter.filter.complement ? !*result : *result;
}

// --- evaluation over a pass ---

bool APMAudience::loadResults(APMAudienceTimestampsCache& cache, const std::string& subject) {
  if (cache.loaded_) return true;
  platform::Error error;
  auto rows = database_->queryAllFilterResults(&error);
  if (!rows) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeQueryResult,
                    "Unable to query filter result for audience. Event will not be evaluated. "
                    "Event name, error",
                    subject, error.localizedDescription);
    return false;
  }
  for (APMFilterResult& row : *rows) {
    APMAudienceTimestampsCache::Entry entry;
    if (row.currentResults) {
      auto parsed = APMAudienceResultData::parse(*row.currentResults);
      if (!parsed) {
        // Left alone: a corrupt result never loses what it held.
        APMMonitor::log(kAPMMonitorLevelWarning, kCodeCorruptResult,
                        "Audience filter result is corrupt. Audience will not be evaluated. "
                        "Audience ID",
                        row.audienceID);
        cache.corrupt_.insert(row.audienceID);
        continue;
      }
      entry.current = std::move(*parsed);
    }
    entry.previous = std::move(row.previousResults);
    cache.results_[row.audienceID] = std::move(entry);
  }
  cache.loaded_ = true;
  return true;
}

bool APMAudience::flushResults(APMAudienceTimestampsCache& cache, const std::string& subject) {
  platform::Error error;
  for (std::int64_t id : cache.dirty_) {
    const auto& entry = cache.results_[id];
    if (!database_->updateFilterResult({id, entry.current.serialize(), entry.previous}, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeSaveResults,
                      "Unable to save updated Audience filter results. Event will not be "
                      "evaluated. Event name, error",
                      subject, error.localizedDescription);
      // What is cached no longer matches the table: read it again next time.
      cache.dropResults();
      return false;
    }
  }
  cache.dirty_.clear();
  return true;
}

bool APMAudience::applyEvaluation(APMAudienceResultData& result, std::int32_t filterID,
                                  bool value, bool dynamic, bool sequence, bool replaceSequence,
                                  std::int64_t timestampMillis) {
  std::optional<bool> old = result.filterResult(filterID);
  bool changed = !old || (value && !*old);
  // A true never goes false here; only session clearing takes it back.
  bool stored = value || old.value_or(false);
  if (value && dynamic) {
    auto it = result.dynamicTimestamps.find(filterID);
    if (it != result.dynamicTimestamps.end() && timestampMillis < it->second) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeDynamicOrder,
                      "Candidate evaluation timestamp is earlier than cached evaluation timestamp");
    } else {
      changed = changed || result.dynamicTimestamps[filterID] != timestampMillis;
      result.dynamicTimestamps[filterID] = timestampMillis;
    }
  }
  if (value && sequence) {
    auto& list = result.sequenceTimestamps[filterID];
    if (!list.empty() && timestampMillis < list.back()) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeSequenceOrder,
                      replaceSequence
                          ? "Setting a sequence timestamp less than the last set timestamp"
                          : "Adding a sequence timestamp less than the last added timestamp");
    } else if (replaceSequence) {
      changed = changed || list != std::vector<std::int64_t>{timestampMillis};
      list.assign(1, timestampMillis);
    } else {
      changed = true;
      list.push_back(timestampMillis);
    }
  }
  if (changed) result.setFilterResult(filterID, stored);
  return changed;
}

void APMAudience::evaluateFiltersForEvent(const APMEvent& event,
                                          const APMEventAggregates& aggregates,
                                          APMAudienceTimestampsCache& cache) {
  const std::string& name = event.name();
  auto cached = cache.eventFilters_.find(name);
  if (cached == cache.eventFilters_.end()) {
    platform::Error error;
    auto filters = database_->queryEventFiltersWithEventName(name, &error);
    if (!filters) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeQueryEventFilters,
                      "Unable to query event filters for event. Event will not be evaluated. "
                      "Event name, error",
                      name, error.localizedDescription);
      return;
    }
    APMAudienceTimestampsCache::EventFilters made;
    made.rows.reserve(filters->size());
    for (APMAudienceFilterRecord& record : *filters) {
      auto& row = made.rows.emplace_back();
      row.record = std::move(record);
      if (!row.record.data.empty()) {
        row.filter = APMPBMessage<APMPBEventFilter>::parseFromData(row.record.data);
      }
      if (row.filter) row.prepared.emplace(**row.filter, &made.parameterNames);
    }
    cached = cache.eventFilters_.emplace(name, std::move(made)).first;
  }
  if (cached->second.rows.empty()) return;
  if (!loadResults(cache, name)) return;
  std::int64_t millis = APMMilliseconds(event.timestamp());
  std::vector<const APMValue*>& values = cache.parameterValues_;
  lookUpParameters(cached->second.parameterNames, event.parameters(), &values);
  for (auto& row : cached->second.rows) {
    std::int64_t audienceID = row.record.audienceID;
    if (cache.corrupt_.count(audienceID)) continue;
    if (!row.filter) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeCorruptFilter,
                      "Event filter contains no data or corrupt data. Event will not be "
                      "evaluated. Event name, filter ID, audience ID, dynamic",
                      name, row.record.filterID, audienceID, false);
      continue;
    }
    const APMPBEventFilter& f = **row.filter;
    auto& entry = cache.entryOf(row);
    std::int32_t id = static_cast<std::int32_t>(row.record.filterID);
    std::optional<bool> known = entry.current.filterResult(id);
    if (known.value_or(false) && !f.dynamic && !f.sequence && !f.session_scoped) continue;
    auto value = evaluateEventFilter(f, *row.prepared, name, event.parameters(), values, &aggregates);
    if (!value) continue;
    // A false where a result is known changes nothing: a true stays true, and only a true
    // moves timestamps.
    if (!*value && known) continue;
    if (applyEvaluation(entry.current, id, *value, f.dynamic, f.sequence, false, millis)) {
      cache.dirty_.insert(audienceID);
    }
  }
}

void APMAudience::evaluateFiltersForUserProperty(const APMUserAttribute& property,
                                                 APMAudienceTimestampsCache& cache,
                                                 double evaluationTimestamp) {
  if (property.name.empty()) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodePropertyFilter, notEvaluated("User property is nil"));
    return;
  }
  auto cached = cache.propertyFilters_.find(property.name);
  if (cached == cache.propertyFilters_.end()) {
    platform::Error error;
    auto filters = database_->queryPropertyFiltersWithPropertyName(property.name, &error);
    if (!filters) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeQueryPropertyFilters,
                      "Unable to query property filters for user property. Property will not be "
                      "evaluated. Property name, error",
                      property.name, error.localizedDescription);
      return;
    }
    std::vector<APMAudienceTimestampsCache::Row<APMPBPropertyFilter, APMPreparedFilter>> rows;
    rows.reserve(filters->size());
    for (APMAudienceFilterRecord& record : *filters) {
      auto& row = rows.emplace_back();
      row.record = std::move(record);
      if (!row.record.data.empty()) {
        row.filter = APMPBMessage<APMPBPropertyFilter>::parseFromData(row.record.data);
      }
      if (row.filter) row.prepared.emplace((*row.filter)->filter);
    }
    cached = cache.propertyFilters_.emplace(property.name, std::move(rows)).first;
  }
  if (cached->second.empty()) return;
  if (!loadResults(cache, property.name)) return;
  std::int64_t millis = APMMilliseconds(evaluationTimestamp);
  for (auto& row : cached->second) {
    std::int64_t audienceID = row.record.audienceID;
    if (cache.corrupt_.count(audienceID)) continue;
    if (!row.filter) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeCorruptFilter,
                      notEvaluated("Property filter is nil") + ". Property name, filter ID",
                      property.name, row.record.filterID);
      continue;
    }
    const APMPBPropertyFilter& f = **row.filter;
    auto& entry = cache.entryOf(row);
    std::int32_t id = static_cast<std::int32_t>(row.record.filterID);
    std::optional<bool> known = entry.current.filterResult(id);
    if (known.value_or(false) && !f.dynamic && !f.sequence && !f.session_scoped) continue;
    auto value = evaluatePropertyFilter(f, *row.prepared, property);
    if (!value) continue;
    if (!*value && known) continue;  // changes nothing, as for events
    if (applyEvaluation(entry.current, id, *value, f.dynamic, f.sequence, true, millis)) {
      cache.dirty_.insert(audienceID);
    }
  }
}

void APMAudience::evaluateFiltersForNanoUserProperty(const APMPBUserAttribute& property,
                                                     APMAudienceTimestampsCache& cache,
                                                     double evaluationTime) {
  std::optional<APMValue> value;
  if (property.string_value) {
    value = APMValue::fromString(property.string_value);
  } else if (property.has_int_value) {
    value = APMValue::fromInt64(property.int_value);
  } else if (property.has_double_value) {
    value = APMValue::fromDouble(property.double_value);
  }
  if (!property.name || !value) {
    APMMonitor::log(kAPMMonitorLevelWarning, kCodeNanoConversion,
                    "Could not convert user property from nano format.");
    return;
  }
  APMUserAttribute attribute;
  attribute.name = property.name;
  attribute.value = *value;
  attribute.lastSetTimestamp = property.set_timestamp_millis / 1000.0;
  evaluateFiltersForUserProperty(attribute, cache, evaluationTime);
}

// --- results ---

bool APMAudience::resultsForBundling(APMPBMeasurementBundle& bundle,
                                     APMAudienceTimestampsCache& cache) {
  if (!flushResults(cache)) return false;
  platform::Error error;
  auto rows = database_->queryAllFilterResults(&error);
  if (!rows) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeBundleResults,
                    "Unable to query Audience filter results. Audience results will not be "
                    "bundled. Error",
                    error.localizedDescription);
    return false;
  }
  std::vector<APMPBMessage<APMPBAudienceLeafFilterResult>> leaves;
  std::vector<APMFilterResult> updated;
  for (APMFilterResult& row : *rows) {
    if (!row.currentResults) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeBundleResults,
                      "Current result data is nil. Audience result will not be bundled. "
                      "Audience ID",
                      row.audienceID);
      continue;
    }
    auto current = APMAudienceResultData::parse(*row.currentResults);
    if (!current || current->status.empty()) {
      APMMonitor::log(kAPMMonitorLevelDebug, kCodeBundleResults,
                      "Current result status is 0. Audience result will not be bundled. "
                      "Audience ID",
                      row.audienceID);
      continue;
    }
    APMPBMessage<APMPBAudienceLeafFilterResult> leaf;
    leaf->has_audience_id = true;
    leaf->audience_id = static_cast<std::int32_t>(row.audienceID);
    APMAudienceResultData bundled = *current;
    for (auto& [id, list] : bundled.sequenceTimestamps) {
      if (list.size() > 1) list.assign(1, *std::max_element(list.begin(), list.end()));
    }
    leaf->has_current_data = true;
    {
      // The leaf takes the arrays over; the emptied message frees nothing twice.
      auto data = bundled.proto();
      leaf->current_data = *data;
      *data = APMPBResultData{};
    }
    bool differs = row.previousResults && *row.previousResults != *row.currentResults;
    if (differs) {
      auto previous = APMAudienceResultData::parse(*row.previousResults);
      if (previous) {
        leaf->has_previous_data = true;
        auto data = previous->proto();
        leaf->previous_data = *data;
        *data = APMPBResultData{};
      }
    }
    leaf->has_previous_data_present = true;
    leaf->previous_data_present = leaf->has_previous_data;
    leaves.push_back(std::move(leaf));
    updated.push_back({row.audienceID, row.currentResults, row.currentResults});
  }
  for (const APMFilterResult& r : updated) {
    if (!database_->updateFilterResult(r, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeSaveResults,
                      "Unable to save updated Audience filter results. Audience results will not "
                      "be bundled. Error",
                      error.localizedDescription);
      cache.dropResults();
      return false;
    }
  }
  for (auto& leaf : leaves) {
    APMPBAppend(&bundle.audience_evaluation_results, &bundle.audience_evaluation_results_count) = *leaf;
    *leaf = APMPBAudienceLeafFilterResult{};
  }
  // The previous results changed under the pass.
  for (const APMFilterResult& r : updated) {
    auto it = cache.results_.find(r.audienceID);
    if (it != cache.results_.end()) it->second.previous = r.previousResults;
  }
  return !leaves.empty();
}

bool APMAudience::clearEvaluationResultsForSessionScopedFilters(APMAudienceTimestampsCache& cache) {
  if (!flushResults(cache)) return false;
  platform::Error error;
  auto scoped = database_->querySessionScopedFilterIDs(&error);
  if (!scoped) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeSessionClear,
                    "Unable to query all session scoped filters. Session scoped results will not "
                    "be cleared. Error",
                    error.localizedDescription);
    return false;
  }
  if (scoped->empty()) return true;
  auto rows = database_->queryAllFilterResults(&error);
  if (!rows) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeSessionClear,
                    "Unable to query all filter results. Session scoped results will not be "
                    "cleared. Error",
                    error.localizedDescription);
    return false;
  }
  std::map<std::int64_t, std::vector<std::int32_t>> byAudience;
  for (const auto& [audience, filter] : *scoped) {
    byAudience[audience].push_back(static_cast<std::int32_t>(filter));
  }
  std::vector<std::int64_t> emptied;
  std::vector<APMFilterResult> kept;
  for (APMFilterResult& row : *rows) {
    auto found = byAudience.find(row.audienceID);
    if (found == byAudience.end() || !row.currentResults) continue;
    auto current = APMAudienceResultData::parse(*row.currentResults);
    if (!current || current->status.empty() || current->results.empty()) {
      APMMonitor::log(kAPMMonitorLevelWarning, kCodeMissingArrays,
                      "Audience filter result is non-nil and is missing status or results array. "
                      "Audience result will not be bundled. Audience ID, result data",
                      row.audienceID, static_cast<long long>(row.currentResults->size()));
      continue;
    }
    for (std::int32_t id : found->second) current->clearFilter(id);
    if (current->isEmpty()) {
      emptied.push_back(row.audienceID);
    } else {
      kept.push_back({row.audienceID, current->serialize(), row.previousResults});
    }
  }
  if (!database_->deleteFilterResultsWithAudienceIDs(emptied, &error)) {
    APMMonitor::log(kAPMMonitorLevelError, kCodeSessionClear,
                    "Unable to delete filter results. Session scoped results will not be "
                    "cleared. Error",
                    error.localizedDescription);
    return false;
  }
  for (const APMFilterResult& r : kept) {
    if (!database_->updateFilterResult(r, &error)) {
      APMMonitor::log(kAPMMonitorLevelError, kCodeSessionClear,
                      "Unable to update filter results. Session scoped results will not be "
                      "cleared. Error",
                      error.localizedDescription);
      return false;
    }
  }
  cache.dropResults();
  cache.corrupt_.clear();
  return true;
}
