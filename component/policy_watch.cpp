#include "component/policy_watch.h"

#include <utility>

#include "client/log/guarded_thread.h"
#include "platform/files.h"

namespace TVK {

std::string ProblemLine(const std::filesystem::path& file, const PolicyProblem& problem) {
  return platform::PathToUtf8(file) + ": " + (problem.path.empty() ? "" : problem.path + ": ") + problem.message;
}

PolicyWatch::PolicyWatch(platform::Runtime& runtime, ConfigPolicyAgent& agent, TVKPublisherSubscriber& bus, Files files,
                         std::function<void(const std::string& line)> remarks)
    : runtime_(runtime),
      agent_(agent),
      bus_(bus),
      files_(std::move(files)),
      remarks_(std::move(remarks)),
      stop_(runtime.MakeEvent(platform::EventReset::kManual)),
      told_(runtime.MakeEvent(platform::EventReset::kAuto)) {
  utility::InitLog(log_, L"PolicyWatch.log", 4);
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
  while (runtime_.WaitAny(objects, platform::kForever) == 1) {
    WaitForQuiet();
    if (CallLogged(log_, L"PolicyWatch: reading the policies", [this] { Load(); })) continue;
    // What changed, perhaps a consent withdrawn, is not to be missed.
    runtime_.Wait(*stop_, kRetry);
    told_->Set();
  }
}

void PolicyWatch::WaitForQuiet() {
  platform::Waitable* const objects[] = {stop_.get(), told_.get()};
  const platform::SteadyTime latest = runtime_.clock().Steady() + kLongest;
  while (runtime_.clock().Steady() < latest && runtime_.WaitAny(objects, kQuiet) == 1) {
  }
}

void PolicyWatch::Remark(const std::filesystem::path& file, const PolicyLoad& load, bool& refused) const {
  const bool mended = std::exchange(refused, !load.accepted) && load.accepted;
  if (!remarks_ || (load.accepted && !load.changed && !mended)) return;
  // Whoever listens is not to keep the news from those that follow the policy.
  CallLogged(log_, L"PolicyWatch: a listener of remarks", [&] {
    for (const PolicyProblem& problem : load.problems)
      remarks_(ProblemLine(file, problem));
    remarks_(platform::PathToUtf8(file) + ": " +
             (load.accepted ? "is in force now" : "cannot be used; the policy before it stays in force"));
  });
}

void PolicyWatch::Load() {
  TvkPolicy before;
  const bool known_before = agent_.GetTvkPolicy(before);
  const PolicyLoad tvk = agent_.LoadTvkPolicy();
  const PolicyLoad telemetry = agent_.LoadTelemetryPolicy();
  Remark(files_.tvk_policy, tvk, tvk_refused_);
  Remark(files_.telemetry_policy, telemetry, telemetry_refused_);
  TvkPolicy now;
  agent_.GetTvkPolicy(now);
  const bool path_changed = known_before && now.device_path != before.device_path;
  const std::wstring payload = MakeTvkPolicyPayload(now.device_path, now.device_subscription, path_changed);
  // First: a consent that was withdrawn counts for whatever the other change brings.
  if (telemetry.changed) {
    log_.i(L"the telemetry policy changed");
    bus_.Publish(TVKNotificationData(kPolicyTopic, kTelemetryPolicyChanged, payload));
  }
  if (tvk.changed) {
    log_.i(L"the client policy changed");
    bus_.Publish(TVKNotificationData(kPolicyTopic, kTvkPolicyChanged, payload));
  }
  // Last: a withdrawn consent does not wait for the disk.
  agent_.KeepLastGood();
}

}  // namespace TVK
