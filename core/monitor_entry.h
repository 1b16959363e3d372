// One dataset's monitor in the manager's list: its row, the monitor itself, its thread and what has become of it.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "client/log/log.h"
#include "core/dataset_table.h"
#include "framework/shortage.h"
#include "platform/runtime.h"

namespace TVK {

/// A monitor goes from listed over leaving to stopped, and is deleted then; whoever still holds the entry can call
/// nothing of it any more. Any thread, but each of StopMonitor and JoinAndDelete once, by whoever has claimed the stop.
class MonitorEntry {
 public:
  /// Makes the monitor; throws what its factory throws. Everything must outlive the entry. `on_failure` is told, on the
  /// monitor's thread, when its main routine ends with an exception; must not throw.
  MonitorEntry(platform::Runtime& runtime, const Log& log, const Dataset& dataset, const MonitorServices& services,
               std::function<void(const std::string& reason)> on_failure);
  MonitorEntry(const MonitorEntry&) = delete;
  MonitorEntry& operator=(const MonitorEntry&) = delete;

  const DatasetRow& row() const { return row_; }
  bool IsListed() const;
  bool IsStarted() const;
  /// Whether the system gave it no thread, or did not give it what it starts with, when it was last to start.
  bool LacksAtStart() const;
  /// Whether its main routine ended with an exception: it collects nothing any more.
  bool HasFailed() const;
  /// When its thread was started; nothing before.
  std::optional<platform::WallTime> started_at() const;

  /// Starts the monitor's thread: its Initialize, then its StartMonitor. False when the system gives no thread (logged
  /// with `caller`), or the monitor is on its way out. A monitor that was started stays as it is.
  bool Start(const wchar_t* caller);
  /// Notes what the system refused the monitor. Of two the one that takes more to mend holds.
  void NoteShortage(Shortage shortage);
  /// What was noted since the last call.
  Shortage TakeShortage();
  /// Joins the thread when its main routine has returned, which takes no time; false when there is nothing to join.
  bool JoinIfReturned();

  /// Runs `call` on a listed monitor, and logs what it throws with `caller`; nothing when it is listed no more. No lock
  /// is held meanwhile, so calls may run side by side, and beside StopMonitor; UnInitialize waits for them.
  void Call(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call);

  /// Takes the monitor out of the reach of calls: it is to be stopped soon.
  void MarkLeaving();
  /// MarkLeaving, and the right to stop the monitor: true for the first one who asks.
  bool ClaimStop();
  /// StopMonitor and UnInitialize. The calls that are running end in between: the first makes them.
  void StopMonitor();
  void JoinAndDelete();

 private:
  enum class State { kListed, kLeaving, kStopping };
  void RunMonitor();
  void OnFailure(const std::string& reason);
  void CallLogged(const wchar_t* caller, const std::function<void(EventMonitorBase&)>& call);
  bool Join(std::thread thread);

  platform::Runtime& runtime_;
  const Log& log_;
  const DatasetRow& row_;
  const std::function<void(const std::string& reason)> on_failure_;
  std::unique_ptr<EventMonitorBase> monitor_;    ///< Null once it was deleted, when no call can reach it.
  const std::unique_ptr<platform::Event> idle_;  ///< Auto-reset; the last call of a stopping monitor has ended.
  mutable std::mutex mutex_;                     ///< Guards what follows. Never held while the monitor is called.
  State state_ = State::kListed;
  int calls_ = 0;  ///< That are running.
  bool started_ = false;
  bool lacks_at_start_ = false;
  Shortage shortage_ = Shortage::kNone;
  std::optional<platform::WallTime> started_at_;
  bool returned_ = false;  ///< The main routine has.
  bool failed_ = false;    ///< With an exception.
  std::thread thread_;
};

}  // namespace TVK
