// How fast is a query of the event log built, and how fast are events read?
//
//   Query50Ids   WindowsLogsHelper::generateQuery, a list of 50 ids, every level, one channel      target: below 10 us
//   Journal      10,000 entries of a journal, half of them wanted, with values, XML and bookmarks  target: below 500 ms
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "monitors/logs/windows_logs_helper.h"
#include "platform/event_log_reader.h"
#include "platform/local.h"
#include "testing/journal_linux.h"
#include "testing/temp_folder.h"

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

void Journal(benchmark::State& state) {
  constexpr int kEntries = 10'000;
  const TempFolder root;
  JournalWriter writer(root.path() / "var/log/journal/system.journal");
  for (int i = 0; i < kEntries; ++i) {
    writer.Add("SYSLOG_FACILITY=3\nSYSLOG_IDENTIFIER=daemon" + std::to_string(i % 50) + "\nPRIORITY=" +
               (i % 2 == 0 ? "3" : "6") + "\n_PID=" + std::to_string(i) + "\n_COMM=daemon\n_EXE=/usr/sbin/daemon" +
               "\n_SYSTEMD_UNIT=daemon.service\n_HOSTNAME=host\nMESSAGE=request " + std::to_string(i) +
               " took longer than was allowed for it");
  }
  writer.Write();
  const auto runtime = platform::MakeRealRuntime({});
  const auto machine = platform::OpenLocalMachine({.sysroot = root.path()}, runtime->clock());
  const platform::EventLogReaderSettings settings = {
      .query = "<QueryList><Query><Select Path='System'>*[System[(Level=1 or Level=2)]]</Select></Query></QueryList>",
      .value_paths = {"Event/System/Channel", "Event/System/Level", "Event/System/EventID",
                      "Event/System/Provider/@Name", "Event/System/TimeCreated/@SystemTime",
                      "Event/System/Execution/@ProcessID"}};
  std::size_t events = 0;
  for (auto iteration : state) {
    events = 0;
    const auto opening = machine->event_log().OpenReader(*runtime, settings);
    for (platform::EventLogBatch batch{.more = true}; batch.more; events += batch.events.size())
      batch = opening.reader->Take(100);
  }
  if (events != kEntries / 2) state.SkipWithError("events are missing");
}

BENCHMARK(Journal)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  if (medians.contains("Query50Ids")) {
    PrintTarget("query of the event log with 50 ids, built, us", medians.at("Query50Ids"), "<", 10);
  }
  if (medians.contains("Journal")) {
    PrintTarget("journal of 10,000 entries, half of them wanted, ms", medians.at("Journal") / 1000, "<", 500);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
