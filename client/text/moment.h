// Moments as people name them: "yesterday", "2h", "2026-01-31 09:05".
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/clock.h"

namespace TVK {

/// Longer texts name no moment.
inline constexpr std::size_t kLongestMomentText = 64;

/// The moment that `text` names, seconds since 1970, 0 for earlier ones; nothing when it names none or the calendar
/// has no such day. Blanks around it do not count. Any thread.
/// - "now", and "today", "yesterday", "tomorrow" at 00:00, or at a time of day behind it;
/// - a date ("2026-01-31"), a time of day ("09:05", "09:05:30", today) or both with a blank or "T" between them, in the
///   clock's zone, or in that of "Z", "UTC", "+01", "+0100" or "+01:00" behind it; fractions of a second do not count;
/// - a span, whose moment is so long before now, also with "-" ahead or "ago" behind it, and with "+" so long after
///   now: "90s", "30m", "2h", "1d", "1w", "1h 30min", "2 weeks"; a month "M" is 30.44 days, a year "y" 365.25;
/// - "@" and the seconds since 1970.
std::optional<std::int64_t> ParseMoment(std::string_view text, const platform::Clock& clock);

}  // namespace TVK
