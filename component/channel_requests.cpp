#include "component/channel_requests.h"

#include <algorithm>
#include <utility>

#include "client/policy/policy_text.h"

namespace TVK {
namespace {

using platform::CallerKind;

ChannelAnswer Refused(std::string reason) {
  return {SessionRecorder::kChannelFailed, std::move(reason), {}};
}

bool IsObservation(ChannelWish wish) {
  return wish == ChannelWish::kContext || wish == ChannelWish::kInit || wish == ChannelWish::kItem;
}

bool IsPrivileged(CallerKind kind) {
  return kind == CallerKind::kOwnAccount || kind == CallerKind::kAdministrator;
}

bool May(CallerKind kind, ChannelWish wish) {
  if (IsPrivileged(kind)) return true;
  const bool of_users = IsObservation(wish) || wish == ChannelWish::kPolicy || wish == ChannelWish::kClientPolicy;
  return kind == CallerKind::kInteractiveUser && of_users;
}

template <typename Policy>
ChannelAnswer Document(bool there, const Policy& policy) {
  if (!there) return Refused("there is no policy");
  ChannelAnswer answer{0, {}, ToJson(policy)};
  // Its text may be written longer than it was read.
  return answer.body.size() > kPolicySizeLimit ? Refused("the policy is too long to be told") : std::move(answer);
}

}  // namespace

std::string ChannelRequests::Answer(const platform::LocalCaller& caller, std::string_view text) {
  std::string problem;
  const std::optional<ChannelRequest> request = RequestFromJson(text, problem);
  if (!request) {
    refusals_.Count(Refusal::kBroken, &caller, problem);
    return ToJson(Refused(problem));
  }
  const std::string wish(WishName(request->wish));
  if (!May(caller.kind, request->wish)) {
    refusals_.Count(Refusal::kNotAllowed, &caller, wish);
    return ToJson(Refused("this account may not ask for \"" + wish + "\""));
  }
  if (IsObservation(request->wish) && !IsPrivileged(caller.kind) && !TakeFromQuota(caller)) {
    refusals_.Count(Refusal::kTooMany, &caller, wish);
    return ToJson(Refused("too many observations in too short a time"));
  }
  return ToJson(CarryOut(*request));
}

ChannelAnswer ChannelRequests::CarryOut(const ChannelRequest& request) {
  SessionRecorder& recorder = manager_.session_recorder();
  switch (request.wish) {
    case ChannelWish::kPolicy: {
      TelemetryPolicy policy;
      const bool there = config_.GetTelemetryPolicy(policy);
      return Document(there, policy);
    }
    case ChannelWish::kClientPolicy: {
      TvkPolicy policy;
      const bool there = config_.GetTvkPolicy(policy);
      return Document(there, policy);
    }
    case ChannelWish::kContext:
      return {recorder.LogDatasetContext(request.dataset_id, request.devices, request.new_context_needed), {}, {}};
    case ChannelWish::kInit:
      return {recorder.LogDevInitEvent(request.dataset_id), {}, {}};
    case ChannelWish::kItem:
      return {recorder.WriteItem(request.dataset_id, request.item_name, request.data, request.device_key), {}, {}};
    case ChannelWish::kStatus:
      return {0, {}, status_.ToJson(manager_, refusals_)};
  }
  return Refused("there is no such wish");
}

bool ChannelRequests::TakeFromQuota(const platform::LocalCaller& caller) {
  const platform::SteadyTime now = clock_.Steady();
  const std::lock_guard lock(mutex_);
  for (auto& [user, allowance] : allowances_) {
    const auto back = (now - allowance.since) / quota_.refill;
    allowance.used -= std::min(allowance.used, static_cast<std::size_t>(back));
    allowance.since += back * quota_.refill;
  }
  std::erase_if(allowances_, [](const auto& entry) { return entry.second.used == 0; });
  Allowance& allowance = allowances_.try_emplace(caller.user, Allowance{0, now}).first->second;
  if (allowance.used >= quota_.at_once) return false;
  ++allowance.used;
  return true;
}

}  // namespace TVK
