#include "client/channel/channel_client.h"

#include <utility>

#include "client/policy/policy_document.h"
#include "client/text/string.h"

namespace TVK {

using platform::ChannelWait;

namespace {

// Well below the service's patience with who is quiet: it never closes a connection on which something is being asked.
constexpr std::chrono::milliseconds kKeptFor(2000);
// And half of the time after which the service ends a conversation.
constexpr std::chrono::seconds kLongestConversation(30);

const char* Reason(ChannelWait wait) {
  switch (wait) {
    case ChannelWait::kTimeout:
      return "the service does not answer in time";
    case ChannelWait::kStopped:
      return "stopped while the service was asked";
    default:
      return "the service closed the connection";
  }
}

using Delivery = ChannelAnswer::Delivery;

ChannelAnswer Failure(std::string reason, Delivery delivery = Delivery::kUnanswered) {
  return {SessionRecorder::kChannelFailed, std::move(reason), {}, delivery};
}

}  // namespace

ChannelAnswer ChannelClient::Ask(const ChannelRequest& request, std::chrono::seconds patience) {
  const std::string text = ToJson(request);
  if (text.size() > kLongestRequest) return Failure("the request is too long", Delivery::kUnsent);
  const std::lock_guard lock(mutex_);
  CloseStale();
  constexpr std::chrono::milliseconds kPause(100);
  const platform::SteadyTime deadline = runtime_.clock().Steady() + patience;
  ChannelAnswer answer = Converse(text, deadline);
  while (answer.result == kChannelFull && runtime_.clock().Steady() + kPause < deadline) {
    if (runtime_.Wait(stop_ == nullptr ? *never_ : *stop_, kPause) == 0) {
      return Failure(Reason(ChannelWait::kStopped), Delivery::kUnsent);
    }
    answer = Converse(text, deadline);
  }
  if (answer.result == kChannelFull) {
    answer.result = SessionRecorder::kChannelFailed;
    answer.delivery = Delivery::kUnsent;
  }
  last_use_ = runtime_.clock().Steady();
  return answer;
}

void ChannelClient::CloseStale() {
  const platform::SteadyTime now = runtime_.clock().Steady();
  if (now - last_use_ > kKeptFor || now - begin_ > kLongestConversation) stream_ = nullptr;
}

void ChannelClient::CloseUnused() {
  if (const std::unique_lock lock(mutex_, std::try_to_lock); lock) CloseStale();
}

ChannelAnswer ChannelClient::Converse(const std::string& request, platform::SteadyTime deadline) {
  const bool fresh = stream_ == nullptr;
  if (fresh) {
    platform::LocalConnecting connecting = platform::ConnectLocally(runtime_, place_, stop_, deadline);
    if (connecting.connection == nullptr) {
      const char* const what =
          connecting.denied ? "this account does not reach the service: " : "the service is not there: ";
      ChannelAnswer failure = Failure(what + connecting.problem, Delivery::kUnsent);
      failure.denied = connecting.denied;
      return failure;
    }
    stream_ = std::make_unique<MessageStream>(std::move(connecting.connection), kLongestAnswer);
    begin_ = runtime_.clock().Steady();
  }
  // Kept only after a whole conversation: what is left of another one would be taken for the next answer.
  std::unique_ptr<MessageStream> stream = std::move(stream_);
  // A service that has no room closes at once, which a Send may hear first; what it said before can be read still.
  ChannelWait wait = fresh ? stream->Send(GreetingToJson(), deadline) : ChannelWait::kDone;
  // Once the request is on its way it may be carried out, however the connection ends.
  const Delivery unheard = wait == ChannelWait::kDone ? Delivery::kUnanswered : Delivery::kUnsent;
  if (wait == ChannelWait::kDone) wait = stream->Send(request, deadline);
  if (wait == ChannelWait::kTimeout || wait == ChannelWait::kStopped) return Failure(Reason(wait), unheard);
  std::string text;
  if (fresh) {
    wait = stream->Receive(text, deadline);
    if (wait != ChannelWait::kDone) return Failure(Reason(wait), unheard);
    if (!GreetingFromJson(text)) {
      const std::optional<ChannelAnswer> refusal = AnswerFromJson(text);
      if (!refusal) return Failure("something else than the service answers");
      return {refusal->result, "refused: " + refusal->reason, {}};
    }
  }
  wait = stream->Receive(text, deadline);
  if (wait != ChannelWait::kDone) return Failure(Reason(wait));
  std::optional<ChannelAnswer> answer = AnswerFromJson(text);
  if (!answer) return Failure("something else than the service answers");
  stream_ = std::move(stream);
  return std::move(*answer);
}

int ChannelRecorder::LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                                       bool new_context_needed) {
  return Ask({.wish = ChannelWish::kContext,
              .dataset_id = dataset_id,
              .devices = devices,
              .new_context_needed = new_context_needed});
}

int ChannelRecorder::LogDevInitEvent(const std::wstring& dataset_id) {
  return Ask({.wish = ChannelWish::kInit, .dataset_id = dataset_id});
}

int ChannelRecorder::WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                               const std::wstring& device_key) {
  return Ask({.wish = ChannelWish::kItem,
              .dataset_id = dataset_id,
              .item_name = item_name,
              .device_key = device_key,
              .data = data});
}

int ChannelRecorder::Ask(const ChannelRequest& request) {
  const ChannelAnswer answer = client_.Ask(request);
  if (answer.result != 0) {
    log_.e(L"the service took no %s of %s: %d %s", String::UTF8ToUTF16(WishName(request.wish)), request.dataset_id,
           answer.result, String::UTF8ToUTF16(HarmlessText(answer.reason)));
  }
  return answer.result;
}

std::string ChannelConfigAgent::Read(ChannelWish wish) {
  ChannelAnswer answer = client_.Ask({.wish = wish});
  if (answer.result == 0) return std::move(answer.body);
  log_.e(L"the service gives no %s: %s", String::UTF8ToUTF16(WishName(wish)),
         String::UTF8ToUTF16(HarmlessText(answer.reason)));
  return {};
}

bool ChannelConfigAgent::GetTelemetryPolicy(TelemetryPolicy& policy) {
  PolicyDocument read = ParseTelemetryPolicy(Read(ChannelWish::kPolicy));
  if (read.policy) policy = std::move(*read.policy);
  return read.policy.has_value();
}

bool ChannelConfigAgent::GetTvkPolicy(TvkPolicy& policy) {
  TvkPolicyDocument read = ParseTvkPolicy(Read(ChannelWish::kClientPolicy));
  if (read.policy) policy = std::move(*read.policy);
  return read.policy.has_value();
}

}  // namespace TVK
