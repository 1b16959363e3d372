// The device context: what it holds, when a new one is due, and who is told.
#include <algorithm>

#include "client/records/records.h"
#include "client/text/guid.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "core/event_manager_state.h"
#include "platform/region.h"

using namespace manager_names;  // NOLINT(google-build-using-namespace): the manager's own constants
using TVK::String;

namespace {

constexpr wchar_t kSourceComponent[] = L"tvk/devicecontext";
constexpr wchar_t kChannel[] = L"Preload";
// Names this component among those of the client that write device contexts.
constexpr wchar_t kClientKey[] = L"TVK-EVENTMANAGER";

}  // namespace

bool EventManager::NewDeviceContextData(DeviceContext& context, bool /*notify*/) {
  State& state = *state_;
  const MachineInformation machine = state.services.machine_information.Frozen();
  DeviceInfo& device = context.device_info();
  device.set_device_id(get_DeviceId());
  device.set_device_id2(get_LegacyDeviceId());
  device.set_device_name(machine.device_model());
  device.set_device_manufacturer(machine.device_manufacturer());
  device.set_device_brand(machine.device_brand());
  device.set_device_subbrand(machine.device_subbrand());
  device.set_device_family(machine.device_family());
  device.set_device_modeltype(machine.device_mt());
  device.set_device_enclosuretype(machine.device_enclosuretype());
  device.set_device_biosversion(machine.device_bios_version());
  device.set_device_ecversion(machine.device_ec_version());
  device.set_device_smbiosversion(machine.device_smbios_version());
  device.set_os_name(machine.os_name());
  device.set_os_version(machine.os_version());
  device.set_os_language(machine.os_language());
  device.set_os_country(machine.os_region());
  device.set_os_updatetitle(machine.os_update_title());
  device.set_os_updatedescription(machine.os_update_description());
  device.set_device_info_datetime(machine.device_info_datetime());
  device.set_device_extensionkeyvalue(machine.device_extension_keyvalue());
  TvkPolicy tvk_policy;
  if (state.services.config.GetTvkPolicy(tvk_policy)) {
    device.set_device_path(tvk_policy.device_path);
    device.set_device_subscription(tvk_policy.device_subscription);
  } else {
    state.log.e(L"%s: Get TVKPolicy return fail", L"EventManager::NewDeviceContextData");
    // A file that cannot be used says nothing new: the device belongs where it did.
    if (DeviceContext last; state.services.store.GetLastDeviceContext(last) == 0) {
      device.set_device_path(last.device_info().device_path());
      device.set_device_subscription(last.device_info().device_subscription());
    }
  }

  const RegionInformation::Facts facts = state.services.region_information.Describe(machine.region());
  RegionInfo& region = context.region_info();
  region.set_region_name(facts.region_name);
  region.set_country_name(facts.country_name);
  region.set_country_code(facts.country_code);
  region.set_language_name(facts.language_name);
  region.set_language_code(facts.language_code);
  region.set_region_info_datetime(facts.region_info_datetime);

  TVKInfo& tvk = context.tvk_info();
  tvk.set_tvk_key(kClientKey);
  tvk.set_tvk_channel(kChannel);
  tvk.set_tvk_id(state.services.tvk_info.GetId());
  tvk.set_tvk_version(state.services.tvk_info.GetVersion());
  tvk.set_tvk_name(state.services.tvk_info.GetName());
  tvk.set_tvk_datetime(state.services.tvk_info.GetInfoDatetime());

  context.set_device_context_id(TVK::Utility::CGuid::NewGuid(true));
  context.set_device_context_datetime(TVK::System::GetTime(state.services.runtime.clock()));
  context.set_schema_ver(get_schema_ver());
  context.set_source_component(kSourceComponent);
  return true;
}

bool EventManager::CheckDeviceContextData(DeviceContext& fresh, DeviceContext& stored) {
  const auto differs = [](const auto& a, const auto& b, auto... fields) {
    return (((a.*fields)() != (b.*fields)()) || ...);
  };
  // The times of looking and the extension values say nothing about the device itself.
  return differs(fresh.device_info(), stored.device_info(), &DeviceInfo::device_id, &DeviceInfo::device_id2,
                 &DeviceInfo::device_name, &DeviceInfo::device_manufacturer, &DeviceInfo::device_brand,
                 &DeviceInfo::device_subbrand, &DeviceInfo::device_family, &DeviceInfo::device_modeltype,
                 &DeviceInfo::device_enclosuretype, &DeviceInfo::device_biosversion, &DeviceInfo::device_ecversion,
                 &DeviceInfo::device_smbiosversion, &DeviceInfo::os_name, &DeviceInfo::os_version,
                 &DeviceInfo::os_language, &DeviceInfo::os_country, &DeviceInfo::os_updatetitle,
                 &DeviceInfo::os_updatedescription, &DeviceInfo::device_path, &DeviceInfo::device_subscription) ||
         differs(fresh.region_info(), stored.region_info(), &RegionInfo::region_name, &RegionInfo::country_name,
                 &RegionInfo::country_code, &RegionInfo::language_name, &RegionInfo::language_code) ||
         differs(fresh.tvk_info(), stored.tvk_info(), &TVKInfo::tvk_id, &TVKInfo::tvk_version, &TVKInfo::tvk_name,
                 &TVKInfo::tvk_channel, &TVKInfo::tvk_key) ||
         fresh.schema_ver() != stored.schema_ver();
}

