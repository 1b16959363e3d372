#include "component/user_quota.h"

#include <algorithm>

namespace TVK {

bool UserQuota::Take(const std::string& user, std::size_t count) {
  const platform::SteadyTime now = clock_.Steady();
  const std::lock_guard lock(mutex_);
  for (auto& [name, allowance] : allowances_) {
    const auto back = (now - allowance.since) / size_.refill;
    allowance.used -= std::min(allowance.used, static_cast<std::size_t>(back));
    allowance.since += back * size_.refill;
  }
  std::erase_if(allowances_, [](const auto& entry) { return entry.second.used == 0; });
  Allowance& allowance = allowances_.try_emplace(user, Allowance{0, now}).first->second;
  if (count > size_.at_once - allowance.used) return false;
  allowance.used += count;
  return true;
}

}  // namespace TVK
