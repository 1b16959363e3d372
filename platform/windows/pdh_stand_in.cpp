// A performance data helper with the counters that a test names, for machines whose own have others or none: it lies
// beside the test as pdh.dll. Like the real one it checks what it is given.
#include "platform/windows/sys.h"
// After the system's basic header.
#include <pdh.h>
#include <pdhmsg.h>

#include <cstring>
#include <cwchar>
#include <iterator>
#include <string>
#include <string_view>

#include "platform/windows/pdh_stand_in.h"

namespace {

pdh_stand_in::Script script;

struct Query {
  bool has_counter = false;
  bool wildcard = false;
  int readings = 0;
};

constexpr auto Status(DWORD status) {
  return static_cast<PDH_STATUS>(status);
}

bool Exists(std::wstring_view path) {
  for (const auto& [set, counter] : script.counters) {
    if (set != nullptr && path.starts_with(set) && path.ends_with(counter)) return true;
  }
  return false;
}

// A rate has no value before the second reading.
PDH_STATUS Value(const Query& query, PDH_FMT_COUNTERVALUE& value) {
  const bool measured = query.readings >= 2;
  value.CStatus = measured ? script.state : PDH_CSTATUS_INVALID_DATA;
  value.longValue = script.value;
  return measured ? script.value_status : Status(PDH_INVALID_DATA);
}

}  // namespace

extern "C" {

pdh_stand_in::Script* WINAPI StandInScript() {
  return &script;
}

PDH_STATUS WINAPI StandInOpenQuery(LPCWSTR source, DWORD_PTR /*user*/, PDH_HQUERY* query) {
  if (source != nullptr) return Status(PDH_INVALID_ARGUMENT);
  if (script.open_status != ERROR_SUCCESS) return script.open_status;
  *query = new Query;
  ++script.open_queries;
  return ERROR_SUCCESS;
}

PDH_STATUS WINAPI StandInCloseQuery(PDH_HQUERY query) {
  delete static_cast<Query*>(query);
  --script.open_queries;
  return ERROR_SUCCESS;
}

PDH_STATUS WINAPI StandInAddEnglishCounter(PDH_HQUERY handle, LPCWSTR path, DWORD_PTR /*user*/, PDH_HCOUNTER* counter) {
  auto& query = *static_cast<Query*>(handle);
  if (script.asked_count < static_cast<int>(std::size(script.asked))) {
    std::wcsncpy(script.asked[script.asked_count++], path, std::size(script.asked[0]) - 1);
  }
  if (!Exists(path)) return Status(PDH_CSTATUS_NO_COUNTER);
  query.has_counter = true;
  query.wildcard = std::wstring_view(path).find(L"(*)") != std::wstring_view::npos;
  *counter = &query;
  return ERROR_SUCCESS;
}

PDH_STATUS WINAPI StandInCollectQueryData(PDH_HQUERY handle) {
  auto& query = *static_cast<Query*>(handle);
  if (!query.has_counter) return Status(PDH_NO_DATA);
  if (script.collect_status == ERROR_SUCCESS) ++query.readings;
  return script.collect_status;
}

PDH_STATUS WINAPI StandInGetFormattedCounterValue(PDH_HCOUNTER counter, DWORD format, LPDWORD /*type*/,
                                                  PPDH_FMT_COUNTERVALUE value) {
  const auto& query = *static_cast<Query*>(counter);
  if (format != PDH_FMT_LONG || query.wildcard) return Status(PDH_INVALID_ARGUMENT);
  return Value(query, *value);
}

PDH_STATUS WINAPI StandInGetFormattedCounterArray(PDH_HCOUNTER counter, DWORD format, LPDWORD size, LPDWORD count,
                                                  PPDH_FMT_COUNTERVALUE_ITEM_W items) {
  const auto& query = *static_cast<Query*>(counter);
  if (format != PDH_FMT_LONG || !query.wildcard) return Status(PDH_INVALID_ARGUMENT);
  if (*size != 0 && items == nullptr) return Status(PDH_INVALID_ARGUMENT);
  constexpr std::size_t kNameBytes = 16 * sizeof(wchar_t);
  const auto needed = static_cast<DWORD>(script.instances * (sizeof *items + kNameBytes));
  if (*size < needed) {
    *size = needed;
    if (script.growing) ++script.instances;
    return Status(PDH_MORE_DATA);
  }
  // The names stand behind the items.
  auto* name = reinterpret_cast<wchar_t*>(items + script.instances);
  PDH_STATUS status = ERROR_SUCCESS;
  for (DWORD i = 0; i < script.instances; ++i, name += kNameBytes / sizeof(wchar_t)) {
    const bool total = i + 1 == script.instances && !script.without_total;
    std::wcscpy(name, total ? L"_Total" : (L"0," + std::to_wstring(i)).c_str());
    items[i].szName = name;
    status = Value(query, items[i].FmtValue);
    if (!total) items[i].FmtValue.longValue = -1;
  }
  *count = script.instances;
  return status;
}
}
