#include "platform/linux/kernel_notices.h"

#include <fcntl.h>
#include <libudev.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string_view>
#include <system_error>

#include "platform/linux/block_device_text.h"
#include "platform/linux/read_file.h"
#include "platform/linux/unique_fd.h"

namespace platform {
namespace {

using std::chrono::nanoseconds;

struct Unref {
  void operator()(udev* object) const { ::udev_unref(object); }
  void operator()(udev_monitor* object) const { ::udev_monitor_unref(object); }
  void operator()(udev_device* object) const { ::udev_device_unref(object); }
};
template <typename Object>
using UdevPointer = std::unique_ptr<Object, Unref>;

nanoseconds ReadClock(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

/// How long the machine has slept since its boot.
nanoseconds TimeAsleep() {
  constexpr nanoseconds kQuick = std::chrono::milliseconds(1);
  for (;;) {
    const nanoseconds before = ReadClock(CLOCK_MONOTONIC);
    const nanoseconds all = ReadClock(CLOCK_BOOTTIME);
    // Between the two clocks the thread may have been held up, or the machine may have slept.
    if (ReadClock(CLOCK_MONOTONIC) - before < kQuick) return all - before;
  }
}

class LinuxKernelNotices final : public KernelNotices {
 public:
  /// Empty, or what went wrong.
  std::string Open() {
    if (!OpenMonitor()) return Problem("watching devices");
    clock_ = UniqueFd(::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (!clock_ || !Arm()) return Problem("watching the clock");
    asleep_ = TimeAsleep();
    logins_ = UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    // Where nothing registers logins there are none to tell.
    if (logins_ && ::inotify_add_watch(logins_.get(), kLogins, IN_MODIFY | IN_CLOSE_WRITE) < 0) logins_ = UniqueFd();
    console_ = UniqueFd(::open(kConsole, O_RDONLY | O_CLOEXEC));
    return {};
  }

  int device_fd() const override { return ::udev_monitor_get_fd(monitor_.get()); }

  DeviceNews TakeDevices() override {
    DeviceNews news;
    for (;;) {
      errno = 0;
      const UdevPointer<udev_device> device(::udev_monitor_receive_device(monitor_.get()));
      if (device == nullptr && errno != ENOBUFS) return news;
      if (device == nullptr) {
        news.lost = true;  // told once (netlink(7)); behind it come those that it kept
        continue;
      }
      const auto text = [](const char* told) { return std::string_view(told != nullptr ? told : ""); };
      if (text(::udev_device_get_subsystem(device.get())) != kBlock) {
        news.supplies.emplace(text(::udev_device_get_sysname(device.get())));
        continue;
      }
      const auto change =
          DriveChangeOf({.name = text(::udev_device_get_sysname(device.get())),
                         .path = text(::udev_device_get_devpath(device.get())),
                         .action = text(::udev_device_get_action(device.get())),
                         .media_change = text(::udev_device_get_property_value(device.get(), "DISK_MEDIA_CHANGE"))});
      if (change) news.drives.push_back(*change);
    }
  }

  int clock_fd() const override { return clock_.get(); }

  bool TakeClock() override {
    constexpr nanoseconds kLeastSleep = std::chrono::milliseconds(100);
    std::uint64_t expirations = 0;
    [[maybe_unused]] const ssize_t count = ::read(clock_.get(), &expirations, sizeof expirations);
    Arm();
    const nanoseconds asleep = TimeAsleep();
    const bool slept = asleep - asleep_ >= kLeastSleep;
    asleep_ = asleep;
    return slept;
  }

  int login_fd() const override { return logins_.get(); }
  int console_fd() const override { return console_.get(); }

  UserSessions TakeSessions() override {
    constexpr std::size_t kLongest = 1u << 20;
    char notices[4096];
    while (logins_ && ::read(logins_.get(), notices, sizeof notices) > 0) {
    }
    char terminal[64];
    const ssize_t length = console_ ? ::pread(console_.get(), terminal, sizeof terminal, 0) : 0;
    int error = 0;
    const std::string logins = logins_ ? ReadFileBytes(kLogins, kLongest, error).value_or("") : "";
    return DecodeUserSessions(logins, {terminal, static_cast<std::size_t>(length > 0 ? length : 0)});
  }

 private:
  static constexpr char kBlock[] = "block";
  static constexpr char kLogins[] = "/run/utmp";
  static constexpr char kConsole[] = "/sys/class/tty/tty0/active";

  static std::string Problem(const std::string& what) { return what + ": " + std::generic_category().message(errno); }

  bool OpenMonitor() {
    udev_ = UdevPointer<udev>(::udev_new());
    if (!udev_) return false;
    monitor_ = UdevPointer<udev_monitor>(::udev_monitor_new_from_netlink(udev_.get(), "kernel"));
    return monitor_ &&
           ::udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "power_supply", nullptr) >= 0 &&
           ::udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), kBlock, "disk") >= 0 &&
           ::udev_monitor_enable_receiving(monitor_.get()) >= 0;
  }

  /// For a time that never comes.
  bool Arm() {
    itimerspec never{};
    never.it_value.tv_sec = std::numeric_limits<time_t>::max();
    // ECANCELED: the clock jumped since the timer was armed last; it is armed anew all the same.
    return ::timerfd_settime(clock_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr) == 0 ||
           errno == ECANCELED;
  }

  UdevPointer<udev> udev_;
  UdevPointer<udev_monitor> monitor_;
  UniqueFd clock_;
  nanoseconds asleep_{};  ///< At the last notice.
  UniqueFd logins_;       ///< An inotify instance.
  UniqueFd console_;
};

}  // namespace

std::unique_ptr<KernelNotices> OpenKernelNotices(std::string& problem) {
  auto notices = std::make_unique<LinuxKernelNotices>();
  problem = notices->Open();
  return problem.empty() ? std::move(notices) : nullptr;
}

}  // namespace platform
