// The driver of driver_stand_in.cpp, as a test installs and scripts it. For one program in a prefix of its own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/this_program.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

#include <devguid.h>
#include <newdev.h>
#include <setupapi.h>
#include <winioctl.h>

#include "platform/windows/driver_stand_in.h"

namespace platform::windows {

class ScriptedDriver {
 public:
  using Bytes = std::vector<std::uint8_t>;

  /// `batteries`: it is installed for them too. Else it is gone with the object.
  explicit ScriptedDriver(bool batteries) {
    if (batteries) {
      InstallBatteries();
    } else {
      Load();
    }
    const std::wstring path = LR"(\\.\)" + std::wstring(driver_stand_in::kControlName);
    control_.Reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                               OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(control_) << LastErrorText("the driver is not there");
  }
  ~ScriptedDriver() {
    control_.Reset();
    if (!service_) return;
    SERVICE_STATUS status{};
    EXPECT_TRUE(ControlService(service_.get(), SERVICE_CONTROL_STOP, &status));
    EXPECT_TRUE(DeleteService(service_.get()));
  }
  ScriptedDriver(const ScriptedDriver&) = delete;
  ScriptedDriver& operator=(const ScriptedDriver&) = delete;

  /// What the next requests of `device` with `code` and the selector are answered.
  void Answer(unsigned device, std::uint32_t code, std::uint32_t selector, const Bytes& bytes, std::uint32_t status = 0,
              bool held = false, unsigned selector_at = 0) {
    auto answer = std::make_unique<driver_stand_in::Answer>();
    *answer = {device, code, selector_at, selector, static_cast<int>(status), held, static_cast<unsigned>(bytes.size()),
               {}};
    ASSERT_LE(bytes.size(), sizeof(answer->bytes));
    std::ranges::copy(bytes, answer->bytes);
    EXPECT_TRUE(Send(driver_stand_in::kAnswer, answer.get(), offsetof(driver_stand_in::Answer, bytes) + bytes.size()));
  }
  void Tell(std::uint32_t code) { EXPECT_TRUE(Send(code, nullptr, 0)); }
  void Name(unsigned device, const std::wstring& name) {
    EXPECT_TRUE(SendName(driver_stand_in::kName, device, name)) << LastErrorText("the driver refuses");
  }
  /// The system's own devices too; of none is no failure.
  void Unname(const std::wstring& name) { SendName(driver_stand_in::kUnname, 0, name); }

  driver_stand_in::Request LastRequest(unsigned device) {
    driver_stand_in::Request request{};
    DWORD given = 0;
    EXPECT_TRUE(DeviceIoControl(control_.get(), driver_stand_in::kRequest, &device, sizeof(device), &request,
                                sizeof(request), &given, nullptr));
    return request;
  }

 private:
  static std::filesystem::path Beside(const wchar_t* name) { return ThisProgram().parent_path() / name; }

  void Load() {
    manager_.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    service_.Reset(CreateServiceW(manager_.get(), driver_stand_in::kControlName, nullptr, SERVICE_ALL_ACCESS,
                                  SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                  Beside(L"driver_stand_in.sys").c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(service_ && StartServiceW(service_.get(), 0, nullptr)) << LastErrorText("the driver does not start");
  }

  static void InstallBatteries() {
    std::error_code error;
    std::filesystem::copy_file(Beside(L"driver_stand_in.sys"), L"C:\\windows\\system32\\drivers\\driver_stand_in.sys",
                               std::filesystem::copy_options::overwrite_existing, error);
    EXPECT_FALSE(error) << error.message();
    const HDEVINFO devices = SetupDiCreateDeviceInfoList(&GUID_DEVCLASS_BATTERY, nullptr);
    static constexpr wchar_t kHardware[] = L"Root\\TvkBattery\0";
    for (unsigned i = 0; i < driver_stand_in::kBatteries; ++i) {
      SP_DEVINFO_DATA device{};
      device.cbSize = sizeof(device);
      const std::wstring id = L"ROOT\\TVKBATTERY\\000" + std::to_wstring(i);
      EXPECT_TRUE(SetupDiCreateDeviceInfoW(devices, id.c_str(), &GUID_DEVCLASS_BATTERY, nullptr, nullptr, 0, &device));
      EXPECT_TRUE(SetupDiSetDeviceRegistryPropertyW(devices, &device, SPDRP_HARDWAREID,
                                                    reinterpret_cast<const BYTE*>(kHardware), sizeof(kHardware)));
      EXPECT_TRUE(SetupDiCallClassInstaller(DIF_REGISTERDEVICE, devices, &device));
    }
    SetupDiDestroyDeviceInfoList(devices);
    BOOL reboot = FALSE;
    EXPECT_TRUE(UpdateDriverForPlugAndPlayDevicesW(nullptr, kHardware, Beside(L"driver_stand_in.inf").c_str(),
                                                   INSTALLFLAG_FORCE, &reboot))
        << LastErrorText("the batteries are not installed");
  }

  bool Send(std::uint32_t code, const void* bytes, std::size_t size) {
    DWORD given = 0;
    return DeviceIoControl(control_.get(), code, const_cast<void*>(bytes), static_cast<DWORD>(size), nullptr, 0, &given,
                           nullptr) != FALSE;
  }
  bool SendName(std::uint32_t code, unsigned device, const std::wstring& name) {
    driver_stand_in::Naming naming{device, {}};
    name.copy(naming.name, std::size(naming.name) - 1);
    return Send(code, &naming, sizeof(naming));
  }

  UniqueService manager_;
  UniqueService service_;
  UniqueFile control_;
};

}  // namespace platform::windows
