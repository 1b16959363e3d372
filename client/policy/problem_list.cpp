#include "client/policy/problem_list.h"

#include <algorithm>

#include "client/text/string.h"

namespace TVK {

namespace {

constexpr std::size_t kMostProblems = 100;  // a person reads no more, and each becomes a log line

}  // namespace

void ProblemList::Add(std::ptrdiff_t offset, std::string_view path, std::string_view message, bool fatal) {
  has_fatal_ = has_fatal_ || fatal;
  placed_.push_back({offset, {std::string(path), std::string(message), fatal}});
}

std::vector<PolicyProblem> ProblemList::Take() {
  std::ranges::stable_sort(placed_, {}, &Placed::offset);
  std::vector<PolicyProblem> problems;
  for (Placed& placed : placed_) {
    if (problems.size() == kMostProblems) {
      problems.push_back({{}, std::to_string(placed_.size() - kMostProblems) + " more problems", has_fatal_});
      break;
    }
    // What a document holds ends on terminals and in log lines; neither may be steered by it.
    problems.push_back({HarmlessText(placed.problem.path), HarmlessText(placed.problem.message), placed.problem.fatal});
  }
  return problems;
}

std::string Clip(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  std::size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
    --end;
  return std::string(text.substr(0, end)) + "...";
}

}  // namespace TVK
