#include "component/policy_watch.h"

#include <utility>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "platform/files.h"

namespace TVK {

namespace {

// "" where there is nothing to say.
std::string Standing(const PolicyLoad& load, std::string_view gone) {
  switch (load.state) {
    case PolicyFileState::kGood:
      return "is in force now";
    case PolicyFileState::kGone:
      return std::string(gone);
    case PolicyFileState::kMissing:
      return {};
    case PolicyFileState::kBroken:
    case PolicyFileState::kUnreadable:
      break;
  }
  const std::string what =
      load.state == PolicyFileState::kBroken ? "cannot be used; " : "cannot be read, and is tried again; ";
  switch (load.in_force) {
    case PolicyInForce::kBefore:
      return what + "the policy before it stays in force";
    case PolicyInForce::kLastGood:
      return what + "the last good one is in force";
    case PolicyInForce::kAbsence:
      return what + "nothing is collected until then";
    case PolicyInForce::kOfFile:
    case PolicyInForce::kNone:
      break;
  }
  return {};
}

}  // namespace

std::vector<PolicyRemark> PolicyRemarks(const std::filesystem::path& file, const PolicyLoad& load,
                                        std::string_view gone) {
  const std::string begin = platform::PathToUtf8(file) + ": ";
  std::vector<PolicyRemark> remarks;
  for (const PolicyProblem& problem : load.problems)
    remarks.push_back({.line = begin + (problem.path.empty() ? "" : problem.path + ": ") + problem.message});
  if (const std::string standing = Standing(load, gone); !standing.empty()) {
    const bool good = load.state == PolicyFileState::kGood;
    remarks.push_back({good ? RemarkWeight::kNews : RemarkWeight::kProblem, begin + standing});
  }
  return remarks;
}

PolicyWatch::PolicyWatch(platform::Runtime& runtime, ConfigPolicyAgent& agent, TVKPublisherSubscriber& bus, Files files,
                         RemarkObserver remarks)
    : runtime_(runtime),
      agent_(agent),
      bus_(bus),
      files_(std::move(files)),
      remarks_(std::move(remarks)),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      told_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  utility::InitLog(log_, ServiceLog(L"PolicyWatch.log"), 4);
}

PolicyWatch::~PolicyWatch() {
  watcher_ = nullptr;
  stop_->Set();
  if (thread_.joinable()) runtime_.Join(thread_);
}

std::string PolicyWatch::Start() {
  thread_ = StartGuardedThread(runtime_, log_, "tvk-policy", [this] { Run(); });
  std::string problem;
  watcher_ = platform::FileWatcher::Watch(
      runtime_, {files_.telemetry_policy, files_.tvk_policy}, [this] { told_->Set(); }, &problem);
  return watcher_ != nullptr ? std::string() : "the policy files are not watched: " + problem;
}

void PolicyWatch::Run() {
  platform::Waitable* const objects[] = {stop_.get(), told_.get()};
  for (;;) {
    const auto patience =
        again_ ? std::chrono::ceil<std::chrono::milliseconds>(*again_ - runtime_.clock().Steady()) : platform::kForever;
    const platform::WaitCode woken = runtime_.WaitAny(objects, std::max(patience, std::chrono::milliseconds(0)));
    if (woken == 0) return;
    if (woken == 1) WaitForQuiet();
    again_.reset();
    if (CallLogged(log_, L"PolicyWatch: reading the policies", [this] { Load(); })) continue;
    // What changed, perhaps a consent withdrawn, is not to be missed.
    LookAgainAt(runtime_.clock().Steady() + kRetry);
  }
}

void PolicyWatch::WaitForQuiet() {
  platform::Waitable* const objects[] = {stop_.get(), told_.get()};
  const platform::SteadyTime latest = runtime_.clock().Steady() + kLongest;
  while (runtime_.clock().Steady() < latest && runtime_.WaitAny(objects, kQuiet) == 1) {
  }
}

void PolicyWatch::Tell(const std::vector<PolicyRemark>& remarks) const {
  if (!remarks_) return;
  // Whoever listens is not to keep the news from those that follow the policy.
  CallLogged(log_, L"PolicyWatch: a listener of remarks", [&] {
    for (const PolicyRemark& remark : remarks)
      remarks_(remark.weight, remark.line);
  });
}

void PolicyWatch::LoadOne(Followed& followed, const std::filesystem::path& file, std::string_view gone,
                          const std::function<PolicyLoad(bool absence_counts)>& load) {
  const platform::SteadyTime now = runtime_.clock().Steady();
  const PolicyLoad loaded = load(followed.missing_since && now - *followed.missing_since >= kReplacing);
  followed.change_due = followed.change_due || loaded.changed;
  if (loaded.state != PolicyFileState::kMissing) {
    followed.missing_since.reset();
  } else {
    if (!followed.missing_since) followed.missing_since = now;
    LookAgainAt(*followed.missing_since + kReplacing);
  }
  if (loaded.state == PolicyFileState::kUnreadable) LookAgainAt(now + kRetry);
  if (loaded.news) Tell(PolicyRemarks(file, loaded, gone));
}

void PolicyWatch::Publish(Followed& followed, int event_state, const std::wstring& payload) {
  if (!followed.change_due) return;
  log_.i(L"the %s policy changed", std::wstring(event_state == kTvkPolicyChanged ? L"client" : L"telemetry"));
  bus_.Publish(TVKNotificationData(kPolicyTopic, event_state, payload));
  followed.change_due = false;
}

void PolicyWatch::Load() {
  // A turn that an exception ended is made up for by the next one, which compares with what the bus knows.
  if (TvkPolicy before; !tvk_before_ && agent_.GetTvkPolicy(before)) tvk_before_ = std::move(before);
  LoadOne(tvk_, files_.tvk_policy, kTvkPolicyGone, [this](bool counts) { return agent_.LoadTvkPolicy(counts); });
  LoadOne(telemetry_, files_.telemetry_policy, kTelemetryPolicyGone,
          [this](bool counts) { return agent_.LoadTelemetryPolicy(counts); });
  TvkPolicy now;
  agent_.GetTvkPolicy(now);
  const bool path_changed = tvk_before_ && now.device_path != tvk_before_->device_path;
  const std::wstring payload = MakeTvkPolicyPayload(now.device_path, now.device_subscription, path_changed);
  // First: a consent that was withdrawn counts for whatever the other change brings.
  Publish(telemetry_, kTelemetryPolicyChanged, payload);
  Publish(tvk_, kTvkPolicyChanged, payload);
  tvk_before_.reset();
  // Last: a withdrawn consent does not wait for the disk.
  if (!agent_.KeepLastGood()) LookAgainAt(runtime_.clock().Steady() + kCopyRetry);
}

}  // namespace TVK
