#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <mutex>
#include <string>
#include <system_error>

#include "platform/deadline.h"
#include "platform/linux/unique_fd.h"
#include "platform/linux/waitables_linux.h"
#include "platform/local.h"

namespace platform {
namespace {

/// Held around the calls that read the zone anew. The C library has a lock of its own for that, which the thread
/// sanitiser cannot see: without ours it takes the exchange of the zone's name for a race. One for the process, as the
/// zone is.
std::mutex zone_mutex;

class LinuxClock final : public Clock {
 public:
  WallTime Now() const override { return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()); }

  SteadyTime Steady() const override { return SteadyTime(Read(CLOCK_MONOTONIC)); }
  ElapsedTime Elapsed() const override { return ElapsedTime(Read(CLOCK_BOOTTIME)); }

  LocalTime ToLocal(std::int64_t unix_seconds) const override {
    const std::time_t moment = unix_seconds;
    std::tm local{};
    const std::lock_guard lock(zone_mutex);
    ::tzset();  // A laptop changes its zone while we run, and localtime_r alone would not notice.
    if (::localtime_r(&moment, &local) == nullptr) return {};  // A year that an int does not hold.
    return {.year = local.tm_year + 1900,
            .month = local.tm_mon + 1,
            .day = local.tm_mday,
            .hour = local.tm_hour,
            .minute = local.tm_min,
            .second = local.tm_sec,
            .utc_offset_minutes = static_cast<int>(local.tm_gmtoff / 60)};
  }

  std::int64_t FromLocal(const LocalTime& local) const override {
    std::tm fields{};
    if (__builtin_sub_overflow(local.year, 1900, &fields.tm_year)) return -1;
    if (__builtin_sub_overflow(local.month, 1, &fields.tm_mon)) return -1;
    fields.tm_mday = local.day;
    fields.tm_hour = local.hour;
    fields.tm_min = local.minute;
    fields.tm_sec = local.second;
    fields.tm_isdst = -1;
    const std::lock_guard lock(zone_mutex);
    return std::max<std::int64_t>(::mktime(&fields), -1);
  }

