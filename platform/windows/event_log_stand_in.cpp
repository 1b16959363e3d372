// A log service of two events, for machines whose own cannot be relied on: it lies beside the test as wevtapi.dll. What
// goes wrong is chosen by the query's text. Like the real one it checks what it is given.
#include "platform/windows/sys.h"
// After the system's basic header.
#include <winevt.h>

#include <atomic>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kEvents = 2;
std::atomic<int> open_handles = 0;

struct Handle {
  Handle() { ++open_handles; }
  virtual ~Handle() { --open_handles; }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
};
struct Results : Handle {
  explicit Results(const wchar_t* query) : mode(query) {}
  const std::wstring mode;
  int next = 0;
};
struct EventHandle : Handle {
  EventHandle(std::wstring of_mode, int of_index) : mode(std::move(of_mode)), index(of_index) {}
  const std::wstring mode;
  const int index;  ///< 0: the newest.
};
struct Context : Handle {
  std::vector<std::wstring> paths;
};

template <class T>
T* As(EVT_HANDLE handle) {
  return dynamic_cast<T*>(static_cast<Handle*>(handle));
}

template <class Result>
Result Fail(DWORD error, Result result) {
  SetLastError(error);
  return result;
}

/// Writes the values as the service does: the variants first, what they point to behind them.
class ValueWriter {
 public:
  explicit ValueWriter(std::size_t count) : variants_(count), bytes_(count * sizeof(EVT_VARIANT)) {}

  void Add(EVT_VARIANT variant) { variants_[next_++] = variant; }
  void AddPointed(EVT_VARIANT_TYPE type, const void* data, std::size_t size) {
    pointed_.push_back({next_, bytes_});
    EVT_VARIANT variant{};
    variant.Type = type;
    Add(variant);
    tail_.append(static_cast<const char*>(data), size);
    bytes_ += size;
  }
  std::size_t size() const { return bytes_; }

  void CopyTo(void* buffer) {
    auto* const start = static_cast<char*>(buffer);
    for (const auto& [index, offset] : pointed_)
      variants_[index].StringVal = reinterpret_cast<const wchar_t*>(start + offset);
    std::memcpy(start, variants_.data(), variants_.size() * sizeof(EVT_VARIANT));
    std::memcpy(start + variants_.size() * sizeof(EVT_VARIANT), tail_.data(), tail_.size());
  }

 private:
  std::vector<EVT_VARIANT> variants_;
  std::string tail_;
  std::vector<std::pair<std::size_t, std::size_t>> pointed_;
  std::size_t next_ = 0;
  std::size_t bytes_;
};

EVT_VARIANT Number(EVT_VARIANT_TYPE type, std::uint64_t value) {
  EVT_VARIANT variant{};
  variant.Type = type;
  variant.UInt64Val = value;
  return variant;
}

void AddValue(ValueWriter& values, const EventHandle& event, std::wstring_view path) {
  const auto text = [&](const std::wstring& value) {
    values.AddPointed(EvtVarTypeString, value.c_str(), (value.size() + 1) * sizeof(wchar_t));
  };
  if (path == L"Event/System/Channel") return text(L"System");
  if (path == L"Event/System/Provider/@Name") return text(std::wstring(event.mode == L"long" ? 3000 : 10, L'n'));
  if (path == L"Event/System/Provider/@Guid") {
    constexpr GUID kGuid{0xA68CA8B7, 0x004F, 0xD7B6, {0xA6, 0x98, 0x07, 0xE2, 0xDE, 0x0F, 0x1F, 0x5D}};
    return values.AddPointed(EvtVarTypeGuid, &kGuid, sizeof kGuid);
  }
  if (path == L"Event/System/Level") return values.Add(Number(EvtVarTypeByte, 4));
  if (path == L"Event/System/EventID") return values.Add(Number(EvtVarTypeUInt16, 12));
  if (path == L"Event/System/EventRecordID") {
    return values.Add(Number(EvtVarTypeUInt64, static_cast<std::uint64_t>(7000 - event.index)));
  }
  if (path == L"Event/System/TimeCreated/@SystemTime") {
    constexpr std::uint64_t kMoment = 134'116'956'000'000'000;  // 2025-12-31T23:00:00Z, of 100 ns from 1601
    return values.Add(Number(EvtVarTypeFileTime, kMoment - static_cast<std::uint64_t>(event.index) * 10'000'000));
  }
  if (path == L"Event/System/Execution/@ProcessID") return values.Add(Number(EvtVarTypeUInt32, 4));
  values.Add(Number(EvtVarTypeNull, 0));
}

