#include "client/text/moment.h"

#include <algorithm>
#include <cstddef>

#include "platform/civil_time.h"

namespace TVK {
namespace {

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

struct Unit {
  std::string_view name;
  std::int64_t seconds;
};
constexpr Unit kUnits[] = {
    {"s", 1},
    {"sec", 1},
    {"second", 1},
    {"seconds", 1},
    {"m", kMinute},
    {"min", kMinute},
    {"minute", kMinute},
    {"minutes", kMinute},
    {"h", kHour},
    {"hr", kHour},
    {"hour", kHour},
    {"hours", kHour},
    {"d", kDay},
    {"day", kDay},
    {"days", kDay},
    {"w", 7 * kDay},
    {"week", 7 * kDay},
    {"weeks", 7 * kDay},
    {"M", 2629800},
    {"month", 2629800},
    {"months", 2629800},
    {"y", 31557600},
    {"year", 31557600},
    {"years", 31557600},
};

// Reads a text from its begin; what does not fit stays.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  bool AtEnd() const { return text_.empty(); }
  char Next() const { return text_.empty() ? '\0' : text_.front(); }

  bool Take(std::string_view word) {
    if (!text_.starts_with(word)) return false;
    text_.remove_prefix(word.size());
    return true;
  }
  bool SkipBlanks() {
    const std::size_t before = text_.size();
    while (Next() == ' ')
      text_.remove_prefix(1);
    return text_.size() < before;
  }
  std::string_view TakeWhile(bool (*fits)(char)) {
    const auto end = static_cast<std::size_t>(std::ranges::find_if_not(text_, fits) - text_.begin());
    const std::string_view taken = text_.substr(0, end);
    text_.remove_prefix(end);
    return taken;
  }
  // A number of exactly `digits` digits, from `low` to `high`.
  bool TakeNumber(std::size_t digits, int low, int high, int& number) {
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      if (i >= text_.size() || !IsDigit(text_[i])) return false;
      value = value * 10 + (text_[i] - '0');
    }
    if (value < low || value > high) return false;
    text_.remove_prefix(digits);
    number = value;
    return true;
  }

  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
  static bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

 private:
  std::string_view text_;
};

// The number of these digits, at most 10^12: what is longer lies before 1970, or after every record.
std::int64_t NumberOf(std::string_view digits) {
  constexpr std::int64_t kMost = 1'000'000'000'000;
  std::int64_t number = 0;
  for (const char c : digits)
    number = std::min(number * 10 + (c - '0'), kMost);
  return number;
}

bool TakeDate(Scanner& scanner, platform::LocalTime& time) {
  if (!scanner.TakeNumber(4, 0, 9999, time.year) || !scanner.Take("-") || !scanner.TakeNumber(2, 1, 12, time.month) ||
      !scanner.Take("-") || !scanner.TakeNumber(2, 1, 31, time.day)) {
    return false;
  }
  return std::chrono::year_month_day(std::chrono::year(time.year),
                                     std::chrono::month(static_cast<unsigned>(time.month)),
                                     std::chrono::day(static_cast<unsigned>(time.day)))
      .ok();
}

bool TakeTimeOfDay(Scanner& scanner, platform::LocalTime& time) {
  if (!scanner.TakeNumber(2, 0, 23, time.hour) || !scanner.Take(":") || !scanner.TakeNumber(2, 0, 59, time.minute)) {
    return false;
  }
  if (!scanner.Take(":")) return true;
  if (!scanner.TakeNumber(2, 0, 59, time.second)) return false;
  return !scanner.Take(".") || !scanner.TakeWhile(Scanner::IsDigit).empty();
}

