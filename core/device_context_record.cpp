#include "core/device_context_record.h"

#include <algorithm>
#include <utility>

#include "client/log/guarded_thread.h"
#include "client/records/record_fields.h"
#include "client/text/guid.h"
#include "client/text/record_time.h"
#include "platform/region.h"

namespace TVK {

namespace {

constexpr wchar_t kSourceComponent[] = L"tvk/devicecontext";
constexpr wchar_t kChannel[] = L"Preload";
// Names this component among those of the client that write device contexts.
constexpr wchar_t kClientKey[] = L"TVK-EVENTMANAGER";

}  // namespace

DeviceContextRecord::DeviceContextRecord(const ManagerServices& services, const TVK::Log& log, IdentityValues& identity,
                                         Notifier& notifier, const DisplayProcess& display)
    : services_(services), log_(log), identity_(identity), notifier_(notifier), display_(display) {}

bool DeviceContextRecord::NewDeviceContextData(DeviceContext& context) const {
  return TVK::CallLogged(log_, L"EventManager::NewDeviceContextData", [&] { Fill(context); });
}

void DeviceContextRecord::Fill(DeviceContext& context) const {
  const MachineInformation machine = services_.machine_information.Frozen();
  DeviceInfo& device = context.device_info();
  device.set_device_id(identity_.Get(&IdentityValues::Values::device_id));
  device.set_device_id2(identity_.Get(&IdentityValues::Values::legacy_device_id));
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
  device.set_os_updatetitle(machine.os_update_title());
  device.set_os_updatedescription(machine.os_update_description());
  device.set_device_info_datetime(machine.device_info_datetime());
  device.set_device_extensionkeyvalue(machine.device_extension_keyvalue());
  TvkPolicy tvk_policy;
  if (services_.config.GetTvkPolicy(tvk_policy)) {
    device.set_device_path(tvk_policy.device_path);
    device.set_device_subscription(tvk_policy.device_subscription);
  } else {
    log_.e(L"%s: Get TVKPolicy return fail", L"EventManager::NewDeviceContextData");
    // A file that cannot be used says nothing new: the device belongs where it did.
    if (const auto last = Last()) {
      device.set_device_path(last->device_info().device_path());
      device.set_device_subscription(last->device_info().device_subscription());
    }
  }
  FillRegion(machine, context);

  TVKInfo& tvk = context.tvk_info();
  tvk.set_tvk_key(kClientKey);
  tvk.set_tvk_channel(kChannel);
  tvk.set_tvk_id(services_.tvk_info.GetId());
  tvk.set_tvk_version(services_.tvk_info.GetVersion());
  tvk.set_tvk_name(services_.tvk_info.GetName());
  tvk.set_tvk_datetime(services_.tvk_info.GetInfoDatetime());

  context.set_device_context_id(Utility::CGuid::NewGuid(true));
  context.set_device_context_datetime(System::GetTime(services_.runtime.clock()));
  context.set_schema_ver(identity_.get_schema_ver());
  context.set_source_component(kSourceComponent);
}

void DeviceContextRecord::FillRegion(const MachineInformation& machine, DeviceContext& context) const {
  const platform::RegionFacts present = machine.region();
  if (!present.of_somebody) {
    // At a boot nobody is logged on yet: were that another region, each boot would have two contexts.
    if (const auto last = Last()) {
      context.device_info().set_os_country(last->device_info().os_country());
      context.region_info() = last->region_info();
      return;
    }
  }
  context.device_info().set_os_country(machine.os_region());
  const RegionInformation::Facts facts = services_.region_information.Describe(present);
  RegionInfo& region = context.region_info();
  region.set_region_name(facts.region_name);
  region.set_country_name(facts.country_name);
  region.set_country_code(facts.country_code);
  region.set_language_name(facts.language_name);
  region.set_language_code(facts.language_code);
  region.set_region_info_datetime(facts.region_info_datetime);
}

std::optional<DeviceContext> DeviceContextRecord::Last() const {
  std::optional<DeviceContext> last(std::in_place);
  if (services_.store.GetLastDeviceContext(*last) != 0) last.reset();
  return last;
}

bool DeviceContextRecord::CheckDeviceContextData(const DeviceContext& fresh, const DeviceContext& stored) {
  const auto differs = [](const auto& a, const auto& b, const auto& fields) {
    return std::ranges::any_of(
        fields, [&](const auto& field) { return field.compared && (a.*field.get)() != (b.*field.get)(); });
  };
  return differs(fresh.device_info(), stored.device_info(), kDeviceInfoFields) ||
         differs(fresh.region_info(), stored.region_info(), kRegionInfoFields) ||
         differs(fresh.tvk_info(), stored.tvk_info(), kTvkInfoFields) || differs(fresh, stored, kDeviceContextFields);
}

void DeviceContextRecord::Log(bool log_it, DeviceContext& context) {
  unsigned path_news = 0;
  {
    const std::lock_guard lock(mutex_);
    path_news = path_news_;
  }
  DeviceContext fresh;
  if (!NewDeviceContextData(fresh)) {
    log_.e(L"EventManager::LogDeviceContextData NewDeviceContextData() return fail !!");
    return;
  }
  DeviceContext stored;
  bool needed = true;
  const int read = services_.store.GetLastDeviceContext(stored);
  const bool known = read == 0;
  // A store that cannot be read may hold one: what it holds tells each monitor whether it has begun.
  bool first = read == kStoreNotFound;
  if (known) {
    needed = CheckDeviceContextData(fresh, stored);
    first = stored.tvk_info().tvk_id() != fresh.tvk_info().tvk_id();
  }
  if (first) identity_.Set(&IdentityValues::Values::first_invocation, true);
  log_.d(L"EventManager LogDeviceContextData bIsNeedNewDeviceContext is %s, bIsNeedToLogDeviceContextOnChange is %s.",
         needed ? L"true" : L"false", log_it ? L"true" : L"false");
  context = needed ? fresh : stored;
  if (needed && !log_it) services_.store.RememberDeviceContext(context);
  if (needed && log_it) {
    const int error = services_.store.LogDeviceContext(context);
    if (error != 0) {
      log_.e(L"%s : LogDeviceContext() return error: %d", L"EventManager::LogDeviceContextData", error);
    }
  }
  identity_.SetDeviceContext(context.device_context_id(), context.device_info().device_path());
  const bool moved = known && stored.device_info().device_path() != fresh.device_info().device_path();
  Announce(context.device_context_id(), needed, moved, path_news);
}

void DeviceContextRecord::Announce(const std::wstring& id, bool needed, bool moved, unsigned path_news) {
  const auto wake_up = notifier_.wake_ups().device_context_change;
  const bool tell = wake_up != nullptr && needed;
  {
    const std::lock_guard lock(mutex_);
    if (tell) {
      announced_ = true;
      // Perhaps the policy is in force and its notification still on the way.
      path_change_ = path_change_ || moved;
    } else if (!needed && !announced_ && path_news_ == path_news) {
      // A path that changed and changed back before anybody looked is no change that a later context should tell of.
      path_change_ = false;
    }
  }
  if (!tell) return;
  constexpr wchar_t kThis[] = L"EventManager::LogDeviceContextData";
  log_.d(L"%s Sending event on logging Device Context with deviceContextid: ! %s: ", kThis, id);
  wake_up->Set();
  if (display_.ValidateDisplayEventWithNewPolicy()) {
    notifier_.SignalUserAgent(kTvkPolicyChangeEvent,
                              [&] { log_.d(L"%s Send Notification to User Agent on TVKPolicyChange:", kThis); });
  }
  if (IsDevicePathChange()) {
    notifier_.SignalUserAgent(kDevicePathChangeEvent,
                              [&] { log_.d(L"%s Send Notification to User Agent on DevicePath Change:", kThis); });
  }
}

void DeviceContextRecord::RememberDevicePathChange() {
  const std::lock_guard lock(mutex_);
  path_change_ = true;
  ++path_news_;
}

bool DeviceContextRecord::IsDevicePathChange() const {
  const std::lock_guard lock(mutex_);
  return path_change_;
}

bool DeviceContextRecord::TakeDevicePathChange() {
  const std::lock_guard lock(mutex_);
  announced_ = false;
  return std::exchange(path_change_, false);
}

void DeviceContextRecord::ForgetAnnouncement() {
  const std::lock_guard lock(mutex_);
  announced_ = false;
}

}  // namespace TVK
