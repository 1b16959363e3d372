#include "client/identity/country_code_agent.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_system.h"

TEST(CountryCodeAgentTest, KnowsTheCountriesByCodeAndByTheSystemsNumber) {
  platform::SimulatedRegion region;
  region.Change([](auto& state) { state.country_of_nation = {{"94", "DE"}, {"39070", "XX"}, {"1", ""}}; });
  const CountryCodeAgent agent(region);
  struct Row {
    const wchar_t *nation, *country;
  };
  for (const Row& row : {Row{L"DE", L"DE"}, Row{L"94", L"DE"}, Row{L"39070", L""}, Row{L"1", L""}, Row{L"95", L""},
                         Row{L"", L""}, Row{L"de", L""}, Row{L"DEU", L""}, Row{L"\u00c4", L""}}) {
    EXPECT_EQ(agent.ValidateCountryCodeKey(row.nation), row.country) << testing::PrintToString(row.nation);
  }
}

TEST(CountryCodeAgentTest, KnowsWhichLocalesCanBe) {
  platform::SimulatedRegion region;
  const CountryCodeAgent agent(region);
  for (const wchar_t* name : {L"de", L"de-DE", L"gsw-CH", L"zh-Hans-CN", L"sr-Latn-RS", L"es-419", L"ca-ES-valencia",
                              L"de-DE_phoneb", L"en-US-u-nu-latn"}) {
    EXPECT_TRUE(agent.ValidateLocaleNameKey(name)) << testing::PrintToString(name);
  }
  for (const wchar_t* name : {L"", L"-", L"d", L"xx-DE", L"de-", L"de--DE", L"de-YY", L"DE-DE", L"de-Latn-YY", L"de DE",
                              L"de-toolongpart", L"x-klingon", L"de-D\u00c4", L"_phoneb"}) {
    EXPECT_FALSE(agent.ValidateLocaleNameKey(name)) << testing::PrintToString(name);
  }
}
