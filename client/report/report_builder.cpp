#include "client/report/report_builder.h"

#include <map>
#include <span>
#include <string_view>
#include <utility>

#include "client/records/record_json.h"
#include "client/report/descriptions.h"
#include "client/report/measures.h"
#include "client/report/rhythm.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::int64_t kShortestGap = 3600;
// In which a start shows that it is one: monitors start side by side, drives answer one after the other.
constexpr std::int64_t kStartTime = 120;
constexpr std::size_t kMostItems = 200;

// Items by whose names nobody can tell that they are written in an interval, or, of a pen, that they are not.
bool IsRegular(std::string_view dataset, std::string_view item) {
  return dataset != "PenEvent" && (item.ends_with("PerInterval") || item.ends_with("PerDay"));
}

class Builder {
 public:
  Builder(Report& report, std::int64_t since, const RemovedForAge& aged, std::map<std::int64_t, std::string> names)
      : report_(report), since_(since), aged_(aged), names_(std::move(names)), measures_(report.axis) {}

  void Take(const StoredRecord& record) {
    Series& series = SeriesOf(record);
    // The store numbers its records without a hole, and uses no number twice.
    deleted_ = deleted_ || (last_sequence_ > 0 && record.sequence > std::max(last_sequence_, AgedBefore()) + 1);
    last_sequence_ = record.sequence;
    const bool counts = record.written_seconds >= since_;
    bool started = false;
    if (record.kind == RecordKind::kDataset) started = TakeContext(record);
    if (record.kind == RecordKind::kDevice) TakeDevice(record);
    if (record.kind == RecordKind::kItem && counts && (series.records == 0 || series.measured))
      TakeItem(record, series);
    if (!counts) {
      deleted_ = false;  // from before the time that is asked for
      return;
    }
    ++series.records;
    Count(record, series);
    Follow(record.written_seconds, started, series.starts_machine);
  }

  // `deleted`: records behind the last one that was taken are.
  void Finish(std::int64_t now, bool deleted) {
    const std::int64_t last = std::max(report_.newest_seconds, report_.axis.begin);
    if (now - last >= kShortestGap) {
      report_.gaps.push_back({last, now, deleted ? GapEnd::kDeleted : GapEnd::kOpen});
    }
    for (const auto& [id, series] : series_) {
      if (!series.regular) continue;
      std::vector<Gap> gaps = series.rhythm.Gaps(report_.gaps, now);
      std::vector<Gap>& all = report_.datasets[series.dataset].gaps;
      // A dataset with two such items is silent when both are; the one with the fewer silences tells.
      if (!gaps_told_[series.dataset] || gaps.size() < all.size()) all = std::move(gaps);
      gaps_told_[series.dataset] = true;
    }
    report_.timelines = measures_.Take(report_.left_out);
    report_.descriptions = descriptions_.Take(report_.left_out);
    std::ranges::stable_sort(report_.datasets, std::ranges::greater(), &DatasetReport::records);
    std::erase_if(report_.datasets, [](const DatasetReport& dataset) { return dataset.records == 0; });
    for (DatasetReport& dataset : report_.datasets)
      std::ranges::stable_sort(dataset.items, std::ranges::greater(), &ItemReport::records);
    std::ranges::stable_sort(report_.gaps, std::ranges::greater(), &Gap::length);
  }

 private:
  struct Series {
    std::size_t dataset = 0;          ///< Of the report.
    std::optional<std::size_t> item;  ///< Of the dataset; none of contexts, and where there is no room.
    bool regular = false;
    bool measured = false;
    bool starts_machine = false;
    std::uint64_t records = 0;
    Rhythm rhythm;
  };

  Series& SeriesOf(const StoredRecord& record) {
    const auto found = series_.find(record.series);
    if (found != series_.end()) return found->second;
    Series& series = series_[record.series];
    const auto name = names_.find(record.series);
    const std::string dataset = name == names_.end() ? std::string() : name->second;
    const auto known = std::ranges::find(report_.datasets, dataset, &DatasetReport::name);
    series.dataset = static_cast<std::size_t>(known - report_.datasets.begin());
    if (known == report_.datasets.end()) report_.datasets.emplace_back().name = dataset;
    series.measured = Measures::Wants(dataset);
    return series;
  }

  bool TakeContext(const StoredRecord& record) {
    const std::optional<DatasetContext> context = DatasetContextFromJson(record.json);
    if (!context) return false;
    measures_.AddContext(*context);
    return descriptions_.Add(record.series, *context, record.written_seconds, since_);
  }

  // Up to which number a record that is not there tells nothing of the time behind the newest one: it went for its age,
  // and was written before that time.
  std::int64_t AgedBefore() const {
    const std::int64_t begin = std::max(report_.newest_seconds, report_.axis.begin);
    return aged_.before_seconds <= begin ? aged_.last_sequence : 0;
  }

  void TakeDevice(const StoredRecord& record) {
    std::optional<DeviceContext> context = DeviceContextFromJson(record.json);
    if (!context) return;
    descriptions_.Add(*context, record.written_seconds, since_);
    report_.device = std::move(context);
  }

