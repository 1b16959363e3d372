// The two forms in which a raw SMBIOS table arrives: behind an entry point (as firmware, Linux and dump files have it)
// and behind the eight-byte header of Windows' firmware table provider 'RSMB' (as Firmware::ReadSmbios gives it). DMTF
// DSP0134 "System Management BIOS Reference Specification", 5.2. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// Calling method, major, minor and DMI revision (a byte each), then the table's length (32 bits, little endian).
inline constexpr std::size_t kRsmbHeaderSize = 8;

/// What an entry point tells about its table.
struct SmbiosEntryPoint {
  std::uint8_t major = 0;
  std::uint8_t minor = 0;
  std::uint8_t revision = 0;       ///< "_SM_", "_DMI_": the BCD revision. "_SM3_": the document revision.
  std::uint32_t table_length = 0;  ///< Bytes; "_SM3_" tells only the most that there may be.
  bool length_is_exact = false;    ///< False for "_SM3_".
  std::uint16_t structures = 0;    ///< How many the table has; 0: not told.
  bool ends_at_marker = false;     ///< The end-of-table structure (127) ends the table: "_SM3_".
};

/// The 32-bit ("_SM_"), 64-bit ("_SM3_") or legacy ("_DMI_") entry point at the begin of `bytes`. Empty when there is
/// none, it is cut short, or its checksum does not match; `problem`, when given, then says which.
std::optional<SmbiosEntryPoint> DecodeSmbiosEntryPoint(std::span<const std::uint8_t> bytes,
                                                       std::string* problem = nullptr);

/// The type of the structure that ends a table.
inline constexpr std::uint8_t kSmbiosEndOfTable = 127;

/// The length in bytes of the structure at the begin of `bytes`: formatted part and strings with their end. 0 when
/// there is no whole one.
std::size_t SmbiosStructureLength(std::span<const std::uint8_t> bytes);

/// `table` behind an 'RSMB' header with the versions of `entry`. Of bytes beyond the end that `entry` tells (length,
/// count of structures, end-of-table structure) nothing is taken. When the length is exact and the other two end the
/// table no earlier, the header tells it, so that a table of which a part is missing can be told from a whole one; else
/// it tells the length of what is taken.
std::vector<std::uint8_t> MakeRsmb(const SmbiosEntryPoint& entry, std::span<const std::uint8_t> table);

}  // namespace platform
