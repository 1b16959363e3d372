#include "host/system_event_relay.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "platform/simulated/simulated_power.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using platform::BatteryPercent;
using platform::SystemEvent;

TEST(SystemEventRelayTest, HandsEventsOnWhileItLivesWhateverTheReceiverThrows) {
  const LogCapture logs;
  platform::VirtualRuntime runtime;
  platform::SimulatedSystemEvents events;
  std::vector<SystemEvent> received;
  {
    const SystemEventRelay relay(events, runtime, nullptr, [&](const SystemEvent& event) {
      received.push_back(event);
      if (received.size() == 1) throw std::runtime_error("told to fail");
    });
    events.Raise(platform::SleepChange::kResume);
    events.Raise(BatteryPercent{7});
  }
  events.Raise(BatteryPercent{6});
  EXPECT_EQ(received, (std::vector<SystemEvent>{platform::SleepChange::kResume, BatteryPercent{7}}));
  EXPECT_EQ(logs.Count(L"an event was lost: told to fail"), 1u);
}

TEST(SystemEventRelayTest, AProblemIsLogged) {
  class Refused final : public platform::SystemEvents {
    platform::SystemEventOpening Open(platform::Runtime& /*runtime*/, platform::SystemEventCallback /*call*/,
                                      void* /*service*/) override {
      return {nullptr, "no more descriptors"};
    }
  };
  const LogCapture logs;
  platform::VirtualRuntime runtime;
  Refused events;
  const SystemEventRelay relay(events, runtime, nullptr, [](const SystemEvent&) {});
  EXPECT_TRUE(logs.Has(L"no more descriptors"));
}

}  // namespace

}  // namespace TVK
