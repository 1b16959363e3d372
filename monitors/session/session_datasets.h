// The datasets that are observed in the user's session: their rows and items, the same for the user agent, which
// observes, and the service, which makes the records.
#pragma once

#include <map>
#include <set>
#include <string>

#include "framework/dataset_row.h"

namespace TVK {

/// The displays of the user's session.
inline constexpr DatasetRow kDisplayRow = [] {
  DatasetRow row = DatasetRowNamed(L"DisplayEvent");
  row.log = L"DisplayUserAgent";
  row.source = L"tvk/display";
  row.type = L"device-activity";
  return row;
}();

/// How often pens and touch screens are used. Behind the datasets of the table, of which it is none.
inline constexpr DatasetRow kPenRow = {static_cast<int>(kDatasetRows.size()),
                                       L"DAA0ED20-1EC1-42CE-9C96-BC9E81D0A146",
                                       L"PenEvent",
                                       L"enhance,full",
                                       DatasetRule::kUserProcess,
                                       L"PenEventMonitor",
                                       L"tvk/pen",
                                       L"device-activity"};

inline constexpr wchar_t kDisplayStateItem[] = L"DisplayStateChange";
inline constexpr wchar_t kBrightnessItem[] = L"BrightnessChange";
inline constexpr wchar_t kResolutionItem[] = L"ResolutionChange";
inline constexpr wchar_t kPenUseItem[] = L"PenUsePerInterval";

/// Item name to item id.
const std::map<std::wstring, std::wstring>& DisplayItems();
const std::map<std::wstring, std::wstring>& PenItems();

/// All that the contexts and items may say.
const std::set<std::wstring>& DisplayKeys();
const std::set<std::wstring>& PenKeys();

}  // namespace TVK
