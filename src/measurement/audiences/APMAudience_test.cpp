#include "measurement/audiences/APMAudience.h"

#include <gtest/gtest.h>

#include <chrono>

#include "measurement/APMMonitor.h"
#include "measurement/audiences/APMAudienceComparison.h"
#include "measurement/events/APMEventsTestSupport.h"
#include "measurement/events/APMMeasurement.h"

namespace {

// --- building definitions ---

// Filters are made as owned messages; take() hands one's contents to a parent message.
template <class T>
T take(APMPBMessage<T>&& message) {
  T contents = *message;
  *message = T{};
  return contents;
}

APMPBMessage<APMPBNumberFilter> numberFilter(std::uint32_t type, const char* value,
                                             const char* min = nullptr, const char* max = nullptr) {
  APMPBMessage<APMPBNumberFilter> f;
  f->has_comparison_type = true;
  f->comparison_type = type;
  if (value) APMPBSetString(&f->comparison_value, value);
  if (min) APMPBSetString(&f->min_comparison_value, min);
  if (max) APMPBSetString(&f->max_comparison_value, max);
  return f;
}

APMPBMessage<APMPBStringFilter> stringFilter(std::uint32_t type, const char* expression,
                                             bool caseSensitive = false) {
  APMPBMessage<APMPBStringFilter> f;
  f->has_match_type = true;
  f->match_type = type;
  if (expression) APMPBSetString(&f->expression, expression);
  f->has_case_sensitive = true;
  f->case_sensitive = caseSensitive;
  return f;
}

// Owns a definition while a test builds it.
struct Audience {
  APMPBMessage<APMPBAudience> message;
  explicit Audience(std::int32_t id) {
    message->has_audience_id = true;
    message->audience_id = id;
  }
  APMPBEventFilter& event(std::int32_t filterID, const char* name) {
    auto& f = APMPBAppend(&message->event_filters, &message->event_filters_count);
    f.has_filter_id = true;
    f.filter_id = filterID;
    APMPBSetString(&f.event_name, name);
    return f;
  }
  APMPBPropertyFilter& property(std::int32_t filterID, const char* name) {
    auto& f = APMPBAppend(&message->property_filters, &message->property_filters_count);
    f.has_filter_id = true;
    f.filter_id = filterID;
    APMPBSetString(&f.property_name, name);
    return f;
  }
};

APMPBFilter& param(APMPBEventFilter& f, const char* name) {
  auto& p = APMPBAppend(&f.filters, &f.filters_count);
  APMPBSetString(&p.param_name, name);
  return p;
}

// --- comparisons ---

TEST(APMAudienceComparisonTest, DecimalExpressionAndExactOrder) {
  for (const char* ok : {"1.", ".5", "-0", "+12.50", "007"}) EXPECT_TRUE(APMIsDecimalString(ok)) << ok;
  for (const char* bad : {".", "1e5", "", "+", "-.", "1.2.3", " 1", "0x10", "1,5"}) {
    EXPECT_FALSE(APMIsDecimalString(bad)) << bad;
  }
  auto d = [](const char* t) { return *APMDecimal::parse(t); };
  EXPECT_EQ(d("1.").compare(d("1.000")), 0);
  EXPECT_EQ(d("-0").compare(d("+0.0")), 0);
  EXPECT_EQ(d(".5").compare(d("0.49999999999999999999")), 1);
  EXPECT_EQ(d("-2").compare(d("-10")), 1);
  EXPECT_EQ(d("100").compare(d("99.99")), 1);
  // Beyond a double's precision an integer still compares exactly.
  EXPECT_EQ(APMDecimal::fromInt64(9007199254740993).compare(d("9007199254740992.5")), 1);
  EXPECT_EQ(APMDecimal::fromInt64(INT64_MIN).compare(d("-9223372036854775808")), 0);
}

TEST(APMAudienceComparisonTest, NumberFilterTypesAndBounds) {
  auto dec = [](std::int64_t v) { return APMDecimal::fromInt64(v); };
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(1, "5"), dec(4)), true);
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(1, "5"), dec(5)), false);
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(2, "5"), dec(6)), true);
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(3, "5.0"), dec(5)), true);
  // Between includes both ends.
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(4, nullptr, "1", "10"), dec(10)), true);
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(4, nullptr, "1", "10"), dec(1)), true);
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(4, nullptr, "1", "10"), dec(11)), false);
  EXPECT_EQ(APMEvaluateNumberFilterWithDouble(*numberFilter(4, nullptr, "1", "10.5"), 10.5), true);
  EXPECT_EQ(APMEvaluateNumberFilterWithDouble(*numberFilter(1, "0.3"), 0.1 + 0.2), false);
  // A value a double cannot hold is not evaluated.
  std::string huge = "1" + std::string(400, '0');
  EXPECT_FALSE(APMEvaluateNumberFilterWithDouble(*numberFilter(2, huge.c_str()), 1.0).has_value());
  EXPECT_EQ(APMEvaluateNumberFilter(*numberFilter(2, huge.c_str()), dec(INT64_MAX)), false);

  APMMonitorCapture capture;
  EXPECT_FALSE(APMIsValidNumberFilter(*numberFilter(4, nullptr, "10", "1")));  // min above max
  EXPECT_FALSE(APMIsValidNumberFilter(*numberFilter(1, "abc")));
  EXPECT_TRUE(capture.find("Numeric filter does not have a valid comparison value. Filter"));
  EXPECT_FALSE(APMIsValidNumberFilter(*numberFilter(0, "1")));
  EXPECT_TRUE(capture.find("Number filter has unknown comparison type"));
  EXPECT_FALSE(APMIsValidNumberFilter(*numberFilter(9, "1")));
  EXPECT_TRUE(capture.find("Number filter has a real unknown comparison type"));
  APMPBNumberFilter none{};
  EXPECT_FALSE(APMIsValidNumberFilter(none));
  EXPECT_TRUE(capture.find("Number filter has no comparison type"));
}

