// The user agent's process in the session of the logged-on user.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>

#include "core/user_process_agent.h"
#include "platform/runtime.h"
#include "platform/session_process.h"
#include "platform/system_event.h"

namespace TVK {

/// Starts "TVKUserAgent.exe", which lies beside the service's program, and ends it through the event
/// "Global\TvkUserAgentStopEvent". There is one, in the session of the user; see platform::UserSessions. One that waits
/// for users is, until it is stopped,
/// - started again when it ended by itself, or could not be started, somewhat later;
/// - looked for a session for at each logon, each switch of the console and when a remote user leaves, and for a while
///   after: who logs on may not be ready yet. One that runs in another session ends, and is started anew there; where
///   nobody is elsewhere it stays;
/// - not started in a session whose user logged off, which takes its processes along before or after it is told.
/// What a service before this one left behind is told to end first. While another service that runs has user agents
/// none is started: both would go by the same event.
///
/// From the first start on a thread asks the system for users and processes, and waits for the end of the process; at
/// rest nothing wakes it. Nobody else waits for what the system takes long for.
class UserProcess final : public UserProcessAgent {
 public:
  /// How long the user agent may take to end before it is ended, and the system to begin it before nobody waits for it.
  static constexpr std::chrono::milliseconds kPatience{3000};
  /// How long after its end it is started again. One that lived shorter than kSoundLife waits twice as long the next
  /// time, up to the last of these: its libraries may be missing.
  static constexpr std::chrono::seconds kFirstPause{2};
  static constexpr std::chrono::seconds kSoundLife{60};
  static constexpr std::chrono::seconds kLongestPause{3600};
  /// The pause where it was told to end, but not by us. Its session may be asked to end, which takes a while; and each
  /// user for whom one ran may still hold the event, and shall keep nobody else's away for longer.
  static constexpr std::chrono::seconds kSessionEnd{30};
  /// How often a user who is not to be found is looked for again, with growing pauses (two minutes in all), before the
  /// next logon is waited for.
  static constexpr int kLooksForUser = 6;
  /// How long what a former service left may take to end, from the first start on, before it is left alone.
  static constexpr std::chrono::seconds kFormerPatience{6};
  /// Of how many sessions it is known that their users logged off: the one before so many others has long ended.
  static constexpr std::size_t kMostLeft = 64;

  /// `runtime` must outlive the object. `folder`: where the program lies. `service`: the place of the local channel,
  /// which the program is told; empty: the one that it knows. `sessions`: null where this system has no user agent.
  UserProcess(platform::Runtime& runtime, const std::filesystem::path& folder, const std::filesystem::path& service,
              std::unique_ptr<platform::UserSessions> sessions = platform::OpenLocalUserSessions());
  /// As StopUserProcess. A system that does not come back from a call of the thread is waited for for kPatience; what
  /// it starts behind that is ended at once.
  ~UserProcess() override;
  UserProcess(const UserProcess&) = delete;
  UserProcess& operator=(const UserProcess&) = delete;

  bool Exists() const override;
  void SetDataSetEnable(bool enable) override;
  bool StartUserProcess(platform::Event& stop_event) override;
  bool UserProcessRuns() override;
  void StopUserProcess(int reason) override;

  /// A user logged on: what waits for one starts, or moves there.
  void OnUserLogon();
  /// The same for a logon and for a session that came to the console or that a remote user took or left; a session
  /// whose user logged off is none for us.
  void OnSessionChange(const platform::SessionChange& change);
  /// Whether it runs in the session of this number.
  bool RunsIn(std::uint32_t session);

 private:
  class Watcher;

  /// Shared with its thread, which may outlive this object inside a call of the system that does not come back.
  const std::shared_ptr<Watcher> watcher_;
};

}  // namespace TVK
