// What a run of the kit found, as a text for people and as JSON for machines. The same on every system.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace windows_kit {

enum class Verdict {
  kConfirmed,
  kRefuted,
  kCannotTell,  ///< The machine has nothing to tell it by, or something else failed on the way.
  kLeftOut,     ///< It was not tried: a right was missing, or it needs a person.
};

/// "confirmed", "refuted", "cannot tell", "left out".
std::string_view NameOf(Verdict verdict);

struct Finding {
  Verdict verdict = Verdict::kCannotTell;
  std::string seen = {};  ///< What was seen, or why nothing was.
};

/// A finding as one line that another process reads again, and back; a line that is none cannot tell.
std::string LineOf(const Finding& finding);
Finding FindingOf(std::string_view line);

struct CheckResult {
  std::string name;
  std::string claim;
  Finding finding;
};

/// What a test program printed, and how it ended.
struct TestResult {
  std::string program;
  std::string left_out = {};  ///< Why it, or the tests of it that are named, did not run; it has no counts then.
  int passed = 0;
  int exit_code = 0;                     ///< -1: it was ended, since it took too long.
  std::vector<std::string> failed = {};  ///< Names of tests.
  std::vector<std::string> output = {};  ///< What the failed ones printed; the end of it all where none says so.
  bool ended_well() const { return exit_code == 0 && failed.empty(); }
};

/// Reads GoogleTest's output, whose colours are off.
TestResult ReadTestOutput(const std::string& program, int exit_code, const std::vector<std::string>& lines);

struct KitReport {
  std::vector<std::pair<std::string, std::string>> machine = {};  ///< Fact and value.
  std::vector<CheckResult> checks = {};
  std::vector<TestResult> tests = {};
  std::vector<std::string> left_behind = {};  ///< What the tests left and the kit took away, or could not.

  /// Nothing was refuted, no test failed and nothing was left behind.
  bool good() const;
};

std::string TextOf(const KitReport& report);
std::string JsonOf(const KitReport& report);

/// What is nobody else's business, and what stands in its place.
class Blanks {
 public:
  /// Below two characters a secret is left alone: it would be found everywhere.
  void Add(std::string secret, std::string shown);

  /// `text` without the secrets, whatever their case, where no letter or digit is next to them; of security identifiers
  /// the part that names the machine or the domain and the account goes, too.
  std::string Apply(std::string_view text) const;
  void Apply(KitReport& report) const;

 private:
  std::vector<std::pair<std::string, std::string>> secrets_;  ///< The longest first.
};

}  // namespace windows_kit
