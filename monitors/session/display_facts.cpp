#include "monitors/session/display_facts.h"

#include <cstdio>

#include "client/display/edid.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"

namespace TVK {
namespace {

void PutNumber(ItemData& data, const wchar_t* key, std::uint32_t number) {
  if (number != 0) data[key] = std::to_wstring(number);
}

void PutText(ItemData& data, const wchar_t* key, const std::string& text) {
  if (!text.empty()) data[key] = String::UTF8ToUTF16(text);
}

// Four hexadecimal digits, as the makers write it and device paths have it.
std::string ProductCode(std::uint16_t product) {
  char digits[5];
  static_cast<void>(std::snprintf(digits, sizeof digits, "%04X", static_cast<unsigned>(product)));
  return digits;
}

}  // namespace

ItemData DisplayModeItemData(const platform::DisplayMode& mode) {
  ItemData data;
  PutNumber(data, L"Width", mode.width);
  PutNumber(data, L"Height", mode.height);
  PutNumber(data, L"BitsPerPixel", mode.bits_per_pixel);
  PutNumber(data, L"RefreshRate", mode.refresh_rate);
  return data;
}

ObservedDevice ObserveDisplay(const platform::AttachedDisplay& display) {
  ObservedDevice device{{}, DisplayModeItemData(display.mode)};
  device.facts[L"Primary"] = display.primary ? L"true" : L"false";
  std::string identity;
  const auto edid = DecodeEdid(display.edid);
  if (edid) {
    const std::string product = ProductCode(edid->product);
    PutText(device.facts, L"Manufacturer", edid->maker);
    PutText(device.facts, L"ProductCode", product);
    PutText(device.facts, L"Model", edid->model);
    if (edid->year) device.facts[L"ManufactureYear"] = std::to_wstring(*edid->year);
    if (!edid->serial_number.empty()) {
      device.facts[L"SerialNumber"] = HashUtility::HashSerialNumber(String::UTF8ToUTF16(edid->serial_number));
    }
    identity = edid->maker + ' ' + product + ' ' + edid->serial_number;
  }
  if (!edid || edid->serial_number.empty()) identity += ' ' + display.id;
  device.key = HashUtility::HashSerialNumber(String::UTF8ToUTF16(identity));
  return device;
}

}  // namespace TVK
