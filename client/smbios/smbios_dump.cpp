#include "client/smbios/smbios_dump.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "client/smbios/smbios_tool.h"
#include "platform/smbios_form.h"

namespace TVK {
namespace {

using platform::kRsmbHeaderSize;
using platform::SmbiosEntryPoint;

constexpr std::size_t kTableOffsetInDump = 0x20;

/// What a file says of its table, in either form.
struct Claim {
  SmbiosEntryPoint entry;
  std::span<const std::uint8_t> table;  ///< All that follows the header.
};

bool LooksLikeEntryPoint(std::span<const std::uint8_t> bytes) {
  const std::string_view begin(reinterpret_cast<const char*>(bytes.data()), std::min<std::size_t>(bytes.size(), 5));
  return begin.starts_with("_SM_") || begin == "_SM3_" || begin == "_DMI_";
}

std::optional<Claim> ReadClaim(std::span<const std::uint8_t> bytes, std::string& problem) {
  if (LooksLikeEntryPoint(bytes)) {
    const auto entry = platform::DecodeSmbiosEntryPoint(bytes, &problem);
    if (!entry) return std::nullopt;
    return Claim{*entry, bytes.subspan(std::min(kTableOffsetInDump, bytes.size()))};
  }
  // The versions that the standard has reached, with room for those to come.
  if (bytes.size() < kRsmbHeaderSize || bytes[1] < 2 || bytes[1] > 9) {
    problem = bytes.empty() ? "the file is empty" : "neither an SMBIOS dump nor an RSMB table";
    return std::nullopt;
  }
  std::uint32_t length = 0;
  for (std::size_t i = kRsmbHeaderSize; i-- > 4;)
    length = length << 8 | bytes[i];
  return Claim{
      {.major = bytes[1], .minor = bytes[2], .revision = bytes[3], .table_length = length, .length_is_exact = true},
      bytes.subspan(kRsmbHeaderSize)};
}

}  // namespace

SmbiosDump NormaliseSmbiosDump(std::span<const std::uint8_t> bytes) {
  SmbiosDump dump;
  const auto claim = ReadClaim(bytes, dump.problem);
  if (!claim) return dump;
  dump.rsmb = platform::MakeRsmb(claim->entry, claim->table);
  SMBiosTool tool(dump.rsmb);
  tool.Initialize();
  dump.problem = tool.Problem();
  if (tool.Survey().structures == 0) dump.rsmb.clear();
  return dump;
}

}  // namespace TVK
