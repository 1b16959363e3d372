#include "component/eraser.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <system_error>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "client/policy/strict_json.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/append_file.h"
#include "platform/files.h"

namespace TVK {
namespace {

// Some hundred intentions.
constexpr std::size_t kLongestIntentions = 65536;

constexpr wchar_t kReceipts[] = L"Erasure.log";

constexpr char kPolicyCopy[] = "policy.last-good.json";

std::string Write(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

Json::Value ToValue(const Erasure& erasure) {
  Json::Value value(Json::objectValue);
  const auto add = [&](const char* key, const std::optional<std::int64_t>& number) {
    if (number) value[key] = Json::Int64{*number};
  };
  if (erasure.dataset_id) value["dataset"] = *erasure.dataset_id;
  add("before", erasure.before_seconds);
  add("asked", erasure.asked_seconds);
  add("through", erasure.through_sequence);
  return value;
}

// Nothing for one with a condition that is not known: without it too much would go.
std::optional<ErasureIntention> IntentionFromValue(const Json::Value& value) {
  if (!value.isObject() || !value["asked"].isInt64() || !value["through"].isInt64()) return std::nullopt;
  ErasureIntention intention;
  Erasure& erasure = intention.erasure;
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (member.name() == "dataset" && member->isString()) {
      erasure.dataset_id = member->asString();
    } else if (member.name() == "before" && member->isInt64()) {
      erasure.before_seconds = member->asInt64();
    } else if (member.name() == "asked") {
      erasure.asked_seconds = member->asInt64();
    } else if (member.name() == "through") {
      erasure.through_sequence = member->asInt64();
    } else if (member.name() == "set_aside" && member->isArray()) {
      for (const Json::Value& name : *member) {
        if (!name.isString()) return std::nullopt;
        intention.set_aside.push_back(name.asString());
      }
    } else {
      return std::nullopt;
    }
  }
  return intention;
}

// The log that `name` is an older file of, "CpuEventMonitor.log" of "CpuEventMonitor.2.log"; else `name`.
std::wstring NewestOf(std::wstring name) {
  constexpr std::size_t kEnding = 6;  // ".2.log"
  if (name.size() <= kEnding || !name.ends_with(L".log")) return name;
  const std::wstring_view ending = std::wstring_view(name).substr(name.size() - kEnding);
  if (ending[0] == L'.' && ending[1] >= L'1' && ending[1] <= L'9') name.erase(name.size() - kEnding, 2);
  return name;
}

// The receipts stay.
bool IsErasableLog(const std::string& file, const std::optional<std::string>& dataset_id) {
  const std::wstring name = NewestOf(String::UTF8ToUTF16(file));
  if (!dataset_id && name != kReceipts && std::ranges::count(kServiceLogs, name) > 0) return true;
  return std::ranges::any_of(ComponentDatasets().datasets(), [&](const Dataset& dataset) {
    const DatasetRow& row = dataset.row;
    const bool meant = !row.log.empty() && (!dataset_id || String::UTF16ToUTF8(row.id) == *dataset_id);
    return meant && name == std::wstring(row.log) + L".log";
  });
}

bool IsSetAside(std::string_view name) {
  return name.starts_with(std::string(kStoreFileName) + ".corrupt-");
}

bool IsPolicyCopy(std::string_view name) {
  return name == kPolicyCopy || name == std::string("client-") + kPolicyCopy;
}

bool IsOlder(const std::filesystem::path& file, std::int64_t before_seconds) {
  const std::chrono::sys_seconds before{std::chrono::seconds(before_seconds)};
  std::error_code failure;
  const auto written = std::filesystem::last_write_time(file, failure);
  return !failure && std::chrono::file_clock::to_sys(written) < before;
}

template <typename Fits>
void AddFiles(const std::filesystem::path& folder, const Fits& fits, std::vector<std::filesystem::path>& files) {
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    std::error_code gone;
    const bool is_file = entry->symlink_status(gone).type() == std::filesystem::file_type::regular;
    if (is_file && fits(platform::PathToUtf8(entry->path().filename()))) files.push_back(entry->path());
  }
}

// A log that may be written to is emptied: whoever writes it goes on with it. Empty, or what went wrong.
std::string RemoveFile(const std::filesystem::path& file) {
  const std::string name = platform::PathToUtf8(file.filename());
  if (name.ends_with(".log") && std::ranges::count(name, '.') == 1) return platform::AppendFile::Empty(file);
  std::error_code failure;
  std::filesystem::remove(file, failure);
  return failure ? name + ": " + failure.message() : std::string();
}

}  // namespace

