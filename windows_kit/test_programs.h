// The kit's test programs: which there are, what of them is left out on a person's machine, and how they end.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "windows_kit/kit_report.h"

namespace windows_kit {

/// Tests that are not run everywhere. One line of the list: PROGRAM FILTER NEEDS REASON, where FILTER is GoogleTest's
/// and NEEDS is "never", "administrator" or "alone".
struct LeftOut {
  enum class Unless {
    kNever,          ///< Always left out.
    kAdministrator,  ///< Runs where the kit was started as one.
    kAlone,          ///< Runs where no client runs.
  };
  std::string program;
  std::string filter;
  Unless unless = Unless::kNever;
  std::string reason;
};

/// Where tests run.
struct Circumstances {
  bool administrator = false;  ///< The kit was started as one.
  bool client_runs = false;    ///< A service of the client does, in a console perhaps; it must not be disturbed.
};

/// Reads the list; '#' begins a comment. Throws std::runtime_error at a line that is none, since a test that slips
/// through may change the machine.
std::vector<LeftOut> ReadLeftOut(const std::string& text);

struct TestProgram {
  std::filesystem::path file;
  std::string name;                  ///< Without folder and ".exe".
  std::string filter = "*";          ///< What runs of it; empty: nothing.
  std::vector<TestResult> out = {};  ///< What does not, each with its reason.
};

/// The programs "*_test.exe" in `folder` and in the folders right below it, in the order of their names, without what
/// `left_out` says of them.
std::vector<TestProgram> FindTestPrograms(const std::filesystem::path& folder, const std::vector<LeftOut>& left_out,
                                          const Circumstances& circumstances);

struct Outcome {
  std::optional<int> exit_code = {};  ///< Nothing: it did not end in time, and was ended; or it did not start.
  std::vector<std::string> lines = {};
};

/// Runs a program to its end, or to `limit`.
Outcome RunToEnd(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 std::chrono::milliseconds limit);

/// Runs it in the current folder and the process's environment.
TestResult RunTestProgram(const TestProgram& program);

}  // namespace windows_kit
