// Hands the system's own events to whoever takes them.
#pragma once

#include <memory>

#include "client/log/log.h"
#include "platform/system_events.h"

namespace TVK {

/// Listens from its making to its end. What cannot be listened to is logged, once, and nothing is handed on then.
class SystemEventRelay {
 public:
  /// `receiver` is called on a thread of the source, one event at a time; an exception of it ends in the log. `events`
  /// and `runtime` must outlive the object. `service`: see SystemEvents::Open.
  SystemEventRelay(platform::SystemEvents& events, platform::Runtime& runtime, void* service,
                   platform::SystemEventCallback receiver);
  SystemEventRelay(const SystemEventRelay&) = delete;
  SystemEventRelay& operator=(const SystemEventRelay&) = delete;
  ~SystemEventRelay() = default;

 private:
  Log log_;
  const platform::SystemEventCallback receiver_;
  std::unique_ptr<platform::SystemEventSource> source_;  ///< Ends first: it calls back.
};

}  // namespace TVK
