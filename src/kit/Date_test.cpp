#include "kit/Date.h"

#include <gtest/gtest.h>

#include <cmath>

#include "sim/Environment.h"

namespace {

// 2024-03-09 23:59:58 UTC
constexpr double kLateEvening = 1710028798.0;

TEST(DateFormatterTest, FormatsInTheDefaultZoneAtCreation) {
  sim::Environment env;
  kit::DateFormatter utc("yyyy:MM:dd HH:mm:ss");
  EXPECT_EQ(utc.stringFromDate(kit::Date{kLateEvening}), "2024:03:09 23:59:58");
  env.setTimeZone(kit::TimeZone::fixed(3600, "CET"));
  kit::DateFormatter cet("dd-MM-yy");
  EXPECT_EQ(cet.stringFromDate(kit::Date{kLateEvening}), "10-03-24");
  EXPECT_EQ(utc.stringFromDate(kit::Date{kLateEvening}), "2024:03:09 23:59:58");
}

TEST(DateFormatterTest, ParsesItsOwnOutputBackToTheSameSecond) {
  sim::Environment env;
  env.setTimeZone(kit::TimeZone::fixed(-5 * 3600, "EST"));
  kit::DateFormatter f("yyyy:MM:dd HH:mm:ss");
  for (double t : {0.0, 86399.0, kLateEvening, kLateEvening + 0.75, -1.5, 4102444800.0}) {
    auto parsed = f.dateFromString(f.stringFromDate(kit::Date{t}));
    ASSERT_TRUE(parsed) << t;
    EXPECT_DOUBLE_EQ(parsed->timeIntervalSince1970, std::floor(t)) << t;
  }
}

TEST(DateFormatterTest, RejectsTextThatDoesNotMatch) {
  sim::Environment env;
  kit::DateFormatter f("yyyy:MM:dd HH:mm:ss");
  EXPECT_FALSE(f.dateFromString(""));
  EXPECT_FALSE(f.dateFromString("2024-03-09 23:59:58"));
  EXPECT_FALSE(f.dateFromString("2024:02:30 10:00:00"));
  EXPECT_FALSE(f.dateFromString("2024:13:01 10:00:00"));
  EXPECT_FALSE(f.dateFromString("2024:03:09 24:00:00"));
  EXPECT_FALSE(f.dateFromString("2024:03:09 23:59:58 trailing"));
  EXPECT_TRUE(f.dateFromString("2024:02:29 10:00:00"));
}

TEST(DateFormatterTest, TwoDigitYearsFallNearTheCurrentYear) {
  sim::Environment env;  // 2025
  kit::DateFormatter f("dd.MM.yy");
  f.setLocale("en_US_POSIX");
  kit::DateFormatter full("yyyy");
  EXPECT_EQ(full.stringFromDate(*f.dateFromString("01.01.24")), "2024");
  EXPECT_EQ(full.stringFromDate(*f.dateFromString("01.01.60")), "1960");
  EXPECT_EQ(full.stringFromDate(*f.dateFromString("01.01.44")), "2044");
}

TEST(DateFormatterTest, NamesQuotesAndOffsets) {
  sim::Environment env;
  kit::DateFormatter f("EEE, d MMM yyyy h:mm a 'at' Z");
  f.setTimeZone(kit::TimeZone::fixed(5 * 3600 + 1800, "IST"));
  EXPECT_EQ(f.stringFromDate(kit::Date{kLateEvening}), "Sun, 10 Mar 2024 5:29 AM at +0530");
}

TEST(CalendarTest, DaysRoundTripAcrossEras) {
  for (std::int64_t days : {-800000LL, -1LL, 0LL, 59LL, 11016LL, 2932896LL}) {
    std::int64_t y;
    unsigned m, d;
    kit::civilFromDays(days, y, m, d);
    EXPECT_EQ(kit::daysFromCivil(y, m, d), days);
  }
}

}  // namespace
