#include "platform/windows/displays.h"

#include <cstddef>

#include "platform/windows/text.h"

namespace platform::windows {
namespace {

// A base block and all the extensions that it may have.
constexpr DWORD kMostEdid = 128 * 256;

std::vector<std::uint8_t> ReadEdid(const std::wstring& monitor_key) {
  if (monitor_key.empty()) return {};
  const std::wstring key = monitor_key + L"\\Device Parameters";
  DWORD size = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"EDID", RRF_RT_REG_BINARY, nullptr, nullptr, &size) !=
          ERROR_SUCCESS ||
      size > kMostEdid) {
    return {};
  }
  std::vector<std::uint8_t> edid(size);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"EDID", RRF_RT_REG_BINARY, nullptr, edid.data(), &size) !=
      ERROR_SUCCESS) {
    return {};
  }
  edid.resize(size);
  return edid;
}

DisplayMode ReadMode(const wchar_t* adapter) {
  DEVMODEW mode{};
  mode.dmSize = sizeof mode;
  if (!EnumDisplaySettingsExW(adapter, ENUM_CURRENT_SETTINGS, &mode, 0)) return {};
  // 0 and 1 stand for "the hardware's default".
  const DWORD rate = mode.dmDisplayFrequency > 1 ? mode.dmDisplayFrequency : 0;
  return {mode.dmPelsWidth, mode.dmPelsHeight, mode.dmBitsPerPel, rate};
}

DISPLAY_DEVICEW EmptyDevice() {
  DISPLAY_DEVICEW device{};
  device.cb = sizeof device;
  return device;
}

}  // namespace

std::wstring MonitorKey(std::wstring_view device_path) {
  constexpr std::wstring_view kBegin = L"\\\\?\\DISPLAY#";
  if (!device_path.starts_with(kBegin)) return {};
  const std::wstring_view rest = device_path.substr(kBegin.size());
  const std::size_t model_end = rest.find(L'#');
  const std::size_t instance_end = model_end == rest.npos ? rest.npos : rest.find(L'#', model_end + 1);
  if (instance_end == rest.npos || rest.find(L'\\') < instance_end) return {};
  return L"SYSTEM\\CurrentControlSet\\Enum\\DISPLAY\\" + std::wstring(rest.substr(0, model_end)) + L'\\' +
         std::wstring(rest.substr(model_end + 1, instance_end - model_end - 1));
}

std::vector<AttachedDisplay> ListDesktopDisplays() {
  std::vector<AttachedDisplay> displays;
  DISPLAY_DEVICEW adapter = EmptyDevice();
  for (DWORD i = 0; EnumDisplayDevicesW(nullptr, i, &adapter, 0); ++i, adapter = EmptyDevice()) {
    if ((adapter.StateFlags & DISPLAY_DEVICE_ATTACHED_TO_DESKTOP) == 0) continue;
    const DisplayMode mode = ReadMode(adapter.DeviceName);
    DISPLAY_DEVICEW monitor = EmptyDevice();
    // Several show the same where they are clones.
    for (DWORD j = 0; EnumDisplayDevicesW(adapter.DeviceName, j, &monitor, EDD_GET_DEVICE_INTERFACE_NAME);
         ++j, monitor = EmptyDevice()) {
      if ((monitor.StateFlags & DISPLAY_DEVICE_ACTIVE) == 0) continue;
      displays.push_back({.id = Utf8FromWide(adapter.DeviceName) + ' ' + Utf8FromWide(monitor.DeviceID),
                          .edid = ReadEdid(MonitorKey(monitor.DeviceID)),
                          .mode = mode,
                          .primary = (adapter.StateFlags & DISPLAY_DEVICE_PRIMARY_DEVICE) != 0});
    }
  }
  return displays;
}

Digitizers ReadSystemDigitizers() {
  const int present = GetSystemMetrics(SM_DIGITIZER);
  const int contacts = GetSystemMetrics(SM_MAXIMUMTOUCHES);
  return {.pen = (present & (NID_INTEGRATED_PEN | NID_EXTERNAL_PEN)) != 0,
          .touch = (present & (NID_INTEGRATED_TOUCH | NID_EXTERNAL_TOUCH)) != 0,
          .touch_contacts = contacts > 0 ? static_cast<std::uint32_t>(contacts) : 0};
}

std::optional<DigitizerKind> KindOfInput(HRAWINPUT input) {
  constexpr USHORT kDigitizerPage = 0x0D;
  RAWINPUTHEADER header{};
  UINT size = sizeof header;
  constexpr UINT kFailed = static_cast<UINT>(-1);
  if (GetRawInputData(input, RID_HEADER, &header, &size, sizeof header) == kFailed) return std::nullopt;
  RID_DEVICE_INFO info{};
  info.cbSize = size = sizeof info;
  if (header.dwType != RIM_TYPEHID ||
      GetRawInputDeviceInfoW(header.hDevice, RIDI_DEVICEINFO, &info, &size) == kFailed ||
      info.hid.usUsagePage != kDigitizerPage) {
    return std::nullopt;
  }
  return info.hid.usUsage == 0x02 ? DigitizerKind::kPen : DigitizerKind::kTouch;
}

}  // namespace platform::windows
