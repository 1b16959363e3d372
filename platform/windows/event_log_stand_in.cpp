// A log service for machines whose own cannot be relied on: it lies beside the test as wevtapi.dll. Like the real one
// it checks what it is given. Queries find two events; what they say, and what goes wrong, is chosen by the query's
// text. Subscriptions, and what is told of a channel, are of the log that the test scripts (event_log_stand_in.h).
#include "platform/windows/sys.h"
// After the system's basic header.
#include <winevt.h>

#include "platform/windows/event_log_stand_in.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using event_log_stand_in::Channel;
using event_log_stand_in::Script;

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
  explicit Results(const wchar_t* query, const wchar_t* of_channel = L"System") : mode(query), channel(of_channel) {}
  const std::wstring mode;
  const std::wstring channel;
  int next = 0;
  int end = kEvents;
};
struct EventHandle : Handle {
  EventHandle(std::wstring of_mode, int of_index, std::wstring of_channel = L"System")
      : mode(std::move(of_mode)), index(of_index), channel(std::move(of_channel)) {}
  const std::wstring mode;
  const int index;  ///< 0: the newest.
  const std::wstring channel;
};
constexpr int kNewestId = 7000;
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
  if (path == L"Event/System/Channel") return text(event.channel);
  if (path == L"Event/System/Provider/@Name") return text(std::wstring(event.mode == L"long" ? 3000 : 10, L'n'));
  if (path == L"Event/System/Provider/@Guid") {
    constexpr GUID kGuid{0xA68CA8B7, 0x004F, 0xD7B6, {0xA6, 0x98, 0x07, 0xE2, 0xDE, 0x0F, 0x1F, 0x5D}};
    return values.AddPointed(EvtVarTypeGuid, &kGuid, sizeof kGuid);
  }
  if (path == L"Event/System/Level") return values.Add(Number(EvtVarTypeByte, 4));
  if (path == L"Event/System/EventID") return values.Add(Number(EvtVarTypeUInt16, 12));
  if (path == L"Event/System/EventRecordID") {
    return values.Add(Number(EvtVarTypeUInt64, static_cast<std::uint64_t>(kNewestId - event.index)));
  }
  if (path == L"Event/System/TimeCreated/@SystemTime") {
    constexpr std::uint64_t kMoment = 134'116'956'000'000'000;  // 2025-12-31T23:00:00Z, of 100 ns from 1601
    return values.Add(Number(EvtVarTypeFileTime, kMoment - static_cast<std::uint64_t>(event.index) * 10'000'000));
  }
  if (path == L"Event/System/Execution/@ProcessID") return values.Add(Number(EvtVarTypeUInt32, 4));
  values.Add(Number(EvtVarTypeNull, 0));
}

std::wstring XmlOf(const EventHandle& event) {
  if (event.mode.find(L"EventID=55") != event.mode.npos) {  // a broken file system; the older event has no names
    return event.index == 0 ? L"<Event><EventData><Data Name='DriveName'>C:</Data></EventData></Event>"
                            : L"<Event><EventData><Data></Data><Data>D:</Data></EventData></Event>";
  }
  return L"<Event><EventData><Data>\u00e4" + std::wstring(event.mode == L"long" ? 5000 : 1, L'x') +
         L"</Data></EventData></Event>";
}

BOOL HandOver(const EventHandle& event, std::size_t bytes, DWORD size, PDWORD used) {
  *used = static_cast<DWORD>(bytes);
  if (event.mode == L"never enough") *used = size + 1;
  return *used <= size ? TRUE : Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
}

struct Subscription : Handle {
  Channel* channel = nullptr;
  HANDLE signal = nullptr;
  std::uint64_t next = 0;  ///< The number of the next event.
  bool stale = false;
};
std::vector<Subscription*> subscriptions;

struct Bookmark : Handle {
  std::wstring channel;
  std::uint64_t id = 0;
};
struct Log : Handle {
  Channel* channel = nullptr;
};

Script script;

Channel* FindChannel(std::wstring_view name) {
  const auto found =
      std::ranges::find(script.channels, name, [](const Channel& one) { return std::wstring_view(one.name); });
  return found == std::end(script.channels) ? nullptr : &*found;
}

