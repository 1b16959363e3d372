// Any text as a record time: always a number, and a moment written by us is read back.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "client/text/record_time.h"
#include "client/text/string.h"

namespace {

// A world without zones: days are counted by the calendar of the standard library.
class UtcClock final : public platform::Clock {
 public:
  platform::WallTime Now() const override { return {}; }
  platform::SteadyTime Steady() const override { return {}; }
  platform::ElapsedTime Elapsed() const override { return {}; }

  platform::LocalTime ToLocal(std::int64_t unix_seconds) const override {
    const std::chrono::sys_seconds moment{std::chrono::seconds(unix_seconds)};
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day date(day);
    const auto second = static_cast<int>((moment - day).count());
    return {static_cast<int>(date.year()),
            static_cast<int>(static_cast<unsigned>(date.month())),
            static_cast<int>(static_cast<unsigned>(date.day())),
            second / 3600,
            second / 60 % 60,
            second % 60,
            0};
  }

  std::int64_t FromLocal(const platform::LocalTime& local) const override {
    const std::int64_t months = std::int64_t{local.year} * 12 + local.month - 1;
    const auto year = std::chrono::year(static_cast<int>(months >= 0 ? months / 12 : (months - 11) / 12));
    const auto month = std::chrono::month(static_cast<unsigned>((months % 12 + 12) % 12 + 1));
    const std::int64_t days = std::chrono::sys_days(year / month / 1).time_since_epoch().count() + local.day - 1;
    const std::int64_t seconds = ((days * 24 + local.hour) * 60 + local.minute) * 60 + local.second;
    return seconds < 0 ? -1 : seconds;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const UtcClock clock;
  const std::int64_t seconds = TVK::ParseRecordTime({reinterpret_cast<const char*>(data), size}, clock);
  if (seconds < -1) std::abort();
  constexpr std::int64_t kYear10000 = 253402300800;
  if (seconds >= 0 && seconds < kYear10000) {
    const std::string again = TVK::String::UTF16ToUTF8(TVK::FormatRecordTime(seconds, clock));
    if (TVK::ParseRecordTime(again, clock) != seconds) std::abort();
  }
  return 0;
}
