#include "client/channel/caller_places.h"

#include <utility>

namespace TVK {

std::shared_ptr<void> CallerPlaces::Give(std::unique_lock<std::mutex> lock, Group& group, const std::string& one) {
  const auto of_one = group.of_one.try_emplace(one, 0).first;
  ++all_;
  ++group.all;
  ++of_one->second;
  lock.unlock();  // what is returned takes it where there is no memory for it
  return {this, [&group, of_one](CallerPlaces* places) {
            const std::lock_guard guard(places->mutex_);
            --places->all_;
            --group.all;
            if (--of_one->second == 0) group.of_one.erase(of_one);
          }};
}

std::shared_ptr<void> CallerPlaces::Take(const platform::LocalCaller& caller) {
  std::unique_lock lock(mutex_);
  if (all_ >= limits_.all) return nullptr;
  if (IsPrivileged(caller.kind)) return Give(std::move(lock), privileged_, caller.user);
  if (users_.all >= limits_.of_users || users_.HeldBy(caller.user) >= limits_.of_user) return nullptr;
  return Give(std::move(lock), users_, caller.user);
}

std::shared_ptr<void> CallerPlaces::TakeForStranger(std::optional<std::uint32_t> session) {
  const std::string one = session ? std::to_string(*session) : std::string();
  std::unique_lock lock(mutex_);
  if (all_ >= limits_.all || strangers_.all + strangers_.HeldBy(one) >= limits_.of_strangers) return nullptr;
  return Give(std::move(lock), strangers_, one);
}

}  // namespace TVK
