#include "client/smbios/smbios_identity.h"

#include <algorithm>
#include <array>

#include "client/log/wide_format.h"
#include "client/smbios/smbios_fields.h"
#include "client/text/hash_utility.h"

namespace TVK {
namespace {

/// Keeps hashes of firmware serial numbers apart from those of batteries and drives. Changing it changes every
/// identity.
constexpr wchar_t kSalt[] = L"tvk/systembios";

std::wstring HashOf(const std::wstring& secret) {
  return secret.empty() ? std::wstring() : HashUtility::Hash(secret, kSalt);
}

std::wstring Release(const SmbiosFields& fields, std::size_t major_offset) {
  constexpr std::uint8_t kNotSupported = 0xFF;
  const auto major = fields.Number<std::uint8_t>(major_offset).value_or(kNotSupported);
  const auto minor = fields.Number<std::uint8_t>(major_offset + 1).value_or(kNotSupported);
  if (major == kNotSupported || minor == kNotSupported) return {};
  return FormatWide(L"%u.%u", major, minor);
}

/// The UUID as text. Its first three fields are little endian (DSP0134, 7.2.1). Empty when the machine has none (all
/// bits 0 or all 1).
std::wstring Uuid(const SmbiosFields& fields) {
  constexpr std::size_t kOffset = 8;
  std::array<std::uint8_t, 16> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = fields.Number<std::uint8_t>(kOffset + i);
    if (!byte) return {};
    bytes[i] = *byte;
  }
  const auto is = [](std::uint8_t wanted) { return [wanted](std::uint8_t byte) { return byte == wanted; }; };
  if (std::all_of(bytes.begin(), bytes.end(), is(0)) || std::all_of(bytes.begin(), bytes.end(), is(0xFF))) return {};
  constexpr std::array<std::size_t, 16> kOrder = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
  std::wstring text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += L'-';
    text += FormatWide(L"%02x", bytes[kOrder[i]]);
  }
  return text;
}

/// Runs `decode` on the first structure of `type`, if there is one.
template <typename Decode>
void WithFirst(const SMBiosTool& tool, int type, Decode decode) {
  std::list<_SMBiosBuffer> found;
  tool.GetSMBiosBufferByType(type, found);
  if (!found.empty()) decode(SmbiosFields(tool, found.front()));
}

}  // namespace

SmbiosIdentity ReadSmbiosIdentity(const SMBiosTool& tool) {
  SmbiosIdentity identity;
  if (tool.Survey().structures == 0) return identity;
  identity.smbios_version = tool.GetVersion();
  WithFirst(tool, 0, [&](const SmbiosFields& bios) {
    identity.bios_vendor = bios.Text(0x04);
    identity.bios_version = bios.Text(0x05);
    identity.bios_date = bios.Text(0x08);
    identity.bios_release = Release(bios, 0x14);
    identity.ec_release = Release(bios, 0x16);
  });
  WithFirst(tool, 1, [&](const SmbiosFields& system) {
    identity.manufacturer = system.Text(0x04);
    identity.product_name = system.Text(0x05);
    identity.product_version = system.Text(0x06);
    identity.serial_hash = HashOf(system.Text(0x07));
    identity.uuid_hash = HashOf(Uuid(system));
    identity.product_sku = system.Text(0x19);
    identity.product_family = system.Text(0x1A);
  });
  WithFirst(tool, 2, [&](const SmbiosFields& board) {
    identity.board_manufacturer = board.Text(0x04);
    identity.board_product = board.Text(0x05);
    identity.board_version = board.Text(0x06);
    identity.board_serial_hash = HashOf(board.Text(0x07));
  });
  WithFirst(tool, 3, [&](const SmbiosFields& chassis) {
    identity.chassis_type = chassis.Number<std::uint8_t>(0x05).value_or(0) & 0x7F;
  });
  return identity;
}

}  // namespace TVK
