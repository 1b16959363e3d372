#include "component/service_channel.h"

#include <utility>

#include "client/log/service_logs.h"
#include "client/text/string.h"

namespace TVK {
namespace {

Log OpenLog() {
  Log log;
  utility::InitLog(log, ServiceLog(L"LocalChannel.log"), 4);
  return log;
}

}  // namespace

ServiceChannel::ServiceChannel(platform::Runtime& runtime, IConfigAgent& config, const ServiceStatus& status,
                               ManagerAccess& manager, Eraser& eraser, ChannelLimits limits,
                               const ChannelQuotas& quotas)
    : log_(OpenLog()),
      refusals_(log_),
      requests_(runtime.clock(), config, status, manager, eraser, refusals_, quotas),
      server_(
          runtime, log_, refusals_,
          [this](const platform::LocalCaller& caller, std::string_view request,
                 const ChannelServer::IsAwaited& is_awaited) { return requests_.Answer(caller, request, is_awaited); },
          limits) {}

std::string ServiceChannel::Start(const std::filesystem::path& place, ChannelServer::OwnSession own_session) {
  std::string problem = server_.Start(place, std::move(own_session));
  if (!problem.empty()) {
    log_.e(L"nobody can reach the service: %s", String::UTF8ToUTF16(problem));
  }
  return problem;
}

}  // namespace TVK
