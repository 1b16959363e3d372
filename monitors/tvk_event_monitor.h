// The application-event monitor: what other programs of the machine tell becomes records.
#pragma once

#include <atomic>
#include <cstddef>
#include <deque>
#include <mutex>

#include "framework/tvk_event_monitor_base.h"
#include "monitors/tvk_event_settings.h"

namespace TVK {

/// The dataset of these events, with what signs its records.
inline constexpr DatasetRow kTvkEventRow = [] {
  DatasetRow row = DatasetRowNamed(L"TVKEvent");
  row.source = L"tvk/event";
  row.type = L"application-activity";
  return row;
}();

}  // namespace TVK

/// One dataset context without facts, written with the first event. Names of items and keys are the senders' own; the
/// id of an item is made from its name, so that it is the same on every machine. Any thread.
class TVKEventMonitor final : public TVKEventMonitorBase {
 public:
  explicit TVKEventMonitor(const TVK::MonitorServices& services);
  void UnInitialize() override {}

  /// kRefused for a name or a key that is no name (a letter, and at most 63 letters, digits, dots, dashes and
  /// underscores), for more than the policy's quota of an hour, and for a user where the policy names administrators.
  TVK::TakenEvent TakeEvent(const std::wstring& item_name, const ItemData& data, TVK::EventSender sender) override;

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;
  std::optional<std::wstring> FindItemId(const std::wstring& item_name) const override;

 private:
  struct Taken {
    platform::ElapsedTime when;
    TVK::EventSender sender;
    bool operator==(const Taken&) const = default;
  };
  /// Whether the quota has room for the sender: users have half of it together, rounded down, so that the rest is there
  /// for administrators. Else `reason` says when it has. With take_mutex_ held.
  bool HasRoom(TVK::EventSender sender, std::string& reason);
  /// Leaves the room to others that an event has taken which was not written.
  void GiveBack(const Taken& slot);
  /// The dataset context, and "DeviceInit" where one is due, before the first event; others wait for it.
  void DescribeOnce();

  std::atomic<bool> described_ = false;  ///< An event came: there is something to describe.
  std::mutex describe_mutex_;            ///< Held while the first event is prepared for; before the base's locks.
  std::mutex take_mutex_;                ///< Never held while a record is written. Guards what follows.
  TVK::TvkEventSettings settings_ = TVK::ReadTvkEventSettings({});
  std::deque<Taken> taken_;  ///< Those of the last hour, also while they are written.
};
