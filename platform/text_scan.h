// Small steps through texts of lines, words and numbers, as /proc, /sys, /etc and log files have them. Pure functions;
// any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace platform {

/// `text` without the blanks, tabs and line ends at its begin and end.
std::string_view TrimBlanks(std::string_view text);

/// Cuts the first line off `rest` and returns it without its line end.
std::string_view TakeLine(std::string_view& rest);

/// Cuts the first word (no blanks or tabs) off `rest` and returns it; empty when there is none.
std::string_view TakeWord(std::string_view& rest);

/// The decimal number that `text` as a whole is; empty when it is none or exceeds 64 bits.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

}  // namespace platform
