#include "client/text/record_time.h"

#include <cstdlib>

#include "client/text/string.h"

namespace TVK {
namespace {

// Reads up to `width` digits of `text` at `at`. False, with nothing moved, when there is none.
bool ReadNumber(std::string_view text, std::size_t& at, int width, int& number) {
  std::size_t end = at;
  int value = 0;
  while (end < text.size() && end < at + static_cast<std::size_t>(width) && text[end] >= '0' && text[end] <= '9') {
    value = value * 10 + (text[end++] - '0');
  }
  if (end == at) return false;
  at = end;
  number = value;
  return true;
}

void AppendPadded(std::wstring& out, int number, std::size_t width) {
  const std::wstring digits = std::to_wstring(number);
  if (digits.size() < width) out.append(width - digits.size(), L'0');
  out += digits;
}

}  // namespace

std::wstring FormatRecordTime(std::int64_t unix_seconds, const platform::Clock& clock) {
  return FormatRecordTime(clock.ToLocal(unix_seconds));
}

std::wstring FormatRecordTime(const platform::LocalTime& local) {
  std::wstring text;
  AppendPadded(text, local.year, 4);
  text += L'-';
  AppendPadded(text, local.month, 2);
  text += L'-';
  AppendPadded(text, local.day, 2);
  text += L'T';
  AppendPadded(text, local.hour, 2);
  text += L':';
  AppendPadded(text, local.minute, 2);
  text += L':';
  AppendPadded(text, local.second, 2);
  text += local.utc_offset_minutes < 0 ? L'-' : L'+';
  AppendPadded(text, std::abs(local.utc_offset_minutes) / 60, 2);
  AppendPadded(text, std::abs(local.utc_offset_minutes) % 60, 2);
  return text;
}

std::wstring System::GetTime(const platform::Clock& clock) {
  return FormatRecordTime(clock.NowSeconds(), clock);
}

std::int64_t ParseRecordTime(std::string_view text, const platform::Clock& clock) {
  // A broken-down time that nothing was read into, as the C library's zeroed tm: the day before 1900.
  platform::LocalTime local{.year = 1900, .month = 1, .day = 0};
  struct Field {
    int* target;
    int width;
    int low;
    int high;
    char separator;  // what must stand before the field; 0: nothing
  };
  const Field fields[] = {{&local.year, 4, 0, 9999, 0}, {&local.month, 2, 1, 12, '-'},  {&local.day, 2, 1, 31, '-'},
                          {&local.hour, 2, 0, 23, 'T'}, {&local.minute, 2, 0, 59, ':'}, {&local.second, 2, 0, 60, ':'}};
  std::size_t at = 0;
  for (const Field& field : fields) {
    if (field.separator != 0) {
      if (at >= text.size() || text[at] != field.separator) break;
      ++at;
    }
    int number = 0;
    if (!ReadNumber(text, at, field.width, number) || number < field.low || number > field.high) break;
    *field.target = number;
  }
  return clock.FromLocal(local);
}

}  // namespace TVK
