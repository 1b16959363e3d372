// How fast is a query of the event log built?
//
//   Query50Ids   WindowsLogsHelper::generateQuery with a list of 50 ids, every level, one channel    target: below 10
//   us
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "monitors/logs/windows_logs_helper.h"

namespace {

void Query50Ids(benchmark::State& state) {
  std::wstring ids = L"1000";
  for (int id = 1001; id < 1050; ++id)
    ids += L"," + std::to_wstring(id);
  std::wstring query;
  bool made = false;
  for (auto iteration : state) {
    made = TVK::WindowsLogsHelper::generateQuery(L"1000", ids, L"00011111", 86'400'000, query);
    benchmark::DoNotOptimize(query.data());
  }
  if (!made) state.SkipWithError("there is no query");
}

BENCHMARK(Query50Ids)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  if (medians.contains("Query50Ids")) {
    PrintTarget("query of the event log with 50 ids, built, us", medians.at("Query50Ids"), "<", 10);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
