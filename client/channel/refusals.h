// What the local channel refused: counted by kind, and told once for each.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "client/log/log.h"
#include "platform/local_channel.h"

namespace TVK {

enum class Refusal {
  kNoRoom,      ///< Too many connections, all in all or of one user.
  kUnknown,     ///< The system does not say who calls, or the caller speaks another version.
  kBroken,      ///< Bytes that are no message, half a message, a message that is no request.
  kNotAllowed,  ///< Somebody who may not ask for that.
  kTooMany,     ///< More than the quota.
};
inline constexpr std::size_t kRefusalKinds = 5;

/// "no room", "unknown caller", "broken message", "not allowed" or "too many".
std::string_view RefusalName(Refusal refusal);

/// Any thread.
class Refusals {
 public:
  /// `log` must outlive the object.
  explicit Refusals(const Log& log) : log_(log) {}

  /// Counts one; the first of its kind is logged, with what is known of the caller (null: nothing) and `what`. Where
  /// nothing was known then, so is the first of which something is.
  void Count(Refusal refusal, const platform::LocalCaller* caller, std::string_view what);
  std::array<std::uint64_t, kRefusalKinds> counts() const;

 private:
  const Log& log_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::array<std::uint64_t, kRefusalKinds> counts_{};
  std::array<bool, kRefusalKinds> named_{};  ///< One was logged of whose caller something was known.
};

}  // namespace TVK