// A prepared filter compares integers without decimals where it can; it must agree with the
// exact decimal comparison everywhere, at the ends of the integer range too.
TEST(APMAudienceComparisonTest, PreparedIntegerComparisonAgreesWithDecimals) {
  std::string over = "9223372036854775808";  // one past INT64_MAX
  std::vector<APMPBMessage<APMPBNumberFilter>> filters;
  filters.push_back(numberFilter(1, "5.0"));
  filters.push_back(numberFilter(2, "-7.5"));
  filters.push_back(numberFilter(3, "100"));
  filters.push_back(numberFilter(3, "-9223372036854775808"));
  filters.push_back(numberFilter(1, over.c_str()));
  filters.push_back(numberFilter(4, nullptr, "-10", "1000"));
  filters.push_back(numberFilter(4, nullptr, "0.5", "12"));
  filters.push_back(numberFilter(4, nullptr, "1", "10"));
  filters.back()->comparison_type = 1;  // its values do not suit the type: not evaluated
  for (std::int64_t v : {std::int64_t{0}, std::int64_t{5}, std::int64_t{-8}, std::int64_t{-7},
                         std::int64_t{100}, std::int64_t{1000}, std::int64_t{1001}, INT64_MAX,
                         INT64_MIN, std::int64_t{-10}}) {
    for (auto& f : filters) {
      EXPECT_EQ(APMPreparedNumberFilter(*f).evaluateInteger(v),
                APMEvaluateNumberFilter(*f, APMDecimal::fromInt64(v)))
          << v << " against type " << f->comparison_type;
    }
    EXPECT_EQ(APMDecimal::fromInt64(v).compare(*APMDecimal::parse(std::to_string(v))), 0) << v;
    EXPECT_EQ(APMDecimal::fromInt64(v).asInt64(), v);
  }
  EXPECT_FALSE(APMDecimal::parse(over)->asInt64().has_value());
  EXPECT_FALSE(APMDecimal::parse("2.5")->asInt64().has_value());
  EXPECT_EQ(APMDecimal::parse("-1200.00")->asInt64(), -1200);
}

