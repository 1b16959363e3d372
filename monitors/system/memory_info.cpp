#include "monitors/system/memory_info.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "client/text/decimal_text.h"

namespace {

using TVK::SmbiosFields;

constexpr int kMemoryArray = 16;
constexpr int kMemoryDevice = 17;

// DMTF DSP0134, 7.17 and 7.18. The table of types ends where those who read the records expect it to.
constexpr const wchar_t* kMemoryTypes[] = {
    nullptr,  L"Other", nullptr,   L"DRAM",   L"EDRAM",        L"VRAM",     L"SRAM",     L"RAM",
    L"ROM",   L"FLASH", L"EEPROM", L"FEPROM", L"EPROM",        L"CDRAM",    L"3DRAM",    L"SDRAM",
    L"SGRAM", L"RDRAM", L"DDR",    L"DDR2",   L"DDR2 FB-DIMM", L"Reserved", L"Reserved", L"Reserved",
    L"DDR3",  L"FBD2",  L"DDR4",   L"LPDDR",  L"LPDDR2",       L"LPDDR3",   L"LPDDR4"};
constexpr const wchar_t* kErrorCorrections[] = {nullptr,   L"Other",          nullptr,          L"None",
                                                L"Parity", L"Single-bit ECC", L"Multi-bit ECC", L"CRC"};

template <std::size_t N>
std::wstring_view TextOfCode(const wchar_t* const (&texts)[N], std::optional<std::uint8_t> code) {
  if (!code) return {};
  return *code < N && texts[*code] != nullptr ? texts[*code] : L"Unknown";
}

using Texts = std::pmr::polymorphic_allocator<wchar_t>;

/// A copy in `texts` of `characters`, each made wide.
template <typename Characters>
std::wstring_view Keep(Texts texts, const Characters& characters) {
  wchar_t* const copy = texts.allocate(characters.size());
  std::copy(characters.begin(), characters.end(), copy);
  return {copy, characters.size()};
}

/// `number` and its unit, kept in `texts`.
std::wstring_view WithUnit(Texts texts, std::uint64_t number, std::wstring_view unit) {
  const TVK::DecimalText digits(number);
  std::array<wchar_t, 24> characters;  // 20 digits, and units of at most 4
  const auto end = std::ranges::copy(unit, std::ranges::copy(digits.view(), characters.begin()).out).out;
  return Keep(texts, std::wstring_view(characters.begin(), end));
}

struct ModuleSize {
  std::wstring_view text;
  std::uint64_t kb = 0;  ///< 0 when the table does not tell.
};

/// The size of the module in a memory device; an empty text when the slot is empty.
ModuleSize SizeOf(const SmbiosFields& device, Texts texts) {
  constexpr std::uint16_t kUnknown = 0xFFFF;
  constexpr std::uint16_t kSeeExtended = 0x7FFF;
  constexpr std::uint16_t kInKb = 0x8000;
  const std::uint16_t size = device.Number<std::uint16_t>(0x0C).value_or(0);
  if (size == 0) return {};
  if (size == kUnknown) return {L"Unknown", 0};
  if (size == kSeeExtended) {
    // A table from before version 2.7 has no such field: there the number is a size like any other.
    if (const auto extended = device.Number<std::uint32_t>(0x1C)) {
      const std::uint32_t mb = *extended & 0x7FFFFFFF;  // The highest bit is reserved.
      return {WithUnit(texts, mb, L"MB"), std::uint64_t{mb} << 10};
    }
  }
  if ((size & kInKb) != 0) {
    const std::uint32_t kb = size & ~std::uint32_t{kInKb};
    return {WithUnit(texts, kb, L"KB"), kb};
  }
  return {WithUnit(texts, size, L"MB"), std::uint64_t{size} << 10};
}

/// The speed at `offset`; one that does not fit into 16 bits stands at `extended_offset` (version 3.3).
std::wstring_view SpeedText(const SmbiosFields& device, std::size_t offset, std::size_t extended_offset, Texts texts) {
  const auto speed = device.Number<std::uint16_t>(offset);
  if (!speed) return {};
  const auto extended = device.Number<std::uint32_t>(extended_offset);
  if (*speed == 0xFFFF && extended) return WithUnit(texts, *extended & 0x7FFFFFFF, L"MHz");
  return WithUnit(texts, *speed, L"MHz");
}

std::uint64_t CapacityKb(const SmbiosFields& array) {
  constexpr std::uint32_t kSeeExtended = 0x80000000;
  const std::uint32_t kb = array.Number<std::uint32_t>(0x07).value_or(0);
  return kb == kSeeExtended ? array.Number<std::uint64_t>(0x0F).value_or(0) >> 10 : kb;
}

/// Whether an array is for memory that programs run in: everything but video, flash, non-volatile and cache memory,
/// since some firmware leaves the use open.
bool IsMainMemory(std::uint8_t use) {
  return use < 4 || use > 7;
}
constexpr std::uint8_t kSystemMemory = 3;

}  // namespace

