#include "core/dataset_table.h"

#include <algorithm>

#include "client/text/string.h"

using TVK::String;

const DatasetRow* DatasetTable::FindByName(const std::wstring& name) const {
  const auto found = std::ranges::find(rows_, name, &DatasetRow::name);
  return found == rows_.end() ? nullptr : &*found;
}

const DatasetRow* DatasetTable::FindForPolicy(const std::wstring& id, const std::wstring& name) const {
  const std::wstring upper = String::ToUpper(id);
  const DatasetRow* row = FindByName(name);
  if (row == nullptr || upper.find(row->id) == std::wstring::npos) return nullptr;
  const bool switched_by_policy = row->rule == DatasetRule::kByScope || row->rule == DatasetRule::kAnyScope ||
                                  row->rule == DatasetRule::kUserProcess;
  return switched_by_policy ? row : nullptr;
}

const DatasetRow* DatasetTable::FindByRule(DatasetRule rule) const {
  const auto found = std::ranges::find(rows_, rule, &DatasetRow::rule);
  return found == rows_.end() ? nullptr : &*found;
}

std::vector<DatasetRow> ComponentDatasets() {
  using enum DatasetRule;
  // The irregular blanks in some scope lists are how the datasets were published; matching does not mind them.
  return {
      {0, L"10B843FF-8CA9-4897-9ACF-198DEE3DF75F", L"TVKEvent", L"", kApplication, {}},
      {1, L"03D21916-F27E-41EB-B8B3-77372521FBC7", L"DeviceContext", L"", kDeviceContext, {}},
      {2, L"837F9CAE-8AF1-4E88-A690-61DD550E32D9", L"SystemPowerEvent", L"none,basic,enhance,full", kAlways, {}},
      {3, L"FBCCBF01-BCB0-41B3-A360-2E8387AF6711", L"NetworkEvent", L"none,basic,enhance,full", kAlways, {}},
      {4, L"1118F4A1-5F72-4175-8CCD-36F64DBE5133", L"DeviceStatus", L"basic,enhance,full", kAlways, {}},
      {5, L"2274532A-4EFB-40A9-8BD4-F6D4F4E4909F", L"StorageEvent", L"none,basic,enhance,full", kByScope, {}},
      {6, L"D2100802-BF72-4FB5-B30E-FA192A02AE62", L"AlexaEvent", L"none, basic, enhance, full", kByScope, {}},
      {7, L"9492447A-FCAC-428E-B7A8-7F7918199480", L"CPUEvent", L"basic,enhance,full", kByScope, {}},
      {8, L"A65D4288-B384-45EC-8EE5-2DC5E81A7C8C", L"SystemBIOSEvent", L"basic,enhance,full", kByScope, {}},
      {9, L"3267A6D2-D6FD-4C29-87E7-9BF83E459C29", L"MemoryEvent", L"enhance,full", kByScope, {}},
      {10, L"4B433ADC-BD40-43E7-85BF-014C8C8128D3", L"BatteryEvent", L"enhance,full", kByScope, {}},
      {11, L"F7A8403B-268C-4E8A-8474-7EAF7B1E726E", L"EventViewerLogsEvent", L"basic, enhance, full", kByScope, {}},
      {12, L"3C3312C1-4E59-4106-91A2-8AA2B4852A90", L"PCIe_NVMe_SMARTEvent", L"enhance,full", kByScope, {}},
      {13, L"2D5EF51C-A0CF-45C1-B58F-42AD5AA06E55", L"SATA_SSD_SMARTEvent", L"enhance,full", kByScope, {}},
      {14, L"7FCA0753-1E6B-4B31-8630-28A84882F4D0", L"SMARTEvent", L"enhance,full", kByScope, {}},
      {15, L"326CE741-4E1F-404F-BDA2-0D0D48AE4039", L"DeviceProcessEvent", L"basic,enhance,full", kByScope, {}},
      {16, L"1CAAF504-19A6-4814-A02D-68834CA93AA2", L"CrashEvent", L"enhance,full", kByScope, {}},
      {17, L"C4D1AFBD-F3E9-4242-8811-7C6C3904E9CA", L"DisplayEvent", L"enhance,full", kUserProcess, {}},
      {18, L"E0542A84-B528-44F3-8717-82BF93DFC2FC", L"USBPortEvent", L"enhance,full", kByScope, {}},
      {19, L"8C3067AC-020C-460F-95A3-1E3998982F72", L"ThunderboltEvent", L"enhance, full", kByScope, {}},
      {20, L"AC999CD4-1AD6-4344-8740-06CC75426A48", L"EventViewerLogDBEvent", L"basic, enhance, full", kByScope, {}},
      {21, L"1EA8234E-D3BF-4018-9DB7-23FE7ED66C16", L"DeviceDriversEvent", L"enhance,full", kByScope, {}},
      {22, L"E2AC55A6-95A5-45B4-A45B-90A6345F036B", L"PCIe_NVMe_SelfTestResult", L"full", kByScope, {}},
      {23, L"AE8EE408-9F2A-40EF-B2AF-EA0154B67468", L"SATA_SSD_SelfTestResult", L"full", kByScope, {}},
      {24, L"71CA0A00-237A-4ACD-B196-7182B2A86B72", L"VitalSignsEvent", L"basic,enhance,full", kAnyScope, {}},
  };
}