TEST(APMAudienceComparisonTest, StringMatchTypesAndCase) {
  std::string subject = "Summer Sale";
  auto eval = [&](APMPBMessage<APMPBStringFilter>& f) { return APMEvaluateStringFilter(*f, &subject); };
  struct Case {
    std::uint32_t type;
    const char* expression;
    bool caseSensitive;
    bool expected;
  } cases[] = {
      {2, "summer", false, true},  {2, "summer", true, false}, {3, "SALE", false, true},
      {4, "er s", false, true},    {4, "er s", true, false},   {5, "summer sale", false, true},
      {5, "Summer", false, false}, {1, "^s.*e$", false, true}, {1, "^s.*e$", true, false},
      {1, "Sale$", true, true},
  };
  for (const Case& c : cases) {
    APMPBMessage<APMPBStringFilter> f;
    f = stringFilter(c.type, c.expression, c.caseSensitive);
    EXPECT_EQ(eval(f), c.expected) << c.type << " " << c.expression;
  }
  APMPBMessage<APMPBStringFilter> list;
  list = stringFilter(6, nullptr);
  APMPBAppendString(&list->expression_list, &list->expression_list_count, "winter sale");
  APMPBAppendString(&list->expression_list, &list->expression_list_count, "SUMMER SALE");
  EXPECT_EQ(eval(list), true);
  list->case_sensitive = true;
  EXPECT_EQ(eval(list), false);
  EXPECT_FALSE(APMEvaluateStringFilter(*list, nullptr).has_value());
  // Non-ASCII texts compare without case too.
  std::string accented = "ÉTÉ";
  APMPBMessage<APMPBStringFilter> f;
  f = stringFilter(5, "été");
  EXPECT_EQ(APMEvaluateStringFilter(*f, &accented), true);
}

TEST(APMAudienceComparisonTest, StringFilterValidation) {
  APMMonitorCapture capture;
  APMPBMessage<APMPBStringFilter> f;
  f = stringFilter(1, "([a-z");
  EXPECT_FALSE(APMIsValidStringFilter(*f));
  EXPECT_TRUE(capture.find("Unable to parse regular expression"));
  f = stringFilter(4, nullptr);
  EXPECT_FALSE(APMIsValidStringFilter(*f));
  EXPECT_TRUE(capture.find("String filter has no expression"));
  f = stringFilter(6, nullptr);
  EXPECT_FALSE(APMIsValidStringFilter(*f));
  EXPECT_TRUE(capture.find("String filter has no expression list"));
  f = stringFilter(7, "x");
  EXPECT_FALSE(APMIsValidStringFilter(*f));
  EXPECT_TRUE(capture.find("String filter has unknown match type"));
  f->has_match_type = false;
  EXPECT_FALSE(APMIsValidStringFilter(*f));
  EXPECT_TRUE(capture.find("String filter has no match type"));
}

TEST(APMAudienceComparisonTest, PathologicalRegexIsBoundedNotStalled) {
  APMMonitorCapture capture;
  APMPBMessage<APMPBStringFilter> f;
  f = stringFilter(1, "^(a+)+$", true);
  std::string subject(40, 'a');
  subject += "!";
  auto start = std::chrono::steady_clock::now();
  auto result = APMEvaluateStringFilter(*f, &subject);
  auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_FALSE(result.has_value());
  EXPECT_TRUE(capture.find("Regular expression exceeded its work limit. Audience filter will not "
                           "be evaluated. Expression, error"));
  // Without the bound this search takes longer than the age of the universe.
  EXPECT_LT(elapsed, std::chrono::seconds(10));
  // The same pattern on a short subject still answers.
  std::string fine = "aaaa";
  EXPECT_EQ(APMEvaluateStringFilter(*f, &fine), true);
}

// --- result bits ---

