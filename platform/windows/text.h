// Texts between the system's UTF-16 and our UTF-8, and the words for its errors.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform::windows {

/// A unit that belongs to no character becomes U+FFFD.
std::string Utf8FromWide(std::wstring_view text);

/// A byte that belongs to no character becomes U+FFFD.
std::wstring WideFromUtf8(std::string_view text);

/// "Access is denied (error 5)"; only "error N" where the system has no words for it. `error` is what GetLastError
/// gives.
std::string ErrorText(std::uint32_t error);

/// "CreateFile C:\x: Access is denied (error 5)", with the calling thread's last error.
std::string LastErrorText(std::string_view what);

}  // namespace platform::windows
