#include "client/policy/eligibility_filter.h"

#include <gtest/gtest.h>

namespace {

TEST(EligibilityFilterTest, TextsMatchWithWildcardsAndWithoutCase) {
  struct Row {
    const wchar_t* model;
    std::vector<std::wstring> patterns;
    bool applicable;
  };
  for (const Row& row : {
           Row{L"Book 14", {}, true},
           Row{L"Book 14", {L"book 14"}, true},
           Row{L"Book 14", {L"Book"}, false},
           Row{L"Book 14", {L"Tower", L"B*4"}, true},
           Row{L"Book 14", {L"*ook*1*"}, true},
           Row{L"Book 14", {L"Book ??"}, true},
           Row{L"Book 14", {L"*?Book 14"}, false},
           Row{L"aaaaaaaaaaaaaaaaaaaaaaaaaaab", {L"*a*a*a*a*a*a*a*c"}, false},
           Row{L"B\u00e4r", {L"B?r"}, true},
           Row{L"\u00e4", {L"*??"}, false},
           Row{L"\U0001F4BB", {L"?"}, true},
           Row{L"", {L"*"}, false},
       }) {
    SCOPED_TRACE(row.patterns.empty() ? std::wstring(row.model) : std::wstring(row.model) + L" / " + row.patterns[0]);
    EXPECT_EQ(EligibilityFilter({row.model, L"", L"", L"", L""}).IsApplicable({row.patterns, {}, {}, {}, {}, {}}),
              row.applicable);
  }
}

TEST(EligibilityFilterTest, VersionsAreComparedPartByPart) {
  struct Row {
    const wchar_t* version;
    const wchar_t* least;
    const wchar_t* most;
    bool applicable;
  };
  for (const Row& row : {
           Row{L"10.0.19045", L"10.0.9999", L"", true},
           Row{L"10.0.19045", L"10.0.19046", L"", false},
           Row{L"10.0.19045", L"", L"10.0.19045", true},
           Row{L"10.0.19045", L"", L"10", false},
           Row{L"10", L"10.0.0", L"10.0", true},
           Row{L"9", L"10", L"", false},
           Row{L"9", L"9", L"9", true},
           Row{L"0.9", L"0", L"1", true},
           Row{L"22.04.3 LTS", L"22.4", L"22.04.3", true},
           Row{L"1.99999999999999999999999", L"1.99999999999999999999998", L"", true},
           Row{L"", L"0", L"", false},
           Row{L"rolling", L"", L"99", false},
       }) {
    SCOPED_TRACE(std::wstring(row.version) + L" in " + row.least + L".." + row.most);
    EXPECT_EQ(EligibilityFilter({L"", L"", L"", L"", row.version}).IsApplicable({{}, {}, {}, {}, row.least, row.most}),
              row.applicable);
  }
}

TEST(EligibilityFilterTest, EveryConditionMustHold) {
  const EligibilityFilter device({L"M", L"F", L"B", L"Linux", L"6"});
  const ApplicabilityFilter all{{L"M"}, {L"F"}, {L"B"}, {L"Linux"}, L"6", L"6"};
  EXPECT_TRUE(device.IsApplicable(all));
  for (auto list : {&ApplicabilityFilter::models, &ApplicabilityFilter::manufacturers, &ApplicabilityFilter::brands,
                    &ApplicabilityFilter::os_names}) {
    ApplicabilityFilter one = all;
    one.*list = {L"other"};
    EXPECT_FALSE(device.IsApplicable(one));
  }
}

}  // namespace
