#include <gtest/gtest.h>

#include <array>

#include "platform/local_desktop.h"
#include "platform/windows/displays.h"
#include "testing/temp_folder.h"

namespace platform::windows {
namespace {

TEST(MonitorKey, IsMadeOfADevicePathAndOfNothingElse) {
  constexpr std::pair<const wchar_t*, const wchar_t*> kCases[] = {
      {LR"(\\?\DISPLAY#DEL4098#5&2b&0&UID4#{e6f07b5f-ee97-4a90-b076-33f57bf4eaa7})",
       LR"(SYSTEM\CurrentControlSet\Enum\DISPLAY\DEL4098\5&2b&0&UID4)"},
      {LR"(\\?\DISPLAY#DEL4098#5&2b)", L""},
      {LR"(\\?\DISPLAY#..\..\x#5&2b#{e6f0})", L""},
      {LR"(MONITOR\Default_Monitor\{4d36e96e-e325-11ce-bfc1-08002be10318}\0000)", L""},
      {L"", L""}};
  for (const auto& [path, key] : kCases)
    EXPECT_EQ(MonitorKey(path), key);
}

TEST(LocalDesktop, ReadsOfAMessageWhatCanBeRead) {
  const auto desktop = OpenLocalDesktop();
  std::array<std::uint8_t, kMessageDataSize> sent{};
  sent.back() = 7;
  std::array<std::uint8_t, kMessageDataSize> data{};
  EXPECT_EQ(desktop->ReadMessageData(reinterpret_cast<std::intptr_t>(&sent), data), kMessageDataSize);
  EXPECT_EQ(data, sent);
  EXPECT_EQ(desktop->ReadMessageData(0, data), 0u);
  EXPECT_EQ(desktop->ReadMessageData(16, data), 0u) << "nothing lies there";
}

TEST(LocalDesktop, KeepsAValueInAProfileFile) {
  const TempFolder folder;
  const std::filesystem::path file = folder.path() / "a.ini";
  const auto desktop = OpenLocalDesktop();
  EXPECT_FALSE(desktop->ReadProfile(file, L"TVK User Agent", L"TvkVersion", 31));
  EXPECT_EQ(desktop->WriteProfile(file, L"TVK User Agent", L"TvkVersion", L"1.2"), 0u);
  EXPECT_EQ(desktop->ReadProfile(file, L"TVK User Agent", L"TvkVersion", 31), L"1.2");
  EXPECT_EQ(desktop->ReadProfile(file, L"TVK User Agent", L"TvkVersion", 2), L"1.");
  EXPECT_EQ(desktop->ReadProfile(file, L"TVK User Agent", L"Other", 31), L"");
  EXPECT_NE(desktop->WriteProfile(folder.path() / "none" / "a.ini", L"TVK User Agent", L"TvkVersion", L"1"), 0u);
}

TEST(LocalUserFolder, IsTheVariableWhateverItsLength) {
  constexpr wchar_t kName[] = L"LOCALAPPDATA";
  const std::filesystem::path before = LocalUserFolder();
  for (const std::wstring& value : {std::wstring(L"C:\\Local"), std::wstring(20000, L'x'), std::wstring()}) {
    ASSERT_TRUE(SetEnvironmentVariableW(kName, value.empty() ? nullptr : value.c_str()));
    EXPECT_EQ(LocalUserFolder().native(), value);
  }
  SetEnvironmentVariableW(kName, before.c_str());
  EXPECT_EQ(LocalUserFolder(), before);
}

}  // namespace
}  // namespace platform::windows
