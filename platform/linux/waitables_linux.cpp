#include "platform/linux/waitables_linux.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "platform/linux/fd_event_linux.h"
#include "platform/linux/wake.h"

namespace platform {
namespace {

UniqueFd OpenEventFd(std::uint32_t initial, int flags) {
  UniqueFd fd(::eventfd(initial, EFD_NONBLOCK | EFD_CLOEXEC | flags));
  if (!fd) throw std::system_error(errno, std::system_category(), "eventfd");
  return fd;
}

class SemaphoreFd final : public Semaphore, public PollableWaitable {
 public:
  SemaphoreFd(std::uint32_t initial, std::uint32_t maximum)
      : fd_(OpenEventFd(initial, EFD_SEMAPHORE)), maximum_(maximum), count_(initial) {}

  std::uint32_t Release(std::uint32_t count) override {
    const std::lock_guard lock(mutex_);
    if (count > maximum_ - count_) return kErrorTooManyPosts;
    const std::uint64_t added = count;
    if (::write(fd_.get(), &added, sizeof added) < 0) return static_cast<std::uint32_t>(errno);
    count_ += count;
    return 0;
  }

  int fd() const override { return fd_.get(); }

  bool TryConsume() override {
    const std::lock_guard lock(mutex_);
    if (count_ == 0) return false;
    std::uint64_t one = 0;
    if (::read(fd_.get(), &one, sizeof one) < 0) return false;
    --count_;
    return true;
  }

 private:
  const UniqueFd fd_;
  const std::uint32_t maximum_;
  std::mutex mutex_;  ///< Guards count_ and keeps it equal to the descriptor's count.
  std::uint32_t count_;
};

}  // namespace

FdEvent::FdEvent(UniqueFd fd, Kind kind, EventReset reset) : fd_(std::move(fd)), kind_(kind), reset_(reset) {}

bool FdEvent::IsSignalled() const {
  pollfd state{.fd = fd_.get(), .events = POLLIN, .revents = 0};
  return ::poll(&state, 1, 0) > 0;
}

// A set event needs no second signal: neither kind of descriptor fills up, and one reading clears it.
void FdEvent::Set() {
  sets_.fetch_add(1, std::memory_order_release);
  if (IsSignalled()) return;
  const std::uint64_t one = 1;
  WriteToWake(fd_.get(), &one, kind_ == Kind::kEventFd ? sizeof one : 1);
}

void FdEvent::Reset() {
  Drain();
}

bool FdEvent::TryConsume() {
  const bool consumed = reset_ == EventReset::kManual ? IsSignalled() : Drain();
  // What came before a Set that found the event set already is to be seen too.
  if (consumed) static_cast<void>(sets_.load(std::memory_order_acquire));
  return consumed;
}

// One reading empties an eventfd, and a FIFO too: more than a byte is in it only where several set it at once.
bool FdEvent::Drain() {
  std::array<char, 4096> bytes;
  return ::read(fd_.get(), bytes.data(), bytes.size()) > 0;
}

std::unique_ptr<Event> MakeEventFd(EventReset reset, bool signalled) {
  return std::make_unique<FdEvent>(OpenEventFd(signalled ? 1 : 0, 0), FdEvent::Kind::kEventFd, reset);
}

std::unique_ptr<Semaphore> MakeSemaphoreFd(std::uint32_t initial, std::uint32_t maximum) {
  if (maximum == 0 || initial > maximum) throw std::invalid_argument("semaphore: 0 <= initial <= maximum, maximum > 0");
  return std::make_unique<SemaphoreFd>(initial, maximum);
}

}  // namespace platform
