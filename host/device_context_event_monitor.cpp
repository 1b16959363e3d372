#include "host/device_context_event_monitor.h"

#include <cstdint>

#include "client/log/guarded_thread.h"
#include "client/log/named_event.h"
#include "client/text/string.h"
#include "platform/region.h"

using platform::Setting;
using TVK::String;

namespace {

constexpr wchar_t kEventName[] = L"Global\\_liveeventDeviceContextEvent";
constexpr std::size_t kLongestValue = 4095;    // a longer one is nobody's name
constexpr unsigned long kErrorMoreData = 234;  // ERROR_MORE_DATA
constexpr wchar_t kWatch[] = L"DeviceContextEventMonitor::AddMonitor";

const wchar_t* NameOf(Setting setting) {
  switch (setting) {
    case Setting::kProductName:
      return L"product name";
    case Setting::kBuild:
      return L"build";
    case Setting::kNation:
      return L"nation";
    case Setting::kLocaleName:
      return L"locale name";
  }
  return L"";
}

}  // namespace

DeviceContextEventMonitor::DeviceContextEventMonitor(platform::Runtime& runtime, platform::Machine& machine,
                                                     MachineInformation& machine_information)
    : runtime_(runtime),
      machine_(machine),
      machine_information_(machine_information),
      country_codes_(machine.region()),
      started_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  if (TVK::utility::InitLog(log_, L"DeviceContextEventMonitor.log", 4)) {
    log_.d(L"DeviceContextEventMonitor.initLog success");
  }
}

DeviceContextEventMonitor::~DeviceContextEventMonitor() {
  Stop();
}

void DeviceContextEventMonitor::Start() {
  stop_requested_ = false;
  worker_ = TVK::StartGuardedThread(runtime_, log_, "tvk-devcontext", [this] { Init(); });
  runtime_.Wait(*started_, platform::kForever);
}

void DeviceContextEventMonitor::Stop() {
  stop_requested_ = true;
  if (registry_ != nullptr) registry_->Stop();
  if (worker_.joinable()) runtime_.Join(worker_);
  ready_ = false;
  registry_ = nullptr;
  region_change_event_ = nullptr;
}

void DeviceContextEventMonitor::Init() {
  TVK::CallLogged(log_, L"DeviceContextEventMonitor::InitEvent", [this] { InitEvent(); });
  MonitorRegistryFields();
}

void DeviceContextEventMonitor::InitEvent() {
  constexpr wchar_t kThis[] = L"DeviceContextEventMonitor::InitEvent";
  log_.d(L"%s: Entry", kThis);
  // Only the service waits for it.
  platform::NamedEventResult made =
      TVK::MakeNamedEvent(runtime_, log_, kEventName, platform::EventReset::kAuto, platform::EventAccess::kServiceOnly);
  if (made.event == nullptr) log_.e(L"%s: \"%s\" cannot be made, error %d", kThis, kEventName, made.error);
  region_change_event_ = std::move(made.event);
  log_.d(L"%s: Exit %llu", kThis, reinterpret_cast<std::uintptr_t>(region_change_event_.get()));
}

void DeviceContextEventMonitor::MonitorRegistryFields() {
  constexpr wchar_t kThis[] = L"DeviceContextEventMonitor::MonitorRegistryFields";
  const auto guarded = [&](auto step) {
    try {
      return step();
    } catch (...) {
      log_.e(L"%s: exception while initializing and monitoring the global context variables.", kThis);
      return false;
    }
  };
  log_.d(L"%s Entry: ", kThis);
  const bool watching = guarded([&] { return AddMonitors(); });
  ready_ = watching;
  started_->Set();
  if (watching) {
    guarded([&] {
      WaitForChanges();
      return true;
    });
  }
}

bool DeviceContextEventMonitor::AddMonitors() {
  constexpr wchar_t kThis[] = L"DeviceContextEventMonitor::MonitorRegistryFields";
  const std::lock_guard lock(values_mutex_);
  key_values_.clear();
  user_monitors_added_ = false;
  registry_ = std::make_unique<TVK::CRegMonitor>(machine_.settings(), runtime_);
  const auto trouble = [this](Setting setting, std::uint32_t error) {
    if (error != 0) {
      log_.e(L"%s: %s cannot be watched now, error %d; it is tried again", kWatch, NameOf(setting), error);
    } else {
      log_.i(L"%s: %s is watched again", kWatch, NameOf(setting));
    }
  };
  if (!registry_->Init(trouble)) {
    log_.e(L"%s: the system does not let its settings be watched", kThis);
    return false;
  }
  AddMonitor(Setting::kProductName);
  AddMonitor(Setting::kBuild);
  log_.d(L"%s: Added system related registry monitors.", kThis);
  if (registry_->HasUser()) {
    log_.d(L"%s: Added user related registry monitors.", kThis);
    AddUserMonitors();
  } else {
    log_.d(L"%s: Failed to add user related registry monitors.", kThis);
  }
  return true;
}

