#include "bench/timed_runs.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/targets.h"

namespace {

class Reporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const bool real = run.run_name.time_type.ends_with("real_time");
      times_[run.run_name.function_name].push_back(real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime());
      for (const auto& [name, counter] : run.counters)
        times_[run.run_name.function_name + '/' + name].push_back(counter.value);
    }
  }

  std::map<std::string, double> Medians() const {
    std::map<std::string, double> medians;
    for (const auto& [name, times] : times_)
      medians[name] = Median(times);
    return medians;
  }

 private:
  std::map<std::string, std::vector<double>> times_;
};

}  // namespace

std::map<std::string, double> RunTimed(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) std::exit(EXIT_FAILURE);
  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\nMedians\n");
  return reporter.Medians();
}
