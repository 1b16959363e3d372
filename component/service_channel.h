// The local channel of one manager: its log, its rights and its server.
#pragma once

#include <filesystem>
#include <string>

#include "client/channel/channel_server.h"
#include "component/channel_requests.h"

namespace TVK {

class ServiceChannel {
 public:
  /// Everything must outlive the object. Opens "LocalChannel.log".
  ServiceChannel(platform::Runtime& runtime, IConfigAgent& config, const ServiceStatus& status, ManagerAccess& manager,
                 Eraser& eraser, ChannelLimits limits = {}, const ChannelQuotas& quotas = {});
  /// Ends a report that is being made, so that the server's end waits for none.
  ~ServiceChannel() { requests_.EndReports(); }
  ServiceChannel(const ServiceChannel&) = delete;
  ServiceChannel& operator=(const ServiceChannel&) = delete;

  /// See ChannelServer::Start; what it gives is logged, too.
  std::string Start(const std::filesystem::path& place, ChannelServer::OwnSession own_session = {});

 private:
  Log log_;
  Refusals refusals_;
  ChannelRequests requests_;
  ChannelServer server_;
};

}  // namespace TVK
