// What callers of the local channel may ask for, and what becomes of it.
#pragma once

#include <string_view>

#include "client/channel/channel_request.h"
#include "client/channel/channel_server.h"
#include "client/channel/refusals.h"
#include "client/policy/config_agent.h"
#include "component/service_status.h"
#include "component/user_quota.h"
#include "core/manager_access.h"
#include "platform/runtime.h"

namespace TVK {

/// What each account that is not an administrator's nor our own may ask for.
struct ChannelQuotas {
  UserQuota::Size requests{.at_once = 600, .refill = std::chrono::milliseconds(100)};
  /// Of observations. One counts once for each device that it describes, and once for each whole KiB: what a flood
  /// would push out of the store are older records, and a day of it is about 3 MiB.
  UserQuota::Size observations{.at_once = 240, .refill = std::chrono::seconds(30)};
};

/// The rights. Logged-on users may hand over observations and read the policies; administrators and the service's own
/// account may ask for everything; nobody else for anything. What is refused is answered with kChannelFailed and the
/// reason, and counted. Any thread.
class ChannelRequests {
 public:
  /// Everything must outlive the object.
  ChannelRequests(const platform::Clock& clock, IConfigAgent& config, const ServiceStatus& status,
                  ManagerAccess& manager, Refusals& refusals, const ChannelQuotas& quotas = {})
      : config_(config),
        status_(status),
        manager_(manager),
        refusals_(refusals),
        requests_(clock, quotas.requests),
        observations_(clock, quotas.observations) {}

  /// The answer to a request, both JSON; see ChannelServer::Answerer. The last one for who sends what is no request.
  ChannelServer::Answer Answer(const platform::LocalCaller& caller, std::string_view request);

 private:
  ChannelServer::Answer Refuse(Refusal refusal, const platform::LocalCaller& caller, const std::string& reason);
  ChannelAnswer CarryOut(const ChannelRequest& request);

  IConfigAgent& config_;
  const ServiceStatus& status_;
  ManagerAccess& manager_;
  Refusals& refusals_;
  UserQuota requests_;
  UserQuota observations_;
};

}  // namespace TVK
