// The user agent's process in the session of the logged-on user.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "client/log/log.h"
#include "core/user_process_agent.h"
#include "platform/runtime.h"
#include "platform/session_process.h"
#include "platform/system_event.h"

namespace TVK {

/// Starts "TVKUserAgent.exe", which lies beside the service's program, and ends it through the event
/// "Global\TvkUserAgentStopEvent". One that waits for users is started again when it ended by itself, somewhat later,
/// and at each logon, until it is stopped. When its user logs off it is not, before the next logon: a session that ends
/// takes its processes along before or after it is told.
///
/// From the first start on a thread waits for the end of the process; at rest nothing wakes it.
class UserProcess final : public UserProcessAgent {
 public:
  /// How long the user agent may take to end before it is ended.
  static constexpr std::chrono::milliseconds kPatience{3000};
  /// How long after its end it is started again. One that lived shorter than kSoundLife waits twice as long the next
  /// time, up to the last of these: its libraries may be missing.
  static constexpr std::chrono::seconds kFirstPause{2};
  static constexpr std::chrono::seconds kSoundLife{60};
  static constexpr std::chrono::seconds kLongestPause{3600};
  /// The least pause where it ended in order, as it does when its session is asked to end: that may take a while.
  static constexpr std::chrono::seconds kSessionEnd{30};

  /// `runtime` must outlive the object. `folder`: where the program lies. `service`: the place of the local channel,
  /// which the program is told; empty: the one that it knows. `starter`: empty where this system has no user agent.
  UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder, const std::filesystem::path& service,
              platform::SessionProgramStarter starter = platform::LocalSessionProgramStarter());
  /// As StopUserProcess.
  ~UserProcess() override;
  UserProcess(const UserProcess&) = delete;
  UserProcess& operator=(const UserProcess&) = delete;

  bool Exists() const override { return starter_ != nullptr; }
  void SetDataSetEnable(bool enable) override;
  bool StartUserProcess(platform::Event& stop_event, bool wait_for_user) override;
  bool UserProcessRuns() override;
  void StopUserProcess(int reason) override;

  /// A user logged on: starts what waits for one, unless it runs.
  void OnUserLogon();
  /// The same for a logon. After the logoff of its user the process is not started again; other changes mean nothing:
  /// one that the console is switched to may be one that just ends.
  void OnSessionChange(const platform::SessionChange& change);

 private:
  using Process = std::shared_ptr<platform::SessionProcess>;

  // With mutex_ held.
  bool Runs() const;
  bool Start(bool wait_for_user);
  void OnEnd();
  void Forget();

  /// The body of the watching thread.
  void Watch();

  platform::Runtime& runtime_;
  const platform::SessionProgram program_;
  const platform::SessionProgramStarter starter_;
  Log log_;
  const std::unique_ptr<platform::Event> news_;  ///< For the watching thread: something below changed.
  std::mutex mutex_;                             ///< Guards what follows; not held while an end is waited for.
  bool enabled_ = false;
  bool follows_logons_ = false;  ///< To be started again, and at each logon, when it does not run.
  bool closing_ = false;
  std::unique_ptr<platform::Event> stop_event_;  ///< Held while a process runs: the process opens it by its name.
  Process process_;
  std::uint32_t session_ = 0;     ///< Of the process that was started last.
  bool user_left_ = false;        ///< That session ended.
  platform::SteadyTime started_;  ///< Of that process.
  std::chrono::seconds pause_ = kFirstPause;
  std::optional<platform::SteadyTime> due_;  ///< When it is started again.
  std::thread watch_;
};

}  // namespace TVK
