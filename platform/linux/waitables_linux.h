// Events and semaphores as file descriptors: readable means signalled, so poll(2) waits for any of them.
#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "platform/linux/unique_fd.h"
#include "platform/runtime.h"

namespace platform {

/// What WaitAny finds behind the Waitables of the Linux runtime.
class PollableWaitable {
 public:
  PollableWaitable() = default;
  PollableWaitable(const PollableWaitable&) = delete;
  PollableWaitable& operator=(const PollableWaitable&) = delete;
  virtual ~PollableWaitable() = default;

  virtual int fd() const = 0;

  /// Whether it is signalled; takes what one satisfied wait takes. Never blocks.
  virtual bool TryConsume() = 0;
};

/// Both throw std::system_error when the process has no descriptor left.
std::unique_ptr<Event> MakeEventFd(EventReset reset, bool signalled);
std::unique_ptr<Semaphore> MakeSemaphoreFd(std::uint32_t initial, std::uint32_t maximum);

/// Named events: one FIFO a name in a folder. An event exists as long as some process has its FIFO open for reading, as
/// every holder has; the file itself stays and is used again. Its execute bit, which means nothing else on a FIFO, says
/// that the event is a manual-reset one. Any thread may call it.
class NamedEventFolder {
 public:
  explicit NamedEventFolder(std::filesystem::path folder) : folder_(std::move(folder)) {}

  NamedEventResult Make(std::wstring_view name, EventReset reset, bool signalled, EventAccess access) const;
  NamedEventResult Open(std::wstring_view name) const;

 private:
  const std::filesystem::path folder_;
};

}  // namespace platform