ErasableFiles ListErasableFiles(const ErasurePlaces& places, const Erasure& erasure) {
  ErasableFiles files;
  AddFiles(
      places.data_folder,
      [&](const std::string& name) { return IsSetAside(name) || (!erasure.dataset_id && IsPolicyCopy(name)); },
      files.to_go);
  AddFiles(
      places.log_folder, [&](const std::string& name) { return IsErasableLog(name, erasure.dataset_id); }, files.to_go);
  if (!erasure.before_seconds) return files;
  const auto first_newer = std::stable_partition(
      files.to_go.begin(), files.to_go.end(), [&](const auto& each) { return IsOlder(each, *erasure.before_seconds); });
  files.that_stay.assign(first_newer, files.to_go.end());
  files.to_go.erase(first_newer, files.to_go.end());
  return files;
}

std::string ToJson(const ErasureReceipt& receipt) {
  Json::Value value(Json::objectValue);
  if (!receipt.problem.empty()) value["problem"] = receipt.problem;
  value["records"] = Json::UInt64{receipt.records};
  value["files"] = Json::UInt64{receipt.files};
  return Write(value);
}

std::optional<ErasureReceipt> ReceiptFromJson(std::string_view json) {
  ProblemList problems;
  const std::optional<Json::Value> root = ReadStrictJson(json, problems);
  if (!root || !(*root)["records"].isUInt64() || !(*root)["files"].isUInt64()) return std::nullopt;
  const Json::Value problem = root->get("problem", "");
  return ErasureReceipt{problem.isString() ? problem.asString() : std::string(), (*root)["records"].asUInt64(),
                        (*root)["files"].asUInt64()};
}

Eraser::Eraser(platform::Runtime& runtime, EventDataLogging* store, ErasurePlaces places, Rest rest)
    : runtime_(runtime),
      store_(store),
      places_(std::move(places)),
      rest_(rest),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      again_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  utility::InitLog(log_, ServiceLog(kReceipts), 4);
}

Eraser::~Eraser() {
  stop_->Set();
  if (thread_.joinable()) runtime_.Join(thread_);
}

std::optional<Eraser::Intentions> Eraser::ReadIntentions(std::string& problem) const {
  platform::FileProblem why;
  const std::optional<std::string> text = platform::ReadWholeFile(file(), kLongestIntentions, &why);
  if (!text && why.fault == platform::FileFault::kAbsent) return Intentions();
  problem = text ? platform::PathToUtf8(file()) + " tells of no erasure that is known here" : why.text;
  if (!text) return std::nullopt;
  ProblemList problems;
  const std::optional<Json::Value> root = ReadStrictJson(*text, problems);
  if (!root || root->size() != 1 || !(*root)["erasures"].isArray()) return std::nullopt;
  Intentions intentions;
  for (const Json::Value& each : (*root)["erasures"]) {
    std::optional<ErasureIntention> intention = IntentionFromValue(each);
    if (!intention) return std::nullopt;
    intentions.push_back(std::move(*intention));
  }
  return intentions;
}

std::string Eraser::WriteIntentions(const Intentions& intentions) const {
  if (intentions.empty()) {
    std::error_code failure;
    std::filesystem::remove(file(), failure);
    return failure ? platform::PathToUtf8(file()) + ": " + failure.message() : std::string();
  }
  Json::Value root(Json::objectValue);
  for (const ErasureIntention& each : intentions) {
    Json::Value value = ToValue(each.erasure);
    for (const std::string& name : each.set_aside)
      value["set_aside"].append(name);
    root["erasures"].append(value);
  }
  const std::string text = Write(root);
  if (text.size() > kLongestIntentions) return "too many erasures are not complete";
  return platform::ReplaceFile(file(), text, platform::FileAccess::kPrivate);
}

ErasureReceipt Eraser::Erase(const Erasure& erasure) {
  const std::lock_guard lock(mutex_);
  const auto nothing = [](const std::string& why) { return ErasureReceipt{"nothing was deleted: " + why}; };
  std::string problem;
  std::optional<Intentions> intentions = ReadIntentions(problem);
  if (!intentions) return nothing(problem);
  ErasureIntention& wanted = intentions->emplace_back(ErasureIntention{erasure, {}});
  wanted.erasure.asked_seconds = runtime_.clock().NowSeconds();
  const int code = store_ == nullptr ? 0 : store_->GetLastSequence(wanted.erasure.through_sequence.emplace(0));
  wanted.erasure.through_sequence = wanted.erasure.through_sequence.value_or(0);
  if (code != 0) return nothing("the store cannot be used, error " + std::to_string(code));
  for (const std::filesystem::path& each : ListErasableFiles(places_, erasure).to_go) {
    std::string name = platform::PathToUtf8(each.filename());
    if (IsSetAside(name)) wanted.set_aside.push_back(std::move(name));
  }
  problem = WriteIntentions(*intentions);
  return problem.empty() ? RunAll(*intentions) : nothing(problem);
}

