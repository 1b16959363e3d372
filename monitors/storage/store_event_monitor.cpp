#include "monitors/storage/store_event_monitor.h"

#include <utility>

#include "monitors/storage/store_settings.h"

namespace {

constexpr wchar_t kReadVolume[] = L"ReadVolumePerInterval";
constexpr wchar_t kFreeSpaceLow[] = L"FreeSpaceLow";
constexpr wchar_t kFileSystemError[] = L"FileSystemError";
constexpr wchar_t kLow[] = L"low";
constexpr wchar_t kEnough[] = L"enough";

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"StoreEventMonitor Log Intialize OK!",
    .context_decision = L"StoreEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"StoreEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"Store LogDevInitEvent failed",
    .item_failure = L"StoreEventMonitor LogItemEvent(%s) return error: %d",
};

bool IsLow(const platform::VolumeSpace& space) {
  return space.free_bytes < space.bytes / 100 * StoreEventMonitor::kLowPercent &&
         space.free_bytes < StoreEventMonitor::kLowBytes;
}

bool IsEnough(const platform::VolumeSpace& space) {
  return space.free_bytes >= space.bytes / 100 * StoreEventMonitor::kEnoughPercent ||
         space.free_bytes >= StoreEventMonitor::kEnoughBytes;
}

ItemData SpaceToItemData(const platform::VolumeSpace& space) {
  return {{L"Size", std::to_wstring(space.bytes)}, {L"FreeSpace", std::to_wstring(space.free_bytes)}};
}

ItemData VolumeToItemData(const DiskVolume& volume) {
  ItemData data = volume.volume.space ? SpaceToItemData(*volume.volume.space) : ItemData();
  data[L"ReadOnly"] = volume.volume.read_only ? L"true" : L"false";
  const auto encrypted = volume.device.facts.find(L"Encrypted");
  if (encrypted != volume.device.facts.end()) data.insert(*encrypted);
  return data;
}

std::wstring StateKey(const wchar_t* item, const DiskVolume& volume) {
  return std::wstring(item) + L' ' + volume.device.key;
}

std::vector<TVK::DescribedDevice> DevicesOf(const std::vector<DiskVolume>& volumes) {
  std::vector<TVK::DescribedDevice> devices;
  for (const DiskVolume& volume : volumes)
    devices.push_back(volume.device);
  return devices;
}

}  // namespace

const std::map<std::wstring, std::wstring> StoreEventMonitor::ITEM_EVENT_CONTEXT = {
    {kReadVolume, L"0CA3127A-CAA7-462A-848D-E5A9D8038CBF"},
    {kFreeSpaceLow, L"E9243D9D-CBF2-4805-A000-71649ED079A2"},
    {kFileSystemError, L"6859E5CA-F65F-4A2E-9774-BADC1D0D0657"},
};

StoreEventMonitor::StoreEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines, &kUseRow},
                       TVK::ReportRule{.item = kReadVolume,
                                       .report = [this] { ReadVolumePerInterval(); },
                                       .caller = L"StoreEventMonitor::ReadAndUpdateDatasetSettings"}),
      info_(monitor_services, log_) {}

void StoreEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"", L"StoreEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  // Before the drives are looked at, so that none comes unseen in between.
  if (!arrivals_.Follow(services().runtime, log_, [this] { LogDatasetContext(false); })) {
    TellShortage(TVK::Shortage::kStart);
    return;
  }
  LogDatasetContext(false);
  InitialiseDevice();
  LookAtVolumes(false);
  FollowSettings();
}

void StoreEventMonitor::OnSystemEvent(const platform::SystemEvent& event) {
  if (!arrivals_.OnSystemEvent(event)) TellShortage(TVK::Shortage::kSettings);
}

void StoreEventMonitor::ReadAndUpdateDatasetSettings() {
  ScheduledMonitor::ReadAndUpdateDatasetSettings();
  if (!arrivals_.Retry()) TellShortage(TVK::Shortage::kSettings);
}

