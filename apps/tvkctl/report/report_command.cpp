#include "apps/tvkctl/report/report_command.h"

#include <chrono>
#include <memory>
#include <optional>
#include <ostream>
#include <system_error>

#include "apps/exit_code.h"
#include "apps/tvkctl/report/report_page.h"
#include "apps/tvkctl/report/report_text.h"
#include "apps/tvkctl/store_access.h"
#include "client/report/report_builder.h"
#include "client/store/store_summary.h"
#include "client/text/moment.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

constexpr std::chrono::seconds kPatience{2};

// Says how far the work is, each two seconds.
class Progress {
 public:
  Progress(const platform::Clock& clock, std::ostream& errors)
      : clock_(clock), errors_(errors), next_(clock.Steady() + kPatience) {}

  void Tell(double part) {
    const platform::SteadyTime now = clock_.Steady();
    if (now < next_) return;
    next_ = now + kPatience;
    errors_ << "tvkctl: " << static_cast<int>(part * 100) << " % of the records are read\n" << std::flush;
  }

 private:
  const platform::Clock& clock_;
  std::ostream& errors_;
  platform::SteadyTime next_;
};

// Whether the page can be put there: making it takes a while.
bool HasRoomForPage(const std::filesystem::path& file, std::ostream& errors) {
  if (file.empty() || file == "-") return true;
  std::error_code failure;
  const auto type = std::filesystem::symlink_status(file, failure).type();
  std::string problem;
  if (type == std::filesystem::file_type::none) {
    problem = platform::PathToUtf8(file) + ": " + failure.message();
  } else if (type != std::filesystem::file_type::regular && type != std::filesystem::file_type::not_found) {
    problem = platform::PathToUtf8(file) + " is no regular file; nothing is put in its place";
  } else {
    problem = platform::ProbeReplaceFile(file);
  }
  if (!problem.empty()) errors << "tvkctl: " << TVK::HarmlessText(problem) << '\n';
  return problem.empty();
}

int WritePage(const std::string& page, const std::filesystem::path& file, std::ostream& out, std::ostream& errors) {
  if (file == "-") {
    out << page << std::flush;
    return out.good() ? kExitOk : kExitFailed;
  }
  const std::string failure = platform::ReplaceFile(file, page, platform::FileAccess::kPrivate);
  if (failure.empty()) {
    out << "the report is in " << TVK::HarmlessText(platform::PathToUtf8(file)) << '\n';
    return kExitOk;
  }
  errors << "tvkctl: " << TVK::HarmlessText(failure) << '\n';
  return kExitFailed;
}

/// What there is to tell.
struct Found {
  int code = kExitOk;
  TVK::Report report;
  std::optional<Standing> standing;  ///< Nothing: nothing can be told.
};

Found Look(const ReportOptions& options, std::optional<std::int64_t> since, const platform::Clock& clock,
           std::ostream& errors) {
  Found found;
  const std::filesystem::path file = options.data_dir / TVK::kStoreFileName;
  std::string problem;
  TVK::StoreAccess access = TVK::StoreAccess::kOpen;
  const std::unique_ptr<TVK::RecordReader> reader = TVK::RecordReader::Open(file, problem, &access);
  if (access == TVK::StoreAccess::kDenied && options.ask_service) {
    errors << "tvkctl: this account may not read the store; the service is asked, which takes up to half a minute\n"
           << std::flush;
    std::string refusal;
    Standing standing;
    if (options.ask_service(since, found.report, standing, refusal)) {
      found.standing = std::move(standing);
      return found;
    }
    errors << "tvkctl: the service does not tell this account of its records: " << refusal << '\n';
  }
  found.code = ExplainAccess(access, file, problem, errors);
  if (reader == nullptr) return found;
  Progress progress(clock, errors);
  const bool complete = TVK::BuildReport(*reader,
                                         {.since_seconds = since,
                                          .progress =
                                              [&](double part) {
                                                if (options.tells_progress) progress.Tell(part);
                                                return true;
                                              }},
                                         clock, found.report, problem);
  if (!complete) {
    errors << "tvkctl: the records cannot be read to the end: " << TVK::HarmlessText(problem) << '\n';
    found.code = kExitFailed;
  }
  found.report.store_bytes = TVK::StoreBytes(file);
  found.standing = options.standing();
  return found;
}

}  // namespace

int RunReport(const ReportOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors) {
  const platform::Clock& clock = runtime.clock();
  std::optional<std::int64_t> since;
  if (!options.since.empty()) {
    since = TVK::ParseMoment(options.since, clock);
    if (!since) {
      errors << "tvkctl: \"" << TVK::HarmlessText(options.since)
             << "\" is no time; examples: 1w, yesterday, 2026-01-31\n";
      return kExitWrongCommandLine;
    }
  }
  if (!HasRoomForPage(options.html_file, errors)) return kExitFailed;
  const Found found = Look(options, since, clock, errors);
  if (!found.standing) return found.code;
  const ReportSentences sentences(found.report, *found.standing, options.data_dir, clock);
  if (options.html_file.empty()) {
    out << ReportText(found.report, sentences, options.width);
    return found.code;
  }
  const int written = WritePage(ReportPage(found.report, *found.standing, sentences), options.html_file, out, errors);
  return written == kExitOk ? found.code : written;
}

}  // namespace tvkctl
