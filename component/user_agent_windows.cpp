#include "tvk/user_agent.h"

#include <atomic>
#include <system_error>

#include "client/channel/channel_client.h"
#include "client/identity/machine_information.h"
#include "client/identity/tvk_info.h"
#include "client/log/guarded_thread.h"
#include "framework/one_shot_timer.h"
#include "host/event_window.h"
#include "platform/local.h"
#include "platform/local_desktop.h"

namespace {

std::filesystem::path& ServicePlace() {
  static std::filesystem::path place;
  return place;
}

TVK::Log OpenLog(const wchar_t* name) {
  TVK::Log log;
  TVK::utility::InitLog(log, name, 4);
  return log;
}

/// How long the last observations wait for a service that does not answer, which gives us three seconds for our end.
constexpr std::chrono::milliseconds kFarewell(2000);

/// The services of the process's event window, joined. Made in the order in which its members depend on each other.
class Agent {
 public:
  explicit Agent(const std::filesystem::path& data_folder)
      : window_({.runtime = *runtime_,
                 .desktop = *desktop_,
                 .config_policy_agent = &policies_,
                 .device = [this] { return EligibilityFilter(machine_information_.traits()); },
                 .make_display =
                     [this] { return std::make_unique<DisplayUserAgent>(*runtime_, *desktop_, recorder_, writer_); },
                 .pen_monitor = [this] { return &pen_monitor_; },
                 .version = TvkInfo({}).GetVersion(),
                 .data_folder = data_folder,
                 .tidy =
                     [this] {
                       policy_channel_.CloseUnused();
                       record_channel_.CloseUnused();
                     }}) {}

  void Run() {
    window_.Create();
    if (!farewell_.Arm(kFarewell)) farewell_over_->Set();
  }

 private:
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Desktop> desktop_ = platform::OpenLocalDesktop();
  // What ends all waits for a service that hangs: for the policy with the window, which does not come to be without
  // this event; for the records somewhat later, since the last ones are written behind it.
  const std::unique_ptr<platform::Event> stop_ =
      desktop_->OpenSessionEvent(EventWindow::kStopEvent, platform::EventRights::kWait).event;
  const std::unique_ptr<platform::Event> farewell_over_ = runtime_->MakeEvent(platform::EventReset::kManual);
  TVK::OneShotTimer farewell_{*runtime_, "tvk-farewell", [this] { farewell_over_->Set(); }};
  const std::unique_ptr<platform::Machine> machine_ = platform::OpenLocalMachine({}, runtime_->clock());
  const MachineInformation machine_information_{*machine_, runtime_->clock()};
  const TVK::Log log_ = OpenLog(L"LocalChannel.log");
  // One for the policy, which must not wait for records.
  TVK::ChannelClient policy_channel_{*runtime_, ServicePlace(), stop_.get()};
  TVK::ChannelClient record_channel_{*runtime_, ServicePlace(), farewell_over_.get()};
  TVK::ChannelConfigAgent policies_{policy_channel_, log_};
  TVK::ChannelRecorder recorder_{record_channel_, log_};
  TVK::SessionWriter writer_{*runtime_};
  PenEventMonitor pen_monitor_{*runtime_, *desktop_, recorder_, writer_};
  EventWindow window_;
};

}  // namespace

void TVK::UserAgent::SetService(const std::filesystem::path& place) {
  ServicePlace() = place;
}

void CreateEventWindow() {
  static std::atomic<bool> called = false;
  if (called.exchange(true)) return;  // one in a process
  TVK::Log log;
  TVK::CallLogged(log, L"CreateEventWindow", [&] {
    const std::filesystem::path user = platform::LocalUserFolder();
    // A user without such a folder has no logs either; what is collected goes to the service all the same.
    const std::filesystem::path folder = user.empty() ? user : user / L"TVK";
    if (!folder.empty()) {
      std::error_code failure;
      std::filesystem::create_directories(folder / L"log", failure);
      TVK::SetLogBackend(TVK::MakeFileLogBackend(folder / L"log"));
    }
    log = OpenLog(L"TVKUserAgent.log");
    Agent(folder).Run();
  });
  TVK::SetLogBackend(nullptr);
}
