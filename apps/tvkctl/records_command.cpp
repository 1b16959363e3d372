#include "apps/tvkctl/records_command.h"

#include <chrono>
#include <memory>
#include <vector>

#include "apps/exit_code.h"
#include "client/records/record_text.h"
#include "client/store/record_reader.h"
#include "client/text/interval.h"
#include "client/text/string.h"
#include "platform/civil_time.h"

namespace tvkctl {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{250};

void WriteHeader(RecordFormat format, std::ostream& out) {
  if (format == RecordFormat::kTable) out << TVK::RecordTableHeader();
  if (format == RecordFormat::kCsv) out << TVK::RecordCsvHeader();
}

void WriteRecord(const TVK::StoredRecord& record, RecordFormat format, std::ostream& out) {
  switch (format) {
    case RecordFormat::kTable:
      out << TVK::RecordTableLine(record.kind, record.json);
      break;
    case RecordFormat::kJson:
      out << record.json << '\n';
      break;
    case RecordFormat::kCsv:
      out << TVK::RecordCsvLine(record.kind, record.json);
      break;
  }
}

// The moment of a date, a time of it, or that with an offset; nothing when a field is out of its range.
std::optional<std::int64_t> ParseMoment(std::string_view text, const platform::Clock& clock) {
  constexpr std::string_view kShape = "0000-00-00T00:00:00+0000";
  if (text.size() != 10 && text.size() != 19 && text.size() != 24) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool fits = kShape[i] == '0'   ? text[i] >= '0' && text[i] <= '9'
                      : kShape[i] == '+' ? text[i] == '+' || text[i] == '-'
                                         : text[i] == kShape[i];
    if (!fits) return std::nullopt;
  }
  const auto two = [&](std::size_t at) {  // the two digits there
    return at < text.size() ? (text[at] - '0') * 10 + (text[at + 1] - '0') : 0;
  };
  const platform::LocalTime time{.year = two(0) * 100 + two(2),
                                 .month = two(5),
                                 .day = two(8),
                                 .hour = two(11),
                                 .minute = two(14),
                                 .second = two(17)};
  const std::chrono::year_month_day date(std::chrono::year(time.year), std::chrono::month(two(5)),
                                         std::chrono::day(two(8)));
  if (!date.ok() || time.hour > 23 || time.minute > 59 || time.second > 59) return std::nullopt;
  if (text.size() != kShape.size()) return clock.FromLocal(time);
  if (two(20) > 23 || two(22) > 59) return std::nullopt;
  const int offset = two(20) * 60 + two(22);
  return platform::FromCivil(time, text[19] == '-' ? -offset : offset);
}

// Reads what `query` asks for, writes it, and moves the query behind it.
int Show(const TVK::RecordReader& reader, TVK::RecordQuery& query, RecordFormat format, std::ostream& out,
         std::ostream& errors) {
  // Of a query for none the newest record is read all the same: it is where the query goes on.
  const bool none = query.limit == 0;
  if (none) query.limit = 1;
  std::vector<TVK::StoredRecord> records;
  std::string problem;
  const bool complete = reader.Read(query, records, problem);
  std::size_t left_out = 0;
  for (const TVK::StoredRecord& record : records) {
    query.after_sequence = record.sequence;
    if (none) continue;
    if (format == RecordFormat::kJson && !record.is_object) {
      ++left_out;  // whoever reads the lines takes each for an object
    } else {
      WriteRecord(record, format, out);
    }
  }
  out.flush();
  if (left_out > 0) errors << "tvkctl: records left out because they are no JSON object: " << left_out << '\n';
  if (!complete) errors << "tvkctl: the records cannot be read to the end: " << problem << '\n';
  return complete && out ? kExitOk : kExitFailed;
}

}  // namespace

std::optional<std::int64_t> ParseSince(std::string_view text, const platform::Clock& clock) {
  static const std::wstring kDuration = L"^\\d+(s|m|h|d)$";
  if (text.size() > 32) return std::nullopt;
  const std::uint64_t duration =
      TVK::utility::GetIntervalInMillisecondsGivenRegex(TVK::String::UTF8ToUTF16(text), kDuration);
  if (duration != 0) {
    const std::uint64_t seconds = duration / 1000;
    const std::int64_t now = clock.NowSeconds();
    return seconds > static_cast<std::uint64_t>(now) ? 0 : now - static_cast<std::int64_t>(seconds);
  }
  return ParseMoment(text, clock);
}

int RunRecords(const RecordsOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors,
               platform::Waitable* stop) {
  TVK::RecordQuery query;
  query.kind = options.kind;
  query.limit = options.limit;
  if (!options.dataset.empty()) query.dataset_name = TVK::String::UTF8ToUTF16(options.dataset);
  if (!options.since.empty()) {
    query.since_seconds = ParseSince(options.since, runtime.clock());
    if (!query.since_seconds) {
      errors << "tvkctl: \"" << options.since << "\" is no time; examples: 30m, 2h, 1d, 2026-01-31T09:05:00\n";
      return kExitWrongCommandLine;
    }
  }
  std::string problem;
  const std::filesystem::path file = options.data_dir / TVK::kStoreFileName;
  bool no_store = false;
  std::unique_ptr<TVK::RecordReader> reader = TVK::RecordReader::Open(file, problem, &no_store);
  if (reader == nullptr) {
    const std::u8string name = file.u8string();
    errors << "tvkctl: " << (no_store ? "no store at " : "cannot read the store ")
           << std::string(name.begin(), name.end()) << ": " << problem << '\n';
    return no_store ? kExitWrongConfiguration : kExitFailed;
  }

  WriteHeader(options.format, out);
  // The counter first: what is written between the two is then seen as a change.
  std::int64_t counter = reader->ChangeCounter();
  int code = Show(*reader, query, options.format, out, errors);
  query.limit.reset();
  while (code == kExitOk && options.follow && runtime.Wait(*stop, kBetweenLooks) == platform::kWaitTimeout) {
    if (reader->FileHasMoved()) {
      std::unique_ptr<TVK::RecordReader> next = TVK::RecordReader::Open(file, problem);
      if (next == nullptr) continue;  // the service has yet to begin the new store
      // What came to the old one since the last look, as far as it can be read: it may be damaged.
      static_cast<void>(Show(*reader, query, options.format, out, errors));
      reader = std::move(next);
      query.after_sequence = 0;
      counter = reader->ChangeCounter();
    } else if (const std::int64_t now = reader->ChangeCounter(); now != counter) {
      counter = now;
    } else {
      continue;
    }
    code = Show(*reader, query, options.format, out, errors);
  }
  return code;
}

}  // namespace tvkctl
