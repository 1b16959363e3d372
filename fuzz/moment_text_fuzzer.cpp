// Any text as a moment that a person names: one that is read lies in 1970 or later, and says the same in every form of
// the same time of the calendar.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "client/text/moment.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/simulated/virtual_runtime.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const platform::VirtualRuntime world;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::optional<std::int64_t> moment = TVK::ParseMoment(text, world.clock());
  if (!moment) return 0;
  if (*moment < 0) std::abort();
  // Blanks around it say nothing, and the zone of that world is UTC.
  if (size < TVK::kLongestMomentText && TVK::ParseMoment(' ' + std::string(text), world.clock()) != moment)
    std::abort();
  constexpr std::int64_t kYear10000 = 253402300800;
  if (*moment >= kYear10000) return 0;
  std::string record_time = TVK::String::UTF16ToUTF8(TVK::FormatRecordTime(*moment, world.clock()));
  if (TVK::ParseMoment(record_time, world.clock()) != moment) std::abort();
  record_time[10] = ' ';
  if (TVK::ParseMoment(record_time.substr(0, 19), world.clock()) != moment) std::abort();
  if (TVK::ParseMoment('@' + std::to_string(*moment), world.clock()) != moment) std::abort();
  return 0;
}
