#include "client/channel/caller_places.h"

namespace TVK {

std::shared_ptr<void> CallerPlaces::Take(const platform::LocalCaller* caller) {
  const bool privileged = caller != nullptr && IsPrivileged(caller->kind);
  const std::size_t known_user = caller != nullptr && !privileged ? 1 : 0;
  std::unique_lock lock(mutex_);
  if (all_ >= limits_.all || of_users_ + known_user > limits_.of_users) return nullptr;
  auto of_user = of_user_.end();
  if (!privileged) {
    of_user = of_user_.try_emplace(caller != nullptr ? caller->user : std::string(), 0).first;
    if (of_user->second >= limits_.of_user) return nullptr;
    ++of_user->second;
  }
  ++all_;
  of_users_ += known_user;
  lock.unlock();
  return {this, [privileged, known_user, of_user](CallerPlaces* places) {
            const std::lock_guard guard(places->mutex_);
            --places->all_;
            places->of_users_ -= known_user;
            if (!privileged && --of_user->second == 0) places->of_user_.erase(of_user);
          }};
}

}  // namespace TVK
