// What is asked of the service through the local channel, and what it answers: JSON objects in UTF-8. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/channel/session_recorder.h"
#include "tvk/records.h"

namespace TVK {

/// The version that both sides speak; each conversation begins with the client's.
inline constexpr int kChannelVersion = 1;

enum class ChannelWish {
  kPolicy,        ///< The telemetry policy in force.
  kClientPolicy,  ///< The client policy in force.
  kContext,       ///< SessionRecorder::LogDatasetContext
  kInit,          ///< SessionRecorder::LogDevInitEvent
  kItem,          ///< SessionRecorder::WriteItem
  kStatus,        ///< How the service stands.
  kEvent,         ///< An event that is written for its sender, into the dataset of such events.
  kErase,         ///< Records are to be deleted; the answer's body is the receipt, its result 0 when all went.
  kReport,        ///< What the store holds and how the datasets stand, as their owner reads it.
};

/// What of it a wish does not need is empty.
struct ChannelRequest {
  ChannelWish wish = ChannelWish::kPolicy;
  std::wstring dataset_id = {};
  std::wstring item_name = {};
  std::wstring device_key = {};
  ItemData data = {};
  std::vector<ObservedDevice> devices = {};
  bool new_context_needed = false;
  bool all = false;                                           ///< Of an erasure that has no other condition.
  std::optional<std::int64_t> before_seconds = std::nullopt;  ///< Seconds since 1970; of an erasure.
  std::optional<std::int64_t> since_seconds = std::nullopt;   ///< The same; of a report.

  bool operator==(const ChannelRequest&) const = default;
};

/// Bounds of a request, which RequestFromJson holds it to; texts in characters.
inline constexpr std::size_t kMostDevices = 16;
inline constexpr std::size_t kMostItemValues = 16;
inline constexpr std::size_t kLongestName = 128;  ///< Of ids, names and keys.
inline constexpr std::size_t kLongestValue = 256;

/// The result of a service that had no room for the conversation: nothing was carried out, and it may have room soon.
inline constexpr int kChannelFull = -100;

struct ChannelAnswer {
  int result = 0;      ///< As SessionRecorder's operations give it.
  std::string reason;  ///< Why a request was refused; empty otherwise.
  std::string body;    ///< What was asked for: a JSON document.
  /// Of a client: what is known of the request. Answers that come are kAnswered.
  enum class Delivery {
    kAnswered,
    kUnanswered,  ///< It may have been carried out, or may still be.
    kUnsent,      ///< It was not carried out: no conversation began.
  };
  Delivery delivery = Delivery::kAnswered;
  bool denied = false;  ///< Of a client, with kUnsent: the system does not let this account reach the service.

  bool operator==(const ChannelAnswer&) const = default;
};

std::string GreetingToJson();
/// The version that a greeting names; nothing when it is none.
std::optional<int> GreetingFromJson(std::string_view json);

std::string ToJson(const ChannelRequest& request);
/// Nothing, and one line in `problem`, for what is no request: other keys, types or wishes, control characters, a
/// bound that is passed; an erasure that does not say that it is of all, or of what.
std::optional<ChannelRequest> RequestFromJson(std::string_view json, std::string& problem);

std::string ToJson(const ChannelAnswer& answer);
std::optional<ChannelAnswer> AnswerFromJson(std::string_view json);

/// "item", as it stands in a request.
std::string_view WishName(ChannelWish wish);

}  // namespace TVK
