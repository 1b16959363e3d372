#include "monitors/logs/log_monitor.h"

#include <algorithm>
#include <system_error>

#include "client/log/guarded_thread.h"
#include "client/store/kept_state.h"
#include "client/text/string.h"
#include "monitors/logs/told_interruptions.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr auto& kPlaceKey = kBookmarkState;
constexpr auto& kInterruptionKey = kInterruptionState;

constexpr std::size_t kBatch = 256;
// So often at most the place is kept without an item: the log may have forgotten that of weeks ago.
constexpr auto kQuiet = 1h;

/// Of a question to the store.
bool Succeeds(int result) {
  return result == 0 || result == kStoreNotFound;
}

std::wstring NameOf(const platform::EventLogNotice& notice) {
  return notice.channel.empty() ? L"the event log" : L"the channel " + String::UTF8ToUTF16(notice.channel);
}

}  // namespace

LogMonitor::LogMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity,
                       std::optional<ReportRule> report)
    : ScheduledMonitor(monitor_services, identity, std::move(report)) {}

void LogMonitor::ReadAndUpdateDatasetSettings() {
  ScheduledMonitor::ReadAndUpdateDatasetSettings();
  if (follows_) UpdateDatasetSettingsFromConfigPolicy(std::wstring(identity().row.id));
}

void LogMonitor::FollowLogs(const std::string& thread) {
  try {
    query_changed_ = services().runtime.MakeEvent(platform::EventReset::kAuto);
  } catch (const std::system_error& refusal) {
    log_.e(L"%s: the event logs are not followed: error %d", Operation(L"FollowLogs"), refusal.code().value());
    TellShortage(Shortage::kStart);
    return;
  }
  follows_ = true;
  ReadAndUpdateDatasetSettings();
  StartThread(thread, [this] { Run(); });
}

void LogMonitor::OnQueryChanged() {
  if (follows_) query_changed_->Set();
}

void LogMonitor::Run() {
  std::chrono::milliseconds retry = kFirstLogRetry;
  Outcome outcome = Outcome::kQueryChanged;
  while (outcome != Outcome::kStopped) {
    // What threw may have left its reader anywhere: another one goes on behind what was dealt with.
    if (!CallLogged(log_, Operation(L"Run"), [&] { outcome = Read(retry); })) outcome = AwaitRetry(retry);
    retry = outcome == Outcome::kFailed ? std::min(2 * retry, kLastLogRetry) : kFirstLogRetry;
  }
  const std::optional<std::wstring> kept = KeptPlace();
  if (!kept || *kept == kWithdrawnPlace) return;  // the next start begins behind it, or where this one did
  if (Flush() || !Admits()) KeepPlace();
}

LogMonitor::Outcome LogMonitor::Read(std::chrono::milliseconds retry) {
  if (!restored_ && !RestorePlace()) return AwaitRetry(retry);
  unread_ = false;
  if (begins_) passed_at_.reset();
  const platform::EventLogReaderOpening opening = services().machine.event_log().OpenReader(
      services().runtime, {.query = Query(), .value_paths = EventLogPaths(), .bookmark = place_});
  if (opening.reader != nullptr) return Follow(*opening.reader, retry);
  const bool none = opening.failure == platform::EventLogFailure::kNotSupported;
  const bool not_yet = opening.failure == platform::EventLogFailure::kChannelNotFound;
  LogOnce(
      {.trouble = none || not_yet ? platform::EventLogTrouble::kChannelNotFound : platform::EventLogTrouble::kFailed,
       .error = opening.error});
  return AwaitRetry(none ? platform::kForever : retry);
}

LogMonitor::Outcome LogMonitor::AwaitRetry(std::chrono::milliseconds retry) {
  platform::Waitable* const changes[] = {stop_event(), query_changed_.get()};
  const auto woken = services().runtime.WaitAny(changes, retry);
  return woken == 0 ? Outcome::kStopped : woken == 1 ? Outcome::kQueryChanged : Outcome::kFailed;
}

LogMonitor::Outcome LogMonitor::Follow(platform::EventLogReader& reader, std::chrono::milliseconds retry) {
  const platform::Clock& clock = services().runtime.clock();
  std::optional<platform::SteadyTime> ends;  // so that another one tries what this one gave up
  for (;;) {
    platform::Waitable* const awaited[] = {stop_event(), query_changed_.get(), &reader.news()};
    std::chrono::milliseconds patience = Patience();
    if (ends) patience = std::min(patience, std::chrono::ceil<std::chrono::milliseconds>(*ends - clock.Steady()));
    const auto woken = services().runtime.WaitAny(awaited, std::max(patience, 0ms));
    if (woken == 0 || woken == 1) {
      PassUnwanted(reader);
      return woken == 0 ? Outcome::kStopped : Outcome::kQueryChanged;
    }
    if (Patience() <= 0ms && !Flush()) return AwaitRetry(retry);
    if (woken == 2) {
      const Taken taken = Take(reader);
      if (taken == Taken::kNot) return AwaitRetry(retry);  // behind what failed nothing is read
      if (taken == Taken::kNotOfAChannel && !ends) ends = clock.Steady() + retry;
    }
    if (ends && clock.Steady() >= *ends) return Outcome::kFailed;
  }
}

