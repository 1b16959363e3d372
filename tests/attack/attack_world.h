// What the campaigns against the service share: a machine that keeps it busy, the faults of the shim, and what must
// hold of the store whatever was done to it.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "testing/recorded_tree.h"
#include "tests/e2e/service_under_test.h"

/// Names and values.
using Variables = std::vector<std::pair<std::string, std::string>>;

/// Environment of the programs that are started while it lives.
class Environment {
 public:
  explicit Environment(const Variables& values);
  ~Environment();
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  std::vector<std::string> names_;
};

/// How often something that must not be was found.
struct Findings {
  std::size_t lost = 0;        ///< Records that the console had shown and the store lacks.
  std::size_t dangling = 0;    ///< Records with the id of a context that the store lacks.
  std::size_t set_aside = 0;   ///< Stores that were renamed.
  std::size_t unreadable = 0;  ///< Stores that cannot be read.
  std::size_t unshown = 0;     ///< Records of the store that no console had shown: rightly, where one was killed.
  std::size_t no_init = 0;     ///< Datasets without a DeviceInit under the device path in force.

  Findings& operator+=(const Findings& other);
};

/// A folder over which services run, with a recorded machine of three datasets.
class Target {
 public:
  Target();

  const ServiceFolder& folder() const { return folder_; }
  /// The region that the next device context describes: "DE", "AT".
  void SetRegion(const std::string& country) const;
  /// From now on each dataset is to have a DeviceInit under it.
  void SetDevicePath(const std::string& path);
  /// Another policy of the same datasets.
  void ChangePolicy() const;
  /// Arguments for one short life: ends by itself after `milliseconds`.
  std::vector<std::string> Life(int milliseconds) const;
  /// Takes over what a service showed: the lines of records.
  void NoteShown(const std::vector<std::string>& lines);
  /// Begins with what the services of `other` left, and what they showed: a life that is much alike need not be lived
  /// anew.
  void TakeOver(const Target& other);
  /// A whole life of the service, with these in its environment, from start to end; its exit code, 128 + signal when it
  /// was killed.
  int Live(int milliseconds, const Variables& environment = {});
  /// What is wrong with the store now. Records that were in stores set aside do not count as lost.
  Findings Look() const;

 private:
  ServiceFolder folder_;
  platform::RecordedTree tree_;
  std::string device_path_;
  std::vector<std::string> shown_;
};

/// The words by which env(1) starts a program of ours with these in its environment.
std::vector<std::string> WordsFor(const std::string& program, const std::vector<std::string>& arguments,
                                  const Variables& environment);

/// Runs a program of ours to its end, with these in its environment; its exit code, 128 + signal when it was killed.
/// `lines` receives what it said.
int RunToEnd(const std::string& program, const std::vector<std::string>& arguments, const Variables& environment,
             std::vector<std::string>& lines);

/// The variables that load the shim for the files of the data folder whose names begin so, or for what an absolute path
/// names. `fault` as the shim takes it.
Variables ShimFor(const Target& target, const std::string& fault, const std::string& names = "records.db");

/// The file whose presence switches on a fault that was asked for every call.
std::filesystem::path SwitchOf(const Target& target);
/// Whether a call of the fault's kind was made to fail.
bool Reached(const Target& target);

/// Writes the campaign's line: what, how many rounds, and figures with what they must be.
void Report(const std::string& campaign, std::size_t rounds, const Findings& findings);

/// A number from the environment, `standard` without it.
std::uint64_t Asked(const char* name, std::uint64_t standard);
