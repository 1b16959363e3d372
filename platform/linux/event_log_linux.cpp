#include <cerrno>

#include "platform/event_log_filter.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/journal_reader.h"

namespace platform {
namespace {

class LinuxEventLog final : public EventLog {
 public:
  LinuxEventLog(const Sysroot& root, const Clock& clock) : root_(root.Resolve("/")), clock_(clock) {}

  // The journal takes no such queries.
  EventLogReading Query(const EventLogQuery& /*query*/) override {
    return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = ENOSYS};
  }

  EventLogReaderOpening OpenReader(Runtime& /*runtime*/, const EventLogReaderSettings& settings) override {
    EventLogReaderOpening opening;
    auto filter = EventLogFilter::Parse(settings.query);
    if (!filter) {
      opening.failure = EventLogFailure::kInvalidQuery;
      opening.error = EINVAL;
      return opening;
    }
    int error = 0;
    if (auto journal = Journal::Open(root_, error)) {
      opening.reader = ReadJournal(std::move(*journal), root_, std::move(*filter), settings, clock_);
    } else {
      // The folder comes with the first start of journald, or with an administrator's setting.
      opening.failure = error == ENOENT ? EventLogFailure::kChannelNotFound : EventLogFailure::kQuery;
      opening.error = static_cast<std::uint32_t>(error);
    }
    return opening;
  }

  EventLogStatus ReadStatus(const std::string& /*channel*/) override {
    EventLogStatus status;
    int error = 0;
    auto journal = Journal::Open(root_, error);
    if (journal && CheckJournalAccess(root_).refused) error = EACCES;
    if (error == 0) {
      status.bytes = journal->BytesOnDisk();
      status.oldest = journal->OldestEntry();
    } else {
      status.failure = FailureOf(error);
      status.error = static_cast<std::uint32_t>(error);
    }
    return status;
  }

 private:
  static EventLogFailure FailureOf(int error) {
    return error == ENOENT ? EventLogFailure::kNotSupported : EventLogFailure::kQuery;
  }

  const std::filesystem::path root_;
  const Clock& clock_;
};

}  // namespace

std::unique_ptr<EventLog> MakeEventLog(const Sysroot& root, const Clock& clock) {
  return std::make_unique<LinuxEventLog>(root, clock);
}

}  // namespace platform
