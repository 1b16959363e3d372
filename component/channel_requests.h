// What callers of the local channel may ask for, and what becomes of it.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <string_view>

#include "client/channel/channel_request.h"
#include "client/channel/channel_server.h"
#include "client/channel/refusals.h"
#include "client/policy/config_agent.h"
#include "component/eraser.h"
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
  /// Of reports, each of which reads the store.
  UserQuota::Size reports{.at_once = 5, .refill = std::chrono::seconds(60)};
};

/// The rights. Logged-on users may hand over observations, and events where the policy lets them, read the telemetry
/// policy, and the report where the policy lets them; administrators and the service's own account may ask for
/// everything; nobody else for anything. What is refused is answered with kChannelFailed and the reason, and counted.
/// Any thread.
class ChannelRequests {
 public:
  /// Everything must outlive the object.
  ChannelRequests(const platform::Clock& clock, IConfigAgent& config, const ServiceStatus& status,
                  ManagerAccess& manager, Eraser& eraser, Refusals& refusals, const ChannelQuotas& quotas = {})
      : config_(config),
        status_(status),
        manager_(manager),
        eraser_(eraser),
        refusals_(refusals),
        requests_(clock, quotas.requests),
        observations_(clock, quotas.observations),
        reports_(clock, quotas.reports) {}

  /// The answer to a request, both JSON; see ChannelServer::Answerer. The last one for who sends what is no request.
  /// A report that is no longer awaited is not made to its end.
  ChannelServer::Answer Answer(const platform::LocalCaller& caller, std::string_view request,
                               const ChannelServer::IsAwaited& is_awaited);

  /// Ends a report that is being made, and refuses later ones: the service stops.
  void EndReports() { reports_end_ = true; }

 private:
  ChannelServer::Answer Refuse(Refusal refusal, const platform::LocalCaller& caller, const std::string& reason);
  /// Why a user who is logged on gets no report; empty: the policy lets them have it.
  std::string ReportRefusal();
  ChannelAnswer MakeReport(const ChannelRequest& request, const ChannelServer::IsAwaited& is_awaited);
  /// `refusal`: as what a result of kRefused counts.
  ChannelAnswer CarryOut(const ChannelRequest& request, bool privileged, const ChannelServer::IsAwaited& is_awaited,
                         Refusal& refusal);

  IConfigAgent& config_;
  const ServiceStatus& status_;
  ManagerAccess& manager_;
  Eraser& eraser_;
  Refusals& refusals_;
  UserQuota requests_;
  UserQuota observations_;
  UserQuota reports_;
  std::mutex report_mutex_;  ///< Held while a report is made: who asks meanwhile is refused.
  std::atomic<bool> reports_end_ = false;
};

}  // namespace TVK
