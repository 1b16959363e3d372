#include "monitors/system/memory_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "testing/smbios_builder.h"

namespace TVK {
namespace {

using testing_support::DeviceSpec;
using testing_support::MemoryArray;
using testing_support::MemoryDevice;
using testing_support::Structure;
using testing_support::Table;

/// Tool and decoder of one table.
struct Decoded {
  explicit Decoded(const Table& table, std::uint64_t usable_kb = 0) : tool(table.Rsmb()), info(tool, usable_kb) {
    EXPECT_EQ(tool.Initialize(), 0);
    EXPECT_EQ(info.GetMemoryInfo(), 0);
  }
  SMBiosTool tool;
  MemoryInfo info;
};

TEST(MemoryInfo, DecodesSizesOfEveryKind) {
  for (const auto& [device, text, total_kb] : {
           std::tuple(DeviceSpec{.size = 512}, L"512MB", 512ull << 10),
           std::tuple(DeviceSpec{.size = 0x7FFE, .extended_size = 9}, L"32766MB", 32766ull << 10),
           std::tuple(DeviceSpec{.size = 0xFFFE}, L"32766KB", 32766ull),
           std::tuple(DeviceSpec{.size = 0x8400}, L"1024KB", 1024ull),
           std::tuple(DeviceSpec{.size = 0x7FFF, .extended_size = 0x80000000 | 131072}, L"131072MB", 131072ull << 10),
           std::tuple(DeviceSpec{.size = 0x7FFF, .length = 0x1C}, L"32767MB", 32767ull << 10),  // Has no extended size.
           std::tuple(DeviceSpec{.size = 0xFFFF}, L"Unknown", 0ull),
       }) {
    const Decoded decoded(Table().Add(MemoryArray()).Add(MemoryDevice(device)));
    ASSERT_EQ(decoded.info.slots().size(), 1u);
    EXPECT_EQ(decoded.info.slots().front().size, text);
    EXPECT_EQ(decoded.info.total_physical_kb(), total_kb);
  }
  EXPECT_TRUE(Decoded(Table().Add(MemoryArray()).Add(MemoryDevice({.length = 0x0D}))).info.slots().empty());
}

// What a device of each published length has, by the versions 2.1, 2.3, 2.6, 2.7 and 3.2 of the standard.
TEST(MemoryInfo, ReadsWhatTheLengthHolds) {
  for (const auto& [length, texts] : {std::pair(0x15, L"BANK 0||DDR4||"),
                                      {0x1B, L"BANK 0|Contoso|DDR4|2667MHz|"},
                                      {0x1C, L"BANK 0|Contoso|DDR4|2667MHz|"},
                                      {0x21, L"BANK 0|Contoso|DDR4|2667MHz|"},
                                      {0x22, L"BANK 0|Contoso|DDR4|2667MHz|2400MHz"},
                                      {0x54, L"BANK 0|Contoso|DDR4|2667MHz|2400MHz"}}) {
    const Decoded decoded(
        Table().Add(MemoryArray({.length = 0x0F})).Add(MemoryDevice({.length = static_cast<std::uint8_t>(length)})));
    const MemorySlot& slot = decoded.info.slots().at(0);
    std::wstring all;
    for (const std::wstring_view text : {slot.bank_label, slot.manufacturer, slot.type, slot.speed, slot.clock_speed})
      all.append(all.empty() ? L"" : L"|").append(text);
    EXPECT_EQ(all, texts) << length;
    EXPECT_EQ(decoded.info.maximum_physical_kb(), 32u << 20);
  }
}

TEST(MemoryInfo, ReadsAnExtendedSpeed) {
  Structure device = MemoryDevice({.speed = 0xFFFF, .clock_speed = 0xFFFF, .length = 0x5C});
  device.Put(0x54, 70000, 4).Put(0x58, 68000, 4);
  const Decoded decoded(Table().Add(MemoryArray()).Add(device));
  EXPECT_EQ(decoded.info.slots().at(0).speed, L"70000MHz");
  EXPECT_EQ(decoded.info.slots().at(0).clock_speed, L"68000MHz");
}

TEST(MemoryInfo, MatchesModulesToTheirArrays) {
  Table table;
  table.Add(MemoryArray({.handle = 1, .use = 5, .error_correction = 3, .capacity_kb = 4096}));  // Flash.
  table.Add(MemoryArray({.handle = 2, .error_correction = 5, .capacity_kb = 3ull << 30}));      // 3 TiB: extended.
  table.Add(MemoryArray({.handle = 3, .error_correction = 6, .capacity_kb = 1u << 20}));
  table.Add(MemoryArray({.handle = 3, .error_correction = 7, .capacity_kb = 1u << 20}));
  table.Add(MemoryDevice({.handle = 0x10, .array = 3}));
  table.Add(MemoryDevice({.handle = 0x11, .array = 9}));
  table.Add(MemoryDevice({.handle = 0x12, .array = 1, .size = 4}));
  table.Add(MemoryDevice({.handle = 0x13, .array = 2, .size = 0x7FFF, .extended_size = 65536}));
  const Decoded decoded(table);
  std::vector<std::tuple<int, int, std::wstring>> slots;
  for (const MemorySlot& slot : decoded.info.slots()) {
    slots.emplace_back(slot.handle, slot.array_handle, slot.error_correction);
  }
  EXPECT_THAT(slots, testing::ElementsAre(std::tuple(0x12, 1, L"None"), std::tuple(0x13, 2, L"Single-bit ECC"),
                                          std::tuple(0x10, 3, L"Multi-bit ECC")));
  EXPECT_EQ(decoded.info.error_correction(), L"Single-bit ECC");
  EXPECT_EQ(decoded.info.total_physical_kb(), (65536ull + 16384) << 10) << "without the flash";
  EXPECT_EQ(decoded.info.maximum_physical_kb(), (3ull << 30) + (1u << 20));
}

TEST(MemoryInfo, TheTotalIsNeverBelowWhatTheSystemSees) {
  constexpr std::uint64_t kUsable = 20ull << 20;
  Table table;
  EXPECT_EQ(Decoded(table, kUsable).info.total_physical_kb(), kUsable);
  table.Add(MemoryArray()).Add(MemoryDevice());
  EXPECT_EQ(Decoded(table, kUsable).info.total_physical_kb(), kUsable) << "more modules than the table shows";
  table.Add(MemoryDevice({.handle = 2}));
  EXPECT_EQ(Decoded(table, kUsable).info.total_physical_kb(), 32ull << 20);
}

// A step for each array that looks at all slots before would take minutes here.
TEST(MemoryInfo, DecodesATableOfArraysInTimeProportionalToItsSize) {
  Table table;
  for (std::uint32_t handle = 0; handle < 60000; ++handle) {
    const auto number = static_cast<std::uint16_t>(handle);
    table.Add(MemoryArray({.handle = number, .length = 0x0F}));
    table.Add(MemoryDevice({.handle = number, .array = number, .length = 0x15}));
  }
  EXPECT_EQ(Decoded(table).info.slots().size(), 60000u);
}

TEST(MemoryInfo, CodesReadAsTheStandardNamesThem) {
  const auto names = [](auto name_of, int codes) {
    std::wstring all;
    std::wstring text;
    for (int code = 0; code < codes; ++code) {
      name_of(static_cast<unsigned char>(code), text);
      all += text + L' ';
    }
    return all;
  };
  EXPECT_EQ(
      names(MemoryInfo::GetMemoryType, 33),
      L"Unknown Other Unknown DRAM EDRAM VRAM SRAM RAM ROM FLASH EEPROM FEPROM EPROM CDRAM 3DRAM SDRAM SGRAM RDRAM "
      L"DDR DDR2 DDR2 FB-DIMM Reserved Reserved Reserved DDR3 FBD2 DDR4 LPDDR LPDDR2 LPDDR3 LPDDR4 Unknown Unknown ");
  EXPECT_EQ(names(MemoryInfo::GetMemoryErrorCorrection, 9),
            L"Unknown Other Unknown None Parity Single-bit ECC Multi-bit ECC CRC Unknown ");
}

}  // namespace

}  // namespace TVK