/// What stands in quotes behind `name`.
std::wstring Attribute(std::wstring_view xml, std::wstring_view name) {
  const std::size_t at = xml.find(name);
  if (at == xml.npos) return {};
  const std::wstring_view value = xml.substr(at + name.size() + 1);
  return std::wstring(value.substr(0, value.find(xml[at + name.size()])));
}

/// The channels that the query names; it is of the structured form or empty.
std::vector<std::wstring> ChannelsOf(std::wstring_view query) {
  std::vector<std::wstring> channels;
  if (!query.starts_with(L"<QueryList><Query>") || !query.ends_with(L"</Query></QueryList>")) return channels;
  for (std::size_t at = query.find(L"Path="); at != query.npos; at = query.find(L"Path=", at + 1))
    channels.push_back(Attribute(query.substr(at), L"Path="));
  return channels;
}

/// The number behind the last event that subscriptions are given.
std::uint64_t EndOf(const Channel& channel) {
  const std::uint64_t end = channel.oldest + channel.count;
  return channel.last_wanted < end ? channel.last_wanted + 1 : end;
}

void Signal(const Subscription& subscription) {
  const Channel& channel = *subscription.channel;
  if (std::max(subscription.next, channel.oldest) < EndOf(channel)) SetEvent(subscription.signal);
}

/// Finds the event at one end of the channel, when there is one.
EVT_HANDLE QueryScript(Channel& channel, bool newest) {
  if (channel.open_error != 0) return Fail(channel.open_error, EVT_HANDLE());
  auto* const results = new Results(L"*", channel.name);
  results->next = kNewestId - static_cast<int>(newest ? channel.oldest + channel.count - 1 : channel.oldest);
  results->end = results->next + (channel.count > 0 ? 1 : 0);
  if (newest) channel.count += std::exchange(channel.logged_behind_newest, 0);
  return static_cast<Handle*>(results);
}

BOOL NextOf(Subscription& subscription, DWORD size, EVT_HANDLE* events, PDWORD returned) {
  Channel& channel = *subscription.channel;
  if (WaitForSingleObject(subscription.signal, 0) == WAIT_OBJECT_0) ++script.reads_with_signal;
  script.largest_batch = std::max(script.largest_batch, size);
  if (channel.next_error != 0 && channel.errors_left > 0) {
    --channel.errors_left;
    ++subscription.next;  // what it failed to give is passed over
    subscription.stale = channel.next_error == ERROR_EVT_QUERY_RESULT_STALE;
    return Fail(channel.next_error, FALSE);
  }
  if (subscription.stale) return Fail(ERROR_EVT_QUERY_RESULT_STALE, FALSE);
  subscription.next = std::max(subscription.next, channel.oldest);
  const std::uint64_t end = EndOf(channel);
  while (*returned < size && subscription.next < end) {
    events[(*returned)++] =
        static_cast<Handle*>(new EventHandle(L"*", kNewestId - static_cast<int>(subscription.next++), channel.name));
  }
  if (*returned == 0) channel.count += std::exchange(channel.logged_behind_last, 0);
  return *returned > 0 ? TRUE : Fail(ERROR_NO_MORE_ITEMS, FALSE);
}

BOOL RenderBookmark(const Bookmark& bookmark, EVT_HANDLE context, DWORD flags, DWORD size, PVOID buffer, PDWORD used,
                    PDWORD count) {
  if (context != nullptr || flags != EvtRenderBookmark) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  const std::wstring xml = L"<BookmarkList>\r\n  <Bookmark Channel='" + bookmark.channel + L"' RecordId='" +
                           std::to_wstring(bookmark.id) + L"' IsCurrent='true'/>\r\n</BookmarkList>";
  *used = static_cast<DWORD>((xml.size() + 1) * sizeof(wchar_t));
  *count = 0;
  if (*used > size) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(buffer, xml.c_str(), *used);
  return TRUE;
}

BOOL GiveNumber(std::uint64_t number, DWORD size, PEVT_VARIANT variant, PDWORD used) {
  *used = sizeof *variant;
  if (size < sizeof *variant) return Fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  *variant = Number(EvtVarTypeUInt64, number);
  return TRUE;
}