void DeviceContextEventMonitor::AddUserMonitors() {
  AddMonitor(Setting::kNation);
  AddMonitor(Setting::kLocaleName);
  user_monitors_added_ = true;
}

void DeviceContextEventMonitor::AddMonitor(Setting setting) {
  const int index = registry_->AddMonitorKey(setting);
  if (index < 0) {
    log_.e(L"%s: %s cannot be watched, error %d", kWatch, NameOf(setting), -index);
    return;
  }
  std::wstring value;
  GetKeyValueForMonitor(static_cast<unsigned long>(index), value);
  key_values_.push_back(std::move(value));
}

bool DeviceContextEventMonitor::TryAddUserRelatedMonitors() {
  if (!ready_) return false;
  {
    const std::lock_guard lock(values_mutex_);
    if (!user_monitors_added_) {
      log_.d(L"%s: Added user related registry monitors on user logon.",
             L"DeviceContextEventMonitor::TryAddUserRelatedMonitors");
      AddUserMonitors();
    }
  }
  // What was read while nobody was logged on is nobody's region.
  if (RegionDiffersFromFacts()) RaiseDeviceInfoChangedEvent();
  return true;
}

void DeviceContextEventMonitor::OnSessionChange(const platform::SessionChange& change) {
  if (!ready_) return;
  // First, so that of the settings that are added now none is a leaving user's.
  registry_->OnSessionChange(change);
  if (registry_->HasUser()) TryAddUserRelatedMonitors();
}

bool DeviceContextEventMonitor::RegionDiffersFromFacts() const {
  const platform::RegionFacts known = machine_information_.region();
  const platform::RegionFacts present = machine_.region().ReadFacts();
  return (present.nation != known.nation && IsCountry(String::UTF8ToUTF16(present.nation))) ||
         (present.locale_name != known.locale_name &&
          country_codes_.ValidateLocaleNameKey(String::UTF8ToUTF16(present.locale_name)));
}

void DeviceContextEventMonitor::WaitForChanges() {
  unsigned long index = 0;
  while (registry_->WaitForChange(index) && !stop_requested_ && index != 0)
    OnChange(index);
}

void DeviceContextEventMonitor::OnChange(unsigned long index) {
  constexpr wchar_t kThis[] = L"DeviceContextEventMonitor::MonitorRegistryFields";
  std::wstring value;
  {
    const std::lock_guard lock(values_mutex_);
    if (index > key_values_.size()) return;
    const unsigned long error = GetKeyValueForMonitor(index, value);
    log_.d(L"%s: IN WaitForChange new keyValue %s , rtn %d", kThis, value, error);
    if (error != 0 || key_values_[index - 1] == value) return;
    log_.d(L"%s: Going to verify key values", kThis);
    key_values_[index - 1] = value;
  }
  if (VerifyKeyValueForMonitor(index, value)) RaiseDeviceInfoChangedEvent();
}

unsigned long DeviceContextEventMonitor::GetKeyValueForMonitor(unsigned long index, std::wstring& value) {
  const unsigned long error = registry_->GetKeyValue(index, value);
  if (value.size() <= kLongestValue) return error;
  value.clear();
  return kErrorMoreData;
}

bool DeviceContextEventMonitor::VerifyKeyValueForMonitor(unsigned long index, const std::wstring& value) const {
  switch (registry_->SettingOf(index)) {
    case Setting::kNation:
      return IsCountry(value);
    case Setting::kLocaleName:
      return country_codes_.ValidateLocaleNameKey(value);
    case Setting::kProductName:
    case Setting::kBuild:
      break;
  }
  return true;
}

bool DeviceContextEventMonitor::IsCountry(const std::wstring& nation) const {
  return !country_codes_.ValidateCountryCodeKey(nation).empty();
}

void DeviceContextEventMonitor::RaiseDeviceInfoChangedEvent() {
  log_.d(L"%s: Setting event on region change", L"DeviceContextEventMonitor::RaiseDeviceInfoChangedEvent");
  machine_information_.ReInitialize(true);
  if (region_change_event_ != nullptr) region_change_event_->Set();
}
