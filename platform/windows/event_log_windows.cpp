#include "platform/event_log.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

constexpr DWORD kLongestWaitMs = 10'000;  // for the log service; a busy one answers within a second
constexpr int kRenderTries = 3;           // an event does not grow, so the second try fits
constexpr int kQueryTries = 3;            // a log that is overwritten faster than it is read has no answer

// It lies behind the texts of other values, wherever those end: at an address that a GUID need not have.
std::string GuidText(const void* bytes) {
  GUID guid;
  std::memcpy(&guid, bytes, sizeof guid);
  char text[40];
  std::snprintf(text, sizeof text, "{%08lX-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1, guid.Data2,
                guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3], guid.Data4[4], guid.Data4[5],
                guid.Data4[6], guid.Data4[7]);
  return text;
}

WallTime TimeOf(std::uint64_t ticks) {
  constexpr std::int64_t kTicksTo1970 = 116'444'736'000'000'000;  // of 100 ns, from 1601
  return WallTime(milliseconds((static_cast<std::int64_t>(ticks) - kTicksTo1970) / 10'000));
}

EventLogValue ValueOf(const EVT_VARIANT& variant) {
  switch (variant.Type) {
    case EvtVarTypeString:
      if (variant.StringVal == nullptr) return {};
      return Utf8FromWide(variant.StringVal);
    case EvtVarTypeByte:
      return std::uint64_t{variant.ByteVal};
    case EvtVarTypeUInt16:
      return std::uint64_t{variant.UInt16Val};
    case EvtVarTypeUInt32:
    case EvtVarTypeHexInt32:
      return std::uint64_t{variant.UInt32Val};
    case EvtVarTypeUInt64:
    case EvtVarTypeHexInt64:
      return std::uint64_t{variant.UInt64Val};
    case EvtVarTypeGuid:
      if (variant.GuidVal == nullptr) return {};
      return GuidText(variant.GuidVal);
    case EvtVarTypeFileTime:
      return TimeOf(variant.FileTimeVal);
    default:
      return {};  // no value that the System part of an event has
  }
}

/// What EvtRender gives; `count` is the number of values. 0, or the error.
DWORD Render(EVT_HANDLE context, EVT_HANDLE event, DWORD flags, std::vector<std::uint64_t>& buffer, DWORD& used,
             DWORD& count) {
  DWORD error = ERROR_INSUFFICIENT_BUFFER;
  for (int i = 0; i < kRenderTries && error == ERROR_INSUFFICIENT_BUFFER; ++i) {
    const auto size = static_cast<DWORD>(buffer.size() * sizeof(buffer[0]));
    if (EvtRender(context, event, flags, size, buffer.data(), &used, &count)) return 0;
    error = GetLastError();
    if (error == ERROR_INSUFFICIENT_BUFFER) buffer.resize(used / sizeof(buffer[0]) + 1);
  }
  return error;
}

/// Runs one query.
class Reader {
 public:
  explicit Reader(const EventLogQuery& query) : query_(query) {}

  EventLogReading Run() {
    for (int i = 0; i < kQueryTries; ++i) {
      reading_ = {};
      Try();
      // Events that were overwritten before they were read end the results; the log is as well as before.
      if (reading_.failure != EventLogFailure::kNext || reading_.error != ERROR_EVT_QUERY_RESULT_STALE) break;
    }
    return std::move(reading_);
  }

 private:
  void Try() {
    SetLastError(ERROR_SUCCESS);
    const UniqueEventLogHandle results(EvtQuery(nullptr, WideFromUtf8(query_.channel).c_str(),
                                                WideFromUtf8(query_.xpath).c_str(),
                                                EvtQueryChannelPath | EvtQueryReverseDirection));
    if (!results) {
      FailQuery(GetLastError());
    } else if (OpenContext()) {
      while (reading_.records.size() < query_.limit && Next(results.get())) {
      }
    }
  }

  bool Fail(EventLogFailure failure, DWORD error) {
    reading_.failure = failure;
    reading_.error = error;
    return false;
  }

  void FailQuery(DWORD error) {
    switch (error) {
      case ERROR_EVT_CHANNEL_NOT_FOUND:
        Fail(EventLogFailure::kChannelNotFound, error);
        break;
      case ERROR_EVT_INVALID_QUERY:
        Fail(EventLogFailure::kInvalidQuery, error);
        break;
      case ERROR_SUCCESS:  // Wine's gives nothing, and no reason
      case ERROR_CALL_NOT_IMPLEMENTED:
        Fail(EventLogFailure::kNotSupported, ERROR_CALL_NOT_IMPLEMENTED);
        break;
      default:
        Fail(EventLogFailure::kQuery, error);
    }
  }

  bool OpenContext() {
    std::vector<std::wstring> paths;
    for (const std::string& path : query_.value_paths)
      paths.push_back(WideFromUtf8(path));
    std::vector<const wchar_t*> pointers;
    for (const std::wstring& path : paths)
      pointers.push_back(path.c_str());
    context_.Reset(
        EvtCreateRenderContext(static_cast<DWORD>(pointers.size()), pointers.data(), EvtRenderContextValues));
    return context_ || Fail(EventLogFailure::kCreateRenderContext, GetLastError());
  }

  /// Adds the next event; false at the end of the results and on a failure.
  bool Next(EVT_HANDLE results) {
    UniqueEventLogHandle event;
    DWORD returned = 0;
    if (!EvtNext(results, 1, event.Receive(), kLongestWaitMs, 0, &returned)) {
      const DWORD error = GetLastError();
      return error != ERROR_NO_MORE_ITEMS && Fail(EventLogFailure::kNext, error);
    }
    if (returned == 0) return false;
    EventLogRecord record;
    if (!AddValues(event.get(), record) || !AddXml(event.get(), record)) return false;
    reading_.records.push_back(std::move(record));
    return true;
  }

  bool AddValues(EVT_HANDLE event, EventLogRecord& record) {
    DWORD used = 0;
    DWORD count = 0;
    try {
      const DWORD error = Render(context_.get(), event, EvtRenderEventValues, buffer_, used, count);
      if (error != 0) return Fail(EventLogFailure::kRenderValues, error);
      const auto* const values = reinterpret_cast<const EVT_VARIANT*>(buffer_.data());
      for (std::size_t i = 0; i < query_.value_paths.size(); ++i)
        record.values.push_back(i < count ? ValueOf(values[i]) : EventLogValue());
      return true;
    } catch (const std::bad_alloc&) {
      return Fail(EventLogFailure::kNoMemoryForValues, ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  bool AddXml(EVT_HANDLE event, EventLogRecord& record) {
    DWORD used = 0;
    DWORD count = 0;
    try {
      const DWORD error = Render(nullptr, event, EvtRenderEventXml, buffer_, used, count);
      if (error != 0) return Fail(EventLogFailure::kRenderXml, error);
      std::wstring_view text(reinterpret_cast<const wchar_t*>(buffer_.data()), used / sizeof(wchar_t));
      record.xml = Utf8FromWide(text.substr(0, text.find(L'\0')));
      return true;
    } catch (const std::bad_alloc&) {
      return Fail(EventLogFailure::kNoMemoryForXml, ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  const EventLogQuery& query_;
  EventLogReading reading_;
  UniqueEventLogHandle context_;
  std::vector<std::uint64_t> buffer_ = std::vector<std::uint64_t>(512);  ///< 8-byte units, aligned for EVT_VARIANT.
};

class WindowsEventLog final : public EventLog {
 public:
  EventLogReading Query(const EventLogQuery& query) override { return Reader(query).Run(); }
};

}  // namespace

std::unique_ptr<EventLog> MakeEventLog() {
  return std::make_unique<WindowsEventLog>();
}

}  // namespace platform::windows
