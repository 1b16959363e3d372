#include "client/smbios/smbios_fields.h"

namespace TVK {

std::span<const unsigned char> SmbiosFields::TextBytes(std::size_t offset) const {
  auto bytes = tool_.GetStringBytes(Number<std::uint8_t>(offset).value_or(0), structure_.data, structure_.length);
  while (!bytes.empty() && bytes.back() == ' ')
    bytes = bytes.first(bytes.size() - 1);
  while (!bytes.empty() && bytes.front() == ' ')
    bytes = bytes.subspan(1);
  return bytes;
}

std::wstring SmbiosFields::Text(std::size_t offset) const {
  const auto bytes = TextBytes(offset);
  return {bytes.begin(), bytes.end()};
}

}  // namespace TVK
