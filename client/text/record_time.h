// Record times: texts "%Y-%m-%dT%H:%M:%S%z", such as "2026-01-31T09:05:00+0100".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace TVK {

class System {
 public:
  /// Now, as records carry it: local time with the offset from UTC.
  static std::wstring GetTime(const platform::Clock& clock);
};

/// `unix_seconds`, and a time of the calendar, in the same form.
std::wstring FormatRecordTime(std::int64_t unix_seconds, const platform::Clock& clock);
std::wstring FormatRecordTime(const platform::LocalTime& local);

/// Seconds since 1970 of a record time (UTF-8), taken as local time: the offset is read but does not move the result.
/// A text that does not parse gives what the fields read so far make, and -1 when that lies before 1970. Any thread.
std::int64_t ParseRecordTime(std::string_view text, const platform::Clock& clock);

}  // namespace TVK
