#include "framework/dataset_monitor.h"

#include <algorithm>
#include <utility>

#include "client/log/named_event.h"
#include "client/log/wide_format.h"
#include "client/text/guid.h"
#include "client/text/record_time.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr int kDropped = -1;

}  // namespace

std::wstring MonitorLine::With(std::initializer_list<std::wstring_view> texts, std::int64_t number,
                               std::wstring_view caller) const {
  std::wstring line;
  auto text = texts.begin();
  const wchar_t* at = text_;
  if (!caller.empty() && std::wstring_view(text_).starts_with(L"%s:")) {
    line = caller;
    at += 2;
  }
  for (; *at != 0; ++at) {
    if (*at != L'%') {
      line += *at;
    } else if (*++at == L'd') {
      line += std::to_wstring(number);
    } else {
      line += *text++;
    }
  }
  return line;
}

DatasetMonitor::DatasetMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity)
    : EventMonitorBase(monitor_services.manager.get_svrHandle(), false, monitor_services), identity_(identity) {
  utility::InitLog(log_, std::wstring(identity_.row.log) + L".log", 4);
  context_event_ = MakeNamedEvent(monitor_services.runtime, log_, DatasetContextEventName(identity.row),
                                  platform::EventReset::kManual, platform::EventAccess::kServiceOnly)
                       .event;
}

void DatasetMonitor::Initialize() {
  if (log_.is_open() && !identity_.lines.log_opened.empty()) {
    log_.d(L"%s", identity_.lines.log_opened.With({}, 0, Operation(L"Initialize")));
  }
}

std::wstring DatasetMonitor::Operation(std::wstring_view name) const {
  return std::wstring(identity_.row.log).append(L"::").append(name);
}

void DatasetMonitor::ResetContextEvent() const {
  if (context_event_ != nullptr) context_event_->Reset();
}

void DatasetMonitor::LogDatasetContext(bool new_context_needed) {
  std::vector<Change> changes;
  {
    const std::lock_guard lock(context_mutex_);
    context_owed_ = !Admits();
    if (context_owed_) return OnContextLogged(kWithheld);
    const auto devices = Describe();
    if (!devices) return;
    ResetContextEvent();
    Ids ids;
    for (const DescribedDevice& device : *devices) {
      if (!device.of_use || AdmitsUse()) LogContextOf(device, new_context_needed, ids, changes);
    }
    context_ids_ = std::move(ids);
    if (context_event_ != nullptr) context_event_->Set();
  }
  for (const Change& change : changes)
    OnDescriptionChanged(change.device, change.before);
}

void DatasetMonitor::LogContextOf(const DescribedDevice& device, bool new_context_needed, Ids& ids,
                                  std::vector<Change>& changes) {
  const MonitorLines& lines = identity_.lines;
  DatasetContext last;
  const bool described = FindPresentContext(device.key, last);
  const ItemData before = last.item_data();
  const bool same = described && (IsSameDescription(before, device.facts) || FindEarlierContext(device, last));
  const bool in_force = last.device_context_id() == services().manager.get_device_context_id();
  const bool needed = !same || !in_force || new_context_needed;
  log_.d(L"%s",
         lines.context_decision.With({needed ? L"true" : L"false",
                                      services().manager.get_NeedToLogDatasetContextOnChange() ? L"true" : L"false"},
                                     0, Operation(L"LogDatasetContext")));
  if (!needed) {
    ids[device.key] = {last.dataset_context_id(), last.device_context_id(), device.of_use};
    return;
  }
  const DatasetContext context = MakeContext(device.facts);
  int error = 0;
  const auto write = [&] { error = services().store.LogDatasetContext(context, device.key); };
  if (!services().consent.WriteIfAdmitted(RowFor(device.of_use), write)) {
    // What tells of use is described again when that is admitted again, and keeps nothing else waiting until then.
    context_owed_ = context_owed_ || !device.of_use;
    OnContextLogged(kWithheld);
    return;
  }
  ids[device.key] = {context.dataset_context_id(), context.device_context_id(), device.of_use};
  OnContextLogged(error);
  if (error != 0) log_.e(L"%s", lines.context_failure.With({}, error, Operation(L"LogDatasetContext")));
  if (described && !same) changes.push_back({device, before});
}

