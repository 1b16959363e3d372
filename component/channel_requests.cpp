#include "component/channel_requests.h"

#include <algorithm>
#include <utility>

#include "client/policy/policy_text.h"
#include "framework/dataset_monitor.h"

namespace TVK {
namespace {

using platform::CallerKind;

ChannelAnswer Refused(std::string reason) {
  return {SessionRecorder::kChannelFailed, std::move(reason), {}};
}

bool IsObservation(ChannelWish wish) {
  return wish == ChannelWish::kContext || wish == ChannelWish::kInit || wish == ChannelWish::kItem;
}

bool May(CallerKind kind, ChannelWish wish) {
  if (IsPrivileged(kind)) return true;
  return kind == CallerKind::kInteractiveUser && (IsObservation(wish) || wish == ChannelWish::kPolicy);
}

/// The result of an operation of SessionRecorder, with the reason where it is none of the store's.
ChannelAnswer ResultOf(int result) {
  switch (result) {
    case SessionRecorder::kNotDescribed:
      return {result, "no such item, or a device that was not described", {}};
    case DatasetMonitor::kWithheld:
      return {result, "the policy in force does not admit the dataset", {}};
    case SessionRecorder::kChannelFailed:
      return {result, "the event manager does not run", {}};
    case SessionRecorder::kRefused:
      return {result, "no dataset of the session, or a key or a device too many for it", {}};
    default:
      return {result, {}, {}};
  }
}

template <typename Policy>
ChannelAnswer Document(bool there, const Policy& policy) {
  if (!there) return Refused("there is no policy");
  return {0, {}, ToJson(policy)};
}

}  // namespace

ChannelServer::Answer ChannelRequests::Refuse(Refusal refusal, const platform::LocalCaller& caller,
                                              const std::string& reason) {
  refusals_.Count(refusal, &caller, reason);
  return {ToJson(Refused(reason)), refusal == Refusal::kBroken};
}

ChannelServer::Answer ChannelRequests::Answer(const platform::LocalCaller& caller, std::string_view text) {
  const bool privileged = IsPrivileged(caller.kind);
  // Before anything is read: who has no rights shall cost nothing.
  if (!privileged && caller.kind != CallerKind::kInteractiveUser) {
    return Refuse(Refusal::kNotAllowed, caller, "this account is not logged on");
  }
  if (!privileged && !requests_.Take(caller.user, 1)) {
    return Refuse(Refusal::kTooMany, caller, "too many requests in too short a time");
  }
  std::string problem;
  const std::optional<ChannelRequest> request = RequestFromJson(text, problem);
  if (!request) return Refuse(Refusal::kBroken, caller, problem);
  if (!May(caller.kind, request->wish)) {
    return Refuse(Refusal::kNotAllowed, caller,
                  "this account may not ask for \"" + std::string(WishName(request->wish)) + '"');
  }
  constexpr std::size_t kKiB = 1024;
  const std::size_t count = std::max<std::size_t>(request->devices.size(), 1) + text.size() / kKiB;
  if (IsObservation(request->wish) && !privileged && !observations_.Take(caller.user, count)) {
    return Refuse(Refusal::kTooMany, caller, "too many observations in too short a time");
  }
  const ChannelAnswer answer = CarryOut(*request);
  if (answer.result == SessionRecorder::kRefused) refusals_.Count(Refusal::kNotAllowed, &caller, answer.reason);
  std::string whole = ToJson(answer);
  return {whole.size() <= kLongestAnswer ? std::move(whole) : ToJson(Refused("the answer is too long to be told"))};
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
      return ResultOf(recorder.LogDatasetContext(request.dataset_id, request.devices, request.new_context_needed));
    case ChannelWish::kInit:
      return ResultOf(recorder.LogDevInitEvent(request.dataset_id));
    case ChannelWish::kItem:
      return ResultOf(recorder.WriteItem(request.dataset_id, request.item_name, request.data, request.device_key));
    case ChannelWish::kStatus:
      return {0, {}, status_.ToJson(manager_, refusals_)};
  }
  return Refused("there is no such wish");
}

}  // namespace TVK
