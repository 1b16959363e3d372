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

// Of a table that has the least of it.
SmbiosIdentity ShortSystem() {
  SmbiosIdentity identity;
  identity.smbios_version = L"3.2";
  identity.bios_vendor = identity.manufacturer = L"Contoso";
  identity.product_name = L"Notebook 14";
  identity.product_version = L"1.0";
  identity.serial_hash = HashUtility::Hash(L"SN-SECRET", L"tvk/systembios");
  return identity;
}

TEST(SmbiosIdentity, DecodesFirmwareSystemBoardAndChassis) {
  Table table;
  Structure bios(0, 0x1A, 0);
  bios.Text(4, "Contoso").Text(5, "N1CET50W (1.20 )").Text(8, "03/04/2025");
  bios.Put(0x14, 1, 1).Put(0x15, 20, 1).Put(0x16, 1, 1).Put(0x17, 9, 1);
  table.Add(bios).Add(System(0x1B)).Add(Structure(2, 8, 2).Text(4, "Litware").Text(5, "Board").Text(6, "A1"));
  table.Add(Structure(3, 9, 3).Text(4, "Contoso").Put(5, 0x80 | 10, 1));  // with the lock bit
  SmbiosIdentity expected = ShortSystem();
  expected.bios_version = L"N1CET50W (1.20 )";
  expected.bios_date = L"03/04/2025";
  expected.bios_release = L"1.20";
  expected.ec_release = L"1.9";
  expected.product_sku = L"NB14";
  expected.product_family = L"Notebook";
  expected.uuid_hash = HashUtility::Hash(L"55667788-3344-1122-00ff-eeddccbbaa99", L"tvk/systembios");
  expected.board_manufacturer = L"Litware";
  expected.board_product = L"Board";
  expected.board_version = L"A1";
  expected.chassis_type = 10;
  EXPECT_EQ(Read(table), expected);
}

TEST(SmbiosIdentity, WhatFirmwareLeavesOutOrOpenStaysEmpty) {
  EXPECT_EQ(Read(Table()), SmbiosIdentity());
  Table table;
  table.Add(Structure(0, 0x12, 0).Text(4, "Contoso")).Add(System(8)).Add(Structure(3, 5, 3)).AddBytes({9, 9, 9, 9});
  EXPECT_EQ(Read(table), ShortSystem());

  Structure bios(0, 0x18, 0);
  bios.Put(0x14, 0xFF, 1).Put(0x15, 3, 1).Put(0x16, 0xFF, 1).Put(0x17, 0xFF, 1);
  Structure system(1, 0x19, 1);
  system.Put(8, UINT64_MAX, 8).Put(16, UINT64_MAX, 8);
  const SmbiosIdentity open = Read(Table().Add(bios).Add(system));
  EXPECT_EQ(open.bios_release + open.ec_release + open.uuid_hash, L"");
}

}  // namespace
}  // namespace TVK
