// The raw SMBIOS table of the machine: finding structures by type and reading their strings.
// DMTF DSP0134 "System Management BIOS Reference Specification".
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>
#include <string>
#include <vector>

#include "client/log/log.h"

namespace platform {
class Firmware;
}  // namespace platform

/// A structure in the buffer of the SMBiosTool that found it; valid as long as that tool.
struct _SMBiosBuffer {  // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the name is its users'
  const unsigned char* data = nullptr;  ///< First byte of the structure.
  unsigned long length = 0;             ///< Formatted part and string set together, in bytes.
};

namespace TVK {

/// What a walk over a whole table met.
struct SmbiosSurvey {
  std::size_t structures = 0;  ///< Whole ones, the "end of table" among them.
  bool damaged = false;        ///< A structure that is not whole ended the walk, and no "end of table" came before it.
  bool ended = false;          ///< A structure "end of table" is among them; others may stand behind it.
};

}  // namespace TVK

/// Owns the whole raw data in the form of Firmware::ReadSmbios: a header of 8 bytes, then the structures.
///
/// Firmware is not trusted. A structure counts only when its four first bytes, its formatted part (at least 4 bytes)
/// and its string set with the two zero bytes at its end lie in the table. The walk ends before the first one that does
/// not, and at the end of the table; what comes later is as if it were not there. The structure "end of table" (type
/// 127) does not end it: structures behind it count, and what is there but is none is padding. Nothing outside the
/// buffer is read. Every structure that is handed out is whole.
///
/// Call Initialize before, and on one thread; then any thread may look structures up.
class SMBiosTool {
 public:
  /// Will load the table of `firmware`, which must live until Initialize has succeeded.
  explicit SMBiosTool(platform::Firmware& firmware) : firmware_(&firmware) {}

  /// Holds `rsmb`, a table from a file (see smbios_dump.h), in place of a machine's; Initialize checks it the same way.
  explicit SMBiosTool(std::vector<std::uint8_t> rsmb) : buffer_(std::move(rsmb)) {}

  SMBiosTool(const SMBiosTool&) = delete;
  SMBiosTool& operator=(const SMBiosTool&) = delete;
  ~SMBiosTool() = default;

  /// Loads the table once. Returns 0 and keeps the buffer, also when called again; or, with a line in the log:
  /// 2 the machine gives no table; 3 no memory for it; 4 the length in its header is not that of the structures behind.
  /// After 4 the buffer is kept and lookups see as much of it as both lengths cover. A second line says what Problem
  /// says, and how many structures can be read, whenever that is not empty.
  int Initialize();

  /// One line in UTF-8, such as "the SMBIOS entry point is damaged": why there is no table, or what is wrong with the
  /// one that Initialize loaded, of which the sound begin can be looked up. Empty when nothing is. After Initialize.
  std::string Problem() const;

  /// Clears `out` and appends every structure of `type`, in the order of the table. Returns 0, or 5 when no table was
  /// loaded.
  int GetSMBiosBufferByType(int type, std::list<_SMBiosBuffer>& out) const;

  /// Formatted part and string set of the structure that begins at `structure`, in bytes. 0 for a null pointer, a
  /// pointer that is not into the table, and a structure that is not whole.
  int GetLengthOfStructure(const unsigned char* structure) const;

  /// String `index` (the first is 1) of `structure`, whose total length is `length`; each byte becomes one character.
  /// Empty for index 0, an index above the number of strings, an empty string set, a null pointer and a pointer that is
  /// not into the table.
  std::wstring GetString(unsigned char index, const unsigned char* structure, unsigned long length) const;

  /// The bytes of the string that GetString makes, in the buffer of this object.
  std::span<const unsigned char> GetStringBytes(unsigned char index, const unsigned char* structure,
                                                unsigned long length) const;

  /// How far the table can be read. Nothing of it when no table was loaded.
  TVK::SmbiosSurvey Survey() const;

  /// "3.2": the version of the standard that the table says it keeps to, where firmware is known to say another than
  /// it means the one that it means. Empty when no table was loaded.
  std::wstring GetVersion() const;

 private:
  int GetSMBiosBuffer();
  std::size_t OffsetInTable(const unsigned char* structure) const;
  std::size_t LengthAt(std::size_t offset) const;
  template <typename Visit>
  TVK::SmbiosSurvey Walk(Visit visit) const;

  platform::Firmware* firmware_ = nullptr;  ///< Null: the buffer came with the constructor.
  std::vector<std::uint8_t> buffer_;
  std::size_t end_ = 0;           ///< Offset behind the last byte of the table; 0 until one was loaded.
  int error_ = -1;                ///< What Initialize returned; below 0 until it did.
  std::uint32_t read_error_ = 0;  ///< The machine's, when it gave no table.
  TVK::Log log_;
};