  void TakeItem(const StoredRecord& record, Series& series) {
    const std::optional<ItemEvent> item = ItemEventFromJson(record.json);
    if (!item) return;
    if (series.measured) measures_.AddItem(*item, record.written_seconds);
    if (series.item || series.records > 0) return;
    DatasetReport& dataset = report_.datasets[series.dataset];
    const std::string name = String::UTF16ToUTF8(item->item_name());
    series.regular = IsRegular(dataset.name, name);
    series.starts_machine = name == "ReadInfoPerBoot";
    if (items_++ >= kMostItems) {
      ++report_.left_out;
      return;
    }
    series.item = dataset.items.size();
    dataset.items.push_back({.name = name, .regular = series.regular, .buckets = BucketCounts(TimeAxis::kBuckets)});
  }

  void Count(const StoredRecord& record, Series& series) {
    DatasetReport& dataset = report_.datasets[series.dataset];
    ++dataset.records;
    dataset.newest_seconds = std::max(dataset.newest_seconds, record.written_seconds);
    if (series.regular && record.written_seconds >= report_.axis.begin) series.rhythm.Add(record.written_seconds);
    if (!series.item) return;
    ItemReport& item = dataset.items[*series.item];
    ++item.records;
    ++item.buckets[report_.axis.BucketOf(record.written_seconds)];
  }

  void Follow(std::int64_t seconds, bool started, bool starts_machine) {
    if (report_.records++ == 0) report_.oldest_seconds = seconds;
    const std::int64_t before = std::max(report_.newest_seconds, report_.axis.begin);
    if (seconds - before >= kShortestGap) {
      report_.gaps.push_back({before, seconds, deleted_ ? GapEnd::kDeleted : GapEnd::kServiceRan});
    }
    if (seconds >= report_.newest_seconds) deleted_ = false;
    report_.newest_seconds = std::max(report_.newest_seconds, seconds);
    if (report_.gaps.empty() || report_.newest_seconds - report_.gaps.back().end > kStartTime) return;
    GapEnd& ended = report_.gaps.back().ended;
    if (started && ended == GapEnd::kServiceRan) ended = GapEnd::kServiceStart;
    if (starts_machine && ended != GapEnd::kDeleted) ended = GapEnd::kMachineStart;
  }

  Report& report_;
  const std::int64_t since_;
  const RemovedForAge aged_;
  const std::map<std::int64_t, std::string> names_;
  std::map<std::int64_t, Series> series_;
  std::map<std::size_t, bool> gaps_told_;  ///< By dataset of the report.
  std::size_t items_ = 0;
  std::int64_t last_sequence_ = 0;
  bool deleted_ = false;  ///< Some since the newest record.
  Measures measures_;
  Descriptions descriptions_;
};

// When the oldest record was written, placeholders of contexts that were lost aside; nothing without one.
std::optional<std::int64_t> OldestSeconds(const RecordReader& reader) {
  std::optional<std::int64_t> seconds;
  std::string ignored;
  static_cast<void>(reader.Read(
      {.after_sequence = 0},
      [&](std::span<const StoredRecord> records) {
        seconds = records.front().written_seconds;
        return false;
      },
      ignored));
  return seconds;
}

}  // namespace

bool BuildReport(const RecordReader& reader, const ReportQuery& query, const platform::Clock& clock, Report& report,
                 std::string& problem) {
  report = {};
  const std::int64_t now = clock.NowSeconds();
  const std::optional<std::int64_t> oldest = OldestSeconds(reader);
  const std::int64_t since = query.since_seconds.value_or(0);
  report.since_begin = !oldest || since <= *oldest;
  // The newest record of each series outlives the others: the time before the oldest ones that are kept is no gap.
  const std::int64_t kept_since = now - StoreLimits().max_age_seconds;
  report.axis.begin = std::min(std::max({since, oldest.value_or(now), kept_since}), now);
  report.axis.end = now;
  // In this order: what is written meanwhile is no deletion.
  const std::int64_t last_written = reader.LastWrittenSequence();
  const std::int64_t newest = reader.NewestSequence();
  Builder builder(report, since, reader.LastRemovedForAge(), reader.DatasetNames());
  // Contexts from before the time that is asked for describe what was recorded in it.
  std::int64_t first = 0;
  bool ended = false;
  const bool complete = reader.Read(
      {.after_sequence = 0, .last_sequence = newest},
      [&](std::span<const StoredRecord> records) {
        if (first == 0) first = records.front().sequence;
        for (const StoredRecord& record : records)
          builder.Take(record);
        if (query.progress) {
          ended = !query.progress(static_cast<double>(records.back().sequence - first + 1) /
                                  static_cast<double>(newest - first + 1));
        }
        return !ended;
      },
      problem);
  builder.Finish(now, last_written > newest);
  if (ended) problem = "the reading was ended";
  return complete && !ended;
}

}  // namespace TVK