bool DatasetMonitor::FindPresentContext(const std::wstring& key, DatasetContext& context) const {
  const std::wstring dataset(identity_.row.id);
  if (services().store.GetLastDatasetContextOfDevice(dataset, key, context) != 0) return false;
  // It may be one of before the last.
  const auto used = context_ids_.find(key);
  if (used == context_ids_.end() || used->second.dataset_context == context.dataset_context_id()) return true;
  std::vector<DatasetContext> earlier;
  services().store.GetEarlierDatasetContexts(dataset, earlier, key);
  const auto found = std::ranges::find(earlier, used->second.dataset_context, &DatasetContext::dataset_context_id);
  if (found != earlier.end()) context = *found;
  return true;
}

bool DatasetMonitor::FindEarlierContext(const DescribedDevice& device, DatasetContext& context) const {
  std::vector<DatasetContext> earlier;
  services().store.GetEarlierDatasetContexts(std::wstring(identity_.row.id), earlier, device.key);
  const auto found = std::ranges::find_if(
      earlier, [&](const DatasetContext& one) { return IsEarlierDescription(one.item_data(), device.facts); });
  if (found == earlier.end()) return false;
  context = *found;
  return true;
}

DatasetContext DatasetMonitor::MakeContext(const ItemData& facts) const {
  const DatasetRow& row = identity_.row;
  DatasetContext context;
  context.set_dataset_context_id(Utility::CGuid::NewGuid(true));
  context.set_source(std::wstring(row.source));
  context.set_source_component(String::ToUpper(services().tvk_info.GetId()));
  context.set_schema_ver(services().manager.get_schema_ver());
  context.set_device_context_id(services().manager.get_device_context_id());
  context.set_dataset_id(std::wstring(row.id));
  context.set_dataset_name(std::wstring(row.name));
  context.set_dataset_type(std::wstring(row.type));
  context.set_dataset_context_datetime(System::GetTime(services().runtime.clock()));
  context.set_item_data(facts);
  return context;
}

void DatasetMonitor::InitialiseDevice() {
  const bool all = IsNewDeviceInitNeeded(std::wstring(identity_.row.id));
  init_owed_ = all && !Admits();
  if (!Admits()) return;
  if ((all ? LogDevInitEvent() : LogDevInits(WithoutInit(DescribedKeys()))) != 0)
    log_.d(L"%s", identity_.lines.init_failure.With({}));
  SetDevicePathChanged(false);
}

std::wstring DatasetMonitor::InitStateKey(const std::wstring& device_key) {
  return L"DeviceInit " + device_key;
}

int DatasetMonitor::ForgetDeviceInit(const std::wstring& device_key) {
  return services().store.KeepState(std::wstring(identity_.row.id), {InitStateKey(device_key), {}});
}

std::vector<std::wstring> DatasetMonitor::WithoutInit(std::vector<std::wstring> keys) {
  std::erase_if(keys, [&](const std::wstring& key) { return !TakesDeviceInit(key); });
  const std::size_t all = keys.size();
  std::erase_if(keys, [&](const std::wstring& key) {
    std::wstring of;
    return services().store.GetState(std::wstring(identity_.row.id), InitStateKey(key), of) == 0 &&
           services().manager.IsOfThisClient(of);
  });
  return keys.size() == all ? std::vector<std::wstring>() : keys;
}

int DatasetMonitor::LogDevInitEvent() {
  return LogDevInits(DescribedKeys());
}

int DatasetMonitor::LogDevInits(const std::vector<std::wstring>& keys) {
  const std::lock_guard one_at_a_time(init_mutex_);
  const std::wstring dataset(identity_.row.id);
  const std::wstring device_context = services().manager.get_device_context_id();
  int result = 0;
  for (const std::wstring& key : keys) {
    // By device, so that one whose item could not be written, or which came later, gets its own.
    const DatasetState done{InitStateKey(key), device_context};
    std::wstring of;
    if (services().store.GetState(dataset, done.key, of) == 0 && of == device_context) continue;
    if (!TakesDeviceInit(key)) continue;
    const int error = Write(L"DeviceInit", DeviceInitItemId, {{{}, done}}, key);
    if (result == 0 && error != kWithheld) result = error;
  }
  return result;
}

std::vector<std::wstring> DatasetMonitor::DescribedKeys() {
  std::unique_lock lock(context_mutex_);
  if (context_owed_) {
    lock.unlock();
    LogDatasetContext(true);
    lock.lock();
  }
  std::vector<std::wstring> keys;
  for (const auto& [key, ids] : context_ids_)
    keys.push_back(key);
  return keys;
}

