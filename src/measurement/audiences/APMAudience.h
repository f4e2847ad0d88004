// APMAudience: audiences evaluated on the device. The server's definitions are stored one
// filter a row (`event_filters`, `property_filters`); as bundling passes events and user
// properties through, the matching filters are evaluated and each audience's result bits
// kept in `audience_filter_values`; every bundle carries the results as
// `audience_evaluation_results`.
//
// A result holds two word arrays, status and result: filter F lives in word F / 64, bit
// F mod 64. A status bit says the filter was evaluated, a result bit that it came out true;
// a filter is true only with both. A true filter never goes false again, except when the
// session-scoped filters are cleared at a session start.
//
// Threading: the worker queue only, inside the bundling transaction (evaluation, results)
// or the configuration transaction (updateAudiences). The database is borrowed.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "measurement/audiences/APMAudienceComparison.h"
#include "measurement/events/APMEvent.h"
#include "measurement/proto/APMPB.h"
#include "measurement/store/APMDatabase.h"
#include "measurement/store/APMStoreRecords.h"

// The filter ids a definition may use: 0 to this, so that a result never needs more than 64
// words.
inline constexpr std::int32_t kAPMMaxAudienceFilterID = 64 * 64 - 1;

// One audience's result, decoded from an APMPBResultData.
struct APMAudienceResultData {
  std::vector<std::uint64_t> status;
  std::vector<std::uint64_t> results;
  std::map<std::int32_t, std::int64_t> dynamicTimestamps;                // filter id, ms
  std::map<std::int32_t, std::vector<std::int64_t>> sequenceTimestamps;  // filter id, ms

  // Nothing when the bytes are no result.
  static std::optional<APMAudienceResultData> parse(const kit::Data& bytes);
  APMPBMessage<APMPBResultData> proto() const;
  kit::Data serialize() const;

  // True or false once evaluated; nothing when not evaluated. A status bit with a clear
  // result bit reads as false.
  std::optional<bool> filterResult(std::int32_t filterID) const;
  // Extends both arrays with zeros as far as `filterID` needs, sets its status bit and sets
  // or clears its result bit.
  void setFilterResult(std::int32_t filterID, bool value);
  // Clears both bits and drops the timestamps of `filterID`.
  void clearFilter(std::int32_t filterID);
  // No status bit set and no timestamps.
  bool isEmpty() const;
};

// A parameter or property filter with its number or string filter made ready.
struct APMPreparedFilter {
  explicit APMPreparedFilter(const APMPBFilter& filter);
  std::optional<APMPreparedNumberFilter> number;  // when the filter has a number filter
  std::optional<APMPreparedStringFilter> string;  // when it has a string filter
};

// An event filter made ready: its name, its count filter and each parameter filter, in
// order. The parameter names go into a table that the filters on one event name share, so
// that each event looks each name up once, not once per filter.
struct APMPreparedEventFilter {
  // Adds the names `filter` needs to `parameterNames` (once each).
  APMPreparedEventFilter(const APMPBEventFilter& filter, std::vector<std::string>* parameterNames);
  std::string eventName;
  std::optional<APMPreparedNumberFilter> count;
  std::vector<APMPreparedFilter> parameters;
  std::vector<std::size_t> parameterSlots;  // each parameter filter's place in the name table
};

// The state of one bundling pass: the results read and changed in it (a changed result is
// used in preference to the stored one for the rest of the pass), and the filter rows read
// per name. Make one per pass; it is thrown away with the pass.
class APMAudienceTimestampsCache {
 public:
  APMAudienceTimestampsCache() = default;

 private:
  friend class APMAudience;
  struct Entry {
    APMAudienceResultData current;
    std::optional<kit::Data> previous;
  };
  // A stored filter row, its parsed definition (nothing when the blob does not parse) and
  // the definition made ready, so that its comparison values are read once a pass.
  template <class T, class Prepared>
  struct Row {
    APMAudienceFilterRecord record;
    std::optional<APMPBMessage<T>> filter;
    std::optional<Prepared> prepared;
    // The audience's result in results_, found once for as long as results_ keeps its
    // entries (while resultsGeneration_ stays what it was then).
    Entry* entry = nullptr;
    std::uint64_t entryGeneration = 0;
  };
  // The result of `row`'s audience, made empty when the audience has none yet.
  template <class R>
  Entry& entryOf(R& row) {
    if (!row.entry || row.entryGeneration != resultsGeneration_) {
      row.entry = &results_[row.record.audienceID];
      row.entryGeneration = resultsGeneration_;
    }
    return *row.entry;
  }
  // Forgets every result read or changed in the pass, so that the next use reads the table.
  void dropResults() {
    results_.clear();
    dirty_.clear();
    loaded_ = false;
    ++resultsGeneration_;
  }
  bool loaded_ = false;
  std::map<std::int64_t, Entry> results_;
  std::uint64_t resultsGeneration_ = 0;
  // Results changed in the pass and not yet written.
  std::set<std::int64_t> dirty_;
  // Audiences whose stored result blob did not parse: left alone for the pass.
  std::set<std::int64_t> corrupt_;
  // The filters on one event name and the parameter names they read.
  struct EventFilters {
    std::vector<Row<APMPBEventFilter, APMPreparedEventFilter>> rows;
    std::vector<std::string> parameterNames;
  };
  std::map<std::string, EventFilters> eventFilters_;
  // The current event's parameter values, one per name of its filters' table (reused from
  // event to event).
  std::vector<const APMValue*> parameterValues_;
  std::map<std::string, std::vector<Row<APMPBPropertyFilter, APMPreparedFilter>>> propertyFilters_;
};

