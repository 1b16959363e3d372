#include "client/text/string.h"

#include <gtest/gtest.h>

using TVK::String;

TEST(StringTest, ConvertsBothWaysWhateverTheWidthOfWideCharacters) {
  for (const char* text : {"", "plain", "Größe", "日本", "\xF0\x9F\x94\x8B battery", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(String::UTF16ToUTF8(String::UTF8ToUTF16(text)), text);
  }
  EXPECT_EQ(String::UTF8ToUTF16("\xF0\x9F\x94\x8B"), L"\U0001F50B");
}

TEST(StringTest, MalformedInputBecomesReplacementCharacters) {
  struct Row {
    const char* bytes;
    std::size_t replacements;
  };
  for (const Row& row :
       {Row{"\xFF", 1}, Row{"\xC0\x80", 2}, Row{"\xE2\x82", 2}, Row{"\xED\xA0\x80", 3}, Row{"\xF4\x90\x80\x80", 4}}) {
    SCOPED_TRACE(row.bytes);
    EXPECT_EQ(String::UTF8ToUTF16(row.bytes), std::wstring(row.replacements, L'\uFFFD'));
    EXPECT_EQ(TVK::FindInvalidUtf8(std::string("ab") + row.bytes), 2u);
  }
  EXPECT_EQ(TVK::FindInvalidUtf8("Größe"), std::string_view::npos);
  const std::wstring lone = {L'a', static_cast<wchar_t>(0xD83D), L'b'};
  EXPECT_EQ(String::UTF16ToUTF8(lone),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(StringTest, HarmlessTextHoldsNothingThatATerminalObeys) {
  struct Row {
    std::string text;
    std::string harmless;
  };
  for (const Row& row : {Row{"Größe ~\u00A0日本", "Größe ~\u00A0日本"}, Row{std::string("\0\x1F\x7F", 3), "???"},
                         Row{"\u0080\u009B[2J\u009F", "??[2J?"}, Row{"\x9B[2J \xC2", "?[2J ?"},
                         Row{"\u202Egpj.exe\u2066\u2028\u200Fa\u2030", "?gpj.exe???a\u2030"}}) {
    SCOPED_TRACE(row.harmless);
    EXPECT_EQ(TVK::HarmlessText(row.text), row.harmless);
    EXPECT_FALSE(TVK::HoldsControlCharacter(row.harmless));
  }
  EXPECT_TRUE(TVK::HoldsControlCharacter("a\u0085"));
}

TEST(StringTest, ComparesWithoutAsciiCase) {
  EXPECT_TRUE(String::CaseInsesitiveFind(L"basic, Enhance, full", L"ENHANCE"));
  EXPECT_FALSE(String::CaseInsesitiveFind(L"basic,enhance,full", L"none"));
  EXPECT_TRUE(String::CaseInsesitiveEqual(L"None", L"NONE"));
  EXPECT_FALSE(String::CaseInsesitiveEqual(L"none", L"none "));
  EXPECT_FALSE(String::CaseInsesitiveEqual(L"Ä", L"ä"));
}
