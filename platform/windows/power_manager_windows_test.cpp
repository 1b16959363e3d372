// The maker's library and log files, where the test puts them, in a prefix of its own.
#include "platform/power_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "platform/this_program.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/power_manager_library.h"
#include "platform/windows/power_manager_logs.h"
#include "platform/windows/system_folders.h"
#include "platform/windows/text.h"
#include "platform/windows/trusted_file.h"

namespace platform::windows {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

constexpr wchar_t kLibrary[] = L"PWMIF64V.DLL";

void Register(const std::wstring& folder) {
  ASSERT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Xelvra\\PWRMGRV", L"Path", REG_SZ, folder.c_str(),
                            static_cast<DWORD>((folder.size() + 1) * sizeof(wchar_t))),
            ERROR_SUCCESS);
}

void Install(const fs::path& folder) {
  fs::create_directories(folder);
  fs::copy_file(ThisProgram().parent_path() / kLibrary, folder / kLibrary, fs::copy_options::overwrite_existing);
}

TEST(PowerManagerWindows, LibraryIsLookedForWhereItIsInstalled) {
  const std::vector<fs::path> programs = {L"C:\\P86", L"C:\\P"};
  std::vector<fs::path> places = {L"C:\\P86\\Xelvra\\PowerMgr\\PWMIF64V.DLL", L"C:\\P\\Xelvra\\PowerMgr\\PWMIF64V.DLL",
                                  L"C:\\P86\\Xelvra\\HubAgent\\Plugins\\OrbitPowerPackage\\x86\\PWMIF64V.DLL",
                                  L"C:\\P\\Xelvra\\HubAgent\\Plugins\\OrbitPowerPackage\\x86\\PWMIF64V.DLL"};
  EXPECT_EQ(PowerManagerLibraryPlaces(L"", programs), places);
  places.insert(places.begin(), L"D:\\a\\PWMIF64V.DLL");
  EXPECT_EQ(PowerManagerLibraryPlaces(L"D:/a/\\", programs), places);
  EXPECT_EQ(ProgramFolders(), (std::vector<fs::path>{L"C:\\Program Files (x86)", L"C:\\Program Files"}));
}

TEST(PowerManagerWindows, OnlyFilesAtADrivesPathAreTrusted) {
  Install(L"C:\\Trusted");
  fs::current_path(L"C:\\Trusted");
  const fs::path file = fs::path(L"C:\\Trusted") / kLibrary;
  EXPECT_EQ(FindTrustedFile(file), file);
  EXPECT_EQ(FindTrustedFile(L"C:\\Trusted\\..\\TRUSTED\\pwmif64v.dll"), file) << "as it is called";
  for (const fs::path& path : {fs::path(kLibrary), fs::path(L"\\Trusted") / kLibrary, fs::path(L"C:") / kLibrary,
                               fs::path(LR"(\\?\C:\Trusted)") / kLibrary, fs::path(LR"(\\localhost\c$)") / kLibrary,
                               fs::path(L"C:\\Trusted\\none.dll"), fs::path(file.native() + L":stream"), fs::path()}) {
    EXPECT_EQ(FindTrustedFile(path), fs::path()) << path;
  }
}

TEST(PowerManagerWindows, LibraryIsAskedUntilItWritesWhereItMustNot) {
  const auto power_manager = MakePowerManager();
  EXPECT_FALSE(power_manager->ReadSmartBattery(1)) << "there is none";
  Register(L"PowerMgr");  // not of the current folder
  Install(L"PowerMgr");
  EXPECT_FALSE(power_manager->ReadFirmwareVersion(1));
  Install(ProgramFolders().back() / L"Xelvra" / L"PowerMgr");
  const auto answer = power_manager->ReadSmartBattery(1);
  ASSERT_TRUE(answer) << "installed since";
  EXPECT_EQ(answer->result, 0x12340000u);
  Bytes status(200, 0x11);
  status.resize(256);
  EXPECT_EQ(answer->status_block, status);
  EXPECT_EQ(answer->information_block, Bytes(256, 0x22));
  EXPECT_EQ(power_manager->ReadSmartBattery(2)->result, 5u);
  EXPECT_EQ(power_manager->ReadFirmwareVersion(1), (std::array<std::uint16_t, 4>{0x0102, 0xABCD, 0, 7}));
  EXPECT_FALSE(power_manager->ReadFirmwareVersion(2));
  EXPECT_FALSE(power_manager->ReadSmartBattery(3)) << "one byte too far";
  EXPECT_FALSE(power_manager->ReadSmartBattery(1)) << "it is not asked again";

  Install(L"C:\\Elsewhere");
  Register(L"C:\\Elsewhere\\");
  const auto other = MakePowerManager();
  EXPECT_TRUE(other->ReadSmartBattery(1));
  EXPECT_NE(GetModuleHandleW(L"C:\\Elsewhere\\PWMIF64V.DLL"), nullptr) << "the registry's folder comes first";
  EXPECT_FALSE(other->ReadFirmwareVersion(3));
  EXPECT_FALSE(other->ReadFirmwareVersion(1));
}

/// One session, whose user may not be asked for.
class ClosedSessions final : public Sessions {
 public:
  DWORD Console() override { return 1; }
  std::vector<DWORD> Active() override { return {}; }
  DWORD UserToken(DWORD /*session*/, UniqueKernelHandle& /*token*/) override { return ERROR_PRIVILEGE_NOT_HELD; }
};

TEST(PowerManagerWindows, LogsAreReadOfTheUsersFolder) {
  const auto power_manager = MakePowerManager();
  const auto read = [&] { return power_manager->ReadLogs(3, 5); };
  EXPECT_EQ(read().refusal, std::nullopt) << "no rights are asked for without the folder";
  const fs::path folder = CommonFolder() / L"Xelvra" / L"Power Manager";
  fs::create_directories(folder / L"folder.PWM");
  for (const auto& [name, text] :
       {std::pair(L"b.pwm", "12345"), std::pair(L"a.PWM", "123"), std::pair(L"c.PWM", "12"),
        std::pair(L"d.PWM", "123456"), std::pair(L"e.PWMX", "1234"), std::pair(L"PWM", "1234")}) {
    std::ofstream(folder / name, std::ios::binary) << text;
  }
  const PowerManagerLogs answer = read();
  EXPECT_EQ(answer.refusal, std::nullopt);
  std::string told;
  for (const PowerManagerLog& log : answer.logs)
    told += log.name + " " + std::to_string(log.bytes) + " " + log.text + "\n";
  EXPECT_EQ(told, "a.PWM 3 123\nb.pwm 5 12345\nc.PWM 2 \nd.PWM 6 \n");
  UniqueKernelHandle token;
  EXPECT_FALSE(OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Receive())) << "the rights are not ours";
  for (int i = 0; i < 20; ++i)
    std::ofstream(folder / (L"more" + std::to_wstring(i) + L".PWM")) << "1234";
  EXPECT_EQ(read().logs.size(), 15u) << "and the folder";
  ClosedSessions closed;
  const PowerManagerLogs refused = ReadPowerManagerLogs(3, 5, closed);
  EXPECT_EQ(refused.refusal, std::uint32_t{ERROR_PRIVILEGE_NOT_HELD});
  EXPECT_TRUE(refused.logs.empty());
}

}  // namespace
}  // namespace platform::windows
