// The table of datasets: what each is called, when it may run and how its records are signed. One constant row each;
// whatever names a dataset (its monitor, the manager, the tools) reads it here.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace TVK {

enum class DatasetRule {
  kByScope,           ///< Runs when the policy lists it and its scopes hold the scope in force.
  kStartsAtAnyScope,  ///< The same, but its start with the service does not look at the scope.
  kAlways,            ///< Runs whatever policy and scope say.
  kUserProcess,       ///< By scope, in the user agent's process instead of a monitor here.
  kApplication,       ///< Written by other components through the application-event monitor.
  kDeviceContext,     ///< The device context record, watched for by the manager itself.
};

/// Constant, with static storage: references to it stay valid. Texts are empty where the kind has none.
struct DatasetRow {
  int rank;              ///< Start order, ascending.
  std::wstring_view id;  ///< Upper-case GUID text.
  std::wstring_view name;
  std::wstring_view scopes;  ///< Comma-separated scopes in which it may run. Empty: the scope does not matter to it.
  DatasetRule rule;
  std::wstring_view log;               ///< Its monitor's class, which names its log file, "CpuEventMonitor".
  std::wstring_view source = {};       ///< Topic of its records, "tvk/cpu".
  std::wstring_view type = {};         ///< Kind of its dataset contexts, "device-activity".
  std::wstring_view item_source = {};  ///< Topic of its item events where that is another than `source`.
};