BOOL HandOver(const EventHandle& event, std::size_t bytes, DWORD size, PDWORD used) {
  *used = static_cast<DWORD>(bytes);
  if (event.mode == L"never enough") *used = size + 1;
  return *used <= size ? TRUE : Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
}

}  // namespace

extern "C" {

int WINAPI OpenHandles() {
  return open_handles;
}

EVT_HANDLE WINAPI StandInQuery(EVT_HANDLE session, LPCWSTR channel, LPCWSTR query, DWORD flags) {
  if (session != nullptr || flags != (EvtQueryChannelPath | EvtQueryReverseDirection)) {
    return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
  }
  if (std::wstring_view(channel) != L"System") return Fail(ERROR_EVT_CHANNEL_NOT_FOUND, EVT_HANDLE());
  const std::wstring_view mode = query;
  if (mode == L"no query") return Fail(ERROR_EVT_INVALID_QUERY, EVT_HANDLE());
  if (mode == L"denied") return Fail(ERROR_ACCESS_DENIED, EVT_HANDLE());
  return static_cast<Handle*>(new Results(query));
}

BOOL WINAPI StandInNext(EVT_HANDLE handle, DWORD size, EVT_HANDLE* events, DWORD /*timeout*/, DWORD /*flags*/,
                        PDWORD returned) {
  auto* const results = As<Results>(handle);
  *returned = 0;
  if (results == nullptr || size == 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  if (results->mode == L"breaks off" && results->next == 1) return Fail(RPC_S_SERVER_UNAVAILABLE, FALSE);
  static int stale = 0;
  if (results->mode == L"stale once" && results->next == 1 && stale++ == 0) {
    return Fail(ERROR_EVT_QUERY_RESULT_STALE, FALSE);
  }
  if (results->mode == L"stale" && results->next == 1) return Fail(ERROR_EVT_QUERY_RESULT_STALE, FALSE);
  if (results->next == kEvents && results->mode != L"endless") return Fail(ERROR_NO_MORE_ITEMS, FALSE);
  events[0] = static_cast<Handle*>(new EventHandle(results->mode, results->next++));
  *returned = 1;
  return TRUE;
}

BOOL WINAPI StandInClose(EVT_HANDLE handle) {
  delete static_cast<Handle*>(handle);
  return TRUE;
}

EVT_HANDLE WINAPI StandInCreateRenderContext(DWORD count, LPCWSTR* paths, DWORD flags) {
  if (flags != EvtRenderContextValues) return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
  auto* const context = new Context;
  for (DWORD i = 0; i < count; ++i) {
    context->paths.emplace_back(paths[i]);
    if (!context->paths.back().starts_with(L"Event/")) {
      delete context;
      return Fail(ERROR_EVT_INVALID_QUERY, EVT_HANDLE());
    }
  }
  return static_cast<Handle*>(context);
}

BOOL WINAPI StandInRender(EVT_HANDLE context_handle, EVT_HANDLE event_handle, DWORD flags, DWORD size, PVOID buffer,
                          PDWORD used, PDWORD count) {
  const auto* const event = As<EventHandle>(event_handle);
  if (event == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (flags == EvtRenderEventXml) {
    if (context_handle != nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (event->mode == L"no xml") return Fail(ERROR_EVT_INVALID_EVENT_DATA, FALSE);
    const std::wstring xml = L"<Event><EventData><Data>\u00e4" + std::wstring(event->mode == L"long" ? 5000 : 1, L'x') +
                             L"</Data></EventData></Event>";
    const std::size_t bytes = (xml.size() + 1) * sizeof(wchar_t);
    *count = 0;
    if (!HandOver(*event, bytes, size, used)) return FALSE;
    std::memcpy(buffer, xml.c_str(), bytes);
    return TRUE;
  }
  const auto* const context = As<Context>(context_handle);
  if (context == nullptr || flags != EvtRenderEventValues) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  if (event->mode == L"no values") return Fail(ERROR_EVT_INVALID_EVENT_DATA, FALSE);
  ValueWriter values(context->paths.size());
  for (const std::wstring& path : context->paths)
    AddValue(values, *event, path);
  *count = static_cast<DWORD>(context->paths.size());
  if (!HandOver(*event, values.size(), size, used)) return FALSE;
  values.CopyTo(buffer);
  return TRUE;
}
}
