// Dates, time zones and date formatting.
//
// A Date is an instant: seconds since 1970-01-01 00:00:00 UTC, as a real number. The current
// date comes from the installed environment's clock, never from the system clock directly.
// Time zones follow the platform: there is one default zone (the device's), which tests may
// replace; formatters without an explicit zone use the default zone as it is when they are
// made.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kit {

struct Date {
  double timeIntervalSince1970 = 0;

  // The current date of the installed environment's clock.
  static Date now();
  static Date fromSeconds(double s) { return Date{s}; }
  double timeIntervalSinceDate(Date other) const {
    return timeIntervalSince1970 - other.timeIntervalSince1970;
  }
  auto operator<=>(const Date&) const = default;
};

class TimeZone {
 public:
  virtual ~TimeZone() = default;
  // Offset of local time from UTC at `date`, in seconds (east positive).
  virtual std::int64_t secondsFromGMTForDate(Date date) const = 0;
  virtual std::string name() const = 0;

  // A zone with a constant offset.
  static std::shared_ptr<const TimeZone> fixed(std::int64_t secondsFromGMT, std::string name);
  static std::shared_ptr<const TimeZone> utc();
  // The operating system's local zone (TZ and /etc/localtime), with its daylight-saving rules.
  static std::shared_ptr<const TimeZone> system();

  // The device's zone: the system zone unless replaced. Thread-safe.
  static std::shared_ptr<const TimeZone> defaultTimeZone();
  // Replaces the device's zone; nullptr restores the system zone. Thread-safe.
  static void setDefaultTimeZone(std::shared_ptr<const TimeZone> zone);
};

namespace detail {
struct DateToken;
}

// Formats and parses dates with a fixed pattern in the style of Unicode date patterns:
// y (yy two digits, yyyy four), M (MMM and MMMM month names), d, H, h, a, m, s, S (fraction),
// E (weekday names), Z (+hhmm), quoted literals ('...'), any other character literally.
// Names are English; the only locale that changes anything is none. Parsing requires the
// whole text to match and rejects out-of-range fields.
class DateFormatter {
 public:
  // Starts with an empty pattern and the default zone as it is now.
  DateFormatter();
  explicit DateFormatter(std::string format);

  void setDateFormat(std::string format);
  const std::string& dateFormat() const { return format_; }
  void setTimeZone(std::shared_ptr<const TimeZone> zone);
  const std::shared_ptr<const TimeZone>& timeZone() const { return zone_; }
  // Recorded for fidelity; every supported pattern renders the same in every locale here.
  void setLocale(std::string identifier) { locale_ = std::move(identifier); }
  const std::string& locale() const { return locale_; }

  std::string stringFromDate(Date date) const;
  std::optional<Date> dateFromString(std::string_view text) const;

 private:
  std::string format_;
  // The pattern, split into fields and literals once (shared by formatters of one pattern).
  std::shared_ptr<const std::vector<detail::DateToken>> tokens_;
  std::string locale_;
  std::shared_ptr<const TimeZone> zone_;
};

// Civil calendar helpers (proleptic Gregorian), exposed for tests and tools.
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d);
void civilFromDays(std::int64_t days, std::int64_t& y, unsigned& m, unsigned& d);

}  // namespace kit
