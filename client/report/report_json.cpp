#include "client/report/report_json.h"

#include <cmath>
#include <limits>
#include <string>

#include "client/records/record_json.h"

namespace TVK {
namespace {

using Json::Value;

// What somebody else's text may make of it is bounded by the text; lists are read to their end.
struct NoReport {};

Value Number(std::int64_t number) {
  return Value(static_cast<Json::Int64>(number));
}

Value Count(std::uint64_t count) {
  return Value(static_cast<Json::UInt64>(count));
}

Value List() {
  return Value(Json::arrayValue);
}

template <typename... Values>
Value ListOf(const Values&... values) {
  Value list = List();
  (list.append(Value(values)), ...);
  return list;
}

template <typename Elements, typename Write>
Value ListFrom(const Elements& elements, const Write& write) {
  Value list = List();
  for (const auto& element : elements)
    list.append(write(element));
  return list;
}

const Value& Object(const Value& value) {
  if (!value.isObject()) throw NoReport();
  return value;
}

const Value& ListIn(const Value& object, const char* key) {
  const Value& list = Object(object)[key];
  if (!list.isArray()) throw NoReport();
  return list;
}

// The element of a list that is to have so many.
const Value& Row(const Value& list, Json::ArrayIndex size) {
  if (!list.isArray() || list.size() != size) throw NoReport();
  return list;
}

std::int64_t Integer(const Value& value) {
  if (!value.isInt64()) throw NoReport();
  return value.asInt64();
}

std::uint64_t Natural(const Value& value) {
  if (!value.isUInt64()) throw NoReport();
  return value.asUInt64();
}

double Real(const Value& value) {
  if (!value.isNumeric() || !std::isfinite(value.asDouble())) throw NoReport();
  return value.asDouble();
}

double MeasuredValue(const Value& value) {
  const double real = Real(value);
  if (std::fabs(real) > kLargestValue) throw NoReport();
  return real;
}

std::int64_t Seconds(const Value& value) {
  constexpr std::int64_t kYear10000 = 253'402'300'800;
  const std::int64_t seconds = Integer(value);
  if (seconds < 0 || seconds > kYear10000) throw NoReport();
  return seconds;
}

std::size_t Size(const Value& value) {
  const std::uint64_t size = Natural(value);
  if (size > std::numeric_limits<std::uint32_t>::max()) throw NoReport();
  return static_cast<std::size_t>(size);
}

std::string Text(const Value& value) {
  if (!value.isString()) throw NoReport();
  return value.asString();
}

template <typename Enum>
Enum OneOf(const Value& value, Enum last) {
  const std::uint64_t number = Natural(value);
  if (number > static_cast<std::uint64_t>(last)) throw NoReport();
  return static_cast<Enum>(number);
}

std::size_t Bucket(const Value& value) {
  const std::uint64_t bucket = Natural(value);
  if (bucket >= TimeAxis::kBuckets) throw NoReport();
  return static_cast<std::size_t>(bucket);
}

Value GapsToJson(const std::vector<Gap>& gaps) {
  return ListFrom(
      gaps, [](const Gap& gap) { return ListOf(Number(gap.begin), Number(gap.end), static_cast<int>(gap.ended)); });
}

std::vector<Gap> GapsFromJson(const Value& list) {
  std::vector<Gap> gaps;
  for (const Value& row : list) {
    const Gap gap{Seconds(Row(row, 3)[0]), Seconds(row[1]), OneOf(row[2], GapEnd::kDeleted)};
    if (gap.length() < 0) throw NoReport();
    gaps.push_back(gap);
  }
  return gaps;
}

Value ToJson(const ItemReport& item) {
  Value value;
  value["name"] = item.name;
  value["records"] = Count(item.records);
  value["regular"] = item.regular;
  Value& buckets = value["buckets"] = List();
  for (std::size_t i = 0; i < item.buckets.size(); ++i) {
    if (item.buckets[i] > 0) buckets.append(ListOf(Count(i), item.buckets[i]));
  }
  return value;
}

ItemReport ItemFromJson(const Value& value) {
  ItemReport item;
  item.name = Text(Object(value)["name"]);
  item.records = Natural(value["records"]);
  item.regular = value["regular"].isBool() && value["regular"].asBool();
  item.buckets.resize(TimeAxis::kBuckets);
  for (const Value& bucket : ListIn(value, "buckets"))
    item.buckets[Bucket(Row(bucket, 2)[0])] = static_cast<std::uint32_t>(Size(bucket[1]));
  return item;
}

Value ToJson(const DatasetReport& dataset) {
  Value value;
  value["name"] = dataset.name;
  value["records"] = Count(dataset.records);
  value["newest"] = Number(dataset.newest_seconds);
  value["items"] = ListFrom(dataset.items, [](const ItemReport& item) { return ToJson(item); });
  value["gaps"] = GapsToJson(dataset.gaps);
  return value;
}

DatasetReport DatasetFromJson(const Value& value) {
  DatasetReport dataset;
  dataset.name = Text(Object(value)["name"]);
  dataset.records = Natural(value["records"]);
  dataset.newest_seconds = Seconds(value["newest"]);
  for (const Value& item : ListIn(value, "items"))
    dataset.items.push_back(ItemFromJson(item));
  dataset.gaps = GapsFromJson(ListIn(value, "gaps"));
  return dataset;
}

Value ToJson(const Curve& curve) {
  Value value;
  value["of"] = curve.of;
  Value& buckets = value["buckets"] = List();
  for (std::size_t i = 0; i < curve.buckets.size(); ++i) {
    const Extremes& bucket = curve.buckets[i];
    if (bucket.count > 0) buckets.append(ListOf(Count(i), bucket.least, bucket.most, bucket.sum, Count(bucket.count)));
  }
  return value;
}

Curve CurveFromJson(const Value& value) {
  Curve curve{Text(Object(value)["of"]), std::vector<Extremes>(TimeAxis::kBuckets)};
  for (const Value& bucket : ListIn(value, "buckets")) {
    const std::uint64_t count = Natural(Row(bucket, 5)[4]);
    const double sum = Real(bucket[3]);
    if (count == 0 || std::fabs(sum) / static_cast<double>(count) > kLargestValue) throw NoReport();
    curve.buckets[Bucket(bucket[0])] = {MeasuredValue(bucket[1]), MeasuredValue(bucket[2]), sum, count};
  }
  return curve;
}

Value ToJson(const Timeline& timeline) {
  Value value;
  value["measure"] = static_cast<int>(timeline.measure);
  value["curves"] = ListFrom(timeline.curves, [](const Curve& curve) { return ToJson(curve); });
  return value;
}

Timeline TimelineFromJson(const Value& value) {
  Timeline timeline{OneOf(Object(value)["measure"], Measure::kVolumeUse), {}};
  for (const Value& curve : ListIn(value, "curves"))
    timeline.curves.push_back(CurveFromJson(curve));
  return timeline;
}

Value ToJson(const Description& description) {
  Value value;
  value["dataset"] = description.dataset;
  value["facts"] = ListFrom(description.facts, [](const auto& fact) { return ListOf(fact.first, fact.second); });
  value["first"] = Number(description.first_seconds);
  value["newest"] = Number(description.newest_seconds);
  value["written"] = Count(description.written);
  value["changes"] = ListFrom(description.changes, [](const Change& change) {
    return ListOf(Number(change.seconds), ListFrom(change.facts, [](const FactChange& fact) {
                    return ListOf(fact.key, fact.before, fact.after);
                  }));
  });
  value["changes_left_out"] = Count(description.changes_left_out);
  return value;
}

Description DescriptionFromJson(const Value& value) {
  Description description;
  description.dataset = Text(Object(value)["dataset"]);
  for (const Value& fact : ListIn(value, "facts"))
    description.facts.emplace_back(Text(Row(fact, 2)[0]), Text(fact[1]));
  description.first_seconds = Seconds(value["first"]);
  description.newest_seconds = Seconds(value["newest"]);
  description.written = Natural(value["written"]);
  for (const Value& each : ListIn(value, "changes")) {
    Change& change = description.changes.emplace_back();
    change.seconds = Seconds(Row(each, 2)[0]);
    if (!each[1].isArray()) throw NoReport();
    for (const Value& fact : each[1])
      change.facts.push_back({Text(Row(fact, 3)[0]), Text(fact[1]), Text(fact[2])});
  }
  description.changes_left_out = Size(value["changes_left_out"]);
  return description;
}

Report Read(const Value& value) {
  Report report;
  report.axis = {Seconds(Object(value)["begin"]), Seconds(value["end"])};
  if (report.axis.begin > report.axis.end) throw NoReport();
  report.since_begin = value["since_begin"].isBool() && value["since_begin"].asBool();
  report.records = Natural(value["records"]);
  report.oldest_seconds = Seconds(value["oldest"]);
  report.newest_seconds = Seconds(value["newest"]);
  report.store_bytes = Natural(value["store_bytes"]);
  if (value["device"].isString()) report.device = DeviceContextFromJson(value["device"].asString());
  for (const Value& dataset : ListIn(value, "datasets"))
    report.datasets.push_back(DatasetFromJson(dataset));
  report.gaps = GapsFromJson(ListIn(value, "gaps"));
  for (const Value& timeline : ListIn(value, "timelines"))
    report.timelines.push_back(TimelineFromJson(timeline));
  for (const Value& description : ListIn(value, "descriptions"))
    report.descriptions.push_back(DescriptionFromJson(description));
  report.left_out = Size(value["left_out"]);
  return report;
}

}  // namespace

Json::Value ReportToJson(const Report& report) {
  Value value;
  value["begin"] = Number(report.axis.begin);
  value["end"] = Number(report.axis.end);
  value["since_begin"] = report.since_begin;
  value["records"] = Count(report.records);
  value["oldest"] = Number(report.oldest_seconds);
  value["newest"] = Number(report.newest_seconds);
  value["store_bytes"] = Count(report.store_bytes);
  if (report.device) value["device"] = ToJson(*report.device);
  value["datasets"] = ListFrom(report.datasets, [](const DatasetReport& dataset) { return ToJson(dataset); });
  value["gaps"] = GapsToJson(report.gaps);
  value["timelines"] = ListFrom(report.timelines, [](const Timeline& timeline) { return ToJson(timeline); });
  value["descriptions"] =
      ListFrom(report.descriptions, [](const Description& description) { return ToJson(description); });
  value["left_out"] = Count(report.left_out);
  return value;
}

bool Shorten(Report& report) {
  std::vector<Description>& descriptions = report.descriptions;
  bool shorter = false;
  for (Description& description : descriptions) {
    description.changes_left_out += description.changes.size();
    shorter = shorter || !description.changes.empty();
    description.changes.clear();
  }
  if (shorter || descriptions.empty()) return shorter;
  const std::size_t kept = descriptions.size() / 2;
  report.left_out += descriptions.size() - kept;
  descriptions.resize(kept);
  return true;
}

std::optional<Report> ReportFromJson(const Json::Value& value) {
  try {
    return Read(value);
  } catch (const NoReport&) {
    return std::nullopt;
  }
}

}  // namespace TVK
