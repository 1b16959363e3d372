#include "apps/tvkctl/erase_command.h"

#include <json/reader.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <ostream>

#include "apps/exit_code.h"
#include "apps/tvkctl/scope_none.h"
#include "apps/tvkctl/store_access.h"
#include "client/channel/channel_client.h"
#include "client/log/log.h"
#include "client/store/store_file.h"
#include "client/store/writer_lock.h"
#include "client/text/moment.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "component/component_datasets.h"
#include "platform/files.h"

namespace tvkctl {
namespace {

using TVK::Erasure;
using TVK::ErasureReceipt;
using TVK::String;
using Delivery = TVK::ChannelAnswer::Delivery;

constexpr std::chrono::milliseconds kBetweenLooks{100};
constexpr std::chrono::seconds kPatienceWithPolicy{15};
// A store of many GiB on a slow disk; what takes longer goes on without being waited for.
constexpr std::chrono::seconds kPatienceWithErasure{1800};
// Up to here it takes less than two seconds to write it anew.
constexpr std::uintmax_t kSlowStore = 32u << 20;

class EraseRun {
 public:
  EraseRun(const EraseOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors)
      : options_(options), runtime_(runtime), out_(out), errors_(errors), client_(runtime, options.channel) {}

  int Go() {
    if (!ReadOptions()) return kExitWrongCommandLine;
    if (const int code = Plan(); code != kExitOk) return code;
    if (options_.stop) {
      if (const int code = PlanStop(); code != kExitOk) return code;
    }
    if (options_.dry_run) return kExitOk;
    if (!options_.yes) {
      errors_ << "tvkctl: nothing was deleted; add --yes to delete it for good\n";
      return kExitWrongCommandLine;
    }
    if (options_.stop) {
      if (const int code = Stop(); code != kExitOk) return code;
    }
    return Delete();
  }

 private:
  bool ReadOptions() {
    if (options_.all == (!options_.dataset.empty() || !options_.before.empty())) {
      errors_ << "tvkctl: erase takes --all, or --dataset NAME, --before TIME or both\n";
      return false;
    }
    if (!options_.dataset.empty()) {
      const std::wstring name = String::UTF8ToUTF16(options_.dataset);
      const std::vector<TVK::Dataset>& known = TVK::ComponentDatasets().datasets();
      const auto meant = std::ranges::find_if(
          known, [&](const TVK::Dataset& each) { return String::CaseInsesitiveEqual(each.row.name, name); });
      if (meant == known.end()) {
        errors_ << "tvkctl: no dataset " << TVK::HarmlessText(options_.dataset) << "; names:";
        for (const TVK::Dataset& each : known)
          errors_ << ' ' << String::UTF16ToUTF8(each.row.name);
        errors_ << '\n';
        return false;
      }
      erasure_.dataset_id = String::UTF16ToUTF8(meant->row.id);
    }
    if (options_.before.empty()) return true;
    erasure_.before_seconds = TVK::ParseMoment(options_.before, runtime_.clock());
    if (erasure_.before_seconds) return true;
    errors_ << "tvkctl: \"" << TVK::HarmlessText(options_.before)
            << "\" is no time; examples: 1w, yesterday, 2026-01-31, 2026-01-31T09:05:00Z\n";
    return false;
  }

  // Says what is to be deleted, and what is not for its date.
  int Plan() {
    std::error_code ignored;
    if (!std::filesystem::is_directory(options_.places.data_folder, ignored)) {
      errors_ << "tvkctl: no folder " << Shown(options_.places.data_folder)
              << ", so nothing is kept there; --data-dir names another one\n";
      return kExitWrongConfiguration;
    }
    std::optional<std::uint64_t> records = 0;
    if (const int code = CountRecords(records); code != kExitOk) return code;
    out_ << "to be deleted: " << (records ? std::to_string(*records) : "nobody knows how many") << " records of "
         << (erasure_.dataset_id ? TVK::HarmlessText(options_.dataset) : "every dataset");
    if (erasure_.before_seconds) {
      out_ << " from before " << String::UTF16ToUTF8(TVK::FormatRecordTime(*erasure_.before_seconds, runtime_.clock()));
    }
    out_ << '\n';
    const TVK::ErasableFiles files = ListErasableFiles(options_.places, erasure_);
    for (const std::filesystem::path& each : files.to_go)
      out_ << "  " << Shown(each) << '\n';
    if (!files.that_stay.empty()) out_ << "stays whole, since it was written to after that:\n";
    for (const std::filesystem::path& each : files.that_stay)
      out_ << "  " << Shown(each) << '\n';
    return kExitOk;
  }

