// How fast does the event manager start, and how fast does it follow the policy?
//
//   ManagerStart      all datasets of the default policy at scope full, on a simulated machine, from the call of
//                     Initialize until the thread of every monitor runs          target: below 100 ms
//   PolicyChange      from the rename of a policy that switches every dataset off until all their monitors are gone,
//                     and of one that switches them on until all run: target below 150 ms each, debounce included
//
// Threads, files and the store are real; the folder of the files lies below the working folder.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "bench/targets.h"
#include "bench/world.h"

namespace {

constexpr int kStarts = 15;
constexpr int kPolicyChanges = 15;

std::map<std::string, std::vector<double>>& Milliseconds() {
  static std::map<std::string, std::vector<double>> figures;
  return figures;
}

std::filesystem::path Folder() {
  return std::filesystem::current_path() / "manager_benchmark.tmp";
}

double MillisecondsSince(const World& world, platform::SteadyTime start) {
  return std::chrono::duration<double, std::milli>(world.Now() - start).count();
}

void Note(benchmark::State& state, const std::string& name, double milliseconds) {
  state.SetIterationTime(milliseconds / 1000);
  Milliseconds()[name].push_back(milliseconds);
}

void ManagerStart(benchmark::State& state) {
  for (auto _ : state) {
    World world(Folder());
    Progress& progress = world.progress();
    const platform::SteadyTime start = world.Now();
    const int listed = world.StartManager();
    progress.WaitUntil([&] { return progress.entered == listed; });
    Note(state, "start", MillisecondsSince(world, start));
    progress.WaitUntil([&] { return progress.returned == listed; });
    Milliseconds()["first records"].push_back(MillisecondsSince(world, start));
  }
}

// Changes the policy and waits until the monitors are those of the new one: made and running, or stopped and gone.
double Change(World& world, bool enabled, int alive) {
  Progress& progress = world.progress();
  const int reconciled = progress.reconciled;
  const int missing = alive - progress.alive;
  const int entered = progress.entered + (missing > 0 ? missing : 0);
  const platform::SteadyTime start = world.ReplacePolicy(World::Policy(enabled));
  progress.WaitUntil(
      [&] { return progress.reconciled > reconciled && progress.alive == alive && progress.entered == entered; });
  return MillisecondsSince(world, start);
}

void PolicyChange(benchmark::State& state) {
  World world(Folder());
  Progress& progress = world.progress();
  const int listed = world.StartManager();
  progress.WaitUntil([&] { return progress.returned == listed; });
  const int all = progress.alive;
  for (auto _ : state) {
    const double off = Change(world, false, world.MonitorsOutsidePolicy());
    const double on = Change(world, true, all);
    Milliseconds()["off"].push_back(off);
    Milliseconds()["on"].push_back(on);
    state.SetIterationTime((off + on) / 1000);
  }
}

BENCHMARK(ManagerStart)->UseManualTime()->Iterations(kStarts)->Unit(benchmark::kMillisecond);
BENCHMARK(PolicyChange)->UseManualTime()->Iterations(kPolicyChanges)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();

  const auto& figures = Milliseconds();
  const double debounce = static_cast<double>(TVK::PolicyWatch::kQuiet.count());
  std::printf("\nMedians\n");
  if (figures.contains("start")) {
    PrintTarget("manager start, to all threads running, ms", Median(figures.at("start")), "<", 100);
    PrintFigure("manager start, to all first records durable, ms", Median(figures.at("first records")));
  }
  if (figures.contains("on")) {
    PrintTarget("policy switches all datasets on, ms", Median(figures.at("on")), "<", 150);
    PrintFigure("  the same without the debounce, ms", Median(figures.at("on")) - debounce);
    PrintTarget("policy switches all datasets off, ms", Median(figures.at("off")), "<", 150);
    PrintFigure("  the same without the debounce, ms", Median(figures.at("off")) - debounce);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