TEST(APMAudienceResultDataTest, WordsBitsAndRoundTrip) {
  APMAudienceResultData r;
  EXPECT_FALSE(r.filterResult(5).has_value());
  r.setFilterResult(63, true);
  EXPECT_EQ(r.status.size(), 1u);
  EXPECT_EQ(r.status[0], std::uint64_t{1} << 63);
  r.setFilterResult(64, false);
  EXPECT_EQ(r.status.size(), 2u);
  EXPECT_EQ(r.results.size(), 2u);
  EXPECT_EQ(r.filterResult(63), true);
  EXPECT_EQ(r.filterResult(64), false);  // evaluated, came out false
  EXPECT_FALSE(r.filterResult(65).has_value());
  // A shorter result array reads as zero-extended.
  APMAudienceResultData uneven;
  uneven.status = {0, 1};
  uneven.results = {};
  EXPECT_EQ(uneven.filterResult(64), false);
  uneven.setFilterResult(64, true);
  EXPECT_EQ(uneven.results.size(), 2u);
  EXPECT_EQ(uneven.filterResult(64), true);

  r.dynamicTimestamps[63] = 1000;
  r.sequenceTimestamps[64] = {1, 2, 3};
  auto back = APMAudienceResultData::parse(r.serialize());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->status, r.status);
  EXPECT_EQ(back->results, r.results);
  EXPECT_EQ(back->dynamicTimestamps, r.dynamicTimestamps);
  EXPECT_EQ(back->sequenceTimestamps, r.sequenceTimestamps);
  back->clearFilter(63);
  back->clearFilter(64);
  EXPECT_TRUE(back->isEmpty());
}

// --- one filter ---

TEST(APMAudienceFilterTest, EventFilterParametersCountAndComplement) {
  Audience a(1);
  auto& f = a.event(1, "purchase");
  param(f, "value").has_number_filter = true;
  f.filters[0].number_filter = take(numberFilter(2, "10"));
  auto& currency = param(f, "currency");
  currency.has_string_filter = true;
  currency.string_filter = take(stringFilter(5, "eur"));

  APMParameters params{{"value", APMValue::fromDouble(12.5)}, {"currency", APMValue::fromString("EUR")}};
  EXPECT_EQ(APMAudience::evaluateEventFilter(f, "purchase", params, nullptr), true);
  currency.has_complement = currency.complement = true;
  EXPECT_EQ(APMAudience::evaluateEventFilter(f, "purchase", params, nullptr), false);
  currency.complement = false;

  APMMonitorCapture capture;
  // A missing parameter gives no result, not false.
  APMParameters missing{{"value", APMValue::fromInt64(50)}};
  EXPECT_FALSE(APMAudience::evaluateEventFilter(f, "purchase", missing, nullptr).has_value());
  EXPECT_TRUE(capture.find("Event does not have parameter required by filter. Audience filter "
                           "will not be evaluated"));
  // A string parameter against a number filter is refused, even a numeric one.
  APMParameters text{{"value", APMValue::fromString("50")}, {"currency", APMValue::fromString("eur")}};
  EXPECT_FALSE(APMAudience::evaluateEventFilter(f, "purchase", text, nullptr).has_value());
  EXPECT_FALSE(APMAudience::evaluateEventFilter(f, "refund", params, nullptr).has_value());
  EXPECT_TRUE(capture.find("Event filter name does not match event name. Audience filter will not "
                           "be evaluated"));

  // The count filter reads the lifetime count, or the session count when session scoped.
  Audience b(2);
  auto& counted = b.event(1, "purchase");
  counted.has_event_count_filter = true;
  counted.event_count_filter = take(numberFilter(2, "2"));
  APMEventAggregates aggregates;
  aggregates.name = "purchase";
  aggregates.lifetimeCount = 3;
  aggregates.currentSessionCount = 1;
  EXPECT_EQ(APMAudience::evaluateEventFilter(counted, "purchase", {}, &aggregates), true);
  counted.has_session_scoped = counted.session_scoped = true;
  EXPECT_EQ(APMAudience::evaluateEventFilter(counted, "purchase", {}, &aggregates), false);
  aggregates.name = "other";
  EXPECT_FALSE(APMAudience::evaluateEventFilter(counted, "purchase", {}, &aggregates).has_value());
}

