// The decoder of service controls: whatever a control brings along, nothing outside its bytes is read and what comes
// out is in range.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "platform/service_control_event.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace platform;
  if (size < 3) return 0;
  // The control, and its event type in two bytes, little endian; then the bytes that come along.
  const unsigned long control = data[0];
  const unsigned long event_type = data[1] | data[2] << 8;
  const std::span<const std::uint8_t> rest(data + 3, size - 3);
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(rest.size());
  std::copy(rest.begin(), rest.end(), copy.get());
  const auto event = DecodeServiceControl(control, event_type, std::span<const std::uint8_t>(copy.get(), rest.size()));
  if (!event) return 0;
  if (const auto* const battery = std::get_if<BatteryPercent>(&*event)) {
    if (battery->percent > 100) std::abort();
  }
  // What a control means does not change when the system hands the same bytes over by a pointer.
  if (DecodeServiceControl(control, event_type, static_cast<const void*>(copy.get())) != event) std::abort();
  return 0;
}
