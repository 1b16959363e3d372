#include "apps/tvkctl/report/report_sentences.h"

#include <algorithm>

#include "apps/tvkctl/command_text.h"
#include "client/store/event_data_logging.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::GapEnd;
using TVK::String;

constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;

// "9 hours", "3 days".
std::string Span(std::int64_t seconds) {
  struct Unit {
    std::int64_t seconds;
    const char* one;
  };
  for (const Unit& unit : {Unit{2 * kDay, " days"}, {2 * kHour, " hours"}, {120, " minutes"}}) {
    if (seconds >= unit.seconds) return std::to_string(seconds / (unit.seconds / 2)) + unit.one;
  }
  return ReportSentences::Number(static_cast<std::uint64_t>(seconds), "second");
}

std::string Size(std::uint64_t bytes) {
  return bytes < (10ull << 20) ? std::to_string(bytes >> 10) + " KiB" : std::to_string(bytes >> 20) + " MiB";
}

}  // namespace

std::string ReportSentences::Number(std::uint64_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string ReportSentences::NameOf(const std::string& dataset) {
  return dataset.empty() ? "facts of the PC" : dataset;
}

std::string ReportSentences::Time(std::int64_t seconds) const {
  std::string time = String::UTF16ToUTF8(TVK::FormatRecordTime(seconds, clock_)).substr(0, 16);
  time[10] = ' ';
  return time;
}

std::vector<Sentence> ReportSentences::Summary() const {
  const std::filesystem::path file = data_folder_ / TVK::kStoreFileName;
  std::vector<Sentence> lines = {{"leaves this PC", "nothing: what is recorded stays in " + platform::PathToUtf8(file)},
                                 {"is recorded", Recorded()}};
  std::string kept = Number(report_.records, "record");
  if (report_.records > 0) {
    kept += ", " + Time(report_.oldest_seconds) + " to " + Time(report_.newest_seconds) + " (local)";
  }
  lines.push_back({report_.since_begin ? "is kept" : "since then", std::move(kept)});
  const TVK::StoreLimits limits;
  lines.push_back({"for how long", std::to_string(limits.max_age_seconds / kDay) + " days and " +
                                       std::to_string(limits.max_bytes >> 20) +
                                       " MiB at most, the oldest go first; now " + Size(report_.store_bytes)});
  if (report_.device) lines.push_back({"the machine", Machine()});
  return lines;
}

std::string ReportSentences::Recorded() const {
  if (standing_.scope.empty()) {
    // The service's word is what is in force; of a file that cannot be read nobody knows what the service makes.
    if (!standing_.problem.empty()) return (standing_.answered ? "nothing: " : "not known: ") + standing_.problem;
    if (!standing_.up) return "not known: this account may ask neither service nor policy";
    if (standing_.answered) return "nothing: there is no policy";
    // A service may have been started with a policy of its own.
    return "nothing: no service runs; a policy is not known (--policy)";
  }
  const auto runs = std::ranges::count_if(standing_.datasets, [](const DatasetStanding& dataset) {
    return dataset.state == "runs" || dataset.state == "to run";
  });
  std::string text = "scope \"" + standing_.scope + "\": " + Number(static_cast<std::uint64_t>(runs), "dataset");
  if (!standing_.problem.empty()) return text + "; the policy file is not used: " + standing_.problem;
  if (!standing_.up) return text + " by the policy; the service does not tell";
  return text + (*standing_.up ? "" : " by the policy; no service runs");
}

std::string ReportSentences::Machine() const {
  std::string machine;
  const DeviceContext& device = *report_.device;
  for (const std::wstring* const part :
       {&device.device_info().device_manufacturer(), &device.device_info().device_family(),
        &device.device_info().device_modeltype(), &device.device_info().os_name(), &device.device_info().os_version(),
        &device.region_info().country_name()}) {
    if (!part->empty()) machine += (machine.empty() ? "" : ", ") + String::UTF16ToUTF8(*part);
  }
  return machine.empty() ? "it told nothing of itself" : machine;
}

std::vector<Sentence> ReportSentences::Remedies() const {
  const std::string command = CommandFor(data_folder_);
  const bool is_known = standing_.answered || !standing_.scope.empty() || !standing_.problem.empty();
  const std::string policy = is_known ? standing_.policy_file : "the policy file of the service";
  return {{"to look at it", command + " records; as a page: report --html FILE instead"},
          {"to stop it",
           "\"telemetryScope\": \"none\" in " + policy + "; a little is listed still, until the service is disabled"},
          {"to delete it", command + " erase --all --yes; with --stop" +
                               (is_known ? PolicyOption(standing_.policy_file) : " --policy FILE") +
                               " the scope is \"none\" first"}};
}

std::string ReportSentences::GapText(const TVK::Gap& gap) const {
  const std::string when = SpanText(gap);
  switch (gap.ended) {
    case GapEnd::kServiceRan:
      return when + ": asleep, or nothing was due";
    case GapEnd::kServiceStart:
      return when + ": the PC or the service was off, or there was no consent";
    case GapEnd::kMachineStart:
      return when + ": the PC was off";
    case GapEnd::kDeleted:
      return when + ": older records are deleted";
    case GapEnd::kOpen:
      break;
  }
  return when + (standing_.up.value_or(true) ? "" : ": no service runs");
}

std::string ReportSentences::SpanText(const TVK::Gap& gap) const {
  return Span(gap.length()) + " from " + Time(gap.begin) + (gap.ended == GapEnd::kOpen ? " until now" : "");
}

std::string ReportSentences::DatasetText(const TVK::DatasetReport& dataset) const {
  std::string text = Number(dataset.records, "record") + ", the last one " +
                     Span(std::max<std::int64_t>(report_.axis.end - dataset.newest_seconds, 0)) + " ago";
  if (!dataset.gaps.empty()) {
    const TVK::Gap& longest = dataset.gaps.front();
    text += "; " + Number(dataset.gaps.size(), "gap") + ", " + Span(longest.length()) + " from " + Time(longest.begin);
  }
  return text;
}

}  // namespace tvkctl
