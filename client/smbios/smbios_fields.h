// Fields of one structure, each read only when the structure is long enough to have it.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "client/smbios/smbios_tool.h"

namespace TVK {

/// A view of a structure that `tool` handed out. Firmware of every age is about: an older table has shorter structures,
/// and a field that it lacks is absent, whatever stands behind the structure.
class SmbiosFields {
 public:
  SmbiosFields(const SMBiosTool& tool, const _SMBiosBuffer& structure) : tool_(tool), structure_(structure) {}

  /// The little-endian number at `offset`; absent when it does not lie in the formatted part.
  template <std::unsigned_integral T>
  std::optional<T> Number(std::size_t offset) const {
    if (offset + sizeof(T) > structure_.data[1]) return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = sizeof(T); i-- > 0;)
      value = value << 8 | structure_.data[offset + i];
    return static_cast<T>(value);
  }

  /// The string whose number stands at `offset`, without blanks at its ends (many makers pad). Empty when the field is
  /// absent or names no string.
  std::wstring Text(std::size_t offset) const;

  /// The bytes of that text, each one character, in the buffer of the tool.
  std::span<const unsigned char> TextBytes(std::size_t offset) const;

  /// The handle, by which other structures refer to this one.
  std::uint16_t handle() const { return Number<std::uint16_t>(2).value_or(0); }

 private:
  const SMBiosTool& tool_;
  const _SMBiosBuffer structure_;
};

}  // namespace TVK
