// The user agent's process in the session of the logged-on user.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>

#include "client/log/log.h"
#include "core/user_process_agent.h"
#include "platform/runtime.h"
#include "platform/session_process.h"
#include "platform/system_event.h"

namespace TVK {

/// Starts "TVKUserAgent.exe", which lies beside the service's program, and ends it through the event
/// "Global\TvkUserAgentStopEvent". A process that ended by itself is started again when it is next asked for; one that
/// waits for users also at each logon, until it is stopped.
class UserProcess final : public UserProcessAgent {
 public:
  /// How long the user agent may take to end before it is ended.
  static constexpr std::chrono::milliseconds kPatience{3000};

  /// What platform::StartInUserSession does.
  using Starter = std::function<platform::SessionProcessStart(const std::filesystem::path& program,
                                                              const std::vector<std::wstring>& arguments)>;

  /// `runtime` must outlive the object. `folder`: where the program lies.
  UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder,
              Starter starter = platform::StartInUserSession);
  /// As StopUserProcess.
  ~UserProcess() override;
  UserProcess(const UserProcess&) = delete;
  UserProcess& operator=(const UserProcess&) = delete;

  void SetDataSetEnable(bool enable) override;
  bool StartUserProcess(platform::Event& stop_event, bool wait_for_user) override;
  bool UserProcessRuns() override;
  void StopUserProcess(int reason) override;

  /// A user logged on: starts what waits for one, unless it runs.
  void OnUserLogon();
  /// The same for a logon; nothing for any other change: a session that ends takes its processes along before or after
  /// it is told, and one that the console is switched to may be one that just ends.
  void OnSessionChange(const platform::SessionChange& change);

 private:
  // Both with mutex_ held.
  bool Runs() const;
  bool Start(bool wait_for_user);

  platform::Runtime& runtime_;
  const std::filesystem::path program_;
  const Starter starter_;
  Log log_;
  std::mutex mutex_;  ///< Guards what follows.
  bool enabled_ = false;
  bool follows_logons_ = false;                  ///< To be started at each logon when it does not run.
  std::unique_ptr<platform::Event> stop_event_;  ///< Held while a process runs: the process opens it by its name.
  std::unique_ptr<platform::SessionProcess> process_;
};

}  // namespace TVK
