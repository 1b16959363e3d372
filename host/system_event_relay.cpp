#include "host/system_event_relay.h"

#include <exception>

#include "client/log/service_logs.h"
#include "client/text/string.h"

using TVK::String;

namespace TVK {

SystemEventRelay::SystemEventRelay(platform::SystemEvents& events, platform::Runtime& runtime, void* service,
                                   platform::SystemEventCallback receiver)
    : receiver_(std::move(receiver)) {
  utility::InitLog(log_, ServiceLog(L"SystemEvents.log"), 4);
  const auto relay = [this](const platform::SystemEvent& event) {
    try {
      receiver_(event);
    } catch (const std::exception& failure) {
      log_.e(L"SystemEventRelay: an event was lost: %s", String::UTF8ToUTF16(failure.what()));
    } catch (...) {
      log_.e(L"SystemEventRelay: an event was lost");
    }
  };
  platform::SystemEventOpening opening = events.Open(runtime, relay, service);
  if (!opening.problem.empty()) {
    log_.e(L"SystemEventRelay: not all of the system's events are followed: %s", String::UTF8ToUTF16(opening.problem));
  }
  source_ = std::move(opening.source);
}

}  // namespace TVK
