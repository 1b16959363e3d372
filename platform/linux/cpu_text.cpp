#include "platform/linux/cpu_text.h"

#include <algorithm>
#include <charconv>

#include "platform/text_scan.h"

namespace platform {
namespace {

constexpr std::uint64_t kHighestProcessor = 65535;

bool HasWord(std::string_view words, std::string_view wanted) {
  while (!words.empty()) {
    if (TakeWord(words) == wanted) return true;
  }
  return false;
}

/// What `key` says about the width: 64-bit x86 has the flag "lm", 64-bit Arm is "architecture 8" and above.
std::uint32_t AddressWidth(std::string_view key, std::string_view value) {
  if (key == "flags") return HasWord(value, "lm") ? 64 : 32;
  if (key == "CPU architecture") return ParseNumber(value).value_or(0) >= 8 ? 64 : 32;
  return 0;
}

}  // namespace

std::vector<std::uint32_t> ParseProcessorList(std::string_view text) {
  std::vector<std::uint32_t> processors;
  text = TrimBlanks(text);
  while (!text.empty()) {
    const auto comma = text.find(',');
    const std::string_view range = text.substr(0, comma);
    text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    const auto dash = range.find('-');
    const auto first = ParseNumber(range.substr(0, dash));
    const auto last = dash == std::string_view::npos ? first : ParseNumber(range.substr(dash + 1));
    if (!first || !last || *first > *last || *last > kHighestProcessor) return {};
    // A list names each processor once; one that goes on for longer is no list, and would only cost memory.
    if (processors.size() + (*last - *first) > kHighestProcessor) return {};
    for (auto number = *first; number <= *last; ++number)
      processors.push_back(static_cast<std::uint32_t>(number));
  }
  std::sort(processors.begin(), processors.end());
  processors.erase(std::unique(processors.begin(), processors.end()), processors.end());
  return processors;
}

std::vector<std::uint32_t> ParseProcessorMask(std::string_view text) {
  constexpr std::size_t kGroup = 9;  // characters: eight digits and the comma before them
  std::vector<std::uint32_t> processors;
  text = TrimBlanks(text);
  for (std::size_t place = 0; place < text.size(); ++place) {
    const char* const at = text.data() + text.size() - 1 - place;
    if (place % kGroup == kGroup - 1) {
      if (*at != ',') return {};
      continue;
    }
    unsigned digit = 0;
    if (std::from_chars(at, at + 1, digit, 16).ptr == at) return {};
    const std::uint64_t first = (place - place / kGroup) * 4;
    for (unsigned bit = 0; bit < 4; ++bit) {
      if ((digit >> bit & 1) == 0) continue;
      if (first + bit > kHighestProcessor) return {};
      processors.push_back(static_cast<std::uint32_t>(first + bit));
    }
  }
  return processors;
}

std::uint64_t ParseCacheSize(std::string_view text) {
  text = TrimBlanks(text);
  unsigned shift = 0;
  if (text.ends_with('K')) shift = 10;
  if (text.ends_with('M')) shift = 20;
  if (shift != 0) text.remove_suffix(1);
  const std::uint64_t number = ParseNumber(text).value_or(0);
  return number > UINT32_MAX ? 0 : number << shift;
}

Cpuinfo DecodeCpuinfo(std::string_view text) {
  Cpuinfo info;
  std::string_view fallback_name;
  while (!text.empty()) {
    const std::string_view line = TakeLine(text);
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view key = TrimBlanks(line.substr(0, colon));
    const std::string_view value = TrimBlanks(line.substr(colon + 1));
    if (key == "processor") {
      // Some Arm kernels write the name of the processor under this key as well; a number begins a block.
      if (const auto number = ParseNumber(value); number && *number <= kHighestProcessor) {
        info.processors.push_back({.number = static_cast<std::uint32_t>(*number)});
      }
    } else if (key == "model name" && info.name.empty()) {
      info.name = value;
    } else if (key == "Processor" && fallback_name.empty()) {
      fallback_name = value;
    } else if (key == "physical id" && !info.processors.empty()) {
      info.processors.back().package = ParseNumber(value);
    } else if (key == "core id" && !info.processors.empty()) {
      info.processors.back().core = ParseNumber(value);
    } else {
      info.address_width = std::max(info.address_width, AddressWidth(key, value));
    }
  }
  if (info.name.empty()) info.name = fallback_name;
  return info;
}

}  // namespace platform
