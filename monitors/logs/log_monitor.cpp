#include "monitors/logs/log_monitor.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "client/text/string.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr wchar_t kPlaceKey[] = L"bookmark";
constexpr wchar_t kInterruptionKey[] = L"interruption";
// In the place of a bookmark.
constexpr std::wstring_view kWithdrawn = L"withdrawn";
constexpr std::wstring_view kSince = L"since ";  // and the seconds since 1970

constexpr std::size_t kBatch = 256;
// What cannot be read or written is tried again after the first time, then after twice as long each, up to the last.
constexpr std::chrono::milliseconds kFirstRetry = 1min;
constexpr std::chrono::milliseconds kLastRetry = 1h;
// So often at most the place is kept without an item: the log may have forgotten that of weeks ago.
constexpr auto kQuiet = 1h;

std::wstring NameOf(const platform::EventLogNotice& notice) {
  return notice.channel.empty() ? L"the event log" : L"the channel " + String::UTF8ToUTF16(notice.channel);
}

}  // namespace

LogMonitor::LogMonitor(const MonitorServices& monitor_services, const MonitorIdentity& identity)
    : ScheduledMonitor(monitor_services, identity) {}

void LogMonitor::ReadAndUpdateDatasetSettings() {
  if (follows_) UpdateDatasetSettingsFromConfigPolicy(std::wstring(identity().row.id));
}

void LogMonitor::FollowLogs(const std::string& thread) {
  try {
    query_changed_ = services().runtime.MakeEvent(platform::EventReset::kAuto);
  } catch (const std::system_error& refusal) {
    log_.e(L"%s: the event logs are not followed: error %d", Operation(L"FollowLogs"), refusal.code().value());
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
  RestorePlace();
  std::chrono::milliseconds retry = kFirstRetry;
  Outcome outcome = Outcome::kQueryChanged;
  while (outcome != Outcome::kStopped) {
    const platform::EventLogReaderOpening opening = services().machine.event_log().OpenReader(
        services().runtime, {.query = Query(), .value_paths = EventLogPaths(), .bookmark = place_});
    if (opening.reader != nullptr) {
      outcome = Follow(*opening.reader, retry);
    } else {
      const bool none = opening.failure == platform::EventLogFailure::kNotSupported;
      LogOnce({.trouble = none ? platform::EventLogTrouble::kChannelNotFound : platform::EventLogTrouble::kFailed,
               .error = opening.error});
      platform::Waitable* const changes[] = {stop_event(), query_changed_.get()};
      const auto woken = services().runtime.WaitAny(changes, none ? platform::kForever : retry);
      outcome = woken == 0 ? Outcome::kStopped : woken == 1 ? Outcome::kQueryChanged : Outcome::kFailed;
    }
    retry = outcome == Outcome::kFailed ? std::min(2 * retry, kLastRetry) : kFirstRetry;
  }
  if (Flush() || !Admits()) KeepPlace();
}

LogMonitor::Outcome LogMonitor::Follow(platform::EventLogReader& reader, std::chrono::milliseconds retry) {
  bool failed = false;
  for (;;) {
    // Behind what failed nothing is read.
    platform::Waitable* const awaited[] = {stop_event(), query_changed_.get(), &reader.news()};
    const auto woken =
        services().runtime.WaitAny(std::span(awaited).first(failed ? 2 : 3), failed ? retry : Patience());
    if (woken == 0) return Outcome::kStopped;
    if (woken == 1) return Outcome::kQueryChanged;
    if (failed) return Outcome::kFailed;
    failed = (Patience() <= 0ms && !Flush()) || (woken == 2 && !Take(reader));
  }
}

bool LogMonitor::Take(platform::EventLogReader& reader) {
  if (!Admits()) return false;  // the stop is on its way
  const platform::EventLogBatch batch = reader.Take(kBatch);
  bool done = true;
  for (const platform::EventLogNotice& notice : batch.notices)
    done = Tell(notice) && done;
  for (const platform::EventLogEvent& event : batch.events) {
    if (stopping()) return true;
    const RenderedEvent rendered = RenderEvent(event.record, services().runtime.clock());
    const bool too_old = begin_ && rendered.time_created && *rendered.time_created < *begin_;
    if (!too_old && !TakeEvent(rendered, event.record.xml, {kPlaceKey, String::UTF8ToUTF16(event.bookmark)}))
      return false;
    place_ = event.bookmark;
    kept_at_ = services().runtime.clock().Elapsed();
  }
  if (!batch.bookmark.empty()) place_ = batch.bookmark;
  if (services().runtime.clock().Elapsed() - kept_at_ > kQuiet && Patience() == platform::kForever) KeepPlace();
  return done;
}

bool LogMonitor::Tell(const platform::EventLogNotice& notice) {
  using enum platform::EventLogTrouble;
  LogOnce(notice);
  if (notice.trouble != kCleared && notice.trouble != kGap) return notice.trouble != kFailed;
  // A reader that begins at the same place once more, after a kill, tells the same once more.
  const std::wstring what = notice.trouble == kCleared ? L"cleared " : L"gap ";
  const DatasetState told{kInterruptionKey, what + String::UTF8ToUTF16(notice.channel) + L' ' + KeptPlace()};
  std::wstring before;
  const bool known = services().store.GetState(std::wstring(identity().row.id), told.key, before) == 0;
  if (!known || before != told.value) TakeInterruption(notice, told);
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

std::wstring LogMonitor::KeptPlace() const {
  std::wstring kept;
  services().store.GetState(std::wstring(identity().row.id), kPlaceKey, kept);
  return kept;
}

void LogMonitor::RestorePlace() {
  const std::wstring kept = KeptPlace();
  kept_at_ = services().runtime.clock().Elapsed();
  if (kept == kWithdrawn) {
    begin_ = services().runtime.clock().NowSeconds();
    services().store.KeepState(std::wstring(identity().row.id),
                               {kPlaceKey, std::wstring(kSince) + std::to_wstring(*begin_)});
  } else if (kept.starts_with(kSince)) {
    const std::string digits = String::UTF16ToUTF8(kept.substr(kSince.size()));
    std::int64_t seconds = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), seconds);
    begin_ = seconds;
  } else {
    place_ = String::UTF16ToUTF8(kept);
  }
}

void LogMonitor::KeepPlace() {
  const bool admitted = Admits();
  if (admitted && place_.empty()) return;
  services().store.KeepState(std::wstring(identity().row.id),
                             {kPlaceKey, admitted ? String::UTF8ToUTF16(place_) : std::wstring(kWithdrawn)});
  kept_at_ = services().runtime.clock().Elapsed();
}

}  // namespace TVK
