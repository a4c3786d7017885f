#include "support/Dates.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <ctime>

namespace dates {

namespace {

using std::chrono::duration_cast;
using std::chrono::floor;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::sys_seconds;

// Takes a text apart from its front. What does not match fails the scan for good.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool HasReadAll() const { return !failed_ && rest_.empty(); }

  bool Accept(char character) {
    if (!rest_.starts_with(character)) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void Expect(char character) {
    if (!Accept(character)) failed_ = true;
  }

  // Of exactly so many digits.
  int Number(int digits, int limit) {
    int number = 0;
    for (int i = 0; i < digits; ++i) number = number * 10 + Digit();
    if (number >= limit) failed_ = true;
    return number;
  }

  // Of one digit to nine.
  nanoseconds Fraction() {
    nanoseconds place = std::chrono::milliseconds(100);
    nanoseconds fraction = place * Digit();
    while (place.count() > 1 && StartsWithDigit()) {
      place /= 10;
      fraction += place * Digit();
    }
    return fraction;
  }

  // Z, +0100 or +01:00.
  minutes Offset() {
    if (Accept('Z')) return minutes(0);
    const bool west = Accept('-');
    if (!west) Expect('+');
    const hours wholeHours(Number(2, 24));
    Accept(':');
    const minutes offset = wholeHours + minutes(Number(2, 60));
    return west ? -offset : offset;
  }

 private:
  [[nodiscard]] bool StartsWithDigit() const { return !rest_.empty() && rest_[0] >= '0' && rest_[0] <= '9'; }

  int Digit() {
    if (!StartsWithDigit()) {
      failed_ = true;
      return 0;
    }
    const int digit = rest_[0] - '0';
    rest_.remove_prefix(1);
    return digit;
  }

  std::string_view rest_;
  bool failed_ = false;
};

std::chrono::year_month_day ReadDay(Scanner& scanner) {
  const std::chrono::year year(scanner.Number(4, 10000));
  scanner.Expect('-');
  const std::chrono::month month(static_cast<unsigned>(scanner.Number(2, 13)));
  scanner.Expect('-');
  return year / month / scanner.Number(2, 32);
}

seconds ReadTimeOfDay(Scanner& scanner) {
  const hours hour(scanner.Number(2, 24));
  scanner.Expect(':');
  const minutes minute(scanner.Number(2, 60));
  scanner.Expect(':');
  // 60 is a leap second: the first of the next minute.
  return hour + minute + seconds(scanner.Number(2, 61));
}

std::optional<platform::Time> Instant(sys_seconds time, nanoseconds fraction) {
  constexpr auto earliest = std::chrono::ceil<seconds>(platform::Time::min());
  constexpr auto latest = floor<seconds>(platform::Time::max()) - seconds(1);
  if (time < earliest || time > latest) return std::nullopt;
  return time + fraction;
}

// In whole minutes, as the patterns write it. Zones of old were off by seconds as well; what is computed from the
// rounded offset is the right instant all the same.
minutes LocalOffset(platform::Time time) {
  const std::time_t instant = floor<seconds>(time).time_since_epoch().count();
  std::tm local{};
  tzset();
  if (localtime_r(&instant, &local) == nullptr) return minutes(0);
  return duration_cast<minutes>(seconds(local.tm_gmtoff));
}

template <typename Count>
std::string Padded(Count count, std::size_t width) {
  const std::string digits = std::to_string(count);
  return std::string(width - std::min(width, digits.size()), '0') + digits;
}

std::string Day(sys_seconds time) {
  const std::chrono::year_month_day day(floor<std::chrono::days>(time));
  return Padded(static_cast<int>(day.year()), 4) + '-' + Padded(static_cast<unsigned>(day.month()), 2) + '-' +
         Padded(static_cast<unsigned>(day.day()), 2);
}

std::string HoursAndMinutes(minutes duration) {
  return Padded(duration / hours(1), 2) + ':' + Padded((duration % hours(1)).count(), 2);
}

std::string DayAndTime(sys_seconds time) {
  const seconds ofDay = time - floor<std::chrono::days>(time);
  return Day(time) + 'T' + HoursAndMinutes(floor<minutes>(ofDay)) + ':' + Padded((ofDay % minutes(1)).count(), 2);
}

}  // namespace

std::optional<platform::Time> ParseReportTime(std::string_view text) {
  Scanner scanner(text);
  const auto day = ReadDay(scanner);
  scanner.Expect(' ');
  const seconds ofDay = ReadTimeOfDay(scanner);
  const nanoseconds fraction = scanner.Accept('.') ? scanner.Fraction() : nanoseconds(0);
  scanner.Expect(' ');
  const minutes offset = scanner.Offset();
  if (!scanner.HasReadAll() || !day.ok()) return std::nullopt;
  return Instant(sys_days(day) + ofDay - offset, fraction);
}

std::string FormatEventTime(platform::Time time) {
  const minutes offset = LocalOffset(time);
  const std::string text = DayAndTime(floor<seconds>(time) + offset);
  if (offset == minutes(0)) return text + 'Z';
  return text + (offset < minutes(0) ? '-' : '+') + HoursAndMinutes(abs(offset));
}

std::optional<platform::Time> ParseEventTime(std::string_view text) {
  Scanner scanner(text);
  const auto day = ReadDay(scanner);
  scanner.Expect('T');
  const seconds ofDay = ReadTimeOfDay(scanner);
  const minutes offset = scanner.Offset();
  if (!scanner.HasReadAll() || !day.ok()) return std::nullopt;
  return Instant(sys_days(day) + ofDay - offset, nanoseconds(0));
}

std::string FormatDay(platform::Time time) { return Day(floor<seconds>(time) + LocalOffset(time)); }

std::string FormatLogTime(platform::Time time) { return DayAndTime(floor<seconds>(time)) + 'Z'; }

}  // namespace dates
