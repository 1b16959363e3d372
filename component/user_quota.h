// How much each account may do in a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

#include "platform/clock.h"

namespace TVK {

/// Any thread.
class UserQuota {
 public:
  /// So many at once, and one more in each `refill` (above 0) of waking time.
  struct Size {
    std::size_t at_once = 0;
    std::chrono::milliseconds refill{1000};
  };

  /// `clock` must outlive the object.
  UserQuota(const platform::Clock& clock, const Size& size) : clock_(clock), size_(size) {}

  /// Whether the account has `count` left, which are taken then.
  bool Take(const std::string& user, std::size_t count);

 private:
  struct Allowance {
    std::size_t used = 0;
    platform::SteadyTime since;  ///< When the last of them was given back.
  };

  const platform::Clock& clock_;
  const Size size_;
  std::mutex mutex_;                             ///< Guards what follows.
  std::map<std::string, Allowance> allowances_;  ///< By user; those that have used nothing are left out.
};

}  // namespace TVK