 private:
  static std::chrono::nanoseconds Read(clockid_t id) {
    timespec now{};
    ::clock_gettime(id, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
  }
};

/// As the system's calls take it.
timespec ToTimespec(std::chrono::nanoseconds time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  return {.tv_sec = seconds.count(), .tv_nsec = (time - seconds).count()};
}

/// A descriptor that becomes readable once the clock that counts sleep has reached `moment`; ppoll's own timeout stops
/// in a suspend. Nothing when the system gives no descriptor.
UniqueFd OpenAlarm(ElapsedTime moment) {
  UniqueFd alarm(::timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  const itimerspec setting{.it_interval = {}, .it_value = ToTimespec(moment.time_since_epoch())};
  if (alarm && ::timerfd_settime(alarm.get(), TFD_TIMER_ABSTIME, &setting, nullptr) != 0) return UniqueFd();
  return alarm;
}

constexpr unsigned long kUsualLateness = 50'000;       // nanoseconds, what the kernel gives a process
constexpr unsigned long kLatenessOfLong = 50'000'000;  // of long waits

/// How late the kernel may end this thread's waits.
void SetLateness(unsigned long nanoseconds) {
  thread_local unsigned long in_force = 0;  // not known: a thread begins with what its starter had at that moment
  if (nanoseconds == in_force) return;
  ::prctl(PR_SET_TIMERSLACK, nanoseconds, 0, 0, 0);
  in_force = nanoseconds;
}

/// Allows the kernel to end long waits somewhat late, together with another wake-up: a processor that wakes once for
/// several threads sleeps deeper in between. Short waits stay exact.
void AllowLateness(milliseconds timeout) {
  constexpr milliseconds kLongWait{500};
  SetLateness(timeout < kLongWait ? kUsualLateness : kLatenessOfLong);
}

class LinuxRuntime final : public Runtime {
 public:
  explicit LinuxRuntime(RealRuntimeOptions options) : named_events_(std::move(options.named_event_folder)) {}

  const Clock& clock() const override { return clock_; }

  std::unique_ptr<Event> MakeEvent(EventReset reset, bool signalled) override { return MakeEventFd(reset, signalled); }

  NamedEventResult MakeNamedEvent(std::wstring_view name, EventReset reset, bool signalled,
                                  EventAccess access) override {
    return named_events_.Make(name, reset, signalled, access);
  }

  NamedEventResult OpenNamedEvent(std::wstring_view name) override { return named_events_.Open(name); }

  std::unique_ptr<Semaphore> MakeSemaphore(std::uint32_t initial, std::uint32_t maximum) override {
    return MakeSemaphoreFd(initial, maximum);
  }

  WaitCode WaitAny(std::span<Waitable* const> objects, milliseconds timeout) override;
  WaitCode WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) override;

  std::thread StartThread(std::string_view name, std::function<void()> body) override {
    try {
      return std::thread([name = std::string(name.substr(0, 15)), body = std::move(body)] {
        ::pthread_setname_np(::pthread_self(), name.c_str());
        SetLateness(kUsualLateness);
        body();
      });
    } catch (const std::system_error& failure) {
      throw std::system_error(failure.code(), "no thread " + std::string(name));
    }
  }

  void Join(std::thread& thread) override {
    if (thread.get_id() == std::this_thread::get_id()) {
      throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    thread.join();
  }

 private:
  const LinuxClock clock_;
  const NamedEventFolder named_events_;
};

/// The objects of one wait, and their descriptors with room for an alarm's.
class PollSet {
 public:
  explicit PollSet(std::span<Waitable* const> objects) {
    if (objects.size() > kMaximumWaitObjects) return;
    for (; count_ < objects.size(); ++count_) {
      waitables_[count_] = dynamic_cast<PollableWaitable*>(objects[count_]);
      if (waitables_[count_] == nullptr) return;
      fds_[count_] = {.fd = waitables_[count_]->fd(), .events = POLLIN, .revents = 0};
    }
    usable_ = count_ > 0;
  }

  bool usable() const { return usable_; }

  /// One turn of a wait (see WaitInTurns). The alarm (-1: none) ends it too.
  WaitCode Turn(std::chrono::nanoseconds left, bool for_ever, int alarm) {
    for (std::size_t i = 0; i < count_; ++i) {
      if (waitables_[i]->TryConsume()) return static_cast<WaitCode>(i);
    }
    if (left <= left.zero()) return kWaitTimeout;
    fds_[count_] = {.fd = alarm, .events = POLLIN, .revents = 0};
    const timespec timeout = ToTimespec(left);
    // Another waiter may take the signal between here and the next look; then the wait goes on.
    if (::ppoll(fds_.data(), count_ + 1, for_ever ? nullptr : &timeout, nullptr) < 0 && errno != EINTR) {
      return kWaitFailed;
    }
    return kWaitTimeout;
  }

 private:
  std::array<PollableWaitable*, kMaximumWaitObjects> waitables_;
  std::array<pollfd, kMaximumWaitObjects + 1> fds_;
  std::size_t count_ = 0;
  bool usable_ = false;
};

constexpr int kNoAlarm = -1;

WaitCode LinuxRuntime::WaitAny(std::span<Waitable* const> objects, milliseconds timeout) {
  PollSet set(objects);
  if (!set.usable()) return kWaitFailed;
  const SteadyTime deadline = DeadlineAfter(clock_.Steady(), timeout);
  const bool for_ever = deadline == SteadyTime::max();
  if (!for_ever) AllowLateness(timeout);
  return WaitInTurns(
      deadline, [&] { return clock_.Steady(); },
      [&](std::chrono::nanoseconds left) { return set.Turn(left, for_ever, kNoAlarm); });
}

WaitCode LinuxRuntime::WaitAnyUntil(std::span<Waitable* const> objects, ElapsedTime deadline) {
  PollSet set(objects);
  if (!set.usable()) return kWaitFailed;
  UniqueFd alarm;
  return WaitInTurns(
      deadline, [&] { return clock_.Elapsed(); },
      [&](std::chrono::nanoseconds left) {
        if (!alarm && left > left.zero()) {
          AllowLateness(std::chrono::floor<milliseconds>(left));
          alarm = OpenAlarm(DeadlineAfter(deadline, kAlarmMargin));
        }
        return set.Turn(left, false, alarm ? alarm.get() : kNoAlarm);
      });
}

}  // namespace

std::unique_ptr<Runtime> MakeRealRuntime(RealRuntimeOptions options) {
  return std::make_unique<LinuxRuntime>(std::move(options));
}

}  // namespace platform
