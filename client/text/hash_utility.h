#pragma once

#include <string>
#include <string_view>

namespace TVK {

class HashUtility {
 public:
  /// SHA-256 of the UTF-8 forms of `salt`, a zero byte and `value`, as 64 upper-case hexadecimal digits. The same
  /// inputs give the same text on every system. Any thread.
  static std::wstring Hash(std::wstring_view value, std::wstring_view salt);

  /// The form in which the serial number of a battery or a drive is logged and kept: its Hash with the salt of these.
  static std::wstring HashSerialNumber(std::wstring_view serial_number);
};

}  // namespace TVK
