#include "bench/targets.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

bool all_met = true;

}  // namespace

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void PrintTarget(const char* what, double value, const char* relation, double target) {
  const bool met = std::string_view(relation) == "<" ? value < target : value >= target;
  all_met = all_met && met;
  std::printf("%-50s %8.2f   target %s %.2f   %s\n", what, value, relation, target, met ? "ok" : "MISSED");
}

void PrintFigure(const char* what, double value) {
  std::printf("%-50s %8.2f   beside it, for comparison\n", what, value);
}

bool AllTargetsMet() {
  return all_met;
}

void Check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "benchmark: %s failed\n", what);
  std::exit(EXIT_FAILURE);
}
