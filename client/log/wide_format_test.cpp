#include "client/log/wide_format.h"

#include <gtest/gtest.h>

#include <limits>

using TVK::FormatWide;

TEST(WideFormatTest, FormatsWhatTheMessagesOfTheComponentUse) {
  EXPECT_EQ(FormatWide(L"%s: Entry", L"EventManager::Stop"), L"EventManager::Stop: Entry");
  EXPECT_EQ(FormatWide(L"device_context_id is \"%s\"", std::wstring(L"Größe \U0001F50B")),
            L"device_context_id is \"Größe \U0001F50B\"");
  EXPECT_EQ(FormatWide(L"error %d! %ld %lld", -1, -2L, std::numeric_limits<std::int64_t>::min()),
            L"error -1! -2 -9223372036854775808");
  EXPECT_EQ(FormatWide(L"%lu %llu %u", 258ul, std::numeric_limits<std::uint64_t>::max(), 4294967295u),
            L"258 18446744073709551615 4294967295");
  EXPECT_EQ(FormatWide(L"return code is %ul for", std::uint32_t{258}), L"return code is 258l for");
  EXPECT_EQ(FormatWide(L"%04d-%02dT%c%02d", 2026, 3, L'-', 7), L"2026-03T-07");
  EXPECT_EQ(FormatWide(L"100 %% of %d, flag %d", 5, true), L"100 % of 5, flag 1");
  EXPECT_EQ(FormatWide(L"%x %X", 0xC0000BB9u, 255), L"c0000bb9 FF");
  EXPECT_EQ(FormatWide(L"(%p)", reinterpret_cast<const int*>(0xAB)), L"(0xab)");
  EXPECT_EQ(FormatWide(L"Exit %llu", std::uintptr_t{77}), L"Exit 77");
}

TEST(WideFormatTest, UncheckedFormatThatDoesNotFitGivesTheFormatItself) {
  EXPECT_EQ(TVK::FormatWideArguments(L"%s and %s", {TVK::FormatArgument(L"one")}), L"%s and %s");
}
