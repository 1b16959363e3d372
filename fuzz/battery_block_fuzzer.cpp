// The decoders of what the maker's power software tells of a battery. The first byte selects the block: 0..2 those of
// the energy-management driver, else the two of the power manager's library in two halves. Nothing outside the blocks
// is read, and what comes out lies in its range.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>

#include "client/battery/battery_info.h"
#include "client/battery/battery_item_data.h"
#include "client/battery/smart_battery_status.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

void Require(bool holds) {
  if (!holds) std::abort();
}

// Printable ASCII of the longest field at most; numbers, dates and ids without anything else.
void RequireRecord(const BatteryInfo& battery) {
  for (const ItemData& data : {TVK::BatteryContextItemData(battery), TVK::BatteryItemData(battery)}) {
    for (const auto& [key, text] : data) {
      Require(!text.empty() && text.size() <= (key == L"SerialNumber" ? 64 : 32));
      Require(std::ranges::all_of(text, [](wchar_t c) { return c >= 0x20 && c < 0x7F; }));
      if (key.ends_with(L"Date")) Require(text.size() == 10 && text >= L"1980-01-01");
      if (key.ends_with(L"Capacity") || key.find(L"H") == 0)
        Require(key == L"Hwid" || text.find_first_not_of(L"0123456789") == text.npos);
    }
  }
}

void Decode(unsigned selected, Bytes block) {
  BatteryInfo battery;
  _EM_BATTERY_INFO info;
  if (selected == 0) TVK::DecodeEmIdentity(block, info);
  if (selected == 1) TVK::DecodeEmCondition(block, info);
  if (selected == 2) TVK::DecodeEmUsage(block, info);
  if (selected < 3) TVK::Describe(info, battery);
  if (selected >= 3) {
    const std::size_t half = block.size() / 2;
    TVK::Describe(TVK::DecodeSmartBatteryStatus(block.first(half), block.subspan(half)), battery);
  }
  RequireRecord(battery);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size - 1);
  std::copy_n(data + 1, size - 1, copy.get());
  Decode(data[0], {copy.get(), size - 1});
  return 0;
}
