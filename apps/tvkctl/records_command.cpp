#include "apps/tvkctl/records_command.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <span>

#include "apps/exit_code.h"
#include "apps/tvkctl/store_access.h"
#include "client/records/json_line.h"
#include "client/records/record_text.h"
#include "client/store/record_reader.h"
#include "client/text/moment.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

constexpr std::chrono::milliseconds kBetweenLooks{250};
constexpr std::size_t kWidthWithoutTerminal = 120;

class RecordsRun {
 public:
  RecordsRun(const RecordsOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors,
             platform::Waitable* stop)
      : options_(options),
        runtime_(runtime),
        out_(out),
        errors_(errors),
        stop_(stop),
        file_(options.data_dir / TVK::kStoreFileName),
        style_{.times = {options.utc                              ? TVK::RecordZone::kUtc
                         : options.format == RecordFormat::kTable ? TVK::RecordZone::kLocal
                                                                  : TVK::RecordZone::kAsWritten,
                         &runtime.clock()},
               .width = options.terminal_width.value_or(kWidthWithoutTerminal)} {}

  int Go() {
    if (!ReadOptions()) return kExitWrongCommandLine;
    if (const int code = Open(); code != kExitOk) return code;
    if (reader_ == nullptr) return kExitOk;  // it was waited for until the stop
    if (!KnowsDataset()) return kExitWrongCommandLine;
    if (options_.format == RecordFormat::kTable) out_ << TVK::RecordTableHeader(style_);
    if (options_.format == RecordFormat::kCsv) out_ << TVK::RecordCsvHeader();
    // The counter first: what is written between the two is then seen as a change.
    std::int64_t counter = reader_->ChangeCounter();
    int code = Show();
    if (code == kExitOk && shown_ == 0 && !options_.follow && options_.limit != 0) SayWhyNothing();
    query_.limit.reset();
    while (code == kExitOk && options_.follow && !Stopped()) {
      if (reader_->FileHasMoved()) {
        std::string problem;
        std::unique_ptr<TVK::RecordReader> next = TVK::RecordReader::Open(file_, problem);
        if (next == nullptr) continue;  // the service has yet to begin the new store
        // What came to the old one since the last look, as far as it can be read: it may be damaged.
        static_cast<void>(Show());
        reader_ = std::move(next);
        query_.after_sequence = 0;
        counter = reader_->ChangeCounter();
      } else if (const std::int64_t now = reader_->ChangeCounter(); now != counter) {
        counter = now;
      } else {
        continue;
      }
      code = Show();
    }
    return code;
  }

 private:
  bool ReadOptions() {
    query_.kind = options_.kind;
    query_.limit = options_.limit;
    query_.newest_first = options_.reverse;
    if (!options_.dataset.empty()) query_.dataset_name = TVK::String::UTF8ToUTF16(options_.dataset);
    if (!options_.item.empty()) query_.item_name = TVK::String::UTF8ToUTF16(options_.item);
    return ReadMoment(options_.since, query_.since_seconds) && ReadMoment(options_.until, query_.until_seconds);
  }

  bool ReadMoment(const std::string& text, std::optional<std::int64_t>& seconds) {
    if (text.empty()) return true;
    seconds = TVK::ParseMoment(text, runtime_.clock());
    if (seconds) return true;
    errors_ << "tvkctl: \"" << TVK::HarmlessText(text)
            << "\" is no time; examples: 30m, 2h, 1w, yesterday, 22:00, \"2026-01-31 09:05\", 2026-01-31T09:05:00Z\n";
    return false;
  }

  bool Stopped() { return runtime_.Wait(*stop_, kBetweenLooks) != platform::kWaitTimeout; }

  // Opens the store, or waits for it where what comes is wanted.
  int Open() {
    std::string problem;
    TVK::StoreAccess access = TVK::StoreAccess::kOpen;
    reader_ = TVK::RecordReader::Open(file_, problem, &access);
    if (access == TVK::StoreAccess::kMissing && options_.follow) {
      errors_ << "tvkctl: no store at " << platform::PathToUtf8(file_) << " yet; waiting for it\n";
      while (access == TVK::StoreAccess::kMissing && !Stopped())
        reader_ = TVK::RecordReader::Open(file_, problem, &access);
      if (access == TVK::StoreAccess::kMissing) return kExitOk;
    }
    return ExplainAccess(access, file_, problem, errors_);
  }

  std::set<std::string> Names() const {
    std::set<std::string> names(options_.datasets.begin(), options_.datasets.end());
    for (const auto& [series, name] : reader_->DatasetNames())
      names.insert(name);
    names.erase("");
    return names;
  }

  // Whether there is such a dataset, with records or without.
  bool KnowsDataset() {
    if (!query_.dataset_name) return true;
    const std::set<std::string> names = Names();
    const auto is_it = [&](const std::string& name) { return IsSame(name, *query_.dataset_name); };
    if (std::ranges::any_of(names, is_it)) return true;
    errors_ << "tvkctl: no dataset " << TVK::HarmlessText(options_.dataset) << "; names:" << List(names) << '\n';
    return false;
  }

