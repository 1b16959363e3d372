// Standard error, for what must be told when nothing else can be written.
#pragma once

#include <initializer_list>
#include <string_view>

namespace platform {

/// Writes `parts` (UTF-8), one behind the other and cut to 4 KiB, and a line feed. Never fails, and needs no memory; on
/// Linux it never waits either: a line that standard error does not take at once is dropped. Any thread may call it.
void WriteLineToStandardError(std::initializer_list<std::string_view> parts) noexcept;

}  // namespace platform
