#include "client/smbios/smbios_tool.h"

#include <gtest/gtest.h>

#include "testing/log_capture.h"
#include "testing/smbios_builder.h"

namespace {

using testing_support::Bytes;
using testing_support::Structure;
using testing_support::Table;

std::list<_SMBiosBuffer> Find(const SMBiosTool& tool, int type) {
  std::list<_SMBiosBuffer> found;
  EXPECT_EQ(tool.GetSMBiosBufferByType(type, found), 0);
  return found;
}

TEST(SMBiosTool, FindsStructuresOfATypeInTheOrderOfTheTable) {
  Table table;
  table.Add(Structure(1, 8, 1).Text(4, "Contoso").Text(5, "Notebook"));
  table.Add(Structure(9, 6, 2)).Add(Structure(1, 4, 3)).End();
  SMBiosTool tool(table.Rsmb());
  ASSERT_EQ(tool.Initialize(), 0);
  EXPECT_EQ(tool.Initialize(), 0) << "a second call keeps the table";
  EXPECT_EQ(tool.GetVersion(), L"3.2");

  const auto found = Find(tool, 1);
  ASSERT_EQ(found.size(), 2u);
  const _SMBiosBuffer first = found.front();
  EXPECT_EQ(first.length, 8u + 8 + 9 + 1);
  EXPECT_EQ(tool.GetLengthOfStructure(first.data), static_cast<int>(first.length));
  EXPECT_EQ(tool.GetString(1, first.data, first.length), L"Contoso");
  EXPECT_EQ(tool.GetString(2, first.data, first.length), L"Notebook");
  EXPECT_EQ(tool.GetString(2, first.data, 8 + 8 + 4), L"") << "a length that ends within the string";
  EXPECT_EQ(tool.GetString(3, first.data, first.length), L"") << "must not run into the next structure";
  EXPECT_EQ(tool.GetString(0, first.data, first.length), L"");

  EXPECT_EQ(found.back().data[2], 3);
  EXPECT_EQ(found.back().length, 4u + 2) << "no strings: the formatted part and two zero bytes";
  EXPECT_EQ(tool.GetString(1, found.back().data, found.back().length), L"");
}

TEST(SMBiosTool, TellsTheVersionThatFirmwareMeant) {
  for (const auto& [minor, version] : {std::pair(1, L"2.1"), {31, L"2.3"}, {33, L"2.3"}, {51, L"2.6"}, {8, L"2.8"}}) {
    SMBiosTool tool({0, 2, static_cast<std::uint8_t>(minor), 0, 0, 0, 0, 0});
    ASSERT_EQ(tool.Initialize(), 0);
    EXPECT_EQ(tool.GetVersion(), version);
  }
}

TEST(SMBiosTool, PointersThatAreNotIntoTheTableGiveNothing) {
  SMBiosTool tool(Table().End().Rsmb());
  const Bytes elsewhere = Structure(1, 5, 1).Text(4, "secret").Build();
  for (int round = 0; round < 2; ++round) {  // Before and after loading.
    EXPECT_EQ(tool.GetLengthOfStructure(nullptr), 0);
    EXPECT_EQ(tool.GetLengthOfStructure(elsewhere.data()), 0);
    EXPECT_EQ(tool.GetString(1, nullptr, 100), L"");
    EXPECT_EQ(tool.GetString(1, elsewhere.data(), 100), L"");
    ASSERT_EQ(tool.Initialize(), 0);
  }
}

TEST(SMBiosTool, ReportsTablesThatAreNoneOrDisagreeWithTheirHeader) {
  const Bytes whole = Table().Add(Structure(1, 4, 1)).Add(Structure(2, 4, 2)).Rsmb();
  Bytes longer = whole;
  longer.insert(longer.end(), {3, 4, 0, 0, 0, 0});
  const Bytes shorter(whole.begin(), whole.end() - 1);
  struct Case {
    const char* what;
    Bytes rsmb;
    int error;
    int lookup;
    std::size_t structures;
    bool damaged;
  };
  const Case cases[] = {
      {"no table", {}, 2, 5, 0, false},
      {"shorter than the header", {0, 3, 2}, 4, 5, 0, false},
      {"a header alone", {0, 3, 2, 0, 0, 0, 0, 0}, 0, 0, 0, false},
      {"bytes behind the table", longer, 4, 0, 2, false},
      {"cut short", shorter, 4, 0, 1, true},
      {"a length near the end of 32 bits", {0, 3, 2, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1, 4, 0, 0, 0, 0}, 4, 0, 1, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const LogCapture log;
    SMBiosTool tool(c.rsmb);
    std::list<_SMBiosBuffer> found(1);
    EXPECT_EQ(tool.GetSMBiosBufferByType(1, found), 5) << "before Initialize";
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(tool.Initialize(), c.error);
    const std::wstring line = L"SMBiosTool Initialize GetSMBiosBuffer() return fail! err: " + std::to_wstring(c.error);
    EXPECT_EQ(log.Has(line), c.error != 0);
    EXPECT_TRUE(log.Has(L"; " + std::to_wstring(c.structures) + L" structures can be read"));
    EXPECT_EQ(tool.GetSMBiosBufferByType(1, found), c.lookup);
    EXPECT_EQ(tool.Survey().structures, c.structures);
    EXPECT_EQ(tool.Survey().damaged, c.damaged);
  }
}

TEST(SMBiosTool, StopsBeforeAStructureThatIsNotWhole) {
  const Bytes good = Structure(1, 4, 1).Build();
  struct Case {
    const char* what;
    Bytes tail;
    bool damaged;
  };
  const Case cases[] = {
      {"length byte 0", {1, 0, 0, 0, 0, 0, 1, 4, 0, 0, 0, 0}, true},
      {"length byte 3", {1, 3, 0, 0, 0, 0, 0, 0}, true},
      {"less than a structure's head", {1, 4, 0}, true},
      {"formatted part past the end", {1, 200, 0, 0, 0, 0}, true},
      {"no string set at all", {1, 4, 0, 0}, true},
      {"string set with one zero byte", {1, 5, 0, 0, 1, 'a', 'b', 0}, true},
      {"string set without a zero byte", {1, 5, 0, 0, 1, 'a', 'b'}, true},
      {"padding behind the end of the table", {127, 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    SMBiosTool tool(Table().AddBytes(good).AddBytes(c.tail).Rsmb());
    ASSERT_EQ(tool.Initialize(), 0);
    const auto found = Find(tool, 1);
    EXPECT_EQ(found.size(), 1u);
    EXPECT_EQ(tool.Survey().damaged, c.damaged);
    if (c.damaged) {
      EXPECT_EQ(tool.GetLengthOfStructure(found.front().data + good.size()), 0);
    }
  }
}

}  // namespace
