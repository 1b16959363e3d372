#include "windows_kit/test_programs.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/files.h"
#include "testing/child_process.h"

namespace windows_kit {
namespace {

constexpr std::pair<std::string_view, LeftOut::Unless> kUnless[] = {
    {"never", LeftOut::Unless::kNever},
    {"administrator", LeftOut::Unless::kAdministrator},
    {"alone", LeftOut::Unless::kAlone},
};

constexpr std::chrono::minutes kLimit(15);  // the store's tests write a great deal, and disks are slow

bool IsLeftOut(LeftOut::Unless unless, const Circumstances& circumstances) {
  switch (unless) {
    case LeftOut::Unless::kNever:
      return true;
    case LeftOut::Unless::kAdministrator:
      return !circumstances.administrator;
    case LeftOut::Unless::kAlone:
      return circumstances.client_runs;
  }
  return true;
}

TestProgram WithoutWhatIsLeftOut(const std::filesystem::path& file, const std::vector<LeftOut>& left_out,
                                 const Circumstances& circumstances) {
  TestProgram program{.file = file, .name = platform::PathToUtf8(file.stem())};
  std::string excluded;
  for (const LeftOut& row : left_out) {
    if (row.program != program.name || !IsLeftOut(row.unless, circumstances)) continue;
    program.out.push_back({.program = program.name, .left_out = row.filter + ": " + row.reason});
    if (row.filter == "*") program.filter.clear();
    excluded += (excluded.empty() ? "-" : ":") + row.filter;
  }
  if (!program.filter.empty() && !excluded.empty()) program.filter = excluded;
  return program;
}

}  // namespace

std::vector<LeftOut> ReadLeftOut(const std::string& text) {
  std::vector<LeftOut> rows;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line.starts_with('#')) continue;
    std::istringstream fields(line);
    LeftOut row;
    std::string needs;
    fields >> row.program >> row.filter >> needs >> std::ws;
    std::getline(fields, row.reason);
    const auto* const unless =
        std::find_if(std::begin(kUnless), std::end(kUnless), [&](const auto& entry) { return entry.first == needs; });
    if (unless != std::end(kUnless)) row.unless = unless->second;
    if (row.reason.empty() || unless == std::end(kUnless)) {
      throw std::runtime_error("the list of what is left out has a line that is none: " + line);
    }
    rows.push_back(std::move(row));
  }
  return rows;
}

std::vector<TestProgram> FindTestPrograms(const std::filesystem::path& folder, const std::vector<LeftOut>& left_out,
                                          const Circumstances& circumstances) {
  constexpr int kDeepest = 1;  // a stand-in for one of the system's libraries lies in a folder with its test
  std::vector<TestProgram> programs;
  for (auto at = std::filesystem::recursive_directory_iterator(folder); at != std::filesystem::end(at); ++at) {
    if (at.depth() == kDeepest) at.disable_recursion_pending();
    if (!platform::PathToUtf8(at->path().filename()).ends_with("_test.exe")) continue;
    programs.push_back(WithoutWhatIsLeftOut(at->path(), left_out, circumstances));
  }
  std::ranges::sort(programs, {}, &TestProgram::name);
  return programs;
}

Outcome RunToEnd(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                 std::chrono::milliseconds limit) {
  Outcome outcome;
  // Wine ends a program before its first instruction once in some ten thousand starts, with code 1 and without a word.
  // Of ours none ends so: that start, which was none, is made again.
  for (int starts = 0; starts < 2; ++starts) {
    try {
      ChildProcess process(program, arguments);
      outcome.exit_code = process.WaitForEnd(limit);
      outcome.lines = process.Lines();
    } catch (const std::system_error& failure) {
      return {.lines = {failure.what()}};
    }
    if (outcome.exit_code != 1 || !outcome.lines.empty()) break;
  }
  return outcome;
}

TestResult RunTestProgram(const TestProgram& program) {
  const Outcome outcome = RunToEnd(program.file, {"--gtest_color=no", "--gtest_filter=" + program.filter}, kLimit);
  return ReadTestOutput(program.name, outcome.exit_code.value_or(-1), outcome.lines);
}

}  // namespace windows_kit