TEST(APMAudienceFilterTest, PropertyFilterValueKinds) {
  Audience a(1);
  auto& f = a.property(1, "level");
  f.has_filter = true;
  f.filter.has_number_filter = true;
  f.filter.number_filter = take(numberFilter(4, nullptr, "3", "7"));
  APMUserAttribute p;
  p.name = "level";
  p.value = APMValue::fromString("7");  // a numeric text meets a number filter
  EXPECT_EQ(APMAudience::evaluatePropertyFilter(f, p), true);
  p.value = APMValue::fromString("seven");
  APMMonitorCapture capture;
  EXPECT_FALSE(APMAudience::evaluatePropertyFilter(f, p).has_value());
  EXPECT_TRUE(capture.find("String value is not a numeric value. Audience filter will not be "
                           "evaluated. Value, filter"));
  p.value = APMValue::fromInt64(2);
  EXPECT_EQ(APMAudience::evaluatePropertyFilter(f, p), false);
  p.name = "other";
  EXPECT_FALSE(APMAudience::evaluatePropertyFilter(f, p).has_value());
}

// --- definitions ---

TEST(APMAudienceValidationTest, EachRuleNamesItsReason) {
  APMAudience::Limits limits;
  limits.maxFiltersPerAudience = 2;
  limits.maxParametersPerFilter = 1;
  auto reason = [&](Audience& a) {
    std::set<std::int64_t> seen;
    return APMAudience::validationError(*a.message, limits, seen).value_or("valid");
  };
  {
    Audience a(1);
    a.message->has_audience_id = false;
    EXPECT_EQ(reason(a), "Missing audience ID");
  }
  {
    Audience a(-1);
    a.event(1, "e");
    EXPECT_EQ(reason(a), "Audience ID is negative");
  }
  {
    Audience a(1);
    EXPECT_EQ(reason(a), "Audience missing filters arrays");
    a.event(1, "e");
    a.event(2, "e");
    a.event(3, "e");
    EXPECT_EQ(reason(a), "Audience filter count out of range");
  }
  {
    Audience a(1);
    a.event(1, "e");
    a.property(1, "p").has_filter = true;
    EXPECT_EQ(reason(a), "Duplicate property filter ID");
  }
  {
    Audience a(1);
    a.event(kAPMMaxAudienceFilterID + 1, "e");
    EXPECT_EQ(reason(a), "Event filter ID is out of range");
  }
  {
    Audience a(1);
    a.event(1, "e").has_filter_id = false;
    EXPECT_EQ(reason(a), "Missing event filter ID");
  }
  {
    Audience a(1);
    APMPBClearString(&a.event(1, "e").event_name);
    EXPECT_EQ(reason(a), "Event filter missing event name");
  }
  {
    Audience a(1);
    auto& f = a.event(1, "e");
    f.has_event_count_filter = true;
    f.event_count_filter = take(numberFilter(2, "1.5"));
    EXPECT_EQ(reason(a), "Event filter has float event count filter");
    f.event_count_filter.comparison_type = 0;
    APMPBSetString(&f.event_count_filter.comparison_value, "1");
    EXPECT_EQ(reason(a), "Event filter has invalid event count filter");
  }
  {
    Audience a(1);
    auto& f = a.event(1, "e");
    auto& p = param(f, "x");
    EXPECT_EQ(reason(a), "Event filter must have exactly one of number or string filter");
    p.has_string_filter = true;
    p.string_filter = take(stringFilter(1, "(unclosed"));
    EXPECT_EQ(reason(a), "Event filter has invalid string filter");
    APMPBSetString(&p.string_filter.expression, "ok");
    EXPECT_EQ(reason(a), "valid");
    param(f, "y");
    EXPECT_EQ(reason(a), "Event filter parameters filters count out of range");
  }
  {
    Audience a(1);
    auto& f = a.event(1, "e");
    auto& p = param(f, "x");
    p.has_number_filter = true;
    p.number_filter = take(numberFilter(4, nullptr, "5", "1"));
    EXPECT_EQ(reason(a), "Event filter has invalid number filter");
    APMPBClearString(&p.param_name);
    EXPECT_EQ(reason(a), "Event filter missing parameter name");
  }
  {
    Audience a(1);
    auto& f = a.property(1, "p");
    EXPECT_EQ(reason(a), "Property filter has no filter");
    f.has_filter = true;
    EXPECT_EQ(reason(a), "Property filter must have exactly one of number or string filter");
    f.filter.has_string_filter = true;
    f.filter.string_filter = take(stringFilter(0, "x"));
    EXPECT_EQ(reason(a), "Property filter has invalid string filter");
  }
  {
    // Ids must be unique over the whole list.
    Audience a(3), b(3);
    a.event(1, "e");
    b.event(1, "e");
    std::set<std::int64_t> seen;
    EXPECT_FALSE(APMAudience::validationError(*a.message, limits, seen));
    EXPECT_EQ(APMAudience::validationError(*b.message, limits, seen), "Duplicate audience ID");
  }
}