LogMonitor::Taken LogMonitor::Take(platform::EventLogReader& reader) {
  if (!Admits()) {
    KeepPlace();  // as withdrawn; the stop is on its way, but the consent may be there again before it comes
    return Taken::kNot;
  }
  if (BeginsAnew() || !WriteTaken()) return Taken::kNot;
  const bool passes = !passed_at_ || services().runtime.clock().Elapsed() - *passed_at_ >= kQuiet;
  if (passes) reader.PassUnwanted();
  const platform::EventLogBatch batch = reader.Take(kBatch);
  Taken taken = Taken::kAll;
  for (const platform::EventLogNotice& notice : batch.notices) {
    unread_ = unread_ || notice.trouble == platform::EventLogTrouble::kFailed ||
              notice.trouble == platform::EventLogTrouble::kAccessRefused;
    if (Tell(notice)) continue;
    // Behind the events that follow it nobody would find the interruption again.
    if (notice.trouble != platform::EventLogTrouble::kFailed || notice.channel.empty()) return Taken::kNot;
    taken = Taken::kNotOfAChannel;
  }
  for (const platform::EventLogEvent& event : batch.events) {
    if (stopping()) return Taken::kNot;  // what is left is of the next start
    const RenderedEvent rendered = RenderEvent(event.record, services().runtime.clock());
    const bool taken_in = IsTooOld(rendered, event.of_new_channel) ||
                          TakeEvent(rendered, event.record.xml, {kPlaceKey, KeptText(event.bookmark)});
    if (!taken_in) return Taken::kNot;
    MoveTo(event.bookmark);
    kept_at_ = services().runtime.clock().Elapsed();
  }
  if (!batch.bookmark.empty()) MoveTo(batch.bookmark);
  if (passes && !batch.more) passed_at_ = services().runtime.clock().Elapsed();
  if (!WriteTaken()) return Taken::kNot;
  const bool begun = begins_ && passed_at_ && !unread_;
  if ((begun || services().runtime.clock().Elapsed() - kept_at_ > kQuiet) && Patience() == platform::kForever) {
    begins_ = begins_ && !begun;
    KeepPlace();
  }
  return taken;
}

void LogMonitor::PassUnwanted(platform::EventLogReader& reader) {
  if (!Admits() || KeptPlace().value_or(kWithdrawnPlace) == kWithdrawnPlace) return;  // nobody asks for the place
  reader.PassUnwanted();
  const platform::EventLogBatch batch = reader.Take(1);
  const bool none = batch.events.empty() && batch.notices.empty() && !batch.more;
  if (none && !batch.bookmark.empty()) MoveTo(batch.bookmark);
}

bool LogMonitor::Tell(const platform::EventLogNotice& notice) {
  using enum platform::EventLogTrouble;
  LogOnce(notice);
  if (notice.trouble != kCleared && notice.trouble != kGap) return notice.trouble != kFailed;
  // What was kept back came before; its item takes the kept place along, which the interruption is told apart by.
  if (!Flush()) return false;
  const std::wstring what = (notice.trouble == kCleared ? L"cleared " : L"gap ") + String::UTF8ToUTF16(notice.channel);
  // A reader that begins at the same place once more tells the same once more, or a larger gap, of which a part is
  // told: in this life, or after a kill.
  const std::optional<std::wstring> place = KeptPlace();
  std::wstring kept;
  if (!place || !Succeeds(services().store.GetState(std::wstring(identity().row.id), kInterruptionKey, kept))) {
    return false;
  }
  ToldInterruptions listed(kept, *place);
  std::optional<std::uint64_t> told = listed.Lost(what);
  const auto met = interrupted_.find(what);
  if (met != interrupted_.end()) told = met->second.moves == moves_ ? std::optional(met->second.lost) : std::nullopt;
  const std::uint64_t lost = std::max(notice.lost.value_or(0), told.value_or(0));
  if (!told || lost > *told) {
    ItemData data = {{L"Channel", String::UTF8ToUTF16(notice.channel)},
                     {L"Reason", notice.trouble == kCleared ? L"cleared" : L"gap"}};
    if (notice.lost) data[L"Lost"] = std::to_wstring(lost - told.value_or(0));
    SanitizeItemData(data, L"UnKnown");
    listed.Add(what, lost);
    if (WriteItem(kInterruptedItem, std::move(data), {}, {kInterruptionKey, listed.Text()}) > 0) return false;
  }
  interrupted_[what] = {moves_, lost};
  return true;
}

