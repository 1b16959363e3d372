// Any text as an interval: what is read is a whole number of the unit that the text ends with.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "client/text/interval.h"
#include "client/text/string.h"
#include "framework/dataset_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = TVK::String::UTF8ToUTF16({reinterpret_cast<const char*>(data), size});
  const TVK::IntervalSetting setting{L"K", L"^\\d+(ms|s|m|h|d)$", 0, 1, UINT32_MAX, L""};
  const std::uint64_t ms = TVK::utility::GetIntervalInMillisecondsGivenRegex(text, setting.pattern);
  if (text.ends_with(L'h') && ms % (60 * 60 * 1000) != 0) std::abort();
  TVK::SettingReading reading;
  const std::uint64_t read = setting.Read({{L"K", text}}, reading);
  // The setting takes what the interval says, or says why not.
  if (read != (ms <= UINT32_MAX ? ms : 0)) std::abort();
  if (reading.mistake != (read == 0) || reading.reason.empty() == reading.mistake) std::abort();
  return 0;
}
