#include <gtest/gtest.h>

#include <array>
#include <memory>

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
  constexpr SIZE_T kPage = 4096;
  const std::unique_ptr<void, decltype([](void* pages) { VirtualFree(pages, 0, MEM_RELEASE); })> pages(
      VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  DWORD before = 0;
  ASSERT_TRUE(VirtualProtect(static_cast<char*>(pages.get()) + kPage, kPage, PAGE_NOACCESS, &before));
  const auto end = reinterpret_cast<std::intptr_t>(pages.get()) + static_cast<std::intptr_t>(kPage);
  const auto desktop = OpenLocalDesktop();
  std::array<std::uint8_t, kMessageDataSize> data{};
  EXPECT_EQ(desktop->ReadMessageData(end - 8, data), 8u);
  EXPECT_EQ(desktop->ReadMessageData(end, data), 0u);
  EXPECT_EQ(desktop->ReadMessageData(0, data), 0u);
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

}  // namespace
}  // namespace platform::windows
