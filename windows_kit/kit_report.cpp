#include "windows_kit/kit_report.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

namespace windows_kit {
namespace {

constexpr std::array<std::string_view, 4> kVerdicts = {"confirmed", "refuted", "cannot tell", "left out"};

// Of a program that ended without saying which test failed.
constexpr std::size_t kLastLines = 40;

bool IsWordCharacter(char character) {
  return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
         (character >= 'A' && character <= 'Z');
}

char LowerCase(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool StandsAt(std::string_view text, std::size_t at, std::string_view secret) {
  if (text.size() - at < secret.size()) return false;
  if (at > 0 && IsWordCharacter(text[at - 1]) && IsWordCharacter(secret.front())) return false;
  const std::size_t end = at + secret.size();
  if (end < text.size() && IsWordCharacter(text[end]) && IsWordCharacter(secret.back())) return false;
  return std::ranges::equal(text.substr(at, secret.size()), secret, {}, LowerCase, LowerCase);
}

std::string WithoutAccounts(std::string text) {
  constexpr std::string_view kOfAnAccount = "S-1-5-21-";
  for (std::size_t at = 0; (at = text.find(kOfAnAccount, at)) != text.npos;) {
    const std::size_t end = text.find_first_not_of("0123456789-", at + kOfAnAccount.size());
    constexpr std::string_view kShown = "S-1-5-21-(...)";
    text.replace(at, std::min(end, text.size()) - at, kShown);
    at += kShown.size();
  }
  return text;
}

int NumberBehind(std::string_view line, std::string_view start) {
  int number = 0;
  if (line.starts_with(start)) std::from_chars(line.data() + start.size(), line.data() + line.size(), number);
  return number;
}

void AddRow(std::string& text, std::string_view first, std::string_view second) {
  constexpr std::size_t kColumn = 14;
  text += first;
  text.append(first.size() < kColumn ? kColumn - first.size() : 1, ' ');
  text += second;
  text += '\n';
}

std::string SummaryOf(const KitReport& report) {
  std::array<int, kVerdicts.size()> counts{};
  for (const CheckResult& check : report.checks)
    ++counts[static_cast<std::size_t>(check.finding.verdict)];
  std::string text;
  for (std::size_t i = 0; i < counts.size(); ++i)
    text += (i == 0 ? "" : ", ") + std::to_string(counts[i]) + ' ' + std::string(kVerdicts[i]);
  int passed = 0;
  std::size_t failed = 0;
  for (const TestResult& test : report.tests) {
    passed += test.passed;
    failed += test.ended_well() ? 0 : std::max<std::size_t>(test.failed.size(), 1);
  }
  return text + "; " + std::to_string(passed) + " tests passed, " + std::to_string(failed) + " failed";
}

Json::Value ToJson(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts)
    list.append(text);
  return list;
}

}  // namespace

std::string_view NameOf(Verdict verdict) {
  return kVerdicts[static_cast<std::size_t>(verdict)];
}

std::string LineOf(const Finding& finding) {
  std::string line = std::string(NameOf(finding.verdict)) + ": " + finding.seen;
  std::ranges::replace(line, '\n', ' ');
  return line;
}

Finding FindingOf(std::string_view line) {
  const std::size_t end = line.find(": ");
  const auto* const found = std::ranges::find(kVerdicts, line.substr(0, end));
  if (end == line.npos || found == kVerdicts.end()) return {Verdict::kCannotTell, std::string(line)};
  return {static_cast<Verdict>(std::distance(kVerdicts.begin(), found)), std::string(line.substr(end + 2))};
}

TestResult ReadTestOutput(const std::string& program, int exit_code, const std::vector<std::string>& lines) {
  constexpr std::string_view kBegin = "[ RUN      ] ";
  constexpr std::string_view kGood = "[       OK ] ";
  constexpr std::string_view kBad = "[  FAILED  ] ";
  TestResult result{.program = program, .exit_code = exit_code};
  std::vector<std::string> of_this_test;
  bool running = false;
  for (const std::string& line : lines) {
    result.passed += NumberBehind(line, "[  PASSED  ] ");
    if (line.starts_with(kBegin)) {
      of_this_test.clear();
      running = true;
    }
    if (running) of_this_test.push_back(line);
    if (line.starts_with(kGood)) running = false;
    if (!running || !line.starts_with(kBad)) continue;
    running = false;
    result.failed.push_back(line.substr(kBad.size(), line.find_first_of(", ", kBad.size()) - kBad.size()));
    std::ranges::move(of_this_test, std::back_inserter(result.output));
  }
  if (exit_code != 0 && result.failed.empty()) {
    result.output.assign(lines.end() - static_cast<std::ptrdiff_t>(std::min(lines.size(), kLastLines)), lines.end());
  }
  return result;
}

bool KitReport::good() const {
  return left_behind.empty() &&
         std::ranges::none_of(checks, [](const auto& check) { return check.finding.verdict == Verdict::kRefuted; }) &&
         std::ranges::all_of(tests, &TestResult::ended_well);
}

std::string TextOf(const KitReport& report) {
  std::string text = "TVK Windows kit: " + SummaryOf(report) + "\n\n";
  for (const auto& [fact, value] : report.machine)
    AddRow(text, fact, value);
  text += "\nChecks\n";
  for (const CheckResult& check : report.checks) {
    AddRow(text, NameOf(check.finding.verdict), check.name + ": " + check.claim);
    AddRow(text, "", check.finding.seen);
  }
  text += "\nTests\n";
  for (const TestResult& test : report.tests) {
    if (!test.left_out.empty()) {
      AddRow(text, NameOf(Verdict::kLeftOut), test.program + ": " + test.left_out);
      continue;
    }
    const std::string outcome = test.exit_code < 0 ? "took too long" : "exit code " + std::to_string(test.exit_code);
    AddRow(text, test.ended_well() ? "passed" : "failed",
           test.program + ": " + std::to_string(test.passed) + " passed, " + std::to_string(test.failed.size()) +
               " failed, " + outcome);
    for (const std::string& line : test.output)
      AddRow(text, "", line);
  }
  text += "\nLeft behind\n";
  for (const std::string& line : report.left_behind)
    text += line + '\n';
  if (report.left_behind.empty()) text += "nothing\n";
  return text;
}

std::string JsonOf(const KitReport& report) {
  Json::Value root;
  root["summary"] = SummaryOf(report);
  root["good"] = report.good();
  for (const auto& [fact, value] : report.machine)
    root["machine"][fact] = value;
  root["checks"] = Json::Value(Json::arrayValue);
  for (const CheckResult& check : report.checks) {
    Json::Value row;
    row["name"] = check.name;
    row["claim"] = check.claim;
    row["verdict"] = std::string(NameOf(check.finding.verdict));
    row["seen"] = check.finding.seen;
    root["checks"].append(row);
  }
  root["tests"] = Json::Value(Json::arrayValue);
  for (const TestResult& test : report.tests) {
    Json::Value row;
    row["program"] = test.program;
    if (!test.left_out.empty()) {
      row["left_out"] = test.left_out;
    } else {
      row["passed"] = test.passed;
      row["exit_code"] = test.exit_code;
      row["failed"] = ToJson(test.failed);
    }
    root["tests"].append(row);
  }
  root["left_behind"] = ToJson(report.left_behind);
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  builder["indentation"] = " ";
  return Json::writeString(builder, root) + '\n';
}

void Blanks::Add(std::string secret, std::string shown) {
  if (secret.size() < 2) return;
  const auto at = std::ranges::find_if(secrets_, [&](const auto& known) { return known.first.size() < secret.size(); });
  secrets_.emplace(at, std::move(secret), std::move(shown));
}

std::string Blanks::Apply(std::string_view text) const {
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const auto found =
        std::ranges::find_if(secrets_, [&](const auto& known) { return StandsAt(text, at, known.first); });
    if (found == secrets_.end()) {
      shown += text[at++];
    } else {
      shown += found->second;
      at += found->first.size();
    }
  }
  return WithoutAccounts(std::move(shown));
}

void Blanks::Apply(KitReport& report) const {
  const auto blank = [this](std::string& text) { text = Apply(text); };
  for (auto& [fact, value] : report.machine)
    blank(value);
  for (CheckResult& check : report.checks)
    blank(check.finding.seen);
  for (TestResult& test : report.tests)
    std::ranges::for_each(test.output, blank);
  std::ranges::for_each(report.left_behind, blank);
}

}  // namespace windows_kit
