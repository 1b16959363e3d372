#include "windows_kit/kit_report.h"

#include <gtest/gtest.h>

namespace windows_kit {
namespace {

TEST(Blanks, NoNameOfAPersonOrADeviceStays) {
  Blanks blanks;
  blanks.Add("Ann", "(user)");
  blanks.Add("C:\\Users\\Ann", "(profile)");
  blanks.Add("C:\\Users\\Ann\\kit", "(kit)");
  blanks.Add("SER-12", "(serial number)");
  blanks.Add("x", "(too short)");
  constexpr std::pair<std::string_view, std::string_view> kCases[] = {
      {"c:\\users\\ann\\tvk-1 of ANN", "(profile)\\tvk-1 of (user)"},
      {"C:/x, C:\\Users\\Ann\\kit\\work", "C:/x, (kit)\\work"},
      {"annual, Joann, ann", "annual, Joann, (user)"},
      {"drive ser-12, SER-123, 1SER-12", "drive (serial number), SER-123, 1SER-12"},
      {"S-1-5-21-1-22-333-1001 and S-1-5-18", "S-1-5-21-(...) and S-1-5-18"},
      {"S-1-5-21-7", "S-1-5-21-(...)"},
      {"xAnn", "xAnn"},
      {"", ""}};
  for (const auto& [text, shown] : kCases)
    EXPECT_EQ(blanks.Apply(text), shown);
}

TEST(Finding, PassesBetweenProcesses) {
  for (const Verdict verdict : {Verdict::kConfirmed, Verdict::kRefuted, Verdict::kCannotTell, Verdict::kLeftOut}) {
    const Finding read = FindingOf(LineOf({verdict, "seen: a\nb"}));
    EXPECT_EQ(read.verdict, verdict);
    EXPECT_EQ(read.seen, "seen: a b");
  }
  for (const char* line : {"", "confirmed", "perhaps: so", "terminate called"}) {
    EXPECT_EQ(FindingOf(line).verdict, Verdict::kCannotTell) << line;
    EXPECT_EQ(FindingOf(line).seen, line);
  }
}

TEST(KitReport, TellsWhatFailedAndWhy) {
  const TestResult failed =
      ReadTestOutput("a_test", 1,
                     {"[ RUN      ] A.Good", "noise", "[       OK ] A.Good (1 ms)", "[ RUN      ] A.Bad", "why",
                      "[  FAILED  ] A.Bad, where x (2 ms)", "[  PASSED  ] 7 tests.",
                      "[  FAILED  ] 1 test, listed below:", "[  FAILED  ] A.Bad"});
  EXPECT_EQ(failed.passed, 7);
  EXPECT_EQ(failed.failed, std::vector<std::string>{"A.Bad"});
  EXPECT_EQ(failed.output,
            (std::vector<std::string>{"[ RUN      ] A.Bad", "why", "[  FAILED  ] A.Bad, where x (2 ms)"}));
  EXPECT_FALSE(failed.ended_well());

  const TestResult crashed = ReadTestOutput("b_test", 3, {"[ RUN      ] B.Ends"});
  EXPECT_EQ(crashed.output, std::vector<std::string>{"[ RUN      ] B.Ends"});
  const TestResult good = ReadTestOutput("c_test", 0, {"[  PASSED  ] 2 tests."});
  EXPECT_TRUE(good.ended_well());

  KitReport report;
  report.tests = {good, {.program = "d_test", .left_out = "no right"}};
  report.checks = {{"one", "It holds.", {Verdict::kCannotTell, "nothing to see"}}};
  EXPECT_TRUE(report.good()) << "what was not tried is no failure";
  EXPECT_NE(TextOf(report).find("0 confirmed, 0 refuted, 1 cannot tell, 0 left out; 2 tests passed, 0 failed"),
            std::string::npos);
  for (const TestResult& bad : {failed, crashed}) {
    report.tests = {bad};
    EXPECT_FALSE(report.good());
    EXPECT_NE(TextOf(report).find("1 failed"), std::string::npos) << bad.program;
    EXPECT_NE(TextOf(report).find(bad.output.front()), std::string::npos) << bad.program;
  }
  report.tests = {good};
  report.left_behind = {"a key"};
  EXPECT_FALSE(report.good());
  report.left_behind.clear();
  report.checks[0].finding.verdict = Verdict::kRefuted;
  EXPECT_FALSE(report.good());
  EXPECT_NE(JsonOf(report).find("\"verdict\" : \"refuted\""), std::string::npos);
}

}  // namespace
}  // namespace windows_kit
