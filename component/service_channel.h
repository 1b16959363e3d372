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
                 ChannelLimits limits = {}, const ChannelQuotas& quotas = {});
  ServiceChannel(const ServiceChannel&) = delete;
  ServiceChannel& operator=(const ServiceChannel&) = delete;

  /// See ChannelServer::Start; what it gives is logged, too.
  std::string Start(const std::filesystem::path& place);

 private:
  Log log_;
  Refusals refusals_;
  ChannelRequests requests_;
  ChannelServer server_;
};

}  // namespace TVK
