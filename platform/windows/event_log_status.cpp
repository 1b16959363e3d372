#include "platform/windows/event_log_status.h"

#include "platform/windows/event_renderer.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

UniqueEventLogHandle OpenLog(const std::string& channel) {
  SetLastError(ERROR_SUCCESS);
  return UniqueEventLogHandle(EvtOpenLog(nullptr, WideFromUtf8(channel).c_str(), EvtOpenChannelPath));
}

std::optional<std::uint64_t> NumberIn(const EVT_VARIANT& variant) {
  return variant.Type == EvtVarTypeUInt64 ? std::optional<std::uint64_t>(variant.UInt64Val) : std::nullopt;
}

std::optional<std::uint64_t> Info(EVT_HANDLE log, EVT_LOG_PROPERTY_ID what) {
  EVT_VARIANT variant{};
  DWORD used = 0;
  return EvtGetLogInfo(log, what, sizeof variant, &variant, &used) ? NumberIn(variant) : std::nullopt;
}

std::optional<std::uint64_t> MostBytes(const std::string& channel) {
  const UniqueEventLogHandle config(EvtOpenChannelConfig(nullptr, WideFromUtf8(channel).c_str(), 0));
  EVT_VARIANT variant{};
  DWORD used = 0;
  if (!config ||
      !EvtGetChannelConfigProperty(config.get(), EvtChannelLoggingConfigMaxSize, 0, sizeof variant, &variant, &used)) {
    return std::nullopt;
  }
  return NumberIn(variant);
}

std::optional<WallTime> OldestEvent(const std::string& channel) {
  const UniqueEventLogHandle results(
      EvtQuery(nullptr, WideFromUtf8(channel).c_str(), L"*", EvtQueryChannelPath | EvtQueryForwardDirection));
  UniqueEventLogHandle event;
  DWORD returned = 0;
  EventRenderer renderer;
  std::vector<EventLogValue> values;
  if (!results || !EvtNext(results.get(), 1, event.Receive(), kLongestLogWaitMs, 0, &returned) || returned == 0 ||
      renderer.Open({"Event/System/TimeCreated/@SystemTime"}) != 0 || renderer.Values(event.get(), values) != 0) {
    return std::nullopt;
  }
  const auto* const time = std::get_if<WallTime>(&values.front());
  return time != nullptr ? std::optional(*time) : std::nullopt;
}

}  // namespace

std::optional<LogExtent> ReadLogExtent(const std::string& channel) {
  const UniqueEventLogHandle log = OpenLog(channel);
  if (!log) return std::nullopt;
  const auto count = Info(log.get(), EvtLogNumberOfLogRecords);
  const auto oldest = Info(log.get(), EvtLogOldestRecordNumber);
  if (!count || (!oldest && *count > 0)) return std::nullopt;
  return LogExtent{.oldest = oldest.value_or(0), .count = *count};
}

EventLogStatus ReadLogStatus(const std::string& channel) {
  EventLogStatus status;
  const UniqueEventLogHandle log = OpenLog(channel);
  if (!log) {
    status.error = GetLastError();
    // Wine's gives nothing, and no reason.
    const bool unsupported = status.error == ERROR_SUCCESS || status.error == ERROR_CALL_NOT_IMPLEMENTED;
    status.failure = unsupported                                   ? EventLogFailure::kNotSupported
                     : status.error == ERROR_EVT_CHANNEL_NOT_FOUND ? EventLogFailure::kChannelNotFound
                                                                   : EventLogFailure::kQuery;
    return status;
  }
  status.events = Info(log.get(), EvtLogNumberOfLogRecords);
  status.bytes = Info(log.get(), EvtLogFileSize);
  status.most_bytes = MostBytes(channel);
  if (status.events != 0) status.oldest = OldestEvent(channel);
  return status;
}

}  // namespace platform::windows
