#include "kit/Date.h"

#include <atomic>
#include <cmath>
#include <ctime>
#include <mutex>
#include <vector>

#include "kit/Dispatch.h"

namespace kit {

Date Date::now() { return Date{Environment::current().now()}; }

// ---- Calendar arithmetic (days since 1970-01-01) ----

std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  y = static_cast<std::int64_t>(yoe) + era * 400;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  d = doy - (153 * mp + 2) / 5 + 1;
  m = mp < 10 ? mp + 3 : mp - 9;
  y += (m <= 2);
}

namespace {

unsigned daysInMonth(std::int64_t y, unsigned m) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return m == 2 && leap ? 29 : kDays[m - 1];
}

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  return (a % b != 0 && ((a < 0) != (b < 0))) ? q - 1 : q;
}

// ---- Time zones ----

class FixedTimeZone : public TimeZone {
 public:
  FixedTimeZone(std::int64_t offset, std::string name) : offset_(offset), name_(std::move(name)) {}
  std::int64_t secondsFromGMTForDate(Date) const override { return offset_; }
  std::string name() const override { return name_; }

 private:
  std::int64_t offset_;
  std::string name_;
};

class SystemTimeZone : public TimeZone {
 public:
  std::int64_t secondsFromGMTForDate(Date date) const override {
    double s = std::floor(date.timeIntervalSince1970);
    if (!(s > -6.7e10 && s < 6.7e10)) return 0;
    std::time_t t = static_cast<std::time_t>(s);
    std::tm tm{};
    if (!localtime_r(&t, &tm)) return 0;
    return tm.tm_gmtoff;
  }
  std::string name() const override {
    std::tm tm{};
    std::time_t t = 0;
    localtime_r(&t, &tm);
    return tm.tm_zone ? tm.tm_zone : "local";
  }
};

std::mutex gZoneMutex;
std::shared_ptr<const TimeZone> gDefaultZone;
// Bumped by every change of the default zone, so that threads may keep a copy of it.
std::atomic<std::uint64_t> gZoneGeneration{1};

}  // namespace

// One field of a pattern ("yyyy": field 'y', width 4) or a literal text.
struct detail::DateToken {
  char field = 0;  // 0 for a literal
  int width = 0;
  std::string literal;
};

namespace {

using Token = detail::DateToken;

// ---- Pattern tokens ----

std::vector<Token> tokenize(const std::string& format) {
  std::vector<Token> tokens;
  for (std::size_t i = 0; i < format.size();) {
    char c = format[i];
    if (c == '\'') {
      std::string lit;
      ++i;
      if (i < format.size() && format[i] == '\'') {  // '' is a quote
        tokens.push_back({0, 0, "'"});
        ++i;
        continue;
      }
      while (i < format.size()) {
        if (format[i] == '\'') {
          if (i + 1 < format.size() && format[i + 1] == '\'') {
            lit += '\'';
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        lit += format[i++];
      }
      tokens.push_back({0, 0, lit});
    } else if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')) {
      int n = 0;
      while (i < format.size() && format[i] == c) ++n, ++i;
      tokens.push_back({c, n, {}});
    } else {
      tokens.push_back({0, 0, std::string(1, c)});
      ++i;
    }
  }
  return tokens;
}

const char* const kMonthNames[] = {"January", "February", "March",     "April",   "May",      "June",
                                   "July",    "August",   "September", "October", "November", "December"};
const char* const kWeekdayNames[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                     "Thursday", "Friday", "Saturday"};

// The compiled pattern of `format`, from a small per-thread cache: formatters are made often
// (one per record, say) with a handful of patterns.
std::shared_ptr<const std::vector<Token>> compiled(const std::string& format) {
  thread_local std::vector<std::pair<std::string, std::shared_ptr<const std::vector<Token>>>> cache;
  for (const auto& [f, tokens] : cache) {
    if (f == format) return tokens;
  }
  auto tokens = std::make_shared<const std::vector<Token>>(tokenize(format));
  if (cache.size() >= 16) cache.erase(cache.begin());
  cache.emplace_back(format, tokens);
  return tokens;
}

// Appends `v` in decimal, zero-padded to `width` digits.
void appendPadded(std::string& out, std::int64_t v, int width) {
  if (v < 0) {
    out += '-';
    v = -v;
  }
  char digits[24];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v > 0);
  for (int i = n; i < width; ++i) out += '0';
  while (n > 0) out += digits[--n];
}

bool isNumericField(char f) {
  return f == 'y' || f == 'M' || f == 'd' || f == 'H' || f == 'h' || f == 'm' || f == 's' ||
         f == 'S';
}

}  // namespace

std::shared_ptr<const TimeZone> TimeZone::fixed(std::int64_t secondsFromGMT, std::string name) {
  return std::make_shared<FixedTimeZone>(secondsFromGMT, std::move(name));
}

