// The service with folders of its own, as a person starts it.
#pragma once

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "client/store/record_reader.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"

/// What the service of this computer is certain to do within.
inline constexpr std::chrono::seconds kPatience(30);

/// A policy with the CPU dataset alone. `settings` is the inside of its settings object.
std::string CpuPolicy(const std::string& scope, const std::string& settings = R"("ReadUsageInterval": "1m")");

inline constexpr char kCpuDatasetId[] = "9492447A-FCAC-428E-B7A8-7F7918199480";

/// What the console's line of a record of the CPU dataset holds: the columns of the dataset and of `item`. Other
/// datasets may run and write, too.
inline std::string CpuLine(const std::string& item) {
  return "CPUEvent            " + item;
}

/// A data folder and a policy file, over which any number of services run one after the other.
class ServiceFolder {
 public:
  std::filesystem::path policy() const { return folder_.path() / "policy.json"; }
  std::filesystem::path data() const { return folder_.path() / "data"; }

  /// Replaces the policy file as most editors do: a new file, then a rename.
  void WritePolicy(const std::string& text) const;

  /// The service's arguments for these folders, with `more` behind them. It ends by itself after two minutes.
  std::vector<std::string> Arguments(const std::vector<std::string>& more = {}) const;

  /// The records in the store, oldest first. Fails the test when the store cannot be read.
  std::vector<TVK::StoredRecord> Records(const TVK::RecordQuery& query = {}) const;

  /// How often a log holds `text`; 0 while there is no log.
  std::size_t CountInLog(const std::string& name, const std::string& text) const;

 private:
  TempFolder folder_;
};

/// The service in its console mode, over a folder.
class ConsoleService : public ChildProcess {
 public:
  explicit ConsoleService(const ServiceFolder& folder, const std::vector<std::string>& more = {});
};

/// Keeps a processor busy for as long as it lives.
class Load {
 public:
  ~Load() { ended_ = true; }

 private:
  std::atomic<bool> ended_ = false;
  std::jthread thread_{[this] {
    while (!ended_) {
    }
  }};
};

/// Expects two device contexts with ids of their own, the first of the country `before` and the second of `after`, and
/// one dataset context of the CPU under each.
void ExpectOneNewDeviceContext(const ServiceFolder& folder, const std::wstring& before, const std::wstring& after);

/// How many of `lines` hold `text`.
std::size_t CountLines(const std::vector<std::string>& lines, const std::string& text);