// --- through bundling ---

class APMAudienceBundlingTest : public APMEventsTest {
 protected:
  void SetUp() override { openDatabase(); }

  bool save(std::vector<Audience*> audiences, APMAudience::Limits limits = {}) {
    std::vector<APMPBAudience> list;
    for (Audience* a : audiences) list.push_back(*a->message);
    bool ok = false;
    onWorker([&] {
      ok = m().database()->performTransaction([&] {
        return APMAudience(m().database()).updateAudiences(list, limits, nullptr);
      });
    });
    return ok;
  }
  std::int64_t count(const std::string& sql) {
    std::int64_t n = -1;
    onWorker([&] {
      auto v = m().database()->store().numberForQuery(sql, {}, nullptr);
      ASSERT_TRUE(v);
      n = v->numberAsInteger().value_or(-1);
    });
    return n;
  }
  void logAndBundle(std::vector<APMEvent> events) {
    onWorker([&] {
      for (const APMEvent& e : events) m().logEventOnWorkerQueue(e, false);
      while (m().bundleRawEvents()) {
      }
    });
  }
  // The audience results of every queued bundle, oldest first, as (audience, current,
  // previous present).
  struct Leaf {
    std::int32_t audienceID;
    APMAudienceResultData current;
    bool previousPresent;
    std::optional<APMAudienceResultData> previous;
  };
  std::vector<std::vector<Leaf>> results() {
    std::vector<std::vector<Leaf>> out;
    onWorker([&] {
      auto queued = m().database()->queryBundlesWithCountLimit(1000, INT64_MAX, nullptr);
      ASSERT_TRUE(queued);
      for (APMQueuedBundle& q : *queued) {
        std::vector<Leaf> leaves;
        for (const auto& r : APMPBItems(q.bundle->audience_evaluation_results,
                                        q.bundle->audience_evaluation_results_count)) {
          auto encode = [](const APMPBResultData& d) {
            kit::Data bytes;
            EXPECT_TRUE(APMPBEncode(APMPBMessage<APMPBResultData>::fields(), &d, &bytes, nullptr));
            return *APMAudienceResultData::parse(bytes);
          };
          Leaf leaf{r.audience_id, encode(r.current_data), r.previous_data_present, std::nullopt};
          if (r.has_previous_data) leaf.previous = encode(r.previous_data);
          leaves.push_back(std::move(leaf));
        }
        out.push_back(std::move(leaves));
      }
      ASSERT_TRUE(m().database()->store().executeSQL("DELETE FROM queue", {}, nullptr));
    });
    return out;
  }
};