  // Nothing where they cannot be told apart, and all of them are to go.
  int CountRecords(std::optional<std::uint64_t>& records) {
    using enum TVK::StoreFileState;
    TVK::Database database;
    Erasure counted = erasure_;
    counted.asked_seconds = runtime_.clock().NowSeconds();
    const TVK::StoreFileOpening opening = TVK::OpenStoreReadOnly(store_file_, database);
    switch (opening.state) {
      case kMissing:
        return kExitOk;
      case kReady:
        if (std::uint64_t count = 0; CountErasure(database, counted, count) == 0) {
          records = count;
        } else {
          records = std::nullopt;
        }
        return kExitOk;
      case kForeign:
        return ExplainAccess(TVK::StoreAccess::kForeign, store_file_, opening.problem, errors_);
      case kNewer:
        return ExplainAccess(TVK::StoreAccess::kNewer, store_file_, opening.problem, errors_);
      case kDenied:
        return ExplainAccess(TVK::StoreAccess::kDenied, store_file_, opening.problem, errors_);
      case kUnavailable:
        return ExplainAccess(TVK::StoreAccess::kFailed, store_file_, opening.problem, errors_);
      case kDamaged:
        break;
    }
    records = std::nullopt;
    if (options_.all) return kExitOk;
    errors_ << "tvkctl: the store is damaged, so its records cannot be told apart: "
            << TVK::HarmlessText(opening.problem) << "; nothing was deleted, --all deletes it as a whole\n";
    return kExitFailed;
  }

  static std::string Shown(const std::filesystem::path& path) { return TVK::HarmlessText(platform::PathToUtf8(path)); }

  int NothingDeleted(const std::string& why, int code = kExitFailed) {
    errors_ << "tvkctl: nothing was deleted: " << TVK::HarmlessText(why) << '\n';
    return code;
  }

  struct Status {
    std::optional<Json::Value> value;
    TVK::ChannelAnswer answer;
  };

  Status AskStatus() {
    Status status{.value = {}, .answer = client_.Ask({.wish = TVK::ChannelWish::kStatus})};
    const std::string& body = status.answer.body;
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (status.answer.result != 0) return status;
    if (reader->parse(body.data(), body.data() + body.size(), &value, nullptr) && value.isObject()) {
      status.value = std::move(value);
    } else {
      status.answer.reason = "the service answers something that is no status";
    }
    return status;
  }

  static bool IsSameFile(const std::filesystem::path& one, const std::filesystem::path& other) {
    std::error_code failure;
    return std::filesystem::equivalent(one, other, failure) || one.lexically_normal() == other.lexically_normal();
  }

  // Says how the policy of the service gets the scope "none".
  int PlanStop() {
    const Status status = AskStatus();
    if (status.value) {
      const Json::Value& policy = (*status.value)["policy"];
      if (policy.isString() && !IsSameFile(platform::PathFromUtf8(policy.asString()), options_.policy_file)) {
        // Whoever answers names a file that this account would overwrite: a person has to have named it, too.
        return NothingDeleted("the policy of the service is " + policy.asString() + "; add --policy with that file");
      }
    }
    scope_none_ = PlanScopeNone(options_.policy_file);
    const std::string file = Shown(options_.policy_file);
    if (scope_none_.absent && !status.value) {
      return NothingDeleted(
          "there is no policy " + file +
              " to stop anything by: leave out --stop, or name the policy of the service with --policy",
          kExitWrongConfiguration);
    }
    if (!scope_none_.problem.empty()) {
      return NothingDeleted("the scope \"none\" cannot be put in force: " + scope_none_.problem,
                            kExitWrongConfiguration);
    }
    if (scope_none_.absent) {
      out_ << "nothing is to be stopped: there is no policy " << file << '\n';
    } else if (scope_none_.replaced) {
      out_ << "to be replaced by a policy of the scope \"none\", since it is broken: " << file << "; it is kept as "
           << Shown(ReplacedPolicy(options_.policy_file)) << '\n';
    } else {
      out_ << "to get the scope \"none\": " << file << '\n';
    }
    return kExitOk;
  }

