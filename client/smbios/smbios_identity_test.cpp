#include "client/smbios/smbios_identity.h"

#include <gtest/gtest.h>

#include "client/text/hash_utility.h"
#include "testing/smbios_builder.h"

namespace TVK {
namespace {

using testing_support::Structure;
using testing_support::Table;

SmbiosIdentity Read(const Table& table) {
  SMBiosTool tool(table.Rsmb());
  EXPECT_EQ(tool.Initialize(), 0);
  return ReadSmbiosIdentity(tool);
}

Structure System(std::uint8_t length) {
  Structure system(1, length, 1);
  system.Text(4, " Contoso ").Text(5, "Notebook 14").Text(6, "1.0").Text(7, "SN-SECRET").Text(0x19, "NB14");
  return system.Text(0x1A, "Notebook").Put(8, 0x1122334455667788, 8).Put(16, 0x99AABBCCDDEEFF00, 8);
}

TEST(SmbiosIdentity, DecodesFirmwareSystemBoardAndChassis) {
  Table table;
  Structure bios(0, 0x1A, 0);
  bios.Text(4, "Contoso").Text(5, "N1CET50W (1.20 )").Text(8, "03/04/2025");
  bios.Put(0x14, 1, 1).Put(0x15, 20, 1).Put(0x16, 1, 1).Put(0x17, 9, 1);
  table.Add(bios).Add(System(0x1B)).Add(Structure(2, 8, 2).Text(4, "Contoso").Text(5, "Board").Text(6, "A1"));
  table.Add(Structure(3, 9, 3).Text(4, "Contoso").Put(5, 0x80 | 10, 1));
  const SmbiosIdentity identity = Read(table);
  EXPECT_EQ(identity.smbios_version, L"3.2");
  EXPECT_EQ(identity.bios_vendor, L"Contoso");
  EXPECT_EQ(identity.bios_version, L"N1CET50W (1.20 )");
  EXPECT_EQ(identity.bios_date, L"03/04/2025");
  EXPECT_EQ(identity.bios_release, L"1.20");
  EXPECT_EQ(identity.ec_release, L"1.9");
  EXPECT_EQ(identity.manufacturer, L"Contoso");
  EXPECT_EQ(identity.product_name, L"Notebook 14");
  EXPECT_EQ(identity.product_sku, L"NB14");
  EXPECT_EQ(identity.product_family, L"Notebook");
  EXPECT_EQ(identity.serial_hash, HashUtility::Hash(L"SN-SECRET", L"tvk/systembios"));
  EXPECT_EQ(identity.uuid_hash, HashUtility::Hash(L"55667788-3344-1122-00ff-eeddccbbaa99", L"tvk/systembios"));
  EXPECT_EQ(identity.board_product, L"Board");
  EXPECT_EQ(identity.board_version, L"A1");
  EXPECT_EQ(identity.chassis_type, 10) << "without the lock bit";
}

TEST(SmbiosIdentity, WhatFirmwareLeavesOutOrOpenStaysEmpty) {
  EXPECT_EQ(Read(Table()), SmbiosIdentity());
  Table table;
  table.Add(Structure(0, 0x12, 0).Text(4, "Contoso")).Add(System(8)).Add(Structure(3, 5, 3)).AddBytes({9, 9, 9, 9});
  SmbiosIdentity expected;
  expected.smbios_version = L"3.2";
  expected.bios_vendor = expected.manufacturer = L"Contoso";
  expected.product_name = L"Notebook 14";
  expected.product_version = L"1.0";
  expected.serial_hash = HashUtility::Hash(L"SN-SECRET", L"tvk/systembios");
  EXPECT_EQ(Read(table), expected);

  Structure bios(0, 0x18, 0);
  bios.Put(0x14, 0xFF, 1).Put(0x15, 3, 1).Put(0x16, 0xFF, 1).Put(0x17, 0xFF, 1);
  Structure system(1, 0x19, 1);
  system.Put(8, UINT64_MAX, 8).Put(16, UINT64_MAX, 8);
  const SmbiosIdentity open = Read(Table().Add(bios).Add(system));
  EXPECT_EQ(open.bios_release + open.ec_release + open.uuid_hash, L"");
}

}  // namespace
}  // namespace TVK