namespace TVK {

std::map<std::wstring, std::wstring> MemorySlot::ItemData() const {
  std::map<std::wstring, std::wstring> data;
  for (const auto& [key, text] : {std::pair(L"MemorySlotBankLabel", bank_label),
                                  {L"MemorySlotManufacturer", manufacturer},
                                  {L"MemorySlotSize", size},
                                  {L"MemoryErrorCorrection", error_correction},
                                  {L"DeviceLocator", device_locator},
                                  {L"MemoryType", type},
                                  {L"MemorySpeed", speed},
                                  {L"MemoryClockSpeed", clock_speed}}) {
    if (!text.empty()) data.emplace(key, text);
  }
  return data;
}

}  // namespace TVK

MemoryInfo::MemoryInfo(const SMBiosTool& tool, std::uint64_t usable_kb) : tool_(tool), usable_kb_(usable_kb) {
  TVK::utility::InitLog(log_, L"MemoryEventMonitor.log", 4);
}

int MemoryInfo::GetMemoryInfo() {
  slots_.clear();
  texts_.release();
  error_correction_.clear();
  error_correction_of_system_memory_ = false;
  total_kb_ = 0;
  maximum_kb_ = 0;

  std::list<_SMBiosBuffer> arrays;
  std::list<_SMBiosBuffer> devices;
  for (const auto& [type, list] : {std::pair(kMemoryArray, &arrays), std::pair(kMemoryDevice, &devices)}) {
    const int error = tool_.GetSMBiosBufferByType(type, *list);
    if (error != 0) {
      log_.e(L"MemoryInfo GetMemoryInfo GetSMBiosBufferByType(%d) return fail! err: %d", type, error);
      return error;
    }
  }
  std::map<std::uint16_t, std::vector<SmbiosFields>> devices_of;  // By the handle of their array.
  for (const _SMBiosBuffer& buffer : devices) {
    const SmbiosFields device(tool_, buffer);
    if (const auto handle = device.Number<std::uint16_t>(0x04)) devices_of[*handle].push_back(device);
  }
  slots_.reserve(devices.size());
  std::set<std::uint16_t> seen;
  for (const _SMBiosBuffer& buffer : arrays) {
    const SmbiosFields array(tool_, buffer);
    if (seen.insert(array.handle()).second) AddArray(array, devices_of[array.handle()]);
  }
  total_kb_ = std::max(total_kb_, usable_kb_);
  return 0;
}

void MemoryInfo::AddArray(const SmbiosFields& array, const std::vector<SmbiosFields>& devices) {
  const std::uint8_t use = array.Number<std::uint8_t>(0x05).value_or(0);
  const std::wstring_view error_correction = TextOfCode(kErrorCorrections, array.Number<std::uint8_t>(0x06));
  const bool is_system_memory = use == kSystemMemory;
  if (error_correction_.empty() || (is_system_memory && !error_correction_of_system_memory_)) {
    error_correction_ = error_correction;
    error_correction_of_system_memory_ = is_system_memory;
  }
  if (IsMainMemory(use)) maximum_kb_ += CapacityKb(array);

  const Texts texts(&texts_);
  for (const SmbiosFields& device : devices) {
    const ModuleSize size = SizeOf(device, texts);
    if (size.text.empty()) continue;
    if (IsMainMemory(use)) total_kb_ += size.kb;
    slots_.push_back({.handle = device.handle(),
                      .array_handle = array.handle(),
                      .bank_label = Keep(texts, device.TextBytes(0x11)),
                      .manufacturer = Keep(texts, device.TextBytes(0x17)),
                      .size = size.text,
                      .error_correction = error_correction,
                      .device_locator = Keep(texts, device.TextBytes(0x10)),
                      .type = TextOfCode(kMemoryTypes, device.Number<std::uint8_t>(0x12)),
                      .speed = SpeedText(device, 0x15, 0x54, texts),
                      .clock_speed = SpeedText(device, 0x20, 0x58, texts)});
  }
}

std::wstring MemoryInfo::AmountText(std::uint64_t kb) {
  return std::to_wstring(kb >> 10) + L"MB";
}

void MemoryInfo::GetMemoryType(unsigned char code, std::wstring& text) {
  text = TextOfCode(kMemoryTypes, code);
}

void MemoryInfo::GetMemoryErrorCorrection(unsigned char code, std::wstring& text) {
  text = TextOfCode(kErrorCorrections, code);
}
