#include "component/channel_requests.h"

#include <utility>

#include "client/policy/policy_text.h"
#include "client/policy/report_readers.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "component/service_report.h"
#include "framework/dataset_monitor.h"

namespace TVK {
namespace {

using platform::CallerKind;

// A client waits no longer: nobody would read it.
constexpr std::chrono::seconds kLongestReport(30);

ChannelAnswer Refused(std::string reason) {
  return {SessionRecorder::kChannelFailed, std::move(reason), {}};
}

bool IsObservation(ChannelWish wish) {
  return wish == ChannelWish::kContext || wish == ChannelWish::kInit || wish == ChannelWish::kItem ||
         wish == ChannelWish::kEvent;
}

bool May(CallerKind kind, ChannelWish wish) {
  if (IsPrivileged(kind)) return true;
  return kind == CallerKind::kInteractiveUser &&
         (IsObservation(wish) || wish == ChannelWish::kPolicy || wish == ChannelWish::kReport);
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

ChannelServer::Answer ChannelRequests::Answer(const platform::LocalCaller& caller, std::string_view text,
                                              const ChannelServer::IsAwaited& is_awaited) {
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
  if (request->wish == ChannelWish::kReport && !privileged) {
    if (const std::string reason = ReportRefusal(); !reason.empty()) {
      return Refuse(Refusal::kNotAllowed, caller, reason);
    }
    if (!reports_.Take(caller.user, 1)) {
      return Refuse(Refusal::kTooMany, caller, "too many reports in too short a time");
    }
  }
  Refusal refusal = Refusal::kNotAllowed;
  const ChannelAnswer answer = CarryOut(*request, privileged, is_awaited, refusal);
  // A mistake of an administrator is told, and is nothing that anybody else has to know of.
  if (answer.result == SessionRecorder::kRefused && !privileged) refusals_.Count(refusal, &caller, answer.reason);
  std::string whole = ToJson(answer);
  return {whole.size() <= kLongestAnswer ? std::move(whole) : ToJson(Refused("the answer is too long to be told"))};
}

std::string ChannelRequests::ReportRefusal() {
  TelemetryPolicy policy;
  if (config_.GetTelemetryPolicy(policy) && UsersMayReadReport(policy)) return {};
  return "the policy lets administrators alone have the report (its setting \"ReportReaders\")";
}

ChannelAnswer ChannelRequests::MakeReport(const ChannelRequest& request, const ChannelServer::IsAwaited& is_awaited) {
  // Without a queue: whoever waits in it holds a place that others need.
  const std::unique_lock lock(report_mutex_, std::try_to_lock);
  if (!lock.owns_lock()) return Refused("a report is being made, try again in a while");
  const std::string status = status_.ToJson(manager_, refusals_);
  const platform::SteadyTime end = status_.clock().Steady() + kLongestReport;
  const auto goes_on = [&] { return !reports_end_ && status_.clock().Steady() < end && is_awaited(); };
  std::string problem;
  const auto fits = [](const std::string& body) { return ToJson(ChannelAnswer{0, {}, body}).size() <= kLongestAnswer; };
  std::optional<std::string> report =
      ServiceReport(status_.store_file(), request.since_seconds, status, goes_on, fits, status_.clock(), problem);
  return report ? ChannelAnswer{0, {}, std::move(*report)} : Refused(std::move(problem));
}

ChannelAnswer ChannelRequests::CarryOut(const ChannelRequest& request, bool privileged,
                                        const ChannelServer::IsAwaited& is_awaited, Refusal& refusal) {
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
    case ChannelWish::kReport:
      return MakeReport(request, is_awaited);
    case ChannelWish::kEvent: {
      TakenEvent taken = manager_.TakeApplicationEvent(request.item_name, request.data,
                                                       privileged ? EventSender::kPrivileged : EventSender::kUser);
      if (taken.too_many) refusal = Refusal::kTooMany;
      return {taken.result, std::move(taken.reason), {}};
    }
    case ChannelWish::kErase: {
      Erasure erasure{.before_seconds = request.before_seconds};
      if (!request.all && !request.dataset_id.empty()) {
        if (ComponentDatasets().FindById(request.dataset_id) == nullptr) return Refused("there is no such dataset");
        erasure.dataset_id = String::UTF16ToUTF8(request.dataset_id);
      }
      const ErasureReceipt receipt = eraser_.Erase(erasure);
      return {receipt.problem.empty() ? 0 : SessionRecorder::kChannelFailed, receipt.problem, ToJson(receipt)};
    }
  }
  return Refused("there is no such wish");
}

}  // namespace TVK