std::shared_ptr<const TimeZone> TimeZone::utc() {
  static const auto zone = fixed(0, "GMT");
  return zone;
}

std::shared_ptr<const TimeZone> TimeZone::system() {
  static const auto zone = std::make_shared<SystemTimeZone>();
  return zone;
}

std::shared_ptr<const TimeZone> TimeZone::defaultTimeZone() {
  thread_local std::uint64_t seen = 0;
  thread_local std::shared_ptr<const TimeZone> copy;
  std::uint64_t generation = gZoneGeneration.load(std::memory_order_acquire);
  if (generation != seen) {
    std::lock_guard lock(gZoneMutex);
    copy = gDefaultZone ? gDefaultZone : system();
    seen = gZoneGeneration.load(std::memory_order_relaxed);
  }
  return copy;
}

void TimeZone::setDefaultTimeZone(std::shared_ptr<const TimeZone> zone) {
  std::lock_guard lock(gZoneMutex);
  gDefaultZone = std::move(zone);
  gZoneGeneration.fetch_add(1, std::memory_order_release);
}

DateFormatter::DateFormatter() : tokens_(compiled({})), zone_(TimeZone::defaultTimeZone()) {}

DateFormatter::DateFormatter(std::string format)
    : format_(std::move(format)), tokens_(compiled(format_)), zone_(TimeZone::defaultTimeZone()) {}

void DateFormatter::setDateFormat(std::string format) {
  format_ = std::move(format);
  tokens_ = compiled(format_);
}

void DateFormatter::setTimeZone(std::shared_ptr<const TimeZone> zone) {
  zone_ = zone ? std::move(zone) : TimeZone::defaultTimeZone();
}

std::string DateFormatter::stringFromDate(Date date) const {
  double t = date.timeIntervalSince1970;
  if (!std::isfinite(t)) return {};
  double whole = std::floor(t);
  double fraction = t - whole;
  std::int64_t offset = zone_->secondsFromGMTForDate(date);
  std::int64_t local = static_cast<std::int64_t>(whole) + offset;
  std::int64_t days = floorDiv(local, 86400);
  std::int64_t secOfDay = local - days * 86400;
  std::int64_t y;
  unsigned m, d;
  civilFromDays(days, y, m, d);
  int hour = static_cast<int>(secOfDay / 3600), minute = static_cast<int>(secOfDay / 60 % 60),
      second = static_cast<int>(secOfDay % 60);
  int weekday = static_cast<int>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday (4)

  // No reservation: short texts such as "dd-MM-yy" then stay inside the string itself.
  std::string out;
  for (const Token& tok : *tokens_) {
    switch (tok.field) {
      case 0: out += tok.literal; break;
      case 'y':
        if (tok.width == 2) appendPadded(out, ((y % 100) + 100) % 100, 2);
        else appendPadded(out, y, tok.width);
        break;
      case 'M':
        if (tok.width >= 4) out += kMonthNames[m - 1];
        else if (tok.width == 3) out.append(kMonthNames[m - 1], 3);
        else appendPadded(out, m, tok.width);
        break;
      case 'd': appendPadded(out, d, tok.width); break;
      case 'H': appendPadded(out, hour, tok.width); break;
      case 'h': appendPadded(out, hour % 12 == 0 ? 12 : hour % 12, tok.width); break;
      case 'a': out += hour < 12 ? "AM" : "PM"; break;
      case 'm': appendPadded(out, minute, tok.width); break;
      case 's': appendPadded(out, second, tok.width); break;
      case 'S': {
        std::int64_t scale = 1;
        for (int i = 0; i < tok.width && i < 9; ++i) scale *= 10;
        appendPadded(out, static_cast<std::int64_t>(fraction * static_cast<double>(scale)), tok.width);
        break;
      }
      case 'E':
        if (tok.width >= 4) out += kWeekdayNames[weekday];
        else out.append(kWeekdayNames[weekday], 3);
        break;
      case 'Z': {
        std::int64_t a = offset < 0 ? -offset : offset;
        out += offset < 0 ? '-' : '+';
        appendPadded(out, a / 3600, 2);
        appendPadded(out, a / 60 % 60, 2);
        break;
      }
      default: out.append(static_cast<std::size_t>(tok.width), tok.field); break;
    }
  }
  return out;
}