bool DatasetMonitor::HasContext(const std::wstring& device_key) {
  const std::vector<std::wstring> keys = DescribedKeys();
  return std::ranges::find(keys, device_key) != keys.end();
}

int DatasetMonitor::WriteItem(const std::wstring& item_name, ItemData data, const std::wstring& device_key,
                              const DatasetState& state, ItemData of_use) {
  return WriteNamed(item_name, {{std::move(data), state, std::move(of_use)}}, device_key, false);
}

int DatasetMonitor::WriteItems(const std::wstring& item_name, std::vector<NewItem> items) {
  return items.empty() ? 0 : WriteNamed(item_name, std::move(items), {}, false);
}

int DatasetMonitor::WriteItemOfUse(const std::wstring& item_name, ItemData data, const std::wstring& device_key) {
  return WriteNamed(item_name, {{std::move(data)}}, device_key, true);
}

std::optional<std::wstring> DatasetMonitor::FindItemId(const std::wstring& item_name) const {
  const auto item = identity_.items.find(item_name);
  return item == identity_.items.end() ? std::nullopt : std::optional(item->second);
}

int DatasetMonitor::WriteNamed(const std::wstring& item_name, std::vector<NewItem> items,
                               const std::wstring& device_key, bool of_use) {
  const MonitorLines& lines = identity_.lines;
  const std::optional<std::wstring> item_id = FindItemId(item_name);
  if (!item_id) {
    log_.e(L"%s", lines.unknown_item.With({item_name}));
    return kDropped;
  }
  if (init_owed_) InitialiseDevice();
  const int error = Write(item_name, *item_id, std::move(items), device_key, of_use);
  if (error > 0 && !lines.item_failure.empty()) {
    log_.e(L"%s", lines.item_failure.With({lines.item_writer == nullptr ? item_name : lines.item_writer}, error));
  }
  return error;
}

bool DatasetMonitor::IsOfAnotherDeviceContext(const std::wstring& device_key) const {
  const auto ids = context_ids_.find(device_key);
  return ids != context_ids_.end() && ids->second.device_context != services().manager.get_device_context_id();
}

int DatasetMonitor::Write(const std::wstring& item_name, const std::wstring& item_id, std::vector<NewItem> items,
                          const std::wstring& device_key, bool of_use) {
  std::unique_lock lock(context_mutex_);
  if (context_owed_ || IsOfAnotherDeviceContext(device_key)) {
    const bool new_context_needed = context_owed_;
    lock.unlock();
    LogDatasetContext(new_context_needed);
    lock.lock();
    if (context_owed_) return kWithheld;
  }
  const auto ids = context_ids_.find(device_key);
  if (ids == context_ids_.end()) {
    log_.e(L"%s", identity_.lines.no_context.With({item_name, device_key}));
    return kDropped;
  }
  const DatasetRow& row = identity_.row;
  ItemEvent event;
  event.set_source(std::wstring(row.item_source.empty() ? row.source : row.item_source));
  event.set_source_component(String::ToUpper(services().tvk_info.GetId()));
  event.set_schema_ver(services().manager.get_schema_ver());
  event.set_device_context_id(ids->second.device_context);
  event.set_dataset_id(std::wstring(row.id));
  event.set_dataset_context_id(ids->second.dataset_context);
  const DatasetRow& consent_row = RowFor(of_use || ids->second.of_use);
  lock.unlock();
  event.set_dataset_name(std::wstring(row.name));
  event.set_item_time(System::GetTime(services().runtime.clock()));
  event.set_item_name(item_name);
  event.set_item_id(item_id);
  std::vector<ItemEventWithState> events;
  for (NewItem& item : items)
    events.push_back({event, std::move(item.state)});
  int error = kWithheld;
  const auto write = [&] { error = services().store.LogItemEvents(events); };
  if (std::ranges::any_of(items, [](const NewItem& item) { return !item.of_use.empty(); })) {
    for (std::size_t i = 0; i < items.size(); ++i) {
      items[i].of_use.insert(items[i].data.begin(), items[i].data.end());
      events[i].event.set_item_data(std::move(items[i].of_use));
    }
    if (services().consent.WriteIfAdmitted(RowFor(true), write)) return error;
  }
  for (std::size_t i = 0; i < items.size(); ++i)
    events[i].event.set_item_data(std::move(items[i].data));
  services().consent.WriteIfAdmitted(consent_row, write);
  return error;
}

}  // namespace TVK
