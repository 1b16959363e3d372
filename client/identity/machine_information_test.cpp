#include "client/identity/machine_information.h"

#include <gtest/gtest.h>

#include "client/identity/iso_tables.h"
#include "client/identity/machine_device_id_agent.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/simulated_system.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/smbios_builder.h"

namespace TVK {
using platform::SimulatedMachine;
using platform::VirtualRuntime;

namespace {

std::vector<std::uint8_t> TableWithUuid() {
  using testing_support::Structure;
  return testing_support::Table().Add(Structure(1, 27, 1).Put(8, 0x0807060504030201, 8)).End().Rsmb();
}

}  // namespace

TEST(RegionInformationTest, TakesCountryAndLanguageFromNationAndLocale) {
  struct Row {
    const char *nation, *locale;
    const wchar_t* facts;
  };
  VirtualRuntime runtime;
  platform::SimulatedRegion machine_region;
  machine_region.Change([](auto& state) { state.country_of_nation = {{"94", "DE"}, {"39070", "XX"}}; });
  const RegionInformation region(machine_region, runtime.clock());
  for (const Row& row : {
           Row{"DE", "de-DE", L"DE Germany, de German"},
           Row{"39070", "de-AT", L"AT Austria, de German"},
           Row{"", "zh-Hans-CN", L"CN China, zh Chinese"},
           Row{"CH", "gsw", L"CH Switzerland, gsw Swiss German; Alemannic; Alsatian"},
           Row{"", "", L" ,  "},
           Row{"", "xx-YY", L"YY , xx "},
       }) {
    const RegionInformation::Facts facts = region.Describe({row.nation, row.locale, ""});
    EXPECT_EQ(facts.country_code + L' ' + facts.country_name + L", " + facts.language_code + L' ' + facts.language_name,
              row.facts);
  }
}

TEST(IsoTablesTest, AreCompleteAndSortedSoThatLookUpFinds) {
  for (const auto table : {IsoCountries(), IsoLanguages()}) {
    ASSERT_GT(table.size(), 200u);
    for (const IsoEntry& entry : table)
      EXPECT_EQ(FindIsoEntry(table, entry.code), &entry) << entry.code;
  }
  EXPECT_EQ(FindIsoEntry(IsoCountries(), "de"), nullptr);
}

TEST(MachineInformationTest, KeepsFactsUntilReInitialize) {
  VirtualRuntime runtime;
  SimulatedMachine machine;
  MachineInformation information(machine, runtime.clock());
  machine.firmware().Change([](auto& state) { state.facts.product_family = "Notebook X1 Gen 2"; });
  EXPECT_EQ(information.device_brand(), L"Notebook");
  EXPECT_EQ(information.device_subbrand(), L"X1 Gen 2");
  machine.system().Change([](auto& state) { state.facts.version = "2.0"; });
  EXPECT_EQ(information.os_version(), L"1.0");
  information.ReInitialize(true);
  EXPECT_EQ(information.os_version(), L"2.0");
}

TEST(MachineInformationTest, AReleaseThatIsNotToldIsUnknownWhicheverSourceItComesFrom) {
  struct Row {
    const char* release;
    const wchar_t* told;
  };
  VirtualRuntime runtime;
  SimulatedMachine machine;
  MachineInformation information(machine, runtime.clock());
  for (const Row& row : {Row{"1.25", L"1.25"}, Row{"255.0", L""}, Row{"0.255", L""}, Row{"255.255", L""}}) {
    machine.firmware().Change([&](auto& state) { state.facts.ec_release = state.facts.bios_release = row.release; });
    information.ReInitialize(true);
    EXPECT_EQ(information.device_ec_version(), row.told);
    EXPECT_EQ(information.device_bios_version_short(), row.told);
  }
}

TEST(MachineDeviceIdAgentTest, IdsAreStableAndTellNothing) {
  SimulatedMachine machine;
  machine.firmware().SetSmbios(TableWithUuid());
  MachineDeviceIdAgent agent(machine.system(), machine.firmware());
  std::wstring id, again, legacy;
  ASSERT_EQ(agent.GetDeviceID(id), 0u);
  ASSERT_EQ(agent.GetDeviceID(again), 0u);
  ASSERT_EQ(agent.GetLegacyDeviceID(legacy), 0u);
  EXPECT_EQ(id, again);
  EXPECT_NE(id, legacy);
  EXPECT_EQ(id.size(), 36u);
  EXPECT_EQ(id.find(L"00112233"), std::wstring::npos);

  machine.firmware().Change([](auto& state) { state.smbios.push_back(0); });
  ASSERT_EQ(agent.GetLegacyDeviceID(again), 0u) << "of a table whose length is not what its header says";
  EXPECT_EQ(again, legacy);

  machine.system().Change([](auto& state) { state.installation_id.clear(); });
  machine.firmware().SetSmbios({});
  std::wstring untouched = L"before";
  EXPECT_NE(agent.GetDeviceID(untouched), 0u);
  EXPECT_NE(agent.GetLegacyDeviceID(untouched), 0u);
  EXPECT_EQ(untouched, L"before");
}

}  // namespace TVK
