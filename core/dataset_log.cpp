#include "core/dataset_log.h"

#include <algorithm>
#include <cstddef>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "client/text/string.h"
#include "core/dataset_status.h"

namespace TVK {
namespace {

std::wstring LineOf(const DatasetStatus& status) {
  std::wstring line(status.dataset->row.name);
  const std::string_view why = status.why();
  if (why == ReasonName(DecisionReason::kRuns)) {
    const bool collects = status.dataset->collects || status.dataset->row.rule == DatasetRule::kDeviceContext;
    line += collects ? L": runs" : L": runs, and collects nothing yet";
  } else {
    line += L": does not run: " + String::UTF8ToUTF16(why);
  }
  if (!status.detail.empty()) line += L" (" + status.detail + L")";
  return line;
}

}  // namespace

DatasetLog::DatasetLog(const ManagerParts& parts, const SessionDatasets& sessions)
    : parts_(parts), sessions_(sessions) {
  utility::InitLog(log_, ServiceLog(L"Datasets.log"), 4);
}

void DatasetLog::Tell() {
  CallLogged(parts_.log, L"DatasetLog::Tell", [this] {
    const std::lock_guard lock(mutex_);  // also around the look: what was seen last is told last
    const PolicyView::Policy policy = parts_.policy.in_force();
    std::vector<std::wstring> lines{L"scope " + parts_.policy.DecidingScope()};
    for (const DatasetStatus& status : StatusOfDatasets(parts_, sessions_)) {
      lines.push_back(LineOf(status));
      if (status.runs) {
        since_.try_emplace(status.dataset->row.id, parts_.services.runtime.clock().Now());
      } else {
        since_.erase(status.dataset->row.id);
      }
    }
    constexpr std::size_t kMostFindings = 100;
    for (std::size_t i = 0; i < std::min(policy->findings.size(), kMostFindings); ++i)
      lines.push_back(String::UTF8ToUTF16(policy->findings[i].path) + L": " + policy->findings[i].message);
    if (lines == told_) return;
    for (const std::wstring& line : lines)
      log_.i(L"%s", line);
    told_ = std::move(lines);
  });
}

void DatasetLog::Forget() {
  const std::lock_guard lock(mutex_);
  told_.clear();
  since_.clear();
}

std::optional<platform::WallTime> DatasetLog::Since(std::wstring_view dataset_id) const {
  const std::lock_guard lock(mutex_);
  const auto found = since_.find(dataset_id);
  return found == since_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace TVK
