// An event log that a test scripts.
#pragma once

#include <functional>

#include "platform/event_log.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// Answers a query. Empty: the machine keeps no log.
using SimulatedEventLogAnswer = std::function<EventLogReading(const EventLogQuery&)>;

class SimulatedEventLog final : public EventLog, public Scripted<SimulatedEventLogAnswer> {
 public:
  EventLogReading Query(const EventLogQuery& query) override {
    const auto answer = Get();
    if (answer) return answer(query);
    return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = kErrorNotSupported};
  }
};

}  // namespace platform