/// The 25 rows in the order of their ranks. The irregular blanks in some scope lists are how the datasets were
/// published; matching does not mind them.
inline constexpr std::array<DatasetRow, 25> kDatasetRows = {{
    {0, L"10B843FF-8CA9-4897-9ACF-198DEE3DF75F", L"TVKEvent", L"", DatasetRule::kApplication, L"TVKEventMonitor"},
    {1, L"03D21916-F27E-41EB-B8B3-77372521FBC7", L"DeviceContext", L"", DatasetRule::kDeviceContext,
     L"DeviceContextEventMonitor"},
    {2, L"837F9CAE-8AF1-4E88-A690-61DD550E32D9", L"SystemPowerEvent", L"none,basic,enhance,full", DatasetRule::kAlways,
     L"SystemPowerEventMonitor"},
    {3, L"FBCCBF01-BCB0-41B3-A360-2E8387AF6711", L"NetworkEvent", L"none,basic,enhance,full", DatasetRule::kAlways,
     L"NetworkEventMonitor"},
    {4, L"1118F4A1-5F72-4175-8CCD-36F64DBE5133", L"DeviceStatus", L"basic,enhance,full", DatasetRule::kAlways,
     L"DeviceStatusMonitor"},
    {5, L"2274532A-4EFB-40A9-8BD4-F6D4F4E4909F", L"StorageEvent", L"none,basic,enhance,full", DatasetRule::kByScope,
     L"StoreEventMonitor", L"tvk/storage", L"device-activity"},
    {6, L"D2100802-BF72-4FB5-B30E-FA192A02AE62", L"AlexaEvent", L"none, basic, enhance, full", DatasetRule::kByScope,
     L"AlexaEventMonitor"},
    {7, L"9492447A-FCAC-428E-B7A8-7F7918199480", L"CPUEvent", L"basic,enhance,full", DatasetRule::kByScope,
     L"CpuEventMonitor", L"tvk/cpu", L"device-activity"},
    {8, L"A65D4288-B384-45EC-8EE5-2DC5E81A7C8C", L"SystemBIOSEvent", L"basic,enhance,full", DatasetRule::kByScope,
     L"SystemBiosEventMonitor", L"tvk/systembios", L"device-activity"},
    {9, L"3267A6D2-D6FD-4C29-87E7-9BF83E459C29", L"MemoryEvent", L"enhance,full", DatasetRule::kByScope,
     L"MemoryEventMonitor", L"tvk/memory", L"device-activity"},
    {10, L"4B433ADC-BD40-43E7-85BF-014C8C8128D3", L"BatteryEvent", L"enhance,full", DatasetRule::kByScope,
     L"BatteryEventMonitor", L"tvk/battery", L"system-activity"},
    {11, L"F7A8403B-268C-4E8A-8474-7EAF7B1E726E", L"EventViewerLogsEvent", L"basic, enhance, full",
     DatasetRule::kByScope, L"WindowsLogsEventMonitor", L"tvk/eventlogs", L"system-activity"},
    {12, L"3C3312C1-4E59-4106-91A2-8AA2B4852A90", L"PCIe_NVMe_SMARTEvent", L"enhance,full", DatasetRule::kByScope,
     L"PCIeNVMeSmartEventMonitor", L"tvk/smartNVMe", L"device-activity"},
    {13, L"2D5EF51C-A0CF-45C1-B58F-42AD5AA06E55", L"SATA_SSD_SMARTEvent", L"enhance,full", DatasetRule::kByScope,
     L"SATASmartEventMonitor", L"tvk/smartSATA", L"device-activity"},
    {14, L"7FCA0753-1E6B-4B31-8630-28A84882F4D0", L"SMARTEvent", L"enhance,full", DatasetRule::kByScope,
     L"SmartEventMonitor", L"tvk/smart", L"device-activity", L"tvk/Smart"},
    {15, L"326CE741-4E1F-404F-BDA2-0D0D48AE4039", L"DeviceProcessEvent", L"basic,enhance,full", DatasetRule::kByScope,
     L"DeviceProcessEventMonitor"},
    {16, L"1CAAF504-19A6-4814-A02D-68834CA93AA2", L"CrashEvent", L"enhance,full", DatasetRule::kByScope,
     L"CrashEventMonitor", L"tvk/crash", L"system-activity"},
    {17, L"C4D1AFBD-F3E9-4242-8811-7C6C3904E9CA", L"DisplayEvent", L"enhance,full", DatasetRule::kUserProcess, L""},
    {18, L"E0542A84-B528-44F3-8717-82BF93DFC2FC", L"USBPortEvent", L"enhance,full", DatasetRule::kByScope,
     L"USBEventMonitor"},
    {19, L"8C3067AC-020C-460F-95A3-1E3998982F72", L"ThunderboltEvent", L"enhance, full", DatasetRule::kByScope,
     L"ThunderboltEventMonitor"},
    {20, L"AC999CD4-1AD6-4344-8740-06CC75426A48", L"EventViewerLogDBEvent", L"basic, enhance, full",
     DatasetRule::kByScope, L"EventViewerLogDBEventMonitor", L"tvk/eventlogdb", L"device-activity"},
    {21, L"1EA8234E-D3BF-4018-9DB7-23FE7ED66C16", L"DeviceDriversEvent", L"enhance,full", DatasetRule::kByScope,
     L"DeviceDriversEventMonitor"},
    {22, L"E2AC55A6-95A5-45B4-A45B-90A6345F036B", L"PCIe_NVMe_SelfTestResult", L"full", DatasetRule::kByScope,
     L"PCIeNVMeSelfTestEventMonitor", L"tvk/smartNVMe", L"device-activity"},
    {23, L"AE8EE408-9F2A-40EF-B2AF-EA0154B67468", L"SATA_SSD_SelfTestResult", L"full", DatasetRule::kByScope,
     L"SATASelfTestEventMonitor", L"tvk/smartSSD", L"device-activity"},
    {24, L"71CA0A00-237A-4ACD-B196-7182B2A86B72", L"VitalSignsEvent", L"basic,enhance,full",
     DatasetRule::kStartsAtAnyScope, L"VitalSignsEventMonitor"},
}};

/// The row of exactly this name. One that does not exist does not compile.
consteval const DatasetRow& DatasetRowNamed(std::wstring_view name) {
  for (const DatasetRow& row : kDatasetRows) {
    if (row.name == name) return row;
  }
  throw "there is no dataset of this name";
}

/// The dataset of `row` for what it may write in fewer scopes. To be kept as a constant of its own.
constexpr DatasetRow WithScopes(DatasetRow row, std::wstring_view scopes) {
  row.scopes = scopes;
  return row;
}

/// The name of the event that is set while the dataset contexts of a dataset stand, "CPUEvent_LogDatasetContext".
inline std::wstring DatasetContextEventName(const DatasetRow& row) {
  return std::wstring(row.name) + L"_LogDatasetContext";
}

}  // namespace TVK