std::optional<Date> DateFormatter::dateFromString(std::string_view text) const {
  const std::vector<Token>& tokens = *tokens_;
  std::int64_t y = 1970;
  unsigned m = 1, d = 1;
  int hour = 0, minute = 0, second = 0;
  double fraction = 0;
  bool pm = false, hasAmPm = false, twelveHour = false;
  std::optional<std::int64_t> explicitOffset;
  std::size_t pos = 0;

  for (std::size_t k = 0; k < tokens.size(); ++k) {
    const Token& tok = tokens[k];
    if (tok.field == 0) {
      if (text.substr(pos, tok.literal.size()) != tok.literal) return std::nullopt;
      pos += tok.literal.size();
      continue;
    }
    if (isNumericField(tok.field) && !(tok.field == 'M' && tok.width >= 3)) {
      // Adjacent numeric fields take exactly their pattern width; otherwise read greedily.
      bool adjacent = k + 1 < tokens.size() && isNumericField(tokens[k + 1].field);
      std::size_t maxDigits = adjacent ? static_cast<std::size_t>(tok.width) : 10;
      bool negative = false;
      if (tok.field == 'y' && pos < text.size() && text[pos] == '-') negative = true, ++pos;
      std::size_t start = pos;
      std::int64_t v = 0;
      while (pos < text.size() && pos - start < maxDigits && text[pos] >= '0' && text[pos] <= '9') {
        v = v * 10 + (text[pos] - '0');
        ++pos;
      }
      std::size_t digits = pos - start;
      if (digits == 0) return std::nullopt;
      if (negative) v = -v;
      switch (tok.field) {
        case 'y':
          if (tok.width == 2 && digits == 2) {
            // Two-digit years fall within 80 years before and 20 after the current year.
            std::int64_t cy;
            unsigned cm, cd;
            civilFromDays(floorDiv(static_cast<std::int64_t>(std::floor(Date::now().timeIntervalSince1970)), 86400), cy, cm, cd);
            std::int64_t candidate = (cy / 100) * 100 + v;
            if (candidate > cy + 20) candidate -= 100;
            if (candidate <= cy - 80) candidate += 100;
            y = candidate;
          } else {
            y = v;
          }
          break;
        case 'M': if (v < 1 || v > 12) return std::nullopt; m = static_cast<unsigned>(v); break;
        case 'd': if (v < 1 || v > 31) return std::nullopt; d = static_cast<unsigned>(v); break;
        case 'H': if (v > 23) return std::nullopt; hour = static_cast<int>(v); break;
        case 'h': if (v < 1 || v > 12) return std::nullopt; hour = static_cast<int>(v % 12); twelveHour = true; break;
        case 'm': if (v > 59) return std::nullopt; minute = static_cast<int>(v); break;
        case 's': if (v > 59) return std::nullopt; second = static_cast<int>(v); break;
        case 'S': fraction = static_cast<double>(v) / std::pow(10.0, static_cast<double>(digits)); break;
      }
      continue;
    }
    switch (tok.field) {
      case 'M': {
        bool found = false;
        for (unsigned i = 0; i < 12 && !found; ++i) {
          std::string full = kMonthNames[i];
          std::string name = tok.width >= 4 ? full : full.substr(0, 3);
          if (text.substr(pos, name.size()) == name) m = i + 1, pos += name.size(), found = true;
        }
        if (!found) return std::nullopt;
        break;
      }
      case 'E': {
        bool found = false;
        for (unsigned i = 0; i < 7 && !found; ++i) {
          std::string full = kWeekdayNames[i];
          std::string name = tok.width >= 4 ? full : full.substr(0, 3);
          if (text.substr(pos, name.size()) == name) pos += name.size(), found = true;
        }
        if (!found) return std::nullopt;
        break;
      }
      case 'a':
        if (text.substr(pos, 2) == "AM") hasAmPm = true, pm = false, pos += 2;
        else if (text.substr(pos, 2) == "PM") hasAmPm = true, pm = true, pos += 2;
        else return std::nullopt;
        break;
      case 'Z': {
        if (pos + 5 > text.size() || (text[pos] != '+' && text[pos] != '-')) return std::nullopt;
        int sign = text[pos] == '-' ? -1 : 1;
        int hh = 0, mm = 0;
        for (int i = 1; i <= 4; ++i) {
          char c = text[pos + i];
          if (c < '0' || c > '9') return std::nullopt;
          (i <= 2 ? hh : mm) = (i <= 2 ? hh : mm) * 10 + (c - '0');
        }
        explicitOffset = sign * (hh * 3600 + mm * 60);
        pos += 5;
        break;
      }
      default: return std::nullopt;
    }
  }
  if (pos != text.size()) return std::nullopt;
  if (d > daysInMonth(y, m)) return std::nullopt;
  if (twelveHour && hasAmPm && pm) hour += 12;

  std::int64_t local = daysFromCivil(y, m, d) * 86400 + hour * 3600 + minute * 60 + second;
  std::int64_t utc;
  if (explicitOffset) {
    utc = local - *explicitOffset;
  } else {
    // Find the instant whose local time is `local`; two rounds settle daylight-saving edges.
    std::int64_t off = zone_->secondsFromGMTForDate(Date{static_cast<double>(local)});
    off = zone_->secondsFromGMTForDate(Date{static_cast<double>(local - off)});
    utc = local - off;
  }
  return Date{static_cast<double>(utc) + fraction};
}

}  // namespace kit
