#include "monitors/logs/told_interruptions.h"

#include <gtest/gtest.h>

namespace TVK {
namespace {

TEST(ToldInterruptionsTest, TheyAreOfOnePlaceAndOneChannel) {
  const std::wstring place = L"System\t<a/>";
  ToldInterruptions told({}, place);
  told.Add(L"gap System", 7);
  told.Add(L"gap System", 6);
  told.Add(L"cleared Windows PowerShell", 0);
  const std::wstring text = told.Text();
  using Lost = std::optional<std::uint64_t>;
  struct Row {
    std::wstring kept;
    std::wstring place;
    const wchar_t* what;
    Lost lost;
  };
  const Row rows[] = {
      {text, place, L"gap System", 7},
      {text, place, L"cleared Windows PowerShell", 0},
      {text, place, L"cleared Windows", {}},
      {text, place, L"cleared System", {}},
      {text, L"System\t<b/>", L"gap System", {}},
      {L"Application\t<a/>\n" + text, L"Application\t<a/>", L"gap System", {}},  // the longer one is another place
      {place + L"\ngap System\t7x\n", place, L"gap System", {}},
      {place + L"\ngap System\n", place, L"gap System", {}},
      {{}, {}, L"gap System", {}},
      {L"\ngap System\t3\n", {}, L"gap System", 3},
  };
  for (const Row& row : rows)
    EXPECT_EQ(ToldInterruptions(row.kept, row.place).Lost(row.what), row.lost) << &row - rows;
  EXPECT_EQ(ToldInterruptions(text, place).Text(), text);
}

}  // namespace
}  // namespace TVK
