// The other end of the local channel: for the user agent and for tools.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "client/channel/channel_request.h"
#include "client/channel/message_stream.h"
#include "client/channel/session_recorder.h"
#include "client/log/log.h"
#include "client/policy/config_agent.h"
#include "platform/runtime.h"

namespace TVK {

/// Asks the service, one request after the other, over a connection that is kept while it is in use. Any thread;
/// callers that want their records to share commits have a client each.
class ChannelClient {
 public:
  /// How long, in waking time, an answer is waited for.
  static constexpr std::chrono::seconds kPatience{30};

  /// `runtime`, the process's own, and `stop` (a manual-reset event that ends every wait; may be null) must outlive the
  /// object. `place`: see platform::ListenLocally.
  ChannelClient(platform::Runtime& runtime, std::filesystem::path place, platform::Waitable* stop = nullptr)
      : runtime_(runtime),
        place_(std::move(place)),
        stop_(stop),
        never_(runtime.MakeEvent(platform::EventReset::kManual)) {}
  ChannelClient(const ChannelClient&) = delete;
  ChannelClient& operator=(const ChannelClient&) = delete;

  /// The service's answer; kChannelFailed with a reason when there is none. A request is sent once: where its answer
  /// did not come it may have been carried out, see ChannelAnswer::Delivery. While the service has no room for a
  /// conversation it is asked again.
  ChannelAnswer Ask(const ChannelRequest& request, std::chrono::seconds patience = kPatience);

  /// Closes a connection that was not used lately; the next request makes another one. A process that asks rarely calls
  /// it now and then: on Windows the end of a service that is gone keeps that one's pipe in memory. Does not wait:
  /// while a request is asked nothing is done.
  void CloseUnused();

 private:
  /// With mutex_ held.
  void CloseStale();
  /// kChannelFull where the service said that it has no room: nothing was carried out.
  ChannelAnswer Converse(const std::string& request, platform::SteadyTime deadline);

  platform::Runtime& runtime_;
  const std::filesystem::path place_;
  platform::Waitable* const stop_;
  const std::unique_ptr<platform::Event> never_;  ///< Waited for where there is no stop event.
  std::mutex mutex_;                              ///< Held for a whole request; guards what follows.
  std::unique_ptr<MessageStream> stream_;
  platform::SteadyTime begin_;  ///< Of its conversation.
  platform::SteadyTime last_use_;
};

/// SessionRecorder over a channel. What fails is logged in `log`.
class ChannelRecorder final : public SessionRecorder {
 public:
  /// Both must outlive the object.
  ChannelRecorder(ChannelClient& client, const Log& log) : client_(client), log_(log) {}

  int LogDatasetContext(const std::wstring& dataset_id, const std::vector<ObservedDevice>& devices,
                        bool new_context_needed) override;
  int LogDevInitEvent(const std::wstring& dataset_id) override;
  int WriteItem(const std::wstring& dataset_id, const std::wstring& item_name, const ItemData& data,
                const std::wstring& device_key) override;

 private:
  int Ask(const ChannelRequest& request);

  ChannelClient& client_;
  const Log& log_;
};

/// The service's policies, asked for anew each time. No policy while the service is not there, which is logged.
class ChannelConfigAgent final : public IConfigAgent {
 public:
  /// Both must outlive the object.
  ChannelConfigAgent(ChannelClient& client, const Log& log) : client_(client), log_(log) {}

  bool GetTelemetryPolicy(TelemetryPolicy& policy) override;
  bool GetTvkPolicy(TvkPolicy& policy) override;

 private:
  /// The document that answers; nothing, and a line in the log, without one.
  std::string Read(ChannelWish wish);

  ChannelClient& client_;
  const Log& log_;
};

}  // namespace TVK
