#include "monitors/logs/windows_logs_helper.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>

namespace TVK {
namespace {

constexpr unsigned long long kWindow = 3'600'000;
constexpr wchar_t kTime[] = L"TimeCreated[timediff(@SystemTime) &lt;= 3600000]";

std::wstring Select(const std::wstring& channel, const std::wstring& conditions) {
  return L"<Select Path='" + channel + L"'>*[System[" + conditions + L"]]</Select>";
}
std::wstring Suppress(const std::wstring& channel, const std::wstring& conditions) {
  return L"<Suppress Path='" + channel + L"'>*[System[" + conditions + L"]]</Suppress>";
}
std::wstring List(const std::wstring& elements) {
  return L"<QueryList><Query>" + elements + L"</Query></QueryList>";
}
std::wstring Query(const std::wstring& channels, const std::wstring& ids, const std::wstring& levels) {
  std::wstring query = L"from before";
  const bool made = WindowsLogsHelper::generateQuery(channels, ids, levels, kWindow, query);
  EXPECT_EQ(made, !query.empty());
  return query;
}

TEST(WindowsLogsHelperTest, AQueryHasTheConditionsThatAreAskedFor) {
  const std::wstring all =
      L"(EventID=1 or (EventID &gt;= 5 and EventID &lt;= 9)) and (Level=2 or Level=4 or Level=0) "
      L"and " +
      std::wstring(kTime);
  EXPECT_EQ(Query(L"1001", L"1, 5-9,-7", L"00001010"),
            List(Select(L"Application", all) + Suppress(L"Application", L"(EventID=7)") + Select(L"System", all) +
                 Suppress(L"System", L"(EventID=7)")));
  struct Case {
    const wchar_t* channels;
    const wchar_t* ids;
    const wchar_t* levels;
    std::wstring elements;
  };
  const std::wstring time = std::wstring(L" and ") + kTime;
  for (const Case& one :
       {Case{L"0001", L"", L"00000000", Select(L"Application", kTime)},
        Case{L"0001", L"  ", L"11100000", Select(L"Application", kTime)},
        Case{L"0100", L"", L"00001000", Select(L"Setup", L"(Level=4 or Level=0)" + time)},
        Case{L"0010", L"-3 - 4,-9", L"00010101",
             Select(L"Security", L"(Level=1 or Level=3 or Level=5)" + time) +
                 Suppress(L"Security", L"((EventID &gt;= 3 and EventID &lt;= 4) or EventID=9)")},
        Case{L"0001", L"1 - 5", L"00000000", Select(L"Application", L"((EventID &gt;= 1 and EventID &lt;= 5))" + time)},
        Case{L"0001", L"007,65535,5-5", L"00000000",
             Select(L"Application",
                    L"(EventID=007 or EventID=65535 or (EventID &gt;= 5 and EventID &lt;= 5))" + time)}}) {
    EXPECT_EQ(Query(one.channels, one.ids, one.levels), List(one.elements)) << one.ids;
  }
  std::wstring query;
  EXPECT_TRUE(WindowsLogsHelper::generateQuery(L"0001", L"", L"00000000", ~0ull, query));
  EXPECT_NE(query.find(L"&lt;= 18446744073709551615]"), query.npos);
}

TEST(WindowsLogsHelperTest, WhatCannotBeSelectedGivesNoQuery) {
  struct Case {
    std::wstring channels;
    std::wstring ids;
    std::wstring levels;
    const wchar_t* fault;
  };
  const std::wstring none = L"00000000";
  const std::wstring no_list = L"the list of event ids does not match " + WindowsLogsHelper::eventIdsRegex;
  for (const Case& one : {Case{L"0000", L"1", none, L"no channel is chosen"},
                          Case{L"001", L"1", none, L"the channels are no four zeros and ones"},
                          Case{L"00001", L"1", none, L"the channels are no four zeros and ones"},
                          Case{L"0002", L"1", none, L"the channels are no four zeros and ones"},
                          Case{L"0001", L"1", L"0000000", L"the levels are no eight zeros and ones"},
                          Case{L"0001", L"1", L"000000001", L"the levels are no eight zeros and ones"},
                          Case{L"0001", L"-", none, no_list.c_str()}, Case{L"0001", L"1,,2", none, no_list.c_str()},
                          Case{L"0001", L"1,", none, no_list.c_str()}, Case{L"0001", L"1-", none, no_list.c_str()},
                          Case{L"0001", L"--1", none, no_list.c_str()}, Case{L"0001", L"1-2-3", none, no_list.c_str()},
                          Case{L"0001", L"1\t", none, no_list.c_str()}, Case{L"0001", L"1'or'1", none, no_list.c_str()},
                          Case{L"0001", L"65536", none, L"an event id is above 65535"},
                          Case{L"0001", L"-1-99999999999999999999", none, L"an event id is above 65535"},
                          Case{L"0001", L"1,9-8", none, L"the range 9-8 ends before it begins"},
                          Case{L"0001", std::wstring(65537, L'1'), none, L"the list of event ids is too long"}}) {
    EXPECT_EQ(Query(one.channels, one.ids, one.levels), L"") << one.ids.substr(0, 20);
    EventLogSelection selection;
    std::wstring fault;
    EXPECT_FALSE(WindowsLogsHelper::ReadSelection(one.channels, one.ids, one.levels, selection, fault));
    EXPECT_EQ(fault, one.fault);
  }
}

TEST(WindowsLogsHelperTest, ALongListIsSpreadOverSeveralElements) {
  std::wstring ids;
  for (int id = 100; id < 150; ++id)
    ids += std::to_wstring(id) + L",-" + std::to_wstring(id + 100) + L"-" + std::to_wstring(id + 101) + L",";
  ids.pop_back();
  const std::wstring query = Query(L"0001", ids, L"00011111");
  // Six levels and the time leave room for 13 of 50 ids; 50 ranges are a hundred conditions, of which 20 go in one.
  const auto count = [&](const std::wregex& what) {
    return std::distance(std::wsregex_iterator(query.begin(), query.end(), what), std::wsregex_iterator());
  };
  EXPECT_EQ(count(std::wregex(L"<Select ")), 4);
  EXPECT_EQ(count(std::wregex(L"<Suppress ")), 5);
  EXPECT_EQ(count(std::wregex(L"timediff")), 4);
  EXPECT_EQ(count(std::wregex(L"EventID=")), 50);
  EXPECT_LT(query.find(L"EventID=112)"), query.find(L"(EventID=113")) << "in their order, thirteen in the first";
  EXPECT_EQ(Query(L"0001", L"1-2,3-4,5-6,7-8,9-10,11-12,13-14,15-16,17-18,19", L"00000000").find(L"</Select><Select"),
            query.npos)
      << "twenty with the time";
  EXPECT_EQ(Query(L"0001", L"1-2,3-4,5-6,7-8,9-10,11-12,13-14,15-16,17", L"00001000").find(L"</Select><Select"),
            query.npos)
      << "twenty with the time and what stands for a level";
  EXPECT_NE(Query(L"0001", L"1-2,3-4,5-6,7-8,9-10,11-12,13-14,15-16,17,18", L"00001000").find(L"</Select><Select"),
            query.npos);
}

TEST(WindowsLogsHelperTest, ListsAreThoseOfTheExpression) {
  const std::wregex expression(WindowsLogsHelper::eventIdsRegex);
  std::mt19937 random(1);  // NOLINT(cert-msc*): the same lists each time
  int lists = 0;
  for (int i = 0; i < 20'000; ++i) {
    std::wstring text;
    for (unsigned length = random() % 8; length > 0; --length)
      text += L"012-,"[random() % 5];
    const bool is_list = std::regex_match(text, expression);
    lists += is_list;
    ASSERT_EQ(WindowsLogsHelper::validateEventIds(text), is_list) << testing::PrintToString(text);
  }
  EXPECT_GT(lists, 1000);
  EXPECT_TRUE(WindowsLogsHelper::validateEventIds(std::wstring(65536, L'0')));
}

TEST(WindowsLogsHelperTest, LevelsHaveNames) {
  const wchar_t* const kNames[] = {L"",        L"Information", L"Critical", L"Error",
                                   L"Warning", L"Information", L"Verbose",  L""};
  for (int level = -1; level <= 6; ++level)
    EXPECT_EQ(WindowsLogsHelper::getLevelName(level), kNames[level + 1]);
  EXPECT_TRUE(WindowsLogsHelper::validateLogLevel(L"10010001"));
  EXPECT_FALSE(WindowsLogsHelper::validateLogLevel(L"1001000a"));
}

}  // namespace
}  // namespace TVK