class APMAudience {
 public:
  struct Limits {
    std::int64_t maxAudienceCount = 50;
    std::int64_t maxFiltersPerAudience = 10;
    std::int64_t maxParametersPerFilter = 25;
    std::int64_t maxFilterResultCount = 200;
  };

  explicit APMAudience(APMDatabase* database) : database_(database) {}

  // Replaces the stored definitions with the valid ones of `audiences`, their public names
  // mapped to internal ones. Must run inside a database transaction. Too many audiences
  // saves nothing and keeps the old definitions; an invalid audience is left out with
  // "Audience definition is invalid. Audience will not be saved. Audience, error". False
  // (with `error`) only when the database fails.
  bool updateAudiences(std::span<const APMPBAudience> audiences, const Limits& limits,
                       platform::Error* error);
  // With more rows in `audience_filter_values` than `maxFilterResultCount`, deletes the
  // results of audiences that have no filters any more.
  bool maybeDeleteStaleFilterResults(std::int64_t maxFilterResultCount, platform::Error* error);

  // Evaluates the filters on the event's name against the event (its aggregates already
  // counting it). Changed results are kept in the pass and written, all at once and inside
  // the same transaction, before anything reads the table again (flushResults). Failures are
  // logged and change nothing.
  void evaluateFiltersForEvent(const APMEvent& event, const APMEventAggregates& aggregates,
                               APMAudienceTimestampsCache& cache);
  // The same for a user property, at `evaluationTimestamp` (seconds; the bundle start).
  void evaluateFiltersForUserProperty(const APMUserAttribute& property,
                                      APMAudienceTimestampsCache& cache,
                                      double evaluationTimestamp);
  // A user property of a bundle header: "Could not convert user property from nano
  // format." when it carries no name or no value.
  void evaluateFiltersForNanoUserProperty(const APMPBUserAttribute& property,
                                          APMAudienceTimestampsCache& cache,
                                          double evaluationTime);

  // Writes the results the pass changed. False (logged) when the table refuses them.
  bool flushResults(APMAudienceTimestampsCache& cache, const std::string& subject = {});

  // Adds one APMPBAudienceLeafFilterResult per stored result to `bundle` and makes each
  // current result the new previous one. False when nothing could be bundled.
  bool resultsForBundling(APMPBMeasurementBundle& bundle, APMAudienceTimestampsCache& cache);
  // At a session start: clears the bits and timestamps of every session-scoped filter,
  // deletes the results left empty.
  bool clearEvaluationResultsForSessionScopedFilters(APMAudienceTimestampsCache& cache);

  // One filter against one event: true, false, or nothing (the reason logged) when it
  // cannot be evaluated. `aggregates` may be null when the filter has no count filter.
  static std::optional<bool> evaluateEventFilter(const APMPBEventFilter& filter,
                                                 const std::string& eventName,
                                                 const APMParameters& parameters,
                                                 const APMEventAggregates* aggregates);
  // One filter against one user property.
  static std::optional<bool> evaluatePropertyFilter(const APMPBPropertyFilter& filter,
                                                    const APMUserAttribute& property);
  // Why an audience cannot be saved, or nothing when it can. `seenAudienceIDs` collects ids.
  static std::optional<std::string> validationError(const APMPBAudience& audience,
                                                    const Limits& limits,
                                                    std::set<std::int64_t>& seenAudienceIDs);

 private:
  // The evaluations above with the filter made ready beforehand. `values` holds the event's
  // value of each name of the filter's name table (null for an absent one).
  static std::optional<bool> evaluateEventFilter(const APMPBEventFilter& filter,
                                                 const APMPreparedEventFilter& prepared,
                                                 const std::string& eventName,
                                                 const APMParameters& parameters,
                                                 std::span<const APMValue* const> values,
                                                 const APMEventAggregates* aggregates);
  static std::optional<bool> evaluatePropertyFilter(const APMPBPropertyFilter& filter,
                                                    const APMPreparedFilter& prepared,
                                                    const APMUserAttribute& property);
  // Reads every stored result into the pass, once.
  bool loadResults(APMAudienceTimestampsCache& cache, const std::string& subject);
  // Applies a new evaluation of (audience, filter) to the pass's result; true when it changed
  // the result.
  bool applyEvaluation(APMAudienceResultData& result, std::int32_t filterID, bool value,
                       bool dynamic, bool sequence, bool replaceSequence,
                       std::int64_t timestampMillis);

  APMDatabase* database_;
};