// A zone, and nothing behind it. `offset` stays nothing where there is none.
bool TakeZone(Scanner& scanner, std::optional<int>& offset) {
  scanner.SkipBlanks();
  if (scanner.AtEnd()) return true;
  if (scanner.Take("Z") || scanner.Take("UTC")) {
    offset = 0;
    return scanner.AtEnd();
  }
  const bool west = scanner.Next() == '-';
  if (!scanner.Take("+") && !scanner.Take("-")) return false;
  int hours = 0;
  int minutes = 0;
  if (!scanner.TakeNumber(2, 0, 23, hours)) return false;
  const bool colon = scanner.Take(":");
  if ((colon || !scanner.AtEnd()) && !scanner.TakeNumber(2, 0, 59, minutes)) return false;
  offset = (west ? -1 : 1) * (hours * 60 + minutes);
  return scanner.AtEnd();
}

std::optional<std::int64_t> ParseCalendarTime(std::string_view text, const platform::Clock& clock) {
  struct Day {
    std::string_view name;
    int from_today;
  };
  constexpr Day kDays[] = {{"today", 0}, {"yesterday", -1}, {"tomorrow", 1}};

  Scanner scanner(text);
  platform::LocalTime time;
  const auto* const named = std::ranges::find_if(kDays, [&](const Day& day) { return scanner.Take(day.name); });
  const bool is_named = named != std::end(kDays);
  const Scanner begin = scanner;
  const bool is_dated = !is_named && TakeDate(scanner, time);
  if (!is_dated) scanner = begin;
  // Behind a day a time of day may stand, without one it must.
  const bool must = (!is_named && !is_dated) || scanner.Take("T");
  const bool may = must || scanner.SkipBlanks();
  if (must || (may && Scanner::IsDigit(scanner.Next()))) {
    if (!TakeTimeOfDay(scanner, time)) return std::nullopt;
  }
  std::optional<int> offset;
  if (!TakeZone(scanner, offset)) return std::nullopt;
  if (!is_dated) {
    const std::int64_t now = clock.NowSeconds();
    const platform::LocalTime today = offset ? platform::ToCivil(now, *offset) : clock.ToLocal(now);
    time.year = today.year;
    time.month = today.month;
    time.day = today.day + (is_named ? named->from_today : 0);
  }
  return std::max<std::int64_t>(offset ? platform::FromCivil(time, *offset) : clock.FromLocal(time), 0);
}

std::optional<std::int64_t> ParseSpan(std::string_view text, const platform::Clock& clock) {
  Scanner scanner(text);
  const bool later = scanner.Take("+");
  const bool earlier = !later && scanner.Take("-");
  std::int64_t seconds = 0;
  bool any = false;
  for (scanner.SkipBlanks(); !scanner.AtEnd(); scanner.SkipBlanks(), any = true) {
    if (any && !later && !earlier && scanner.Take("ago")) {
      if (!scanner.AtEnd()) return std::nullopt;
      break;
    }
    const std::string_view digits = scanner.TakeWhile(Scanner::IsDigit);
    scanner.SkipBlanks();
    const std::string_view name = scanner.TakeWhile(Scanner::IsLetter);
    const auto* const unit = std::ranges::find(kUnits, name, &Unit::name);
    if (digits.empty() || unit == std::end(kUnits)) return std::nullopt;
    constexpr std::int64_t kMost = 1'000'000'000'000;
    seconds += std::min(NumberOf(digits), kMost / unit->seconds) * unit->seconds;
  }
  if (!any) return std::nullopt;
  return std::max<std::int64_t>(clock.NowSeconds() + (later ? seconds : -seconds), 0);
}

}  // namespace

std::optional<std::int64_t> ParseMoment(std::string_view text, const platform::Clock& clock) {
  if (text.size() > kLongestMomentText) return std::nullopt;
  while (text.starts_with(' '))
    text.remove_prefix(1);
  while (text.ends_with(' '))
    text.remove_suffix(1);
  if (text == "now") return clock.NowSeconds();
  if (text.starts_with('@')) {
    const std::string_view digits = text.substr(1);
    if (digits.empty() || !std::ranges::all_of(digits, Scanner::IsDigit)) return std::nullopt;
    return NumberOf(digits);
  }
  const std::optional<std::int64_t> moment = ParseCalendarTime(text, clock);
  return moment ? moment : ParseSpan(text, clock);
}

}  // namespace TVK
