// The system's event log, read by its doors.
#include <algorithm>

#include "platform/event_log_reader.h"
#include "platform/local.h"
#include "platform/windows/doors_windows.h"
#include "windows_kit/checks.h"

namespace windows_kit {
namespace {

using platform::EventLogFailure;

constexpr std::chrono::seconds kPatience(20);
constexpr std::size_t kMostSince = 100;  // so many come in no second
constexpr char kRecordNumber[] = "Event/System/EventRecordID";
constexpr char kTime[] = "Event/System/TimeCreated/@SystemTime";

std::uint64_t NumberOf(const platform::EventLogRecord& record) {
  const auto* const number = record.values.empty() ? nullptr : std::get_if<std::uint64_t>(&record.values.front());
  return number != nullptr ? *number : 0;
}

std::string FailureText(EventLogFailure failure, std::uint32_t error) {
  return "step " + std::to_string(static_cast<int>(failure)) + ", error " + std::to_string(error);
}

Finding NewestFirst() {
  const auto log = platform::windows::MakeEventLog();
  const auto reading =
      log->Query({.channel = "System", .xpath = "*", .value_paths = {kRecordNumber, kTime}, .limit = 20});
  if (reading.failure != EventLogFailure::kNone) {
    return Judge(false, "the query failed: " + FailureText(reading.failure, reading.error));
  }
  if (reading.records.size() < 2) return CannotTell("the log has fewer than two events");
  const bool falling =
      std::ranges::adjacent_find(reading.records, std::ranges::less_equal{}, NumberOf) == reading.records.end();
  const bool whole = std::ranges::all_of(reading.records, [](const platform::EventLogRecord& record) {
    return NumberOf(record) != 0 && std::holds_alternative<platform::WallTime>(record.values.back()) &&
           record.xml.starts_with("<Event");
  });
  return Judge(falling && whole, std::to_string(reading.records.size()) + " events, " +
                                     (falling ? "newest first" : "in another order") +
                                     (whole ? "" : "; some without number, time or text"));
}

Finding StartOfTheMachine() {
  const auto log = platform::windows::MakeEventLog();
  const auto newest = [&](const char* provider, const char* id) {
    const std::string xpath = std::string("*[System[Provider[@Name='") + provider + "'] and (EventID=" + id + ")]]";
    return log->Query({.channel = "System", .xpath = xpath, .value_paths = {kTime}, .limit = 1});
  };
  const auto kernel = newest("Microsoft-Windows-Kernel-General", "12");
  const auto service = newest("EventLog", "6005");
  if (kernel.failure != EventLogFailure::kNone) {
    return Judge(false, "the query failed: " + FailureText(kernel.failure, kernel.error));
  }
  if (kernel.records.empty()) return CannotTell("the log holds no such event, or not any more");
  if (service.records.empty()) return Judge(true, "found; the log service's own event is not there");
  const auto* const kernel_time = std::get_if<platform::WallTime>(&kernel.records[0].values[0]);
  const auto* const service_time = std::get_if<platform::WallTime>(&service.records[0].values[0]);
  if (kernel_time == nullptr || service_time == nullptr) return Judge(false, "the events have no time");
  return Judge(
      *kernel_time <= *service_time,
      "found; " + std::string(*kernel_time <= *service_time ? "before" : "behind") + " the log service's own event");
}

Finding SubscriptionGoesOn() {
  constexpr std::size_t kEvents = 10;
  const auto runtime = platform::MakeRealRuntime({});
  const auto log = platform::windows::MakeEventLog();
  platform::EventLogReaderSettings settings{
      .query = R"(<QueryList><Query Id="0"><Select Path="System">*</Select></Query></QueryList>)",
      .value_paths = {kRecordNumber},
      .xml = false};
  std::string trouble;
  const auto take = [&](std::size_t limit) {
    std::vector<platform::EventLogEvent> events;
    const auto opening = log->OpenReader(*runtime, settings);
    if (opening.reader == nullptr) trouble = "not opened: " + FailureText(opening.failure, opening.error);
    while (opening.reader != nullptr && events.size() < limit && trouble.empty()) {
      if (runtime->Wait(opening.reader->news(), kPatience) != 0) break;
      auto batch = opening.reader->Take(limit - events.size());
      for (const auto& notice : batch.notices)
        trouble += "trouble " + std::to_string(static_cast<int>(notice.trouble)) + ", error " +
                   std::to_string(notice.error) + "; ";
      std::ranges::move(batch.events, std::back_inserter(events));
    }
    return events;
  };
  const auto events = take(kEvents);
  if (!trouble.empty()) return Judge(false, trouble);
  if (events.size() < kEvents) return CannotTell("the log has fewer than ten events");
  const auto number = [](const platform::EventLogEvent& event) { return NumberOf(event.record); };
  if (std::ranges::adjacent_find(events, std::ranges::greater_equal{}, number) != events.end()) {
    return Judge(false, "the events are not in their order");
  }
  settings.bookmark = events[kEvents / 2].bookmark;
  const auto behind = take(1);
  if (!trouble.empty() || behind.empty()) return Judge(false, "behind the bookmark: " + trouble);
  return Judge(number(behind[0]) == number(events[kEvents / 2 + 1]),
               "ten events, oldest first; the next reader went on with the " +
                   std::string(number(behind[0]) == number(events[kEvents / 2 + 1]) ? "next" : "wrong") + " one");
}

Finding UnwantedEventsArePassed() {
  const auto runtime = platform::MakeRealRuntime({});
  const auto log = platform::windows::MakeEventLog();
  const auto take = [&](const std::string& condition, const std::string& bookmark) {
    const auto opening = log->OpenReader(*runtime, {.query = R"(<QueryList><Query Id="0"><Select Path="System">)" +
                                                             condition + "</Select></Query></QueryList>",
                                                    .value_paths = {kRecordNumber},
                                                    .xml = false,
                                                    .bookmark = bookmark});
    if (opening.reader == nullptr) return platform::EventLogBatch{.notices = {{.error = opening.error}}};
    opening.reader->PassUnwanted();
    return opening.reader->Take(kMostSince);
  };
  const platform::EventLogBatch none = take("*[System[EventID=65535 and Level=1]]", {});
  if (!none.events.empty()) return CannotTell("the log has an event that none should be");
  if (!none.notices.empty() || none.bookmark.empty()) return Judge(false, "no place behind the newest event");
  const platform::EventLogBatch behind = take("*", none.bookmark);
  return Judge(behind.notices.empty() && behind.events.size() < kMostSince,
               std::to_string(behind.events.size()) + " events behind the newest one, " +
                   std::to_string(behind.notices.size()) + " interruptions");
}

Finding StatusOfAChannel() {
  const auto status = platform::windows::MakeEventLog()->ReadStatus("System");
  if (status.failure != EventLogFailure::kNone) return Judge(false, FailureText(status.failure, status.error));
  return Judge(status.events.value_or(0) > 0 && status.bytes && status.most_bytes && status.oldest,
               std::to_string(status.events.value_or(0)) + " events, " + std::to_string(status.bytes.value_or(0)) +
                   " of " + std::to_string(status.most_bytes.value_or(0)) + " bytes");
}

Finding MissingChannel() {
  const auto reading =
      platform::windows::MakeEventLog()->Query({.channel = "TvkKit/None", .xpath = "*", .value_paths = {}, .limit = 1});
  return Judge(reading.failure == EventLogFailure::kChannelNotFound, FailureText(reading.failure, reading.error));
}

constexpr Check kChecks[] = {
    {"event-log-query", "A query gives the newest events of \"System\" with number, time and text.", NewestFirst},
    {"event-log-boot", "The machine's start is event 12 of Kernel-General, before the log service's own.",
     StartOfTheMachine},
    {"event-log-subscription", "A reader begins with the oldest event, and the next one goes on behind its bookmark.",
     SubscriptionGoesOn},
    {"event-log-pass", "A reader that finds nothing goes behind the newest event.", UnwantedEventsArePassed},
    {"event-log-status", "A channel tells how many events it holds, its size and its oldest event.", StatusOfAChannel},
    {"event-log-no-channel", "A channel that does not exist is told as such.", MissingChannel},
};

}  // namespace

std::span<const Check> EventLogChecks() {
  return kChecks;
}

}  // namespace windows_kit
