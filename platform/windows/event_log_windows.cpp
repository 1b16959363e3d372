#include "platform/event_log.h"

#include <new>

#include "platform/windows/doors_windows.h"
#include "platform/windows/event_log_reader_windows.h"
#include "platform/windows/event_log_status.h"
#include "platform/windows/event_renderer.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

constexpr int kQueryTries = 3;  // a log that is overwritten faster than it is read has no answer

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
    const DWORD error = renderer_.Open(query_.value_paths);
    return error == 0 || Fail(EventLogFailure::kCreateRenderContext, error);
  }

  /// Adds the next event; false at the end of the results and on a failure.
  bool Next(EVT_HANDLE results) {
    UniqueEventLogHandle event;
    DWORD returned = 0;
    if (!EvtNext(results, 1, event.Receive(), kLongestLogWaitMs, 0, &returned)) {
      const DWORD error = GetLastError();
      return error != ERROR_NO_MORE_ITEMS && Fail(EventLogFailure::kNext, error);
    }
    if (returned == 0) return false;
    EventLogRecord record;
    if (!AddValues(event.get(), record)) return false;
    // What its values say, its time above all, does not hang on its text.
    const bool whole = AddXml(event.get(), record);
    reading_.records.push_back(std::move(record));
    return whole;
  }

  bool AddValues(EVT_HANDLE event, EventLogRecord& record) {
    try {
      const DWORD error = renderer_.Values(event, record.values);
      return error == 0 || Fail(EventLogFailure::kRenderValues, error);
    } catch (const std::bad_alloc&) {
      return Fail(EventLogFailure::kNoMemoryForValues, ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  bool AddXml(EVT_HANDLE event, EventLogRecord& record) {
    try {
      const DWORD error = renderer_.Xml(event, record.xml);
      return error == 0 || Fail(EventLogFailure::kRenderXml, error);
    } catch (const std::bad_alloc&) {
      return Fail(EventLogFailure::kNoMemoryForXml, ERROR_NOT_ENOUGH_MEMORY);
    }
  }

  const EventLogQuery& query_;
  EventLogReading reading_;
  EventRenderer renderer_;
};

class WindowsEventLog final : public EventLog {
 public:
  EventLogReading Query(const EventLogQuery& query) override { return Reader(query).Run(); }

  EventLogReaderOpening OpenReader(Runtime& /*runtime*/, const EventLogReaderSettings& settings) override {
    return OpenEventLogReader(settings);
  }

  EventLogStatus ReadStatus(const std::string& channel) override { return ReadLogStatus(channel); }
};

}  // namespace

std::unique_ptr<EventLog> MakeEventLog() {
  return std::make_unique<WindowsEventLog>();
}

}  // namespace platform::windows
