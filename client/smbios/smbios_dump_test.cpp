#include "client/smbios/smbios_dump.h"

#include <gtest/gtest.h>

#include "client/smbios/smbios_tool.h"
#include "testing/smbios_builder.h"

namespace TVK {
namespace {

using testing_support::Bytes;
using testing_support::MemoryArray;
using testing_support::MemoryDevice;
using testing_support::Table;

const Table& Sample() {
  static const Table table = Table().Add(MemoryArray()).Add(MemoryDevice()).End();
  return table;
}

TEST(SmbiosDump, BringsEveryFormOfATableToOne) {
  const Bytes& table = Sample().bytes();
  const auto size = static_cast<std::uint16_t>(table.size());
  Bytes legacy_entry = Table::EntryPoint32(size, 3);
  legacy_entry.erase(legacy_entry.begin(), legacy_entry.begin() + 0x10);
  Bytes with_rest = Sample().Rsmb();
  with_rest.push_back(0x55);
  struct Case {
    const char* what;
    Bytes file;
    Bytes header;
  };
  const auto low = static_cast<std::uint8_t>(size);
  const Case cases[] = {
      {"32-bit entry point", Sample().Dump(Table::EntryPoint32(size, 3)), {0, 2, 8, 0x28, low, 0, 0, 0}},
      {"64-bit entry point", Sample().Dump64(), {0, 3, 2, 0, low, 0, 0, 0}},
      {"64-bit, a maximum above the size", Sample().Dump(Table::EntryPoint64(9999)), {0, 3, 2, 0, low, 0, 0, 0}},
      {"legacy entry point", Sample().Dump(legacy_entry), {0, 2, 8, 0x28, low, 0, 0, 0}},
      {"RSMB", Sample().Rsmb(), {0, 3, 2, 0, low, 0, 0, 0}},
      {"RSMB with a byte behind it", with_rest, {0, 3, 2, 0, low, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes expected = c.header;
    expected.insert(expected.end(), table.begin(), table.end());
    const SmbiosDump dump = NormaliseSmbiosDump(c.file);
    EXPECT_EQ(dump.problem, "");
    EXPECT_EQ(dump.rsmb, expected);
  }
}

TEST(SmbiosDump, SaysWhyAFileIsNoTable) {
  Bytes bad_checksum = Sample().Dump64();
  bad_checksum[8] = 9;
  Bytes bad_length = Sample().Dump64();
  bad_length[6] = 200;
  Bytes no_legacy_part = Sample().Dump(Table::EntryPoint32(9, 1));
  std::swap(no_legacy_part[0x10], no_legacy_part[0x11]);
  const Bytes entry_alone = Table::EntryPoint64(100);
  struct Case {
    Bytes file;
    const char* problem;
  };
  const Case cases[] = {
      {{}, "the file is empty"},
      {{'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd'}, "neither an SMBIOS dump nor an RSMB table"},
      {{0, 3, 2}, "neither an SMBIOS dump nor an RSMB table"},
      {{0, 3, 2, 0, 0, 0, 0, 0}, "the SMBIOS table holds no whole structure"},
      {{'_', 'S', 'M', '_'}, "the SMBIOS entry point is cut short"},
      {bad_length, "the SMBIOS entry point is cut short"},
      {bad_checksum, "the checksum of the SMBIOS entry point does not match"},
      {no_legacy_part, "the SMBIOS entry point lacks a sound \"_DMI_\" part"},
      {entry_alone, "the SMBIOS table holds no whole structure"},
  };
  for (const Case& c : cases) {
    const SmbiosDump dump = NormaliseSmbiosDump(c.file);
    EXPECT_TRUE(dump.rsmb.empty()) << c.problem;
    EXPECT_EQ(dump.problem, c.problem);
  }
}

TEST(SmbiosDump, KeepsTheSoundBeginOfADamagedTableAndSaysSo) {
  Bytes half = Sample().Rsmb();
  half.resize(half.size() / 2);
  Bytes half_dump = Sample().Dump64();
  half_dump.resize(half_dump.size() / 2 + 8);
  Bytes bent = Sample().Dump64();
  bent[0x20 + MemoryArray().Build().size() + 1] = 2;  // The length byte of the second structure.
  Bytes between = Sample().Dump64();
  between.resize(0x20 + MemoryArray().Build().size());
  Bytes old = Sample().Dump(Table::EntryPoint32(static_cast<std::uint16_t>(Sample().bytes().size()), 3));
  old.resize(between.size());
  const std::string cut = "the SMBIOS table is cut short: ";
  const std::string damaged = "a structure of the SMBIOS table is damaged or cut short";
  for (const auto& [file, problem] : {std::pair(half, cut),
                                      {half_dump, damaged},
                                      {bent, damaged},
                                      {between, "the SMBIOS table has no end; it may be cut short"},
                                      {old, cut}}) {
    const SmbiosDump dump = NormaliseSmbiosDump(file);
    EXPECT_TRUE(dump.problem.starts_with(problem)) << dump.problem;
    SMBiosTool tool(dump.rsmb);
    EXPECT_EQ(tool.Initialize(), problem == cut ? 4 : 0);
    EXPECT_EQ(tool.Survey().structures, 1u);
  }
}

}  // namespace
}  // namespace TVK