TEST_F(APMAudienceBundlingTest, DefinitionsAreStoredOneFilterARowUnderInternalNames) {
  Audience a(7);
  a.event(1, "session_start");
  auto& p = a.property(2, "level");
  p.has_filter = true;
  p.filter.has_string_filter = true;
  p.filter.string_filter = take(stringFilter(5, "gold"));
  Audience bad(8);  // no filters: left out, the rest saved
  ASSERT_TRUE(save({&a, &bad}));
  EXPECT_EQ(count("SELECT COUNT(*) FROM event_filters WHERE event_name = '_s' AND audience_id = 7"), 1);
  EXPECT_EQ(count("SELECT COUNT(*) FROM property_filters WHERE property_name = 'level'"), 1);
  EXPECT_EQ(count("SELECT COUNT(*) FROM event_filters WHERE audience_id = 8"), 0);

  // Too many audiences keeps what was stored.
  APMMonitorCapture capture;
  APMAudience::Limits limits;
  limits.maxAudienceCount = 0;
  ASSERT_TRUE(save({&bad}, limits));
  EXPECT_TRUE(capture.find("Configuration contains too many audiences. Audiences will not be saved. "
                           "Audience count"));
  EXPECT_EQ(count("SELECT COUNT(*) FROM event_filters"), 1);
  // A new list replaces the old one.
  Audience c(9);
  c.event(3, "level_up");
  ASSERT_TRUE(save({&c}));
  EXPECT_EQ(count("SELECT COUNT(*) FROM event_filters"), 1);
  EXPECT_EQ(count("SELECT COUNT(*) FROM property_filters"), 0);
}

TEST_F(APMAudienceBundlingTest, ResultsTravelInBundlesAndTrueNeverGoesFalse) {
  Audience a(5);
  auto& big = a.event(1, "purchase");
  auto& v = param(big, "value");
  v.has_number_filter = true;
  v.number_filter = take(numberFilter(2, "100"));
  a.event(70, "purchase");  // any purchase; lives in the second word
  ASSERT_TRUE(save({&a}));

  logAndBundle({event("purchase", {{"value", APMValue::fromInt64(5)}})});
  auto first = results();
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(first[0].size(), 1u);
  EXPECT_EQ(first[0][0].audienceID, 5);
  EXPECT_EQ(first[0][0].current.filterResult(1), false);
  EXPECT_EQ(first[0][0].current.filterResult(70), true);
  EXPECT_EQ(first[0][0].current.status.size(), 2u);
  EXPECT_FALSE(first[0][0].previousPresent);

  logAndBundle({event("purchase", {{"value", APMValue::fromInt64(500)}})});
  auto second = results();
  ASSERT_EQ(second.size(), 1u);
  ASSERT_EQ(second[0].size(), 1u);
  EXPECT_EQ(second[0][0].current.filterResult(1), true);
  ASSERT_TRUE(second[0][0].previousPresent);
  EXPECT_EQ(second[0][0].previous->filterResult(1), false);

  // A later small purchase does not take the membership back; unchanged data has no previous.
  logAndBundle({event("purchase", {{"value", APMValue::fromInt64(1)}})});
  auto third = results();
  ASSERT_EQ(third.size(), 1u);
  EXPECT_EQ(third[0][0].current.filterResult(1), true);
  EXPECT_FALSE(third[0][0].previousPresent);
}

