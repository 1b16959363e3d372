// The installed memory, from the SMBIOS structures "physical memory array" (type 16) and "memory device" (type 17).
#pragma once

#include <cstdint>
#include <map>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "client/log/log.h"
#include "client/smbios/smbios_fields.h"
#include "client/smbios/smbios_tool.h"

namespace TVK {

/// One slot that holds a module. A text is empty where the table does not have the field: firmware of an older standard
/// writes shorter structures. The texts are valid until the MemoryInfo decodes anew or ends.
struct MemorySlot {
  std::uint16_t handle = 0;        ///< Of the memory device.
  std::uint16_t array_handle = 0;  ///< Of the array that it belongs to.
  std::wstring_view bank_label;
  std::wstring_view manufacturer;
  std::wstring_view size;              ///< "16384MB", "512KB" or "Unknown".
  std::wstring_view error_correction;  ///< Of its array.
  std::wstring_view device_locator;
  std::wstring_view type;         ///< "DDR4".
  std::wstring_view speed;        ///< "2667MHz": the most that the module can do.
  std::wstring_view clock_speed;  ///< "2400MHz": what it is set to.

  /// The texts that are not empty under the keys of a dataset context ("MemorySlotSize", ...).
  std::map<std::wstring, std::wstring> ItemData() const;
};

}  // namespace TVK

/// Decodes the table of an SMBiosTool. For one thread at a time.
class MemoryInfo {
 public:
  /// `tool` must outlive the object. `usable_kb` is the memory that the operating system sees (MemoryStatus), in KB,
  /// below which no total goes: a damaged table shows only some of the modules. 0: not known.
  explicit MemoryInfo(const SMBiosTool& tool, std::uint64_t usable_kb = 0);

  /// Decodes anew. Returns 0; or, with a line in the log, the error of SMBiosTool::GetSMBiosBufferByType, everything
  /// then being empty. A module belongs to the array whose handle it names, and is left out when no array has it. Of
  /// several arrays with one handle the first counts.
  int GetMemoryInfo();

  /// The populated slots: array by array as the table orders them, and within each in the table's order.
  const std::vector<TVK::MemorySlot>& slots() const { return slots_; }

  /// Of the first array of system memory, or of the first array when none says that it is that. Empty without an array.
  const std::wstring& error_correction() const { return error_correction_; }

  /// KB. The sum of the modules, or the memory that the system sees, if that is more. Modules of arrays for video,
  /// flash, non-volatile or cache memory are not counted. 0: unknown.
  std::uint64_t total_physical_kb() const { return total_kb_; }

  /// KB. The sum over the arrays, of the same kinds; 0 when unknown.
  std::uint64_t maximum_physical_kb() const { return maximum_kb_; }

  /// An amount in KB as records carry it, "16384MB".
  static std::wstring AmountText(std::uint64_t kb);

  /// The texts of a memory type (offset 0x12 of a memory device) and of an error correction type (offset 6 of an
  /// array).
  static void GetMemoryType(unsigned char code, std::wstring& text);
  static void GetMemoryErrorCorrection(unsigned char code, std::wstring& text);

 private:
  void AddArray(const TVK::SmbiosFields& array, const std::vector<TVK::SmbiosFields>& devices);

  const SMBiosTool& tool_;
  const std::uint64_t usable_kb_;
  /// Holds the texts of slots_. A heap block for each of them would more than double the time of decoding.
  std::pmr::monotonic_buffer_resource texts_;
  std::vector<TVK::MemorySlot> slots_;
  std::wstring error_correction_;
  bool error_correction_of_system_memory_ = false;
  std::uint64_t total_kb_ = 0;
  std::uint64_t maximum_kb_ = 0;
  TVK::Log log_;
};
