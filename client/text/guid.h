#pragma once

#include <string>
#include <string_view>

namespace TVK::Utility {

class CGuid {
 public:
  /// A new random GUID (RFC 4122, version 4) as text, "FC8782AC-7C54-4D27-9A21-E2B87D2A197B". `upper_case` false: small
  /// hexadecimal letters. Any thread. Throws std::runtime_error when the system has no random source.
  static std::wstring NewGuid(bool upper_case = true);

  /// The GUID of a name within a space of names (RFC 9562, version 8, of their SHA-256), in capital letters: the same
  /// on every system. Pure.
  static std::wstring OfName(std::wstring_view space, std::wstring_view name);
};

}  // namespace TVK::Utility
