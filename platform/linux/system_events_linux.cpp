#include "platform/linux/system_events_linux.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "platform/linux/doors_linux.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/wake.h"
#include "platform/power.h"
#include "platform/runtime.h"

namespace platform {
namespace {

class LinuxSystemEventSource final : public SystemEventSource {
 public:
  LinuxSystemEventSource(Runtime& runtime, std::unique_ptr<KernelNotices> notices, Power& power,
                         SystemEventCallback callback)
      : runtime_(runtime),
        notices_(std::move(notices)),
        power_(power),
        callback_(std::move(callback)),
        stop_(::eventfd(0, EFD_CLOEXEC)) {
    if (!stop_) throw std::system_error(errno, std::generic_category(), "eventfd");
    known_ = power_.ReadStatus();
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
  void Run() {
    constexpr int kForEver = -1;
    pollfd waited[] = {{stop_.get(), POLLIN, 0},
                       {notices_->clock_fd(), POLLIN, 0},
                       {notices_->device_fd(), POLLIN, 0},
                       {notices_->login_fd(), POLLIN, 0},
                       {notices_->console_fd(), POLLPRI, 0}};
    constexpr int kRetryMs = 1000;
    bool failed = false;
    bool power_is_due = false;
    for (;;) {
      if (::poll(waited, std::size(waited), failed ? kRetryMs : kForEver) < 0) continue;  // only for a signal
      if (waited[0].revents != 0) return;
      failed = true;
      try {
        // After a sleep the power is read, too: what changed in it may be told by nobody.
        power_is_due = power_is_due || waited[1].revents != 0;
        if (waited[1].revents != 0 && notices_->TakeClock()) {
          callback_(SleepChange::kSuspend);
          callback_(SleepChange::kResume);
        }
        if (waited[2].revents != 0) {
          const DeviceNews news = notices_->TakeDevices();
          power_is_due = power_is_due || news.power;
          for (const DriveChange change : news.drives)
            callback_(change);
        }
        if (waited[3].revents != 0 || waited[4].revents != 0) TellSessions();
        if (power_is_due) TellPower();
        power_is_due = failed = false;
      } catch (...) {
        // Without memory nothing can be read. The power is read again, so that nothing is missed and nobody to be told.
        power_is_due = true;
      }
    }
  }

  void TellPower() {
    const PowerStatus present = power_.ReadStatus();
    if (present.source && present.source != known_.source) callback_(*present.source);
    if (present.percent && present.percent != known_.percent) callback_(BatteryPercent{*present.percent});
    // A battery that is taken out and put back is none that changed.
    if (present.source) known_.source = present.source;
    if (present.percent) known_.percent = present.percent;
  }

  void TellSessions() {
    const UserSessions before = std::exchange(sessions_, notices_->TakeSessions());
    for (const SessionChange& change : CompareUserSessions(before, sessions_))
      callback_(change);
  }

  Runtime& runtime_;
  const std::unique_ptr<KernelNotices> notices_;
  Power& power_;
  const SystemEventCallback callback_;
  const UniqueFd stop_;  ///< An eventfd; readable: end.
  // The thread's own once it runs.
  PowerStatus known_;
  UserSessions sessions_;
  std::thread thread_;
};

class LinuxSystemEvents final : public SystemEvents {
 public:
  explicit LinuxSystemEvents(Power& power) : power_(power) {}

  SystemEventOpening Open(Runtime& runtime, SystemEventCallback callback, void* /*service*/) override {
    SystemEventOpening opening;
    if (auto notices = OpenKernelNotices(opening.problem)) {
      opening.source = FollowKernelNotices(runtime, std::move(notices), power_, std::move(callback));
    }
    return opening;
  }

 private:
  Power& power_;
};

}  // namespace

std::unique_ptr<SystemEventSource> FollowKernelNotices(Runtime& runtime, std::unique_ptr<KernelNotices> notices,
                                                       Power& power, SystemEventCallback callback) {
  return std::make_unique<LinuxSystemEventSource>(runtime, std::move(notices), power, std::move(callback));
}

std::unique_ptr<SystemEvents> MakeSystemEvents(Power& power) {
  return std::make_unique<LinuxSystemEvents>(power);
}

}  // namespace platform
