// What callers of the local channel may ask for, and what becomes of it.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "client/channel/channel_request.h"
#include "client/channel/refusals.h"
#include "client/policy/config_agent.h"
#include "component/service_status.h"
#include "core/manager_access.h"
#include "platform/runtime.h"

namespace TVK {

/// How many observations an account that is not an administrator's nor our own may hand over: so many at once, and one
/// more in each `refill` of waking time. What a flood would push out of the store are older records.
struct ObservationQuota {
  std::size_t at_once = 240;
  std::chrono::milliseconds refill{1000};
};

/// The rights. Logged-on users may hand over observations and read the policies; administrators and the service's own
/// account may ask for everything; nobody else for anything. What is refused is answered with kChannelFailed and the
/// reason, and counted. Any thread.
class ChannelRequests {
 public:
  /// Everything must outlive the object.
  ChannelRequests(const platform::Clock& clock, IConfigAgent& config, const ServiceStatus& status,
                  ManagerAccess& manager, Refusals& refusals, ObservationQuota quota = {})
      : clock_(clock), config_(config), status_(status), manager_(manager), refusals_(refusals), quota_(quota) {}

  /// The answer to a request, both JSON; see ChannelServer::Answerer.
  std::string Answer(const platform::LocalCaller& caller, std::string_view request);

 private:
  struct Allowance {
    std::size_t used = 0;
    platform::SteadyTime since;  ///< When the last of them was given back.
  };

  ChannelAnswer CarryOut(const ChannelRequest& request);
  bool TakeFromQuota(const platform::LocalCaller& caller);

  const platform::Clock& clock_;
  IConfigAgent& config_;
  const ServiceStatus& status_;
  ManagerAccess& manager_;
  Refusals& refusals_;
  const ObservationQuota quota_;
  std::mutex mutex_;                             ///< Guards what follows.
  std::map<std::string, Allowance> allowances_;  ///< By user; those that have used nothing are left out.
};

}  // namespace TVK
