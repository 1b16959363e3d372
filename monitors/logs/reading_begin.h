// Since when what the event logs hold may be told, as the store keeps it in the place of a bookmark, and when it is
// asked again. Pure; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace TVK {

/// What could not be read or written is tried again after the first time, then after twice as long each, up to the
/// last.
inline constexpr std::chrono::milliseconds kFirstLogRetry = std::chrono::minutes(1);
inline constexpr std::chrono::milliseconds kLastLogRetry = std::chrono::hours(1);

/// "since 1767225600": nothing of before that second, since 1970, is told; with a place behind a blank what lies before
/// that place was read, too.
std::wstring SinceText(std::int64_t seconds, std::wstring_view place = {});

/// "begun 1767225600 PLACE": the same once every channel was read to its end behind that second, which counts for
/// channels alone that the place does not know. A clock that is before it by now was set back, and nothing goes by it.
std::wstring BegunText(std::int64_t seconds, std::wstring_view place);

/// What either text holds.
struct ReadingBegin {
  std::int64_t seconds = 0;
  std::wstring place = {};
  bool begun = false;
};
/// Nothing for any other text.
std::optional<ReadingBegin> ReadBegin(std::wstring_view kept);

/// The first second, since 1970, of which a dataset that starts now after a withdrawn consent tells: the one that runs
/// began without consent.
std::int64_t FirstSecondOfConsent(const platform::Clock& clock);

}  // namespace TVK