void StoreEventMonitor::StopMonitor() {
  ScheduledMonitor::StopMonitor();  // first: its event ends a look at drives that do not answer
  arrivals_.End();
}

bool StoreEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  const TVK::StoreSettings fresh = TVK::ReadStoreSettings(settings);
  const bool changed = TakeInterval(fresh.read_usage_interval_ms, fresh.readings);
  log_.d(L"%s: ReadUsageInterval = %llu, bReadUsageIntervalChanged = %d",
         L"StoreEventMonitor::UpdateThrottleParameters", fresh.read_usage_interval_ms, changed);
  return changed;
}

std::optional<std::vector<TVK::DescribedDevice>> StoreEventMonitor::Describe() {
  const auto asked = info_.AskVolumes();  // first: a volume that hangs takes no longer than a drive beside it
  std::vector<TVK::DescribedDevice> devices = info_.ReadDrives(stop_event());
  const bool use = AdmitsUse();
  const auto volumes = asked(stop_event());
  if (stopping()) return std::nullopt;  // perhaps not all of them
  {
    const std::lock_guard lock(mutex_);
    if (volumes) described_ = DevicesOf(*volumes);
    described_use_ = use;
    devices.insert(devices.end(), described_.begin(), described_.end());
  }
  for (TVK::DescribedDevice& device : devices)
    SanitizeItemData(device.facts, L"UnKnown");
  return devices;
}

bool StoreEventMonitor::IsDescribed(const std::vector<DiskVolume>& volumes) {
  const bool use = AdmitsUse();
  const std::lock_guard lock(mutex_);
  return described_ == DevicesOf(volumes) && described_use_ == use;
}

void StoreEventMonitor::LookAtVolumes(bool with_report) {
  if (!Admits()) return;
  const auto volumes = info_.AskVolumes()(stop_event());
  if (!volumes) return;
  // A drive that slept may tell by now who it is.
  if (!IsDescribed(*volumes) || (with_report && !info_.KnewAllDrives())) LogDatasetContext(false);
  for (const DiskVolume& volume : *volumes) {
    if (stopping()) return;
    if (volume.device.of_use && !AdmitsUse()) continue;
    if (with_report && AdmitsUse()) WriteItemOfUse(kReadVolume, VolumeToItemData(volume), volume.device.key);
    CheckSpace(volume);
    CheckErrors(volume);
  }
}

void StoreEventMonitor::CheckSpace(const DiskVolume& volume) {
  const auto& space = volume.volume.space;
  // A stick is full as often as not, and nobody can make room where nobody can write.
  if (!space || volume.volume.read_only || volume.volume.role == platform::VolumeRole::kRemovable) return;
  const auto known = Known(kFreeSpaceLow, volume);
  if (!known) return;
  const bool was_low = *known == kLow;
  const bool low = was_low ? !IsEnough(*space) : IsLow(*space);
  if (low == was_low) return;
  ItemData data = SpaceToItemData(*space);
  data[L"Low"] = low ? L"true" : L"false";
  WriteChange(kFreeSpaceLow, std::move(data), volume, low ? kLow : kEnough);
}

void StoreEventMonitor::CheckErrors(const DiskVolume& volume) {
  if (!volume.volume.errors) return;
  const auto known = Known(kFileSystemError, volume);
  const std::wstring count = std::to_wstring(*volume.volume.errors);
  if (!known || count == (known->empty() ? L"0" : *known)) return;
  WriteChange(kFileSystemError, {{L"FileSystemErrors", count}}, volume, count);
}

std::optional<std::wstring> StoreEventMonitor::Known(const wchar_t* item, const DiskVolume& volume) const {
  std::wstring known;
  const int error = services().store.GetState(dataset_id, StateKey(item, volume), known);
  if (error != 0 && error != TVK::kStoreNotFound) return std::nullopt;
  return known;
}

void StoreEventMonitor::WriteChange(const wchar_t* item, ItemData data, const DiskVolume& volume,
                                    const std::wstring& known) {
  WriteItem(item, std::move(data), volume.device.key, {StateKey(item, volume), known});
}
