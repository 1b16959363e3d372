#include "platform/battery_text.h"

#include <algorithm>
#include <string_view>

namespace platform {
namespace {

constexpr std::string_view kFillers[] = {"unknown", "not specified", "not available", "none", "n/a", "invalid"};

constexpr char Small(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool IsFiller(std::string_view text) {
  return std::ranges::any_of(kFillers,
                             [&](std::string_view filler) { return std::ranges::equal(text, filler, {}, Small); });
}

}  // namespace

void DropFillers(BatteryFacts& facts) {
  for (std::string* const text : {&facts.name, &facts.manufacturer, &facts.chemistry, &facts.serial_number})
    if (IsFiller(*text)) text->clear();
  if (facts.serial_number.find_first_not_of('0') == std::string::npos) facts.serial_number.clear();
}

}  // namespace platform
