// Standard error, for what must be told when nothing else can be written.
#pragma once

#include <string_view>

namespace platform {

/// Writes `line` (UTF-8, cut to 4 KiB) and a line feed. Never fails; on Linux it never waits either: a line that
/// standard error does not take at once is dropped. Any thread may call it.
void WriteLineToStandardError(std::string_view line);

}  // namespace platform
