// Who wants to be told of the machine's power: while nobody does, nobody looks at the batteries.
#pragma once

#include <atomic>
#include <memory>

#include "platform/linux/unique_fd.h"
#include "platform/power.h"

namespace platform {

/// Held by shared_ptr: a wish may outlive whoever fulfils it. Any thread.
class PowerWishes : public std::enable_shared_from_this<PowerWishes> {
 public:
  /// Throws std::system_error when the system gives no descriptor.
  PowerWishes();

  /// One wish, as long as the answer lives.
  std::shared_ptr<CHPowerNotifyHandle> Add();
  bool any() const { return count_ > 0; }

  /// Readable after a wish was added, until Take; for one thread that waits.
  int fd() const { return added_.get(); }
  bool Take();  ///< Whether there is a wish now.

 private:
  class Wish;

  const UniqueFd added_;  ///< An eventfd.
  std::atomic<int> count_ = 0;
};

}  // namespace platform
