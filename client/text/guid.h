#pragma once

#include <string>

namespace TVK::Utility {

class CGuid {
 public:
  /// A new random GUID (RFC 4122, version 4) as text, "FC8782AC-7C54-4D27-9A21-E2B87D2A197B". `upper_case` false: small
  /// hexadecimal letters. Any thread. Throws std::runtime_error when the system has no random source.
  static std::wstring NewGuid(bool upper_case = true);
};

}  // namespace TVK::Utility
