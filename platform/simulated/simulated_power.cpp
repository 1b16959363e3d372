#include "platform/simulated/simulated_power.h"

namespace platform {

class SimulatedSystemEvents::Source final : public SystemEventSource {
 public:
  Source(SimulatedSystemEvents& events, SystemEventCallback callback) : tell(std::move(callback)), events_(events) {
    const std::lock_guard lock(events_.mutex_);
    events_.sources_.insert(this);
  }
  ~Source() override {
    const std::lock_guard lock(events_.mutex_);
    events_.sources_.erase(this);
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  const SystemEventCallback tell;

 private:
  SimulatedSystemEvents& events_;
};

SystemEventOpening SimulatedSystemEvents::Open(Runtime& /*runtime*/, SystemEventCallback callback, void* /*service*/) {
  return {std::make_unique<Source>(*this, std::move(callback)), {}};
}

void SimulatedSystemEvents::Raise(const SystemEvent& event) {
  const std::lock_guard lock(mutex_);
  for (const Source* source : sources_)
    source->tell(event);
}

}  // namespace platform
