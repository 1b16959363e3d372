// Policy files that change while the component runs.
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/bus/publisher_subscriber.h"
#include "client/log/log.h"
#include "client/policy/config_agent.h"
#include "platform/file_watcher.h"
#include "platform/runtime.h"
#include "tvk/component.h"

namespace TVK {

/// What it means that a policy file is gone, for people.
inline constexpr std::string_view kTelemetryPolicyGone = "there is no policy: nothing is collected until there is one";
inline constexpr std::string_view kTvkPolicyGone = "there is no client policy: device path and subscription are empty";

struct PolicyRemark {
  RemarkWeight weight = RemarkWeight::kProblem;
  std::string line;
};

/// What a person is told of a load: "FILE: path.in[0].document: message" for each problem, and "FILE: " with what is in
/// force now, where anything is. Nothing of a file that is missing.
std::vector<PolicyRemark> PolicyRemarks(const std::filesystem::path& file, const PolicyLoad& load,
                                        std::string_view gone);

/// Turns a change of the policy files into the notification on the bus that the rest of the client would send. One
/// change of a file makes the system tell several times, and an editor makes several changes of one: the files are read
/// when nothing was told for a moment. A document that does not validate leaves the one in force and tells nobody. A
/// file that cannot be read is tried until it can; one that is not there counts as gone when it stays away.
class PolicyWatch {
 public:
  /// How long nothing must have been told before the files are read, and how long that may be put off.
  static constexpr std::chrono::milliseconds kQuiet{50};
  static constexpr std::chrono::milliseconds kLongest{500};
  /// How long after a reading that failed the files are read again. Waking time.
  static constexpr std::chrono::seconds kRetry{1};
  /// The same after the copy of a good policy could not be written.
  static constexpr std::chrono::minutes kCopyRetry{1};
  /// How long a file is missing until it is gone: an editor that removes the old one first takes less. Waking time.
  static constexpr std::chrono::seconds kReplacing{2};

  /// The two files that `agent` reads.
  struct Files {
    std::filesystem::path telemetry_policy;
    std::filesystem::path tvk_policy;
  };

  /// Everything must outlive the object. `remarks`, which may be empty, is told what became of each change, as
  /// RemarkObserver says.
  PolicyWatch(platform::Runtime& runtime, ConfigPolicyAgent& agent, TVKPublisherSubscriber& bus, Files files,
              RemarkObserver remarks = {});
  /// Ends both threads.
  ~PolicyWatch();
  PolicyWatch(const PolicyWatch&) = delete;
  PolicyWatch& operator=(const PolicyWatch&) = delete;

  /// Starts to watch. Returns an empty text, or why the files cannot be watched; Reread works all the same. Once.
  std::string Start();

  /// Reads the files soon. Any thread.
  void Reread() { told_->Set(); }

 private:
  /// One of the files, as the thread follows it.
  struct Followed {
    std::optional<platform::SteadyTime> missing_since;
    bool change_due = false;  ///< What is in force changed, and the bus does not know it yet.
  };

  void Run();
  void WaitForQuiet();
  /// Reads both files and tells of changes; sets `again_`.
  void Load();
  /// `load` reads the file.
  void LoadOne(Followed& followed, const std::filesystem::path& file, std::string_view gone,
               const std::function<PolicyLoad(bool absence_counts)>& load);
  void LookAgainAt(platform::SteadyTime time) { again_ = std::min(again_.value_or(time), time); }
  void Tell(const std::vector<PolicyRemark>& remarks) const;
  void Publish(Followed& followed, int event_state, const std::wstring& payload);

  platform::Runtime& runtime_;
  ConfigPolicyAgent& agent_;
  TVKPublisherSubscriber& bus_;
  const Files files_;
  const RemarkObserver remarks_;
  Log log_;
  const std::unique_ptr<platform::Event> stop_;
  const std::unique_ptr<platform::Event> told_;
  // The thread's own once it runs.
  Followed telemetry_;
  Followed tvk_;
  std::optional<TvkPolicy> tvk_before_;        ///< In force when the bus was told last; empty: as now, or none.
  std::optional<platform::SteadyTime> again_;  ///< When the files are read though nothing is told.
  std::thread thread_;
  std::unique_ptr<platform::FileWatcher> watcher_;
};

}  // namespace TVK