  // Withdraws consent, and waits until a service that runs has followed: it would write on until then. That nobody
  // writes is known from the mark of who does alone, which keeps a service from beginning meanwhile, too.
  int Stop() {
    const Status first = AskStatus();
    TVK::WriterLock nobody_writes;
    if (!first.value) {
      std::string problem = first.answer.reason;
      if (first.answer.delivery == Delivery::kUnsent) problem = nobody_writes.Take(store_file_);
      if (!problem.empty()) return NothingDeleted("no service says that it follows the scope \"none\": " + problem);
    }
    if (const std::string problem = PutScopeNone(options_.policy_file, scope_none_); !problem.empty()) {
      return NothingDeleted("the scope \"none\" cannot be put in force: " + problem, kExitWrongConfiguration);
    }
    const auto never = runtime_.MakeEvent(platform::EventReset::kManual);
    const platform::SteadyTime deadline = runtime_.clock().Steady() + kPatienceWithPolicy;
    for (bool in_force = !first.value.has_value(); !in_force;) {
      const Status now = AskStatus();
      in_force = now.value ? (*now.value)["scope"] == "none"
                           : now.answer.delivery == Delivery::kUnsent && nobody_writes.Take(store_file_).empty();
      if (in_force) break;
      if (runtime_.clock().Steady() > deadline) {
        return NothingDeleted("the service does not say that it follows " + platform::PathToUtf8(options_.policy_file));
      }
      runtime_.Wait(*never, kBetweenLooks);
    }
    if (!scope_none_.absent) out_ << "the scope is \"none\": " << Shown(options_.policy_file) << '\n';
    return kExitOk;
  }

  int Delete() {
    std::error_code failure;
    const std::uintmax_t size = std::filesystem::file_size(store_file_, failure);
    if (!failure && size > kSlowStore) errors_ << "tvkctl: the store is written anew, which takes a while\n";
    const TVK::ChannelAnswer answer = client_.Ask({.wish = TVK::ChannelWish::kErase,
                                                   .dataset_id = String::UTF8ToUTF16(erasure_.dataset_id.value_or("")),
                                                   .all = options_.all,
                                                   .before_seconds = erasure_.before_seconds},
                                                  kPatienceWithErasure);
    if (answer.delivery == Delivery::kUnsent) return DeleteItself(answer.reason);
    if (answer.delivery == Delivery::kUnanswered) {
      errors_ << "tvkctl: the service took it and has not said what became of it (" << TVK::HarmlessText(answer.reason)
              << "); it goes on, and Erasure.log in the folder of its logs tells the end\n";
      return kExitFailed;
    }
    const std::optional<ErasureReceipt> receipt = TVK::ReceiptFromJson(answer.body);
    if (!receipt) return NothingDeleted(answer.reason);
    return Tell(*receipt, "the service goes on with it");
  }

  // On the files, which is refused while another process writes to the store.
  int DeleteItself(const std::string& why_not_by_service) {
    static_cast<void>(platform::MakePrivateFolder(options_.places.log_folder));  // else the receipt is said here alone
    TVK::SetLogBackend(TVK::MakeFileLogBackend(options_.places.log_folder));
    std::optional<ErasureReceipt> receipt;
    std::string problem;
    std::error_code ignored;
    if (!std::filesystem::exists(store_file_, ignored)) {
      receipt = Erase(nullptr);
    } else {
      const std::size_t set_aside = CountSetAside();
      TVK::EventDataLogging store({.file = store_file_, .limits = {}}, runtime_.clock());
      problem = store.opening_problem();
      // Records of every dataset, and of every time, which nobody asked to delete.
      const bool was_damaged = !options_.all && CountSetAside() != set_aside;
      if (store.is_open() && !was_damaged) receipt = Erase(&store);
    }
    TVK::SetLogBackend(nullptr);
    if (!receipt) return NothingDeleted(why_not_by_service + "; the store itself: " + problem);
    return Tell(*receipt, "the service goes on with it when it starts");
  }

  std::size_t CountSetAside() const {
    return TVK::ListErasableFiles({.data_folder = options_.places.data_folder, .log_folder = {}}, {.dataset_id = ""})
        .to_go.size();
  }

  ErasureReceipt Erase(TVK::EventDataLogging* store) {
    return TVK::Eraser(runtime_, store, options_.places, TVK::Eraser::Rest::kLeft).Erase(erasure_);
  }

  int Tell(const ErasureReceipt& receipt, const char* what_then) {
    out_ << "deleted for good: " << receipt.records << " records, " << receipt.files << " files\n";
    if (receipt.problem.empty()) return kExitOk;
    errors_ << "tvkctl: not everything could be deleted, " << what_then << ": " << TVK::HarmlessText(receipt.problem)
            << '\n';
    return kExitFailed;
  }

  const EraseOptions& options_;
  platform::Runtime& runtime_;
  std::ostream& out_;
  std::ostream& errors_;
  TVK::ChannelClient client_;
  Erasure erasure_;
  ScopeNonePlan scope_none_;  ///< With `stop`.
  const std::filesystem::path store_file_ = options_.places.data_folder / TVK::kStoreFileName;
};

}  // namespace

int RunErase(const EraseOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors) {
  return EraseRun(options, runtime, out, errors).Go();
}

}  // namespace tvkctl
