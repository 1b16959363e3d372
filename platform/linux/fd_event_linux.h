// An event whose state is whether a descriptor is readable.
#pragma once

#include <atomic>

#include "platform/linux/waitables_linux.h"

namespace platform {

class FdEvent final : public Event, public PollableWaitable {
 public:
  enum class Kind { kEventFd, kFifo };

  FdEvent(UniqueFd fd, Kind kind, EventReset reset);

  void Set() override;
  void Reset() override;
  int fd() const override { return fd_.get(); }
  bool TryConsume() override;

 private:
  bool IsSignalled() const;
  /// Whether it was signalled; it no longer is.
  bool Drain();

  const UniqueFd fd_;
  const Kind kind_;
  const EventReset reset_;
  /// Orders what a thread wrote before Set() before what the waiter reads, which poll(2) says nothing about.
  std::atomic<std::uint32_t> sets_ = 0;
};

}  // namespace platform
