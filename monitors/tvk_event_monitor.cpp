#include "monitors/tvk_event_monitor.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "client/channel/session_recorder.h"
#include "client/text/guid.h"
#include "client/text/string.h"

namespace {

using TVK::SessionRecorder;

constexpr TVK::MonitorLines kLines = {
    .context_decision = L"a dataset context is needed: %s; the manager logs on change: %s",
    .context_failure = L"the store took no dataset context: %d",
    .init_failure = L"a device-initialisation event was not written",
    .item_failure = L"LogItemEvent(%s): the store's result is %d",
};
constexpr wchar_t kDeviceInit[] = L"DeviceInit";
constexpr std::size_t kLongestName = 64;

// Their own names: none that a table, a terminal or a query would have to escape.
bool IsName(const std::wstring& text) {
  const auto is_letter = [](wchar_t c) { return (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z'); };
  const auto may_follow = [&](wchar_t c) {
    return is_letter(c) || (c >= L'0' && c <= L'9') || c == L'.' || c == L'-' || c == L'_';
  };
  return !text.empty() && text.size() <= kLongestName && is_letter(text.front()) &&
         std::ranges::all_of(text, may_follow);
}

// What is wrong with it; empty: nothing.
std::string FaultOf(const std::wstring& item_name, const ItemData& data) {
  if (item_name == kDeviceInit) return "the item \"DeviceInit\" is the service's own";
  const auto bad_key = std::ranges::find_if(data, [](const auto& entry) { return !IsName(entry.first); });
  const std::wstring* const bad = !IsName(item_name) ? &item_name : bad_key != data.end() ? &bad_key->first : nullptr;
  if (bad == nullptr) return {};
  return '"' + TVK::String::UTF16ToUTF8(*bad) +
         "\" is no name: a letter, and at most 63 letters, digits, dots, dashes and underscores";
}

const std::map<std::wstring, std::wstring>& NoFixedItems() {
  static const auto* const items = new std::map<std::wstring, std::wstring>;  // monitors live until the process ends
  return *items;
}

}  // namespace

TVKEventMonitor::TVKEventMonitor(const TVK::MonitorServices& services)
    : TVKEventMonitorBase(services, {TVK::kTvkEventRow, NoFixedItems(), kLines}) {}

TVK::TakenEvent TVKEventMonitor::TakeEvent(const std::wstring& item_name, const ItemData& data,
                                           TVK::EventSender sender) {
  if (!Admits()) return {kWithheld, "there is no consent"};
  const Taken slot{services().runtime.clock().Elapsed(), sender};
  {
    const std::lock_guard lock(take_mutex_);
    // Of the policy in force now: nobody tells this monitor of a change. A policy without settings of it widens
    // nothing.
    settings_ = TVK::ReadTvkEventSettings({});
    UpdateDatasetSettingsFromConfigPolicy(std::wstring(identity().row.id));
    if (sender == TVK::EventSender::kUser && !settings_.users_may_send) {
      return {SessionRecorder::kRefused, "the policy takes events of administrators alone (its setting \"Senders\")"};
    }
    if (std::string fault = FaultOf(item_name, data); !fault.empty()) return {SessionRecorder::kRefused, fault};
    if (std::string reason; !HasRoom(sender, reason)) return {SessionRecorder::kRefused, reason, true};
    taken_.push_back(slot);
  }
  int error = 0;
  try {
    DescribeOnce();
    error = WriteItem(item_name, data);
  } catch (...) {
    GiveBack(slot);
    throw;
  }
  if (error == 0) return {};
  GiveBack(slot);
  return {error, "the event store did not take it, result " + std::to_string(error)};
}

void TVKEventMonitor::DescribeOnce() {
  const std::lock_guard lock(describe_mutex_);
  if (described_.exchange(true)) return;
  try {
    LogDatasetContext(false);
    InitialiseDevice();
  } catch (...) {
    described_ = false;  // the next event tries again
    throw;
  }
}

void TVKEventMonitor::GiveBack(const Taken& slot) {
  const std::lock_guard lock(take_mutex_);
  const auto place = std::ranges::find(taken_, slot);
  if (place != taken_.end()) taken_.erase(place);
}

bool TVKEventMonitor::HasRoom(TVK::EventSender sender, std::string& reason) {
  constexpr std::chrono::hours kSpan(1);
  const platform::ElapsedTime now = services().runtime.clock().Elapsed();
  std::erase_if(taken_, [&](const Taken& each) { return now - each.when >= kSpan; });
  const std::size_t all = settings_.events_per_hour;
  const std::size_t of_users = all / 2;
  if (sender == TVK::EventSender::kUser && of_users == 0) {
    reason = "the policy's quota of " + std::to_string(all) + " event an hour leaves none to users";
    return false;
  }
  // When the event is an hour old whose end makes room, of those that count against a limit.
  const auto end = [&](std::size_t limit, bool users_alone) -> std::optional<platform::ElapsedTime> {
    std::vector<platform::ElapsedTime> counted;
    for (const Taken& each : taken_) {
      if (!users_alone || each.sender == TVK::EventSender::kUser) counted.push_back(each.when);
    }
    if (counted.size() < limit) return std::nullopt;
    std::ranges::sort(counted);  // those that come together enter in any order
    return counted[counted.size() - limit] + kSpan;
  };
  const auto all_end = end(all, false);
  const auto users_end = sender == TVK::EventSender::kUser ? end(of_users, true) : std::nullopt;
  if (!all_end && !users_end) return true;
  const auto left =
      std::chrono::ceil<std::chrono::minutes>(std::max(all_end.value_or(now), users_end.value_or(now)) - now);
  reason = "the policy's quota of " + std::to_string(all_end ? all : of_users) + " events an hour" +
           (all_end ? "" : " for users") + " is used up; there is room in " + std::to_string(left.count()) + " min";
  return false;
}

bool TVKEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  settings_ = TVK::ReadTvkEventSettings(settings);
  return false;  // there is no schedule
}

std::optional<std::vector<TVK::DescribedDevice>> TVKEventMonitor::Describe() {
  if (!described_) return std::nullopt;
  return std::vector<TVK::DescribedDevice>(1);
}

std::optional<std::wstring> TVKEventMonitor::FindItemId(const std::wstring& item_name) const {
  return TVK::Utility::CGuid::OfName(identity().row.id, item_name);
}