void LogMonitor::LogOnce(const platform::EventLogNotice& notice) {
  using enum platform::EventLogTrouble;
  if (!told_.emplace(notice.trouble, notice.channel).second) return;
  const std::wstring caller = Operation(L"Run");
  switch (notice.trouble) {
    case kChannelNotFound:
      return log_.i(L"%s: this system has not %s; nothing is read of it", caller, NameOf(notice));
    case kAccessRefused:
      return log_.e(L"%s: this account may not read all of %s, error %d", caller, NameOf(notice), notice.error);
    case kFailed:
      return log_.e(L"%s: reading %s failed, error %d; it is tried again", caller, NameOf(notice), notice.error);
    case kCleared:
      return log_.i(L"%s: %s was emptied", caller, NameOf(notice));
    case kGap:
      return log_.i(L"%s: events of %s may have gone unread", caller, NameOf(notice));
  }
}

std::optional<std::wstring> LogMonitor::KeptPlace() {
  EventDataLogging& store = services().store;
  const std::wstring dataset(identity().row.id);
  std::wstring kept;
  const int result = ReadKeptState(store, dataset, kPlaceKey, kept);
  if (Succeeds(result)) return kept;
  if (!std::exchange(store_failed_, true)) {
    log_.e(L"%s: how far the logs were read cannot be told, error %d; it is tried again", Operation(L"Run"), result);
  }
  return std::nullopt;
}

std::optional<ReadingBegin> LogMonitor::BeginBehind(const std::wstring& kept) const {
  if (kept == kWithdrawnPlace) return ReadingBegin{.seconds = FirstSecondOfConsent(services().runtime.clock())};
  if (kept.empty()) return ReadingBegin{};
  return ReadBegin(kept);
}

bool LogMonitor::IsTooOld(const RenderedEvent& event, bool of_new_channel) {
  if (!begin_ || !event.time_created || *event.time_created >= *begin_) return false;
  // Elsewhere, and where it is before that second by now, the clock was set back.
  if (!begins_ && of_new_channel && *begin_ <= services().runtime.clock().NowSeconds()) {
    begins_ = true;
    passed_at_.reset();
  }
  return begins_;
}

std::wstring LogMonitor::KeptText(const std::string& place) const {
  const std::wstring text = String::UTF8ToUTF16(place);
  if (begins_) return SinceText(*begin_, text);
  return begin_.value_or(0) == 0 ? text : BegunText(*begin_, text);
}

bool LogMonitor::RestorePlace() {
  const std::optional<std::wstring> place = KeptPlace();
  if (!place) return false;
  const std::wstring& kept = *place;
  // Ahead of what takes the mark of a withdrawal away.
  if (!BeginReading(kept == kWithdrawnPlace)) return false;
  kept_at_ = services().runtime.clock().Elapsed();
  const std::optional<ReadingBegin> begin = BeginBehind(kept);
  // Once: a further try begins no later.
  if (begin && !begin_) begin_ = begin->seconds;
  place_ = String::UTF16ToUTF8(begin ? begin->place : kept);
  begins_ = begin && !begin->begun;
  if (begins_) {
    // Also where nothing was kept: without a place, a start without consent has nothing to mark.
    const std::wstring since = KeptText(place_);
    if (kept != since && services().store.KeepState(std::wstring(identity().row.id), {kPlaceKey, since}) != 0) {
      return false;
    }
  }
  restored_ = true;
  return true;
}

bool LogMonitor::BeginsAnew() {
  const std::optional<std::wstring> kept = KeptPlace();
  if (!kept) return true;
  if (*kept != kWithdrawnPlace) return false;
  restored_ = false;
  begin_.reset();
  RestorePlace();  // at once, so that no more is left out than was logged until now
  return true;
}

void LogMonitor::MoveTo(const std::string& place) {
  if (place_ != place) ++moves_;
  place_ = place;
}

void LogMonitor::KeepPlace() {
  const bool admitted = Admits();
  if (admitted && place_.empty()) return;
  services().store.KeepState(std::wstring(identity().row.id),
                             {kPlaceKey, admitted ? KeptText(place_) : std::wstring(kWithdrawnPlace)});
  kept_at_ = services().runtime.clock().Elapsed();
}

}  // namespace TVK
