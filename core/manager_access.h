// What the local channel asks of the manager.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/channel/session_recorder.h"
#include "core/dataset_decision.h"
#include "core/dataset_table.h"
#include "framework/tvk_event_monitor_base.h"
#include "platform/clock.h"

namespace TVK {

/// How one dataset stands.
struct DatasetStatus {
  const Dataset* dataset = nullptr;  ///< Of the table.
  DatasetDecision decision = {};     ///< By policy and scope in force: whether it is to run.
  bool runs = false;  ///< Whether what collects it is there; one that is just starting or ending differs.
  /// Why it does not run although it is to, where that is known: "failed", "not started" or "no user agent".
  std::string_view obstacle = {};
  /// kNameMismatch: an entry has its id beside another name, and none counts for it.
  EntryMeaning meaning = EntryMeaning::kCounts;
  /// See Explain and ExplainMismatch; of what runs the filter that will keep it from starting again.
  std::wstring detail = {};
  /// When what collects it was started; of the manager's own when they ran first.
  std::optional<platform::WallTime> since = {};
  std::optional<platform::ElapsedTime> next_due = {};  ///< Of its report, where it makes one in an interval.

  /// "runs", or why it does not.
  std::string_view why() const {
    if (meaning == EntryMeaning::kNameMismatch) return MeaningName(meaning);
    return decision.runs() && !obstacle.empty() ? obstacle : ReasonName(decision.reason);
  }
};

struct ManagerStatus {
  bool runs = false;
  std::wstring scope;                   ///< In force.
  std::vector<DatasetStatus> datasets;  ///< All of the table, in its order.
};

/// Lives as long as the manager. Any thread.
class ManagerAccess {
 public:
  /// Makes records of what the user agent observes.
  virtual SessionRecorder& session_recorder() = 0;
  virtual ManagerStatus Status() = 0;
  /// See TVKEventMonitorBase::TakeEvent; `reason` is always told.
  virtual TakenEvent TakeApplicationEvent(const std::wstring& item_name, const ItemData& data, EventSender sender) = 0;

 protected:
  ~ManagerAccess() = default;
};

}  // namespace TVK
