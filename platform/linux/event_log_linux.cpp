#include "platform/event_log.h"

#include <cerrno>

#include "platform/linux/doors_linux.h"

namespace platform {
namespace {

// The journal has no channels and no such queries.
class LinuxEventLog final : public EventLog {
 public:
  EventLogReading Query(const EventLogQuery& /*query*/) override {
    return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = ENOSYS};
  }
};

}  // namespace

std::unique_ptr<EventLog> MakeEventLog() {
  return std::make_unique<LinuxEventLog>();
}

}  // namespace platform
