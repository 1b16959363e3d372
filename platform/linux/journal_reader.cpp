#include "platform/linux/journal_reader.h"

#include <algorithm>
#include <utility>

#include "platform/event_log_filter.h"
#include "platform/linux/journal_entry.h"
#include "platform/linux/waitables_linux.h"

namespace platform {
namespace {

/// How many entries one Take looks at, so that it comes back soon where the query wants few of them.
constexpr std::size_t kMostLooks = 4096;

/// After how many entries the journal is opened anew once there are no more: until then the library keeps what it read
/// of the files in memory, which would be the service's for as long as it lives.
constexpr std::size_t kLooksOfAnOpening = 1024;

/// The news of a journal that is written to.
class JournalNews final : public Waitable, public PollableWaitable {
 public:
  explicit JournalNews(Journal& journal) : journal_(journal) {}

  int fd() const override { return journal_.fd(); }
  bool TryConsume() override {
    Refresh();
    return std::exchange(signalled_, false);
  }

  void Set() { signalled_ = true; }
  /// What has come will be looked at now; whether files came or went, too.
  bool TakeFileNews() {
    Refresh();
    signalled_ = false;
    return std::exchange(files_, false);
  }

 private:
  void Refresh() {
    const Journal::News news = journal_.Refresh();
    signalled_ = signalled_ || news != Journal::News::kNone;
    files_ = files_ || news == Journal::News::kFiles;
  }

  Journal& journal_;
  bool signalled_ = true;
  bool files_ = false;
};

class JournalReader final : public EventLogReader {
 public:
  JournalReader(Journal journal, const std::filesystem::path& root, EventLogFilter filter,
                EventLogReaderSettings settings, const Clock& clock)
      : root_(root),
        journal_(std::move(journal)),
        filter_(std::move(filter)),
        settings_(std::move(settings)),
        clock_(clock),
        bookmark_(settings_.bookmark) {
    const JournalAccess access = CheckJournalAccess(root_);
    if (access.refused) {
      notices_.push_back({.trouble = EventLogTrouble::kAccessRefused});
    } else if (!access.files) {
      notices_.push_back({.trouble = EventLogTrouble::kChannelNotFound});
    }
    Seek();
  }

  Waitable& news() override { return news_; }

  EventLogBatch Take(std::size_t limit) override {
    if (news_.TakeFileNews()) Seek();
    EventLogBatch batch;
    batch.more = true;
    for (std::size_t looks = 0; batch.more && looks < kMostLooks && batch.events.size() < limit; ++looks)
      batch.more = Look(batch) || Reopen();
    if (!batch.more && watch_error_ != 0) Fail(watch_error_);
    batch.notices = std::exchange(notices_, {});
    batch.bookmark = bookmark_;
    if (batch.more) news_.Set();
    return batch;
  }

 private:
  /// Whether the journal was opened anew and is to be looked at again, since entries may have come meanwhile.
  bool Reopen() {
    if (failed_ || looks_ < kLooksOfAnOpening) return false;
    looks_ = 0;
    int ignored = 0;
    auto journal = Journal::Open(root_, ignored);
    if (!journal) return false;
    journal_ = std::move(*journal);
    Seek();
    return true;
  }

  /// Goes behind the bookmark. Whether its own entry is still there shows with the next one.
  void Seek() {
    // From here on the library watches the files.
    watch_error_ = std::max(-journal_.fd(), 0);
    if (!bookmark_.empty() && journal_.SeekTo(bookmark_)) {
      at_bookmark_ = true;
      return;
    }
    at_bookmark_ = false;
    if (!bookmark_.empty()) TellGap();
    bookmark_.clear();
    if (const auto age = filter_.oldest_age()) {
      journal_.SeekTo(clock_.Now() -
                      milliseconds(std::min<std::int64_t>(*age, clock_.Now().time_since_epoch().count())));
    } else {
      journal_.SeekToBegin();
    }
  }

  void Fail(int error) {
    if (!std::exchange(failed_, true)) {
      notices_.push_back({.trouble = EventLogTrouble::kFailed, .error = static_cast<std::uint32_t>(error)});
    }
  }

  /// Once, until there is another entry.
  void TellGap() {
    if (!std::exchange(gap_told_, true)) notices_.push_back({.trouble = EventLogTrouble::kGap});
  }

  /// Looks at the next entry. False: there is none now.
  bool Look(EventLogBatch& batch) {
    if (failed_) return false;
    int error = 0;
    const Journal::Step step = journal_.Next(error);
    if (step == Journal::Step::kFailed) {
      Fail(error);
      return false;
    }
    if (std::exchange(at_bookmark_, false)) {
      if (step == Journal::Step::kEntry && journal_.IsAt(bookmark_)) return true;
      TellGap();
    }
    if (step != Journal::Step::kEntry) return false;
    ++looks_;
    gap_told_ = false;
    const LoggedEvent event = EventOfJournal(journal_.Fields(), journal_.Time());
    bookmark_ = journal_.Bookmark();
    if (filter_.Takes(event, clock_.Now())) batch.events.push_back({RecordOf(event, settings_), bookmark_});
    return true;
  }

  const std::filesystem::path root_;
  Journal journal_;
  const EventLogFilter filter_;
  const EventLogReaderSettings settings_;
  const Clock& clock_;
  JournalNews news_{journal_};
  std::vector<EventLogNotice> notices_;  ///< To be told with the next batch.
  std::string bookmark_;                 ///< Of the entry that was looked at last; empty: of none.
  std::size_t looks_ = 0;                ///< Since the journal was opened.
  bool at_bookmark_ = false;             ///< The next entry should be the bookmark's own.
  bool gap_told_ = false;
  int watch_error_ = 0;  ///< Why nothing tells of new entries, an errno: whoever wants them opens another reader later.
  bool failed_ = false;
};

}  // namespace

std::unique_ptr<EventLogReader> ReadJournal(Journal journal, const std::filesystem::path& root, EventLogFilter filter,
                                            EventLogReaderSettings settings, const Clock& clock) {
  return std::make_unique<JournalReader>(std::move(journal), root, std::move(filter), std::move(settings), clock);
}

}  // namespace platform