EVT_HANDLE OpenScriptedLog(EVT_HANDLE session, LPCWSTR path, bool right_flags) {
  Channel* const channel = FindChannel(path);
  if (session != nullptr || !right_flags) return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
  if (channel == nullptr) return Fail(ERROR_EVT_CHANNEL_NOT_FOUND, EVT_HANDLE());
  if (channel->open_error != 0) return Fail(channel->open_error, EVT_HANDLE());
  auto* const log = new Log;
  log->channel = channel;
  return static_cast<Handle*>(log);
}

}  // namespace

extern "C" {

Script* WINAPI StandInScript() {
  return &script;
}

void WINAPI StandInTellAll() {
  for (const Subscription* const subscription : subscriptions)
    Signal(*subscription);
}

EVT_HANDLE WINAPI StandInSubscribe(EVT_HANDLE session, HANDLE signal, LPCWSTR channel_path, LPCWSTR query,
                                   EVT_HANDLE bookmark_handle, PVOID /*context*/, EVT_SUBSCRIBE_CALLBACK callback,
                                   DWORD flags) {
  if (script.no_service) return Fail(ERROR_SUCCESS, EVT_HANDLE());
  const auto* const bookmark = As<Bookmark>(bookmark_handle);
  const DWORD origin = flags & EvtSubscribeOriginMask;
  const bool fits = (origin == EvtSubscribeStartAfterBookmark) == (bookmark != nullptr);
  if (session != nullptr || signal == nullptr || channel_path != nullptr || callback != nullptr || !fits ||
      (flags & ~static_cast<DWORD>(EvtSubscribeOriginMask | EvtSubscribeStrict)) != 0 ||
      (origin != EvtSubscribeStartAtOldestRecord && origin != EvtSubscribeStartAfterBookmark)) {
    return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
  }
  const std::vector<std::wstring> names = ChannelsOf(query);
  if (names.empty()) return Fail(ERROR_EVT_INVALID_QUERY, EVT_HANDLE());
  for (const std::wstring& name : names) {  // one that fails fails them all
    const Channel* const channel = FindChannel(name);
    if (channel == nullptr) return Fail(ERROR_EVT_CHANNEL_NOT_FOUND, EVT_HANDLE());
    if (channel->open_error != 0) return Fail(channel->open_error, EVT_HANDLE());
  }
  auto* const subscription = new Subscription;
  subscription->channel = FindChannel(names.front());
  subscription->signal = signal;
  if (origin == EvtSubscribeStartAfterBookmark) {
    const Channel& channel = *subscription->channel;
    const bool there = bookmark->id >= channel.oldest && bookmark->id < channel.oldest + channel.count;
    if (!there && (flags & EvtSubscribeStrict) != 0) {
      delete subscription;
      return Fail(ERROR_NOT_FOUND, EVT_HANDLE());
    }
    subscription->next = bookmark->id + 1;
  }
  subscriptions.push_back(subscription);
  Signal(*subscription);
  return static_cast<Handle*>(subscription);
}

EVT_HANDLE WINAPI StandInCreateBookmark(LPCWSTR xml) {
  auto* const bookmark = new Bookmark;
  if (xml != nullptr) {
    bookmark->channel = Attribute(xml, L"Channel=");
    const std::wstring id = Attribute(xml, L"RecordId=");
    if (bookmark->channel.empty() || id.empty()) {
      delete bookmark;
      return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
    }
    bookmark->id = std::stoull(id);
  }
  return static_cast<Handle*>(bookmark);
}

BOOL WINAPI StandInUpdateBookmark(EVT_HANDLE handle, EVT_HANDLE event_handle) {
  auto* const bookmark = As<Bookmark>(handle);
  const auto* const event = As<EventHandle>(event_handle);
  if (bookmark == nullptr || event == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  bookmark->channel = event->channel;
  bookmark->id = static_cast<std::uint64_t>(kNewestId - event->index);
  return TRUE;
}

EVT_HANDLE WINAPI StandInOpenLog(EVT_HANDLE session, LPCWSTR path, DWORD flags) {
  return OpenScriptedLog(session, path, flags == EvtOpenChannelPath);
}

BOOL WINAPI StandInGetLogInfo(EVT_HANDLE handle, EVT_LOG_PROPERTY_ID what, DWORD size, PEVT_VARIANT variant,
                              PDWORD used) {
  const auto* const log = As<Log>(handle);
  if (log == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (what == EvtLogNumberOfLogRecords) return GiveNumber(log->channel->count, size, variant, used);
  if (what == EvtLogOldestRecordNumber) return GiveNumber(log->channel->oldest, size, variant, used);
  if (what == EvtLogFileSize) return GiveNumber(69'632, size, variant, used);
  return Fail(ERROR_INVALID_PARAMETER, FALSE);
}

EVT_HANDLE WINAPI StandInOpenChannelConfig(EVT_HANDLE session, LPCWSTR path, DWORD flags) {
  return OpenScriptedLog(session, path, flags == 0);
}

BOOL WINAPI StandInGetChannelConfigProperty(EVT_HANDLE handle, EVT_CHANNEL_CONFIG_PROPERTY_ID what, DWORD flags,
                                            DWORD size, PEVT_VARIANT variant, PDWORD used) {
  if (As<Log>(handle) == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (what != EvtChannelLoggingConfigMaxSize || flags != 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  return GiveNumber(20'971'520, size, variant, used);
}

int WINAPI OpenHandles() {
  return open_handles;
}

EVT_HANDLE WINAPI StandInQuery(EVT_HANDLE session, LPCWSTR channel, LPCWSTR query, DWORD flags) {
  const DWORD direction = flags & ~static_cast<DWORD>(EvtQueryChannelPath);
  const bool newest_first = direction == EvtQueryReverseDirection;
  if (session != nullptr || (flags & EvtQueryChannelPath) == 0 ||
      (!newest_first && direction != EvtQueryForwardDirection)) {
    return Fail(ERROR_INVALID_PARAMETER, EVT_HANDLE());
  }
  Channel* const scripted = FindChannel(channel);
  if (scripted != nullptr && std::wstring_view(query) == L"*") return QueryScript(*scripted, newest_first);
  if (std::wstring_view(channel) != L"System") return Fail(ERROR_EVT_CHANNEL_NOT_FOUND, EVT_HANDLE());
  const std::wstring_view mode = query;
  if (mode == L"no query") return Fail(ERROR_EVT_INVALID_QUERY, EVT_HANDLE());
  if (mode == L"denied") return Fail(ERROR_ACCESS_DENIED, EVT_HANDLE());
  return static_cast<Handle*>(new Results(query));
}

BOOL WINAPI StandInNext(EVT_HANDLE handle, DWORD size, EVT_HANDLE* events, DWORD /*timeout*/, DWORD /*flags*/,
                        PDWORD returned) {
  *returned = 0;
  if (auto* const subscription = As<Subscription>(handle)) return NextOf(*subscription, size, events, returned);
  auto* const results = As<Results>(handle);
  if (results == nullptr || size == 0) return Fail(ERROR_INVALID_PARAMETER, FALSE);
  if (results->mode == L"breaks off" && results->next == 1) return Fail(RPC_S_SERVER_UNAVAILABLE, FALSE);
  static int stale = 0;
  if (results->mode == L"stale once" && results->next == 1 && stale++ == 0) {
    return Fail(ERROR_EVT_QUERY_RESULT_STALE, FALSE);
  }
  if (results->mode == L"stale" && results->next == 1) return Fail(ERROR_EVT_QUERY_RESULT_STALE, FALSE);
  if (results->next == results->end && results->mode != L"endless") return Fail(ERROR_NO_MORE_ITEMS, FALSE);
  events[0] = static_cast<Handle*>(new EventHandle(results->mode, results->next++, results->channel));
  *returned = 1;
  return TRUE;
}

BOOL WINAPI StandInClose(EVT_HANDLE handle) {
  std::erase(subscriptions, As<Subscription>(handle));
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
  if (const auto* const bookmark = As<Bookmark>(event_handle)) {
    return RenderBookmark(*bookmark, context_handle, flags, size, buffer, used, count);
  }
  const auto* const event = As<EventHandle>(event_handle);
  if (event == nullptr) return Fail(ERROR_INVALID_HANDLE, FALSE);
  if (flags == EvtRenderEventXml) {
    if (context_handle != nullptr) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    if (event->mode == L"no xml") return Fail(ERROR_EVT_INVALID_EVENT_DATA, FALSE);
    const std::wstring xml = XmlOf(*event);
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