void EventManager::LogDeviceContextData(bool log_it, DeviceContext& context, bool notify) {
  State& state = *state_;
  unsigned path_news = 0;
  {
    const std::lock_guard values(state.value_lock);
    path_news = state.device_path_news;
  }
  DeviceContext fresh;
  if (!NewDeviceContextData(fresh, notify)) {
    state.log.e(L"EventManager::LogDeviceContextData NewDeviceContextData() return fail !!");
    return;
  }
  DeviceContext stored;
  bool needed = true;
  bool first = true;
  const bool known = state.services.store.GetLastDeviceContext(stored) == 0;
  if (known) {
    needed = CheckDeviceContextData(fresh, stored);
    first = stored.tvk_info().tvk_id() != fresh.tvk_info().tvk_id();
  }
  if (first) set_FirstInvocation(true);
  state.log.d(
      L"EventManager LogDeviceContextData bIsNeedNewDeviceContext is %s, bIsNeedToLogDeviceContextOnChange is %s.",
      needed ? L"true" : L"false", log_it ? L"true" : L"false");
  if (needed) {
    context = fresh;
    if (log_it) {
      const int error = state.services.store.LogDeviceContext(context);
      if (error != 0) {
        state.log.e(L"%s : LogDeviceContext() return error: %d", L"EventManager::LogDeviceContextData", error);
      }
    }
  } else {
    context = stored;
  }
  set_device_context_id(context.device_context_id());

  const auto wakers = state.CopyWakers();
  const bool tell = wakers.device_context_change != nullptr && needed;
  const bool moved = known && stored.device_info().device_path() != fresh.device_info().device_path();
  {
    const std::lock_guard values(state.value_lock);
    if (tell) {
      state.context_change_pending = true;
      // Perhaps the policy is in force and its notification still on the way.
      state.device_path_change = state.device_path_change || moved;
    } else if (!needed && !state.context_change_pending && state.device_path_news == path_news) {
      // A path that changed and changed back before anybody looked is no change that a later context should tell of.
      state.device_path_change = false;
    }
  }
  if (!tell) return;
  constexpr wchar_t kThis[] = L"EventManager::LogDeviceContextData";
  state.log.d(L"%s Sending event on logging Device Context with deviceContextid: ! %s: ", kThis,
              context.device_context_id());
  wakers.device_context_change->Set();
  if (ValidateDisplayEventWithNewPolicy()) {
    state.SignalGlobalEvent(kTvkPolicyChangeEvent, L"%s Send Notification to User Agent on TVKPolicyChange:", kThis);
  }
  if (IsDevicePathChange()) {
    state.SignalGlobalEvent(kDevicePathChangeEvent, L"%s Send Notification to User Agent on DevicePath Change:", kThis);
  }
}

void EventManager::State::SignalGlobalEvent(const wchar_t* name, TVK::CheckedWideFormat<std::wstring> message,
                                            const std::wstring& caller) {
  const platform::NamedEventResult opened = services.runtime.OpenNamedEvent(name);
  if (opened.event == nullptr) return;
  log.d(message, caller);
  opened.event->Set();
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the public class takes its texts by value.
int EventManager::DecideTVKVer(std::wstring version) {
  State& state = *state_;
  std::wstring current = String::ToUpper(state.services.tvk_info.GetVersion());
  if (current.empty()) current = L"Unknow";
  const auto& datasets = state.services.datasets.datasets();
  const auto asking = std::ranges::find_if(datasets, [&](const Dataset& dataset) { return dataset.row.id == version; });
  ItemEvent last;
  const int error =
      asking != datasets.end()
          ? state.services.store.GetLastItemEventWithItemId(version, EventMonitorBase::DeviceInitItemId, last)
          : state.services.store.GetLastItemEventOfAnyDataset(EventMonitorBase::DeviceInitItemId, last);
  DeviceContext context;
  if (error != 0 || state.services.store.GetDeviceContext(last.device_context_id(), context) != 0) return 2;
  return String::ToUpper(context.tvk_info().tvk_version()) == current ? 0 : 1;
}
