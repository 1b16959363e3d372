// Since when what the event logs hold may be told, as the store keeps it in the place of a bookmark. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace TVK {

/// "since 1767225600": nothing of before that second, since 1970, is told.
std::wstring SinceText(std::int64_t seconds);

/// The second of a SinceText; nothing for any other text.
std::optional<std::int64_t> ReadSince(std::wstring_view kept);

/// The first second, since 1970, of which a dataset that starts now after a withdrawn consent tells: the one that runs
/// began without consent.
std::int64_t FirstSecondOfConsent(const platform::Clock& clock);

}  // namespace TVK
