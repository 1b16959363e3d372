// Texts in what Windows' drivers answer: UTF-16, the lowest byte first. Pure; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace platform {

/// The characters up to the first zero, as UTF-8, without blanks and control characters at both ends. A unit that
/// belongs to no character becomes U+FFFD; half a unit at the end is left out.
std::string Utf16Text(std::span<const std::uint8_t> bytes);

}  // namespace platform
