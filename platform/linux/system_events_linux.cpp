#include "platform/linux/system_events_linux.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <set>
#include <string>
#include <system_error>

#include "platform/linux/battery_poll.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supplies.h"
#include "platform/linux/power_wishes.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/wake.h"
#include "platform/runtime.h"

namespace platform {
namespace {

class LinuxSystemEventSource final : public SystemEventSource {
 public:
  LinuxSystemEventSource(Runtime& runtime, std::unique_ptr<KernelNotices> notices, const Sysroot& root,
                         std::shared_ptr<PowerWishes> wishes, SystemEventCallback callback, milliseconds poll)
      : runtime_(runtime),
        notices_(std::move(notices)),
        root_(root),
        wishes_(std::move(wishes)),
        callback_(std::move(callback)),
        stop_(::eventfd(0, EFD_CLOEXEC)),
        poll_(poll) {
    if (!stop_) throw std::system_error(errno, std::generic_category(), "eventfd");
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
    pollfd waited[] = {
        {stop_.get(), POLLIN, 0},          {notices_->clock_fd(), POLLIN, 0},    {notices_->device_fd(), POLLIN, 0},
        {notices_->login_fd(), POLLIN, 0}, {notices_->console_fd(), POLLPRI, 0}, {wishes_->fd(), POLLIN, 0}};
    constexpr int kRetryMs = 1000;
    bool failed = false;
    for (;;) {
      const int woken = ::poll(waited, std::size(waited), failed ? kRetryMs : MillisecondsToPoll());
      if (woken < 0) continue;  // only for a signal
      if (waited[0].revents != 0) return;
      std::optional<Cause> look;
      std::set<std::string> noticed;
      const bool wished = waited[5].revents != 0 && wishes_->Take();
      // After a sleep the power is read, too: what changed in it may be told by nobody.
      if (failed || waited[1].revents != 0 || wished) {
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
          if (news.lost) look = Cause::kOther;
          if (!news.supplies.empty() && !look) look = Cause::kNotice;
          noticed = news.supplies;
          for (const DriveChange change : news.drives)
            callback_(change);
          // Whoever hears of one looks which there are.
          if (news.lost) callback_(DriveChange::kAttached);
        }
        if (waited[3].revents != 0 || waited[4].revents != 0) TellSessions();
        wished_ = wished_ || wished;
        if (look) TellPower(*look, noticed);
        failed = false;
      } catch (...) {
        // Without memory nothing can be read. The power is read again, so that nothing is missed and nobody to be told.
      }
    }
  }

  /// As poll(2) takes it.
  int MillisecondsToPoll() const {
    const auto due = poll_.due();
    if (!due || !wishes_->any()) return -1;
    return static_cast<int>(
        std::max<std::int64_t>(std::chrono::ceil<milliseconds>(*due - runtime_.clock().Steady()).count(), 0));
  }

  PowerState Look(Cause cause, const std::set<std::string>& noticed = {}) {
    const PowerReading reading = ReadPower(root_);
    PowerState state{.source = reading.status.source, .percent = reading.status.percent};
    for (const BatteryFacts& battery : reading.batteries)
      state.batteries.push_back(battery.slot + '\n' + battery.name + '\n' + battery.serial_number);
    poll_.NoteLook(runtime_.clock().Steady(), cause, BatteryPoll::LookOf(reading), noticed);
    return state;
  }

  void TellPower(Cause cause, const std::set<std::string>& noticed) {
    if (!wishes_->any()) {
      known_.reset();
      return;
    }
    PowerState present = Look(cause, noticed);
    // Whoever has just begun to wish read the source before: a change between must not be taken for how it began.
    if (present.source && (wished_ || (known_ && present.source != known_->source))) callback_(*present.source);
    wished_ = false;
    if (known_) {
      if (present.percent && (present.percent != known_->percent || present.batteries != known_->batteries)) {
        callback_(BatteryPercent{*present.percent});
      }
      // What is not told for a while, as while a battery is exchanged, did not change.
      if (!present.source) present.source = known_->source;
      if (!present.percent) present.percent = known_->percent;
    }
    known_ = std::move(present);
  }

  void TellSessions() {
    const UserSessions before = std::exchange(sessions_, notices_->TakeSessions());
    for (const SessionChange& change : CompareUserSessions(before, sessions_))
      callback_(change);
  }

  Runtime& runtime_;
  const std::unique_ptr<KernelNotices> notices_;
  const Sysroot root_;
  const std::shared_ptr<PowerWishes> wishes_;
  const SystemEventCallback callback_;
  const UniqueFd stop_;  ///< An eventfd; readable: end.
  // The thread's own once it runs.
  BatteryPoll poll_;
  std::optional<PowerState> known_;  ///< As it was told, or found as somebody began to wish; absent without a wish.
  bool wished_ = false;              ///< Somebody began to wish, and was not told the source yet.
  UserSessions sessions_;
  std::thread thread_;
};

class LinuxSystemEvents final : public SystemEvents {
 public:
  LinuxSystemEvents(const Sysroot& root, std::shared_ptr<PowerWishes> wishes)
      : root_(root), wishes_(std::move(wishes)) {}

  SystemEventOpening Open(Runtime& runtime, SystemEventCallback callback, void* /*service*/) override {
    SystemEventOpening opening;
    if (auto notices = OpenKernelNotices(opening.problem)) {
      opening.source = FollowKernelNotices(runtime, std::move(notices), root_, wishes_, std::move(callback));
    }
    return opening;
  }

 private:
  const Sysroot root_;
  const std::shared_ptr<PowerWishes> wishes_;
};

}  // namespace

std::unique_ptr<SystemEventSource> FollowKernelNotices(Runtime& runtime, std::unique_ptr<KernelNotices> notices,
                                                       const Sysroot& root, std::shared_ptr<PowerWishes> wishes,
                                                       SystemEventCallback callback, milliseconds poll) {
  return std::make_unique<LinuxSystemEventSource>(runtime, std::move(notices), root, std::move(wishes),
                                                  std::move(callback), poll);
}

std::unique_ptr<SystemEvents> MakeSystemEvents(const Sysroot& root, std::shared_ptr<PowerWishes> wishes) {
  return std::make_unique<LinuxSystemEvents>(root, std::move(wishes));
}

}  // namespace platform
