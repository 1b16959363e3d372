// How many callers of the local channel are served at once, and how many of them may be of one account.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/local_channel.h"

namespace TVK {

/// Whether the caller is an administrator or our own account, whom no limit for users holds.
constexpr bool IsPrivileged(platform::CallerKind kind) {
  return kind == platform::CallerKind::kOwnAccount || kind == platform::CallerKind::kAdministrator;
}

/// Any thread.
class CallerPlaces {
 public:
  struct Limits {
    std::size_t all = 32;
    std::size_t of_users = 24;  ///< Of all users together; what is left is for administrators and for newcomers.
    std::size_t of_user = 8;    ///< Of one account; and of all callers who are not known yet.
  };

  explicit CallerPlaces(const Limits& limits) : limits_(limits) {}
  CallerPlaces(const CallerPlaces&) = delete;
  CallerPlaces& operator=(const CallerPlaces&) = delete;

  /// A place, given back with the last copy of what is returned, which must not outlive the object; null when there is
  /// none. `caller`: null while it is not known.
  std::shared_ptr<void> Take(const platform::LocalCaller* caller);

 private:
  const Limits limits_;
  std::mutex mutex_;  ///< Guards what follows.
  std::size_t all_ = 0;
  std::size_t of_users_ = 0;                    ///< Of users that are known.
  std::map<std::string, std::size_t> of_user_;  ///< By account of users; who is not known yet has the empty name.
};

}  // namespace TVK