bool Eraser::Finish() {
  const std::lock_guard lock(mutex_);
  std::string problem;
  const std::optional<Intentions> intentions = ReadIntentions(problem);
  if (!intentions) {
    log_.e(L"%s: %s; it is left alone", L"Eraser::Finish", String::UTF8ToUTF16(problem));
    return true;
  }
  return intentions->empty() || RunAll(*intentions).problem.empty();
}

ErasureReceipt Eraser::RunAll(const Intentions& intentions) {
  Intentions left;
  ErasureReceipt receipt;
  for (const ErasureIntention& each : intentions) {
    receipt = Run(each);
    const std::wstring what = String::UTF8ToUTF16(Write(ToValue(each.erasure)));
    if (receipt.problem.empty()) {
      log_.i(L"%s: erased for good (%s): %d records, %d files", L"Eraser::Erase", what, receipt.records, receipt.files);
      continue;
    }
    left.push_back(each);
    log_.e(L"%s: not complete (%s), it is tried again: %s", L"Eraser::Erase", what,
           String::UTF8ToUTF16(receipt.problem));
  }
  if (left.size() != intentions.size()) {
    // What is done once more for it deletes nothing more.
    if (std::string problem = WriteIntentions(left); !problem.empty()) receipt.problem = std::move(problem);
  }
  if ((!left.empty() || !receipt.problem.empty()) && rest_ == Rest::kTriedAgain) {
    if (!thread_.joinable()) thread_ = StartGuardedThread(runtime_, log_, "tvk-erasure", [this] { TryAgain(); });
    again_->Set();
  }
  return receipt;
}

void Eraser::TryAgain() {
  platform::Waitable* const objects[] = {stop_.get(), again_.get()};
  std::chrono::milliseconds pause = platform::kForever;
  for (;;) {
    const platform::WaitCode woken = runtime_.WaitAny(objects, pause);
    if (woken == 0) return;
    if (woken == 1 && pause == platform::kForever) pause = kFirstPause;
    if (woken == 1) continue;
    const auto longer = std::min(pause * 2, kLongestPause);
    bool complete = false;
    if (!CallLogged(log_, L"Eraser::Finish", [&] { complete = Finish(); })) complete = false;
    pause = complete ? platform::kForever : longer;
  }
}

std::vector<std::filesystem::path> Eraser::FilesOf(const ErasureIntention& intention) const {
  const Erasure& erasure = intention.erasure;
  std::vector<std::filesystem::path> files = ListErasableFiles(places_, erasure).to_go;
  // A store that was set aside since may hold later records, and those of every dataset.
  std::erase_if(files, [&](const std::filesystem::path& each) {
    const std::string name = platform::PathToUtf8(each.filename());
    if (IsPolicyCopy(name)) return !IsOlder(each, *erasure.asked_seconds + 1);
    if (!IsSetAside(name) || std::ranges::count(intention.set_aside, name) > 0) return false;
    return erasure.dataset_id.has_value() || !IsOlder(each, *erasure.asked_seconds + 1);
  });
  return files;
}

ErasureReceipt Eraser::Run(const ErasureIntention& intention) {
  ErasureReceipt receipt;
  const int code = store_ == nullptr ? 0 : store_->Erase(intention.erasure, receipt.records);
  if (code != 0) receipt.problem = "the records could not all be deleted, error " + std::to_string(code);
  if (!intention.erasure.dataset_id) {
    platform::RemoveLeftovers(places_.data_folder / kPolicyCopy);
    platform::RemoveLeftovers(places_.data_folder / (std::string("client-") + kPolicyCopy));
  }
  std::set<std::filesystem::path> done;
  // Once more for a log that went on to its next file in the meantime.
  for (int look = 0; look < 2; ++look) {
    for (const std::filesystem::path& each : FilesOf(intention)) {
      if (!done.insert(each).second) continue;
      std::string problem = RemoveFile(each);
      if (problem.empty()) {
        ++receipt.files;
      } else {
        receipt.problem = std::move(problem);
      }
    }
  }
  return receipt;
}

}  // namespace TVK
