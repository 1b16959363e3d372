#include "windows_kit/test_programs.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "testing/temp_folder.h"

namespace windows_kit {
namespace {

constexpr char kList[] =
    "# a comment\r\n"
    "\n"
    "drives_test  *      never          writes to drives\r\n"
    "b_test       One.*  administrator  installs a service\n"
    "b_test       Two.A  alone          the client runs here\n"
    "agent_test   *      alone          the client runs here\n";

// Each program's name and filter, and what is left out of it.
std::string Describe(const std::vector<TestProgram>& programs) {
  std::string text;
  for (const TestProgram& program : programs) {
    text += program.name + " [" + program.filter + "]";
    for (const TestResult& out : program.out)
      text += " " + out.program + " " + out.left_out + ";";
    text += "\n";
  }
  return text;
}

TEST(FindTestPrograms, LeavesOutWhatTheMachineIsToBeSpared) {
  const TempFolder folder;
  const std::filesystem::path below = folder.path() / "with-library";
  std::filesystem::create_directories(below / "too-deep");
  for (const std::filesystem::path& file :
       {folder.path() / "drives_test.exe", folder.path() / "b_test.exe", folder.path() / "stand_in.exe",
        folder.path() / "b_test.txt", below / "agent_test.exe", below / "too-deep" / "deep_test.exe"}) {
    std::ofstream(file) << "MZ";
  }
  constexpr char kDrives[] = "drives_test [] drives_test *: writes to drives;\n";
  struct Row {
    Circumstances where;
    std::string expected;
  };
  for (const auto& [where, expected] :
       {Row{{.administrator = true, .client_runs = false}, "agent_test [*]\nb_test [*]\n"},
        Row{{.administrator = false, .client_runs = false},
            "agent_test [*]\nb_test [-One.*] b_test One.*: installs a service;\n"},
        Row{{.administrator = true, .client_runs = true},
            "agent_test [] agent_test *: the client runs here;\n"
            "b_test [-Two.A] b_test Two.A: the client runs here;\n"},
        Row{{.administrator = false, .client_runs = true},
            "agent_test [] agent_test *: the client runs here;\n"
            "b_test [-One.*:Two.A] b_test One.*: installs a service; b_test Two.A: the client runs here;\n"}}) {
    EXPECT_EQ(Describe(FindTestPrograms(folder.path(), ReadLeftOut(kList), where)), expected + kDrives)
        << where.administrator << where.client_runs;
  }
}

TEST(ReadLeftOut, ALineThatIsNoneIsNotPassedOver) {
  for (const char* line : {"b_test", "b_test * never", "b_test * sometimes a reason", " ", "# fine\nb_test *"})
    EXPECT_THROW(ReadLeftOut(line), std::runtime_error) << line;
}

}  // namespace
}  // namespace windows_kit