  static std::string List(const std::set<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
      list += (list.empty() ? " " : ", ") + TVK::HarmlessText(name);
    return list;
  }

  // Of the dataset that is asked about, or of all.
  std::set<std::string> ItemNames() const {
    const std::map<std::int64_t, std::string> datasets = reader_->DatasetNames();
    std::set<std::string> names;
    for (const auto& [series, name] : reader_->ItemNames()) {
      const auto dataset = datasets.find(series);
      if (!query_.dataset_name || (dataset != datasets.end() && IsSame(dataset->second, *query_.dataset_name)))
        names.insert(name);
    }
    return names;
  }

  static bool IsSame(const std::string& name, const std::wstring& asked) {
    return TVK::String::CaseInsesitiveEqual(TVK::String::UTF8ToUTF16(name), asked);
  }

  void SayWhyNothing() {
    std::int64_t oldest = 0;
    std::int64_t newest = 0;
    std::string ignored;
    TVK::RecordQuery one{.limit = 1, .newest_first = true};
    const auto take_into = [](std::int64_t& seconds) {
      return [&seconds](std::span<const TVK::StoredRecord> records) {
        seconds = records.front().written_seconds;
        return false;
      };
    };
    static_cast<void>(reader_->Read(one, take_into(newest), ignored));
    static_cast<void>(reader_->Read({.after_sequence = 0}, take_into(oldest), ignored));
    if (newest == 0) {
      errors_ << "tvkctl: the store holds no record yet\n";
      return;
    }
    const auto text = [this](std::int64_t seconds) {
      return TVK::String::UTF16ToUTF8(TVK::FormatRecordTime(seconds, runtime_.clock()));
    };
    if (query_.item_name) {
      const std::set<std::string> items = ItemNames();
      if (std::ranges::none_of(items, [&](const std::string& name) { return IsSame(name, *query_.item_name); })) {
        errors_ << "tvkctl: no record is of an item " << TVK::HarmlessText(options_.item)
                << (items.empty() ? std::string() : "; items:" + List(items)) << '\n';
        return;
      }
    }
    errors_ << "tvkctl: none of the store's records is asked for; they are from " << text(oldest) << " to "
            << text(newest) << '\n';
  }

  void Append(const TVK::StoredRecord& record) {
    switch (options_.format) {
      case RecordFormat::kTable:
        text_ += TVK::RecordTableLine(record.kind, record.json, style_);
        break;
      case RecordFormat::kCsv: {
        const std::string line = TVK::RecordCsvLine(record.kind, record.json, style_.times);
        text_ += options_.terminal_width ? TVK::HarmlessText(line.substr(0, line.size() - 2)) + "\r\n" : line;
        break;
      }
      case RecordFormat::kJson:
        if (!TVK::IsJsonObjectLine(record.json)) {
          ++left_out_;  // whoever reads the lines takes each for an object
          return;
        }
        text_ += options_.terminal_width ? TVK::HarmlessJson(record.json) : record.json;
        text_ += '\n';
        break;
    }
  }

  // Reads what is asked for, writes it, and moves the query behind it.
  int Show() {
    query_.last_sequence = reader_->NewestSequence();
    left_out_ = 0;
    std::string problem;
    const bool complete = query_.limit == 0 || reader_->Read(
                                                   query_,
                                                   [this](std::span<const TVK::StoredRecord> records) {
                                                     text_.clear();
                                                     for (const TVK::StoredRecord& record : records)
                                                       Append(record);
                                                     shown_ += records.size();
                                                     out_ << text_ << std::flush;
                                                     return out_.good();
                                                   },
                                                   problem);
    query_.after_sequence = query_.last_sequence;
    out_.flush();
    if (left_out_ > 0) errors_ << "tvkctl: records left out because they are no JSON object: " << left_out_ << '\n';
    if (!complete) errors_ << "tvkctl: the records cannot be read to the end: " << TVK::HarmlessText(problem) << '\n';
    return complete && out_ ? kExitOk : kExitFailed;
  }

  const RecordsOptions& options_;
  platform::Runtime& runtime_;
  std::ostream& out_;
  std::ostream& errors_;
  platform::Waitable* const stop_;
  const std::filesystem::path file_;
  const TVK::RecordTableStyle style_;
  std::unique_ptr<TVK::RecordReader> reader_;
  TVK::RecordQuery query_;
  std::string text_;  ///< What is written at a time.
  std::size_t shown_ = 0;
  std::size_t left_out_ = 0;
};

}  // namespace

int RunRecords(const RecordsOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors,
               platform::Waitable* stop) {
  return RecordsRun(options, runtime, out, errors, stop).Go();
}

}  // namespace tvkctl
