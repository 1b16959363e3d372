#include "platform/windows/command_line.h"

#include <gtest/gtest.h>

#include "platform/windows/owner.h"

#include <shellapi.h>

namespace platform::windows {
namespace {

TEST(CommandLineTest, EveryArgumentComesBackAsItWas) {
  const std::vector<std::wstring> arguments = {
      L"",          L"plain", L"two words", L"quo\"te",     L"\\",           L"C:\\a b\\",     L"\\\\\"x\\\\",
      L"tab\there", L"\"\"",  L"a\\\\b",    L"--opt=\"v\"", L"\u00e4\u4e2d", L"ends with \\\""};
  const std::wstring line = CommandLine(L"C:\\Program Files\\x.exe", arguments);
  int count = 0;
  wchar_t** const parts = CommandLineToArgvW(line.c_str(), &count);
  const UniqueLocalMemory owner(parts);
  ASSERT_EQ(static_cast<std::size_t>(count), arguments.size() + 1) << "in all";
  EXPECT_STREQ(parts[0], L"C:\\Program Files\\x.exe");
  for (std::size_t i = 0; i < arguments.size(); ++i)
    EXPECT_EQ(parts[i + 1], arguments[i]) << i;
}

}  // namespace
}  // namespace platform::windows