// The filters on one event name share one look-up of each parameter per event; each must
// still read its own parameter, whatever the order the names first appear in.
TEST_F(APMAudienceBundlingTest, FiltersOnOneEventReadTheirOwnParameters) {
  Audience a(1), b(2);
  auto& both = a.event(1, "purchase");
  auto& value = param(both, "value");
  value.has_number_filter = true;
  value.number_filter = take(numberFilter(2, "100"));
  auto& currency = param(both, "currency");
  currency.has_string_filter = true;
  currency.string_filter = take(stringFilter(5, "usd"));
  auto& reversed = b.event(1, "purchase");
  auto& coupon = param(reversed, "coupon");
  coupon.has_string_filter = true;
  coupon.string_filter = take(stringFilter(2, "SPRING", true));
  auto& small = param(reversed, "value");
  small.has_number_filter = true;
  small.number_filter = take(numberFilter(1, "10"));
  auto& noCoupon = b.event(2, "purchase");
  auto& absent = param(noCoupon, "coupon");
  absent.has_string_filter = true;
  absent.string_filter = take(stringFilter(4, "x"));
  ASSERT_TRUE(save({&a, &b}));

  logAndBundle({event("purchase", {{"value", APMValue::fromInt64(5)},
                                   {"currency", APMValue::fromString("EUR")},
                                   {"coupon", APMValue::fromString("SPRING-24")}}),
                event("purchase", {{"value", APMValue::fromDouble(250.5)},
                                   {"currency", APMValue::fromString("USD")}})});
  auto bundles = results();
  ASSERT_FALSE(bundles.empty());
  const auto& last = bundles.back();  // results carry over: the last bundle has both events'
  ASSERT_EQ(last.size(), 2u);
  EXPECT_EQ(last[0].current.filterResult(1), true);  // the second purchase
  EXPECT_EQ(last[1].current.filterResult(1), true);  // the first purchase
  // The first purchase's coupon has no "x"; the second has no coupon, so it is not evaluated.
  EXPECT_EQ(last[1].current.filterResult(2), false);
}

TEST_F(APMAudienceBundlingTest, SessionScopedFiltersClearAtSessionStart) {
  Audience a(3);
  auto& f = a.event(1, "level_up");
  f.has_session_scoped = f.session_scoped = true;
  f.has_sequence = f.sequence = true;
  a.event(2, "tutorial_begin");
  ASSERT_TRUE(save({&a}));
  logAndBundle({event("level_up"), event("tutorial_begin")});
  auto before = results();
  ASSERT_EQ(before.size(), 1u);
  EXPECT_EQ(before[0][0].current.filterResult(1), true);
  EXPECT_EQ(before[0][0].current.sequenceTimestamps.count(1), 1u);
  // A session start clears filter 1 (bits and timestamps), not filter 2.
  logAndBundle({event("_s", {}, "auto")});
  auto after = results();
  ASSERT_EQ(after.size(), 1u);
  ASSERT_EQ(after[0].size(), 1u);
  EXPECT_FALSE(after[0][0].current.filterResult(1).has_value());
  EXPECT_EQ(after[0][0].current.sequenceTimestamps.count(1), 0u);
  EXPECT_EQ(after[0][0].current.filterResult(2), true);
}

TEST_F(APMAudienceBundlingTest, UserPropertiesOfTheHeaderAreEvaluated) {
  Audience a(4);
  auto& p = a.property(1, "level");
  p.has_filter = true;
  p.filter.has_number_filter = true;
  p.filter.number_filter = take(numberFilter(2, "9"));
  ASSERT_TRUE(save({&a}));
  onWorker([&] { m().setUserAttributeOnWorkerQueue("level", APMValue::fromInt64(10), "app", env_.now()); });
  logAndBundle({event("anything")});
  auto r = results();
  ASSERT_EQ(r.size(), 1u);
  ASSERT_EQ(r[0].size(), 1u);
  EXPECT_EQ(r[0][0].current.filterResult(1), true);
}

TEST_F(APMAudienceBundlingTest, CorruptFilterRowChangesNothing) {
  Audience a(6);
  a.event(1, "purchase");
  ASSERT_TRUE(save({&a}));
  logAndBundle({event("purchase")});
  ASSERT_EQ(results().size(), 1u);
  onWorker([&] {
    ASSERT_TRUE(m().database()->store().executeSQL(
        "UPDATE event_filters SET data = x'ffffffff'", {}, nullptr));
  });
  APMMonitorCapture capture;
  logAndBundle({event("purchase")});
  EXPECT_TRUE(capture.find("Event filter contains no data or corrupt data. Event will not be "
                           "evaluated. Event name, filter ID, audience ID, dynamic"));
  auto r = results();
  ASSERT_EQ(r.size(), 1u);
  ASSERT_EQ(r[0].size(), 1u);
  EXPECT_EQ(r[0][0].current.filterResult(1), true);
}

}  // namespace
