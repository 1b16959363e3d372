#include "client/text/nearest_text.h"

#include <gtest/gtest.h>

namespace TVK {
namespace {

TEST(NearestTextTest, FindsWhatASlipOfTheHandMissed) {
  const std::vector<std::wstring> known = {L"CPUEvent", L"MemoryEvent", L"CPUPeakThreshold", L"id"};
  for (const auto& [text, nearest] : {std::pair(L"CPUPeakTreshold", L"CPUPeakThreshold"),
                                      {L"memoryEvents", L"MemoryEvent"},
                                      {L"CUPEvent", L"CPUEvent"},
                                      {L"ids", L"id"},
                                      {L"di", L"id"},
                                      {L"MmeroyEvent", L"MemoryEvent"},
                                      {L"MmeroyEvetn", L""},
                                      {L"CPU", L""},
                                      {L"Battery", L""},
                                      {L"x", L""},
                                      {L"", L""}})
    EXPECT_EQ(NearestText(text, known).value_or(L""), nearest);
  EXPECT_FALSE(NearestText(std::wstring(65, L'x'), {std::wstring(65, L'x')})) << "to compare takes time";
  EXPECT_EQ(DidYouMean(L"ids", known), L"; did you mean \"id\"?");
}

}  // namespace
}  // namespace TVK
