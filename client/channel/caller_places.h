// How many callers of the local channel are served at once, and how many of them may be of one account.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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
    std::size_t all = 44;
    std::size_t of_users = 24;      ///< Of all users together.
    std::size_t of_user = 8;        ///< Of one account.
    std::size_t of_strangers = 16;  ///< Of all who are not known yet; the rest is for administrators.
  };

  explicit CallerPlaces(const Limits& limits) : limits_(limits) {}
  CallerPlaces(const CallerPlaces&) = delete;
  CallerPlaces& operator=(const CallerPlaces&) = delete;

  /// A place, given back with the last copy of what is returned, which must not outlive the object; null when there is
  /// none.
  std::shared_ptr<void> Take(const platform::LocalCaller& caller);
  /// The same for a caller who is not known yet, of the session that the system claims. A session gets no more places
  /// than it leaves to others: one has half of them, the next one half of what is left, so that no single one, nor a
  /// few together, keep everybody out.
  std::shared_ptr<void> TakeForStranger(std::optional<std::uint32_t> session);

 private:
  /// Callers of one kind, counted by who they are.
  struct Group {
    std::size_t all = 0;
    std::map<std::string, std::size_t> of_one = {};

    std::size_t HeldBy(const std::string& one) const {
      const auto held = of_one.find(one);
      return held == of_one.end() ? 0 : held->second;
    }
  };
  /// A place that counts in `group`. `lock` is of mutex_.
  std::shared_ptr<void> Give(std::unique_lock<std::mutex> lock, Group& group, const std::string& one);

  const Limits limits_;
  std::mutex mutex_;  ///< Guards what follows.
  std::size_t all_ = 0;
  Group privileged_;
  Group users_;      ///< By account.
  Group strangers_;  ///< By session.
};

}  // namespace TVK
