// What a test, benchmark or simulation scripts while others read it.
#pragma once

#include <functional>
#include <mutex>
#include <utility>

namespace platform {

/// Any thread.
template <typename State>
class Scripted {
 public:
  Scripted() = default;
  explicit Scripted(State state) : state_(std::move(state)) {}
  Scripted(const Scripted&) = delete;
  Scripted& operator=(const Scripted&) = delete;

  State Get() const {
    const std::lock_guard lock(mutex_);
    return state_;
  }

  void Set(State state) {
    Change([&](State& present) { present = std::move(state); });
  }

  /// Runs `change` on the state under its lock, then tells whoever follows.
  template <typename Step>
  void Change(Step change) {
    {
      const std::lock_guard lock(mutex_);
      change(state_);
    }
    if (follower_) follower_();
  }

  /// Is called after each change, on the thread that made it. Before others use the object.
  void Follow(std::function<void()> follower) { follower_ = std::move(follower); }

 private:
  mutable std::mutex mutex_;  ///< Guards state_.
  State state_{};
  std::function<void()> follower_;
};

/// ERROR_NOT_SUPPORTED: what a simulated machine says when it does not tell a fact.
inline constexpr unsigned kErrorNotSupported = 50;

}  // namespace platform
