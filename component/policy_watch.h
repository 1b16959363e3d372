// Policy files that change while the component runs.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "client/bus/publisher_subscriber.h"
#include "client/log/log.h"
#include "client/policy/config_agent.h"
#include "platform/file_watcher.h"
#include "platform/runtime.h"

namespace TVK {

/// "FILE: path.in[0].document: message".
std::string ProblemLine(const std::filesystem::path& file, const PolicyProblem& problem);

/// Turns a change of the policy files into the notification on the bus that the rest of the client would send. One
/// change of a file makes the system tell several times, and an editor makes several changes of one: the files are read
/// when nothing was told for a moment. A document that does not validate leaves the one in force and tells nobody.
class PolicyWatch {
 public:
  /// How long nothing must have been told before the files are read, and how long that may be put off.
  static constexpr std::chrono::milliseconds kQuiet{50};
  static constexpr std::chrono::milliseconds kLongest{500};
  /// How long after a reading that failed by an exception the files are read again.
  static constexpr std::chrono::seconds kRetry{10};

  /// The two files that `agent` reads.
  struct Files {
    std::filesystem::path telemetry_policy;
    std::filesystem::path tvk_policy;
  };

  /// Everything must outlive the object. `remarks`, which may be empty, is told what became of each change, as
  /// RemarkObserver says.
  PolicyWatch(platform::Runtime& runtime, ConfigPolicyAgent& agent, TVKPublisherSubscriber& bus, Files files,
              std::function<void(const std::string& line)> remarks = {});
  /// Ends both threads.
  ~PolicyWatch();
  PolicyWatch(const PolicyWatch&) = delete;
  PolicyWatch& operator=(const PolicyWatch&) = delete;

  /// Starts to watch. Returns an empty text, or why the files cannot be watched; Reread works all the same. Once.
  std::string Start();

  /// Reads the files soon. Any thread.
  void Reread() { told_->Set(); }

 private:
  void Run();
  void WaitForQuiet();
  void Load();
  /// `refused`: whether the file's last document was; takes over whether this one is.
  void Remark(const std::filesystem::path& file, const PolicyLoad& load, bool& refused) const;

  platform::Runtime& runtime_;
  ConfigPolicyAgent& agent_;
  TVKPublisherSubscriber& bus_;
  const Files files_;
  const std::function<void(const std::string& line)> remarks_;
  Log log_;
  const std::unique_ptr<platform::Event> stop_;
  const std::unique_ptr<platform::Event> told_;
  // The thread's own once it runs.
  bool telemetry_refused_ = false;
  bool tvk_refused_ = false;
  std::thread thread_;
  std::unique_ptr<platform::FileWatcher> watcher_;
};

}  // namespace TVK
