// The program that the kit's script starts: it runs checks and tests and writes the report. Each check is a process of
// its own, so that one that hangs or crashes takes no other along.
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <set>
#include <utility>

#include "core/user_process_agent.h"
#include "platform/files.h"
#include "platform/program_entry.h"
#include "platform/service_control.h"
#include "platform/this_program.h"
#include "platform/windows/process_list.h"
#include "windows_kit/checks.h"
#include "windows_kit/machine_windows.h"
#include "windows_kit/surroundings_windows.h"
#include "windows_kit/test_programs.h"

namespace windows_kit {
namespace {

constexpr std::size_t kLongestFile = 1 << 20;
constexpr std::chrono::minutes kCheckLimit(3);

enum ExitCode { kGood = 0, kBad = 1, kNotRun = 2 };

std::vector<Check> AllChecks() {
  std::vector<Check> all;
  for (const auto group : {FileChecks(), AccessChecks(), EventLogChecks(), HardwareChecks(), SessionChecks(),
                           ServiceChecks(), ChecksForPersons()})
    std::ranges::copy(group, std::back_inserter(all));
  return all;
}

/// The lines that this program prints when it is started with `arguments`; none where it ends otherwise than well.
std::vector<std::string> AskAnotherProcess(const std::vector<std::string>& arguments) {
  Outcome outcome = RunToEnd(platform::ThisProgram(), arguments, kCheckLimit);
  return outcome.exit_code == 0 ? std::move(outcome.lines) : std::vector<std::string>();
}

Finding Run(const Check& check, bool administrator, const std::string& wine) {
  if (check.needs == Needs::kPerson) return {Verdict::kLeftOut, "needs a person: " + std::string(check.how)};
  if (check.needs == Needs::kAdministrator && !administrator) {
    return {Verdict::kLeftOut, "needs an administrator: start run.cmd as one"};
  }
  const std::vector<std::string> lines = AskAnotherProcess({"--check", std::string(check.name)});
  const Finding finding = lines.empty() ? CannotTell("the check did not end, or crashed") : FindingOf(lines.back());
  // Wine forgives much and lacks much: what it shows is no word about Windows.
  return wine.empty() ? finding : CannotTell(wine + "; here " + LineOf(finding));
}

int RunOneCheck(const std::string& name) {
  for (const Check& check : AllChecks()) {
    if (check.name != name || check.run == nullptr) continue;
    std::cout << LineOf(check.run()) << '\n';
    return kGood;
  }
  return kNotRun;
}

int PrintIdentifiers() {
  for (const std::string& identifier : ReadIdentifiers())
    std::cout << identifier << '\n';
  return kGood;
}

/// Which checks and tests are wanted: "checks", "tests", or single names; none stands for all.
class Selection {
 public:
  explicit Selection(std::vector<std::string> names) : names_(names.begin(), names.end()) {}

  bool Wants(std::string_view group, std::string_view name) {
    if (names_.empty() || names_.contains(std::string(group))) return true;
    return names_.contains(std::string(name));
  }

 private:
  const std::set<std::string> names_;
};

class Kit {
 public:
  explicit Kit(std::filesystem::path folder) : folder_(std::move(folder)) {}

  int Run(bool quiet, Selection selection) {
    std::cout << FileText("README.txt") << '\n';
    if (platform::ReadServiceReport().state != platform::ServiceState::kNotInstalled) {
      std::cout << "The client is installed on this machine. Its service and the tests would disturb each other: use\n"
                   "another machine, or uninstall it first.\n";
      return kNotRun;
    }
    if (!quiet) {
      std::cout << "Press Enter to begin, or close this window.\n" << std::flush;
      std::string line;
      if (!std::getline(std::cin, line)) return kNotRun;
    }
    const Leftovers leftovers;
    {
      const Surroundings surroundings(folder_);
      RunChecks(selection);
      RunTests(selection);
      if (report_.checks.empty() && report_.tests.empty()) {
        std::cout << "There is neither a check nor a test of such a name.\n";
        return kNotRun;
      }
      report_.machine = DescribeMachine();
      report_.machine.emplace_back("kit", FileText("version.txt"));
      report_.left_behind = leftovers.TakeAway();
    }
    if (std::filesystem::exists(folder_ / "work")) report_.left_behind.push_back("the kit's folder \"work\"");
    return WriteReport();
  }

 private:
  std::string FileText(const char* name) const {
    std::string text = platform::ReadWholeFile(folder_ / name, kLongestFile).value_or("");
    std::erase(text, '\r');
    while (text.ends_with('\n'))
      text.pop_back();
    return text;
  }

  void RunChecks(Selection& selection) {
    for (const Check& check : AllChecks()) {
      if (!selection.Wants("checks", check.name)) continue;
      Finding finding = windows_kit::Run(check, administrator_, wine_);
      std::cout << NameOf(finding.verdict) << ": " << check.name << std::endl;
      report_.checks.push_back({std::string(check.name), std::string(check.claim), std::move(finding)});
    }
  }

  void RunTests(Selection& selection) {
    const auto left_out = ReadLeftOut(FileText("left-out.txt"));
    const Circumstances circumstances{.administrator = administrator_,
                                      .client_runs = !platform::windows::ProcessesOf(TVK::kServiceProgram).empty()};
    for (const TestProgram& program : FindTestPrograms(folder_ / "bin", left_out, circumstances)) {
      if (!selection.Wants("tests", program.name)) continue;
      report_.tests.insert(report_.tests.end(), program.out.begin(), program.out.end());
      if (program.filter.empty()) continue;
      TestResult result = RunTestProgram(program);
      std::cout << (result.ended_well() ? "passed: " : "failed: ") << program.name << std::endl;
      report_.tests.push_back(std::move(result));
    }
  }

  int WriteReport() {
    Blanks blanks = BlanksOfSession(folder_);
    const std::vector<std::string> identifiers = AskAnotherProcess({"--identifiers"});
    for (const std::string& identifier : identifiers)
      blanks.Add(identifier, "(serial number)");
    // One of the machine's drivers hangs: what must not be told is not known.
    if (identifiers.empty()) {
      for (TestResult& test : report_.tests)
        test.output = {"what was printed is left out: the machine's serial numbers could not be read"};
    }
    blanks.Apply(report_);
    std::string text = TextOf(report_);
    for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos; at += 2)
      text.insert(at, "\r");
    std::string problem = platform::ReplaceFile(folder_ / "report.txt", text);
    if (problem.empty()) problem = platform::ReplaceFile(folder_ / "report.json", JsonOf(report_));
    if (!problem.empty()) {
      std::cout << problem << '\n';
      return kNotRun;
    }
    std::cout << "\nThe report: " << platform::PathToUtf8(folder_ / "report.txt") << '\n';
    return report_.good() ? kGood : kBad;
  }

  const std::filesystem::path folder_;
  const bool administrator_ = IsAdministrator();
  const std::string wine_ = WineVersion();
  KitReport report_;
};

}  // namespace
}  // namespace windows_kit

int ProgramMain(std::vector<std::string> arguments) {
  using namespace windows_kit;  // NOLINT(google-build-using-namespace): the program's own
  if (arguments == std::vector<std::string>{"--as-service"}) return RunAsService();
  if (arguments == std::vector<std::string>{"--identifiers"}) return PrintIdentifiers();
  if (arguments.size() == 2 && arguments[0] == "--check") return RunOneCheck(arguments[1]);
  const bool quiet = std::erase(arguments, "--quiet") != 0;
  return Kit(platform::ThisProgram().parent_path().parent_path()).Run(quiet, Selection(arguments));
}
