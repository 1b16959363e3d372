#include "platform/smbios_form.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string_view>

namespace platform {
namespace {

bool StartsWith(std::span<const std::uint8_t> bytes, std::string_view anchor) {
  return bytes.size() >= anchor.size() &&
         std::equal(anchor.begin(), anchor.end(), bytes.begin(),
                    [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

std::uint32_t Number(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = size; i > 0; --i)
    value = value << 8 | bytes[offset + i - 1];
  return value;
}

/// The first `length` bytes of an entry point must be there and add up to 0; `least` holds the fields that are read.
bool IsSound(std::span<const std::uint8_t> bytes, std::size_t length, std::size_t least, std::string& problem) {
  if (length < least || bytes.size() < length) {
    problem = "the SMBIOS entry point is cut short";
    return false;
  }
  if (std::accumulate(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length), 0u) % 256 != 0) {
    problem = "the checksum of the SMBIOS entry point does not match";
    return false;
  }
  return true;
}

SmbiosEntryPoint LegacyPart(std::span<const std::uint8_t> dmi) {
  const std::uint8_t bcd = dmi[0x0E];
  return {.major = static_cast<std::uint8_t>(bcd >> 4),
          .minor = static_cast<std::uint8_t>(bcd & 0x0F),
          .revision = bcd,
          .table_length = Number(dmi, 6, 2),
          .length_is_exact = true,
          .structures = static_cast<std::uint16_t>(Number(dmi, 0x0C, 2))};
}

std::optional<SmbiosEntryPoint> Decode(std::span<const std::uint8_t> bytes, std::string& problem) {
  constexpr std::size_t kLegacySize = 0x0F;
  constexpr std::size_t kLegacyOffset = 0x10;  // Where "_SM_" holds the legacy part.
  constexpr std::size_t kSize64 = 0x18;
  if (StartsWith(bytes, "_SM3_")) {
    if (!IsSound(bytes, bytes.size() > 6 ? bytes[6] : 0, kSize64, problem)) return std::nullopt;
    return SmbiosEntryPoint{.major = bytes[7],
                            .minor = bytes[8],
                            .revision = bytes[9],
                            .table_length = Number(bytes, 0x0C, 4),
                            .ends_at_marker = true};
  }
  if (StartsWith(bytes, "_SM_")) {
    // Some firmware of version 2.1 gives 0x1E as the length, one less than the fields take.
    if (!IsSound(bytes, bytes.size() > 5 ? bytes[5] : 0, 0x1E, problem)) return std::nullopt;
    const auto legacy = bytes.subspan(kLegacyOffset);
    if (!StartsWith(legacy, "_DMI_") || !IsSound(legacy, kLegacySize, kLegacySize, problem)) {
      problem = "the SMBIOS entry point lacks a sound \"_DMI_\" part";
      return std::nullopt;
    }
    SmbiosEntryPoint entry = LegacyPart(legacy);
    entry.major = bytes[6];
    entry.minor = bytes[7];
    return entry;
  }
  if (StartsWith(bytes, "_DMI_")) {
    if (!IsSound(bytes, kLegacySize, kLegacySize, problem)) return std::nullopt;
    return LegacyPart(bytes);
  }
  problem = "there is no SMBIOS entry point";
  return std::nullopt;
}

/// Where the table ends by what the entry point tells beside its length; all of it when that tells no end, or damage
/// comes before it.
std::size_t EndOfTable(const SmbiosEntryPoint& entry, std::span<const std::uint8_t> table) {
  if (entry.structures == 0 && !entry.ends_at_marker) return table.size();
  std::size_t end = 0;
  for (unsigned count = 0; entry.structures == 0 || count < entry.structures; ++count) {
    const std::size_t length = SmbiosStructureLength(table.subspan(end));
    if (length == 0) return table.size();
    const bool marker = table[end] == kSmbiosEndOfTable;
    end += length;
    if (marker && entry.ends_at_marker) break;
  }
  return end;
}

}  // namespace

std::size_t SmbiosStructureLength(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kHeaderSize = 4;  // Type, length, handle.
  if (bytes.size() < kHeaderSize) return 0;
  const std::size_t formatted = bytes[1];
  if (formatted < kHeaderSize || formatted > bytes.size()) return 0;
  // memchr, since looking at each byte of the strings takes most of the time of decoding a table.
  const std::uint8_t* const strings = bytes.data() + formatted;
  const std::uint8_t* const end = bytes.data() + bytes.size();
  for (const std::uint8_t* at = strings; at < end;) {
    const auto* const zero = static_cast<const std::uint8_t*>(std::memchr(at, 0, static_cast<std::size_t>(end - at)));
    if (zero == nullptr || zero + 1 == end) return 0;
    if (zero[1] == 0) return formatted + static_cast<std::size_t>(zero - strings) + 2;
    at = zero + 2;
  }
  return 0;
}

std::optional<SmbiosEntryPoint> DecodeSmbiosEntryPoint(std::span<const std::uint8_t> bytes, std::string* problem) {
  std::string reason;
  const auto entry = Decode(bytes, reason);
  if (!entry && problem != nullptr) *problem = reason;
  return entry;
}

std::vector<std::uint8_t> MakeRsmb(const SmbiosEntryPoint& entry, std::span<const std::uint8_t> table) {
  const auto announced = table.first(std::min<std::size_t>(entry.table_length, table.size()));
  const auto used = announced.first(EndOfTable(entry, announced));
  const bool whole_length_counts = entry.length_is_exact && used.size() == announced.size();
  const std::size_t length = whole_length_counts ? entry.table_length : used.size();
  std::vector<std::uint8_t> rsmb = {0, entry.major, entry.minor, entry.revision};
  rsmb.reserve(kRsmbHeaderSize + used.size());
  for (int shift = 0; shift < 32; shift += 8)
    rsmb.push_back(static_cast<std::uint8_t>(length >> shift));
  rsmb.insert(rsmb.end(), used.begin(), used.end());
  return rsmb;
}

}  // namespace platform
