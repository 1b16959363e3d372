#include "platform/linux/system_events_linux.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <system_error>

#include "platform/batteries.h"
#include "platform/linux/battery_poll.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/wake.h"
#include "platform/power.h"
#include "platform/runtime.h"

namespace platform {
namespace {

class LinuxSystemEventSource final : public SystemEventSource {
 public:
  LinuxSystemEventSource(Runtime& runtime, std::unique_ptr<KernelNotices> notices, Power& power, Batteries& batteries,
                         SystemEventCallback callback, milliseconds poll)
      : runtime_(runtime),
        notices_(std::move(notices)),
        power_(power),
        batteries_(batteries),
        callback_(std::move(callback)),
        stop_(::eventfd(0, EFD_CLOEXEC)),
        poll_(poll) {
    if (!stop_) throw std::system_error(errno, std::generic_category(), "eventfd");
    known_ = Look(BatteryPoll::Cause::kOther);
    sessions_ = notices_->TakeSessions();
    thread_ = runtime_.StartThread("system-events", [this] { Run(); });
  }

  ~LinuxSystemEventSource() override {
    SignalEventFd(stop_.get());
    runtime_.Join(thread_);
  }
  LinuxSystemEventSource(const LinuxSystemEventSource&) = delete;
  LinuxSystemEventSource& operator=(const LinuxSystemEventSource&) = delete;

 private:
  using Cause = BatteryPoll::Cause;

  /// What can change of the power.
  struct PowerState {
    std::optional<PowerSource> source = {};
    std::optional<std::uint32_t> percent = {};
    std::vector<std::string> batteries = {};  ///< Which are there.
  };

  void Run() {
    pollfd waited[] = {{stop_.get(), POLLIN, 0},
                       {notices_->clock_fd(), POLLIN, 0},
                       {notices_->device_fd(), POLLIN, 0},
                       {notices_->login_fd(), POLLIN, 0},
                       {notices_->console_fd(), POLLPRI, 0}};
    constexpr int kRetryMs = 1000;
    bool failed = false;
    for (;;) {
      const int woken = ::poll(waited, std::size(waited), failed ? kRetryMs : MillisecondsToPoll());
      if (woken < 0) continue;  // only for a signal
      if (waited[0].revents != 0) return;
      std::optional<Cause> look;
      // After a sleep the power is read, too: what changed in it may be told by nobody.
      if (failed || waited[1].revents != 0) {
        look = Cause::kOther;
      } else if (woken == 0) {
        look = Cause::kPoll;
      }
      failed = true;
      try {
        if (waited[1].revents != 0 && notices_->TakeClock()) {
          callback_(SleepChange::kSuspend);
          callback_(SleepChange::kResume);
        }
        if (waited[2].revents != 0) {
          const DeviceNews news = notices_->TakeDevices();
          if (news.power && !look) look = Cause::kNotice;
          for (const DriveChange change : news.drives)
            callback_(change);
        }
        if (waited[3].revents != 0 || waited[4].revents != 0) TellSessions();
        if (look) TellPower(*look);
        failed = false;
      } catch (...) {
        // Without memory nothing can be read. The power is read again, so that nothing is missed and nobody to be told.
      }
    }
  }

  /// As poll(2) takes it.
  int MillisecondsToPoll() const {
    const auto due = poll_.due();
    if (!due) return -1;
    return static_cast<int>(
        std::max<std::int64_t>(std::chrono::ceil<milliseconds>(*due - runtime_.clock().Steady()).count(), 0));
  }

  PowerState Look(Cause cause) {
    const PowerStatus status = power_.ReadStatus();
    PowerState state{.source = status.source, .percent = status.percent};
    const std::vector<BatteryFacts> batteries = batteries_.List();
    std::optional<bool> in_use;
    if (batteries.empty()) in_use = false;
    // What the battery itself says may be a second old (the kernel's ACPI driver), and "Full" still.
    if (!batteries.empty() && status.source == PowerSource::kBattery) in_use = true;
    for (const BatteryFacts& battery : batteries) {
      if (battery.state) in_use = in_use.value_or(false) || *battery.state != ChargeState::kIdle;
      state.batteries.push_back(battery.slot + '\n' + battery.name + '\n' + battery.serial_number);
    }
    poll_.NoteLook(runtime_.clock().Steady(), cause, {state.source, state.percent, in_use});
    return state;
  }

  void TellPower(Cause cause) {
    PowerState present = Look(cause);
    if (present.source && present.source != known_.source) callback_(*present.source);
    if (present.percent && (present.percent != known_.percent || present.batteries != known_.batteries)) {
      callback_(BatteryPercent{*present.percent});
    }
    // What is not told for a while, as while a battery is exchanged, did not change.
    if (present.source) known_.source = present.source;
    if (present.percent) known_.percent = present.percent;
    known_.batteries = std::move(present.batteries);
  }

  void TellSessions() {
    const UserSessions before = std::exchange(sessions_, notices_->TakeSessions());
    for (const SessionChange& change : CompareUserSessions(before, sessions_))
      callback_(change);
  }

  Runtime& runtime_;
  const std::unique_ptr<KernelNotices> notices_;
  Power& power_;
  Batteries& batteries_;
  const SystemEventCallback callback_;
  const UniqueFd stop_;  ///< An eventfd; readable: end.
  // The thread's own once it runs.
  BatteryPoll poll_;
  PowerState known_;
  UserSessions sessions_;
  std::thread thread_;
};

class LinuxSystemEvents final : public SystemEvents {
 public:
  LinuxSystemEvents(Power& power, Batteries& batteries) : power_(power), batteries_(batteries) {}

  SystemEventOpening Open(Runtime& runtime, SystemEventCallback callback, void* /*service*/) override {
    SystemEventOpening opening;
    if (auto notices = OpenKernelNotices(opening.problem)) {
      opening.source = FollowKernelNotices(runtime, std::move(notices), power_, batteries_, std::move(callback));
    }
    return opening;
  }

 private:
  Power& power_;
  Batteries& batteries_;
};

}  // namespace

std::unique_ptr<SystemEventSource> FollowKernelNotices(Runtime& runtime, std::unique_ptr<KernelNotices> notices,
                                                       Power& power, Batteries& batteries, SystemEventCallback callback,
                                                       milliseconds poll) {
  return std::make_unique<LinuxSystemEventSource>(runtime, std::move(notices), power, batteries, std::move(callback),
                                                  poll);
}

std::unique_ptr<SystemEvents> MakeSystemEvents(Power& power, Batteries& batteries) {
  return std::make_unique<LinuxSystemEvents>(power, batteries);
}

}  // namespace platform
