// How a monitor's records are filled and when a dataset context is written anew.
#include <algorithm>

#include "client/text/guid.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "framework/event_monitor_base.h"

using TVK::String;

bool EventMonitorBase::IsNewDatasetContextNeeded(const std::wstring& dataset_id, const ItemData& facts,
                                                 bool new_context_needed, std::wstring& current_id) {
  DatasetContext last;
  if (services_->store.GetLastDatasetContext(dataset_id, last) != 0) return true;
  const bool same_facts = std::ranges::all_of(facts, [&](const auto& fact) {
    const auto found = last.item_data().find(fact.first);
    return found != last.item_data().end() && found->second == fact.second;
  });
  if (!same_facts || new_context_needed) return true;
  current_id = last.dataset_context_id();
  return false;
}

int EventMonitorBase::WriteDatasetContext(const DatasetRow& dataset, const ItemData& facts, std::wstring& current_id) {
  current_id = TVK::Utility::CGuid::NewGuid(true);
  DatasetContext context;
  context.set_dataset_context_id(current_id);
  context.set_source(std::wstring(dataset.source));
  context.set_source_component(String::ToUpper(services_->tvk_info.GetId()));
  context.set_schema_ver(services_->manager.get_schema_ver());
  context.set_device_context_id(services_->manager.get_device_context_id());
  context.set_dataset_id(std::wstring(dataset.id));
  context.set_dataset_name(std::wstring(dataset.name));
  context.set_dataset_type(std::wstring(dataset.type));
  context.set_dataset_context_datetime(TVK::System::GetTime(services_->runtime.clock()));
  context.set_item_data(facts);
  return services_->store.LogDatasetContext(context);
}

int EventMonitorBase::WriteItemEvent(const DatasetRow& dataset, const std::wstring& dataset_context_id,
                                     const std::wstring& item_name, const std::wstring& item_id, ItemData data) {
  ItemEvent event;
  event.set_source(std::wstring(dataset.source));
  event.set_source_component(String::ToUpper(services_->tvk_info.GetId()));
  event.set_schema_ver(services_->manager.get_schema_ver());
  event.set_device_context_id(services_->manager.get_device_context_id());
  event.set_dataset_id(std::wstring(dataset.id));
  event.set_dataset_context_id(dataset_context_id);
  event.set_dataset_name(std::wstring(dataset.name));
  event.set_item_time(TVK::System::GetTime(services_->runtime.clock()));
  event.set_item_name(item_name);
  event.set_item_id(item_id);
  event.set_item_data(std::move(data));
  return services_->store.LogItemEvent(event);
}
