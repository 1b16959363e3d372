#include "component/service_status.h"

#include <json/writer.h>

#include <chrono>

#include "client/store/store_summary.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/files.h"
#include "platform/process_usage.h"

namespace TVK {
namespace {

std::string Utf8(std::wstring_view text) {
  return String::UTF16ToUTF8(std::wstring(text));
}

Json::Value TimeValue(std::int64_t unix_seconds, const platform::Clock& clock) {
  return Utf8(FormatRecordTime(unix_seconds, clock));
}

Json::Value TimeValue(platform::WallTime time, const platform::Clock& clock) {
  return TimeValue(std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count(), clock);
}

Json::Value StoreValue(const StoreSummary& summary, const platform::Clock& clock) {
  Json::Value value;
  value["bytes"] = Json::Value::UInt64(summary.bytes);
  if (summary.oldest_seconds) value["oldest_record"] = TimeValue(*summary.oldest_seconds, clock);
  return value;
}

Json::Value DatasetValue(const DatasetStatus& status, const StoreSummary* store, const LastErrors* errors,
                         const platform::Clock& clock) {
  const DatasetRow& row = status.dataset->row;
  Json::Value value;
  value["name"] = Utf8(row.name);
  value["id"] = Utf8(row.id);
  value["runs"] = status.runs;
  const bool hindered = status.decision.runs() && !status.obstacle.empty();
  value["why"] = std::string(hindered ? status.obstacle : ReasonName(status.decision.reason));
  value["collects"] = status.dataset->collects || row.rule == DatasetRule::kDeviceContext;
  if (status.since) value["since"] = TimeValue(*status.since, clock);
  if (store != nullptr) {
    const auto last = store->last_seconds_by_dataset.find(row.rule == DatasetRule::kDeviceContext ? "" : Utf8(row.id));
    if (last != store->last_seconds_by_dataset.end()) value["last_record"] = TimeValue(last->second, clock);
  }
  if (status.next_due) {
    const auto left = std::chrono::floor<std::chrono::milliseconds>(*status.next_due - clock.Elapsed());
    value["next_due"] = TimeValue(clock.Now() + left, clock);
  }
  const std::wstring error =
      errors == nullptr || row.log.empty() ? std::wstring() : errors->Of(std::wstring(row.log) + L".log");
  if (!error.empty()) value["last_error"] = HarmlessText(Utf8(error));
  return value;
}

}  // namespace

std::string ServiceStatus::ToJson(ManagerAccess& manager, const Refusals& refusals) const {
  const platform::Clock& clock = sources_.runtime.clock();
  const ManagerStatus status = manager.Status();
  Json::Value value;
  value["up"] = status.runs;
  value["up_since"] = TimeValue(up_since_, clock);
  value["version"] = Utf8(sources_.tvk_info.GetVersion());
  if (!sources_.policy_file.empty()) value["policy"] = platform::PathToUtf8(sources_.policy_file);
  value["scope"] = Utf8(status.scope);
  std::string problem;
  const std::optional<StoreSummary> store = ReadStoreSummary(sources_.store_file, problem);
  value["store"] = store ? StoreValue(*store, clock) : Json::Value(Json::objectValue);
  if (!store) value["store"]["problem"] = HarmlessText(problem);
  value["store"]["refused"] = Json::Value::UInt64(sources_.store.refused());
  const auto counts = refusals.counts();
  for (std::size_t i = 0; i < counts.size(); ++i)
    value["channel_refused"][std::string(RefusalName(static_cast<Refusal>(i)))] = Json::Value::UInt64(counts[i]);
  const platform::ProcessUsage usage = platform::ReadProcessUsage();
  value["process"]["processor_ms"] = Json::Value::Int64(usage.processor_time.count());
  value["process"]["memory_bytes"] = Json::Value::UInt64(usage.memory_bytes);
  for (const DatasetStatus& dataset : status.datasets)
    value["datasets"].append(DatasetValue(dataset, store ? &*store : nullptr, sources_.errors.get(), clock));
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, value);
}

}  // namespace TVK
