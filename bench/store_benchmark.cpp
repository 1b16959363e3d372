// How fast is the event-data store?
//
//   ItemEventsOneWriter     durable item events a second of one thread      target: 0.8 of RawSqlite
//   ItemEventsEightWriters  the same of eight threads together              target: 3 times ItemEventsOneWriter
//   RawSqlite               one insert a transaction into the same tables, the same durability, nothing around it
//   LastItemEvent           last event of an item among 1,000,000 records   target: below 50 us
//
// The databases lie below the working folder, so that the disk is the one that the folder is on; run it on a real one.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <barrier>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/targets.h"
#include "client/records/record_json.h"
#include "client/store/event_data_logging.h"
#include "client/store/sqlite_database.h"
#include "platform/local.h"

namespace {

constexpr int kEventsARun = 1000;
constexpr int kRepetitions = 9;
constexpr int kManyRecords = 1'000'000;
constexpr int kItems = 50;
constexpr int kContexts = 2;

const std::filesystem::path& Folder() {
  static const std::filesystem::path kFolder = std::filesystem::current_path() / "store_benchmark.tmp";
  return kFolder;
}

const platform::Clock& RealClock() {
  static const std::unique_ptr<platform::Runtime> kRuntime = platform::MakeRealRuntime({Folder()});
  return kRuntime->clock();
}

std::filesystem::path FreshFile() {
  std::filesystem::remove_all(Folder());
  std::filesystem::create_directories(Folder());
  return Folder() / TVK::kStoreFileName;
}

TVK::StoreOptions OptionsFor(const std::filesystem::path& file) {
  TVK::StoreOptions options;
  options.file = file;
  options.limits.max_bytes = 4ull << 30;
  return options;
}

std::wstring ItemId(int item) {
  return L"00000000-0000-4000-8000-0000000000" + std::to_wstring(10 + item);
}

constexpr wchar_t kDatasetContextId[] = L"6F9619FF-8B86-4011-B42D-00C04FC964FF";
constexpr wchar_t kDeviceContextId[] = L"7C9E6679-7425-40DE-944B-E07FC1F90AE7";

ItemEvent MakeEvent(int number) {
  ItemEvent event;
  event.set_dataset_id(L"9492447A-FCAC-428E-B7A8-7F7918199480");
  event.set_dataset_name(L"CPUEvent");
  event.set_dataset_context_id(kDatasetContextId);
  event.set_device_context_id(kDeviceContextId);
  event.set_item_id(ItemId(number % kItems));
  event.set_item_name(L"ReadUsagePerInterval");
  event.set_item_time(L"2026-01-31T09:05:00+0100");
  event.set_schema_ver(L"1.0");
  event.set_source(L"tvk/cpu");
  event.set_item_data({{L"usage", std::to_wstring(number % 100)}, {L"samples", L"60"}});
  return event;
}

// The contexts that the events name.
void WriteContexts(TVK::EventDataLogging& store) {
  DeviceContext device;
  device.set_device_context_id(kDeviceContextId);
  DatasetContext dataset;
  dataset.set_dataset_id(MakeEvent(0).dataset_id());
  dataset.set_dataset_context_id(kDatasetContextId);
  dataset.set_device_context_id(kDeviceContextId);
  Check(store.LogDeviceContext(device) == 0 && store.LogDatasetContext(dataset) == 0, "writing contexts");
}

// The rates that each benchmark has reached, for the comparison at the end.
std::map<std::string, std::vector<double>>& Rates() {
  static std::map<std::string, std::vector<double>> rates;
  return rates;
}

void NoteRate(benchmark::State& state, const std::string& name, int events, double seconds) {
  state.SetIterationTime(seconds);
  state.counters["records/s"] = events / seconds;
  Rates()[name].push_back(events / seconds);
}

template <typename Work>
double Seconds(const Work& work) {
  const platform::SteadyTime start = RealClock().Steady();
  work();
  return std::chrono::duration<double>(RealClock().Steady() - start).count();
}

void ItemEvents(benchmark::State& state, const std::string& name, int writers) {
  for (auto _ : state) {
    TVK::EventDataLogging store(OptionsFor(FreshFile()), RealClock());
    Check(store.is_open(), "opening");
    WriteContexts(store);
    std::barrier start(writers + 1);
    std::vector<std::thread> threads;
    for (int writer = 0; writer < writers; ++writer) {
      threads.emplace_back([&, writer] {
        start.arrive_and_wait();
        for (int i = 0; i < kEventsARun / writers; ++i) {
          Check(store.LogItemEvent(MakeEvent(i * writers + writer)) == 0, "writing");
        }
      });
    }
    const double seconds = Seconds([&] {
      start.arrive_and_wait();
      for (std::thread& thread : threads)
        thread.join();
    });
    NoteRate(state, name, kEventsARun, seconds);
  }
}

void RawSqlite(benchmark::State& state) {
  for (auto _ : state) {
    const std::filesystem::path file = FreshFile();
    { const TVK::EventDataLogging tables(OptionsFor(file), RealClock()); }
    TVK::Database database;
    Check(database.Open(file, SQLITE_OPEN_READWRITE) == 0 &&
              database.Execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA cache_size = -256;"
                               "INSERT INTO series(id, kind, dataset_id, key) VALUES(1, 0, 'D', 'I')") == 0,
          "opening");
    TVK::Statement insert;
    Check(insert.Prepare(database, "INSERT INTO record(series, number, written, json) VALUES(1, ?1, ?2, ?3)") == 0,
          "preparing");
    const double seconds = Seconds([&] {
      for (int i = 0; i < kEventsARun; ++i) {
        const std::string json = TVK::ToJson(MakeEvent(i));
        Check(TVK::Run(insert).Bind(1, i).Bind(2, i).Bind(3, json).Finish() == 0, "writing");
      }
    });
    NoteRate(state, "RawSqlite", kEventsARun, seconds);
  }
}

// A store with many records, filled past the store in large transactions, each record as the store would write it.
std::filesystem::path FileWithManyRecords() {
  const std::filesystem::path file = FreshFile();
  {
    TVK::EventDataLogging store(OptionsFor(file), RealClock());
    WriteContexts(store);
    for (int item = 0; item < kItems; ++item)
      Check(store.LogItemEvent(MakeEvent(item)) == 0, "writing");
  }
  TVK::Database database;
  Check(database.Open(file, SQLITE_OPEN_READWRITE) == 0 && database.Execute("PRAGMA synchronous = OFF; BEGIN") == 0,
        "opening");
  TVK::Statement insert;
  Check(insert.Prepare(database,
                       "INSERT INTO record(series, number, written, dataset_context, device_context, json)"
                       " SELECT series, ?1, written, dataset_context, device_context, json"
                       " FROM record WHERE sequence = ?2") == 0,
        "preparing");
  for (int i = kItems; i < kManyRecords; ++i) {
    Check(TVK::Run(insert).Bind(1, i + 1).Bind(2, kContexts + 1 + i % kItems).Finish() == 0, "filling");
  }
  Check(database.Execute("COMMIT") == 0, "filling");
  return file;
}

void LastItemEvent(benchmark::State& state) {
  const TVK::EventDataLogging store(OptionsFor(FileWithManyRecords()), RealClock());
  const std::wstring dataset_id = MakeEvent(0).dataset_id();
  ItemEvent event;
  int item = 0;
  int lookups = 0;
  const double seconds = Seconds([&] {
    for (auto _ : state) {
      Check(store.GetLastItemEventWithItemId(dataset_id, ItemId(item), event) == 0, "looking up");
      item = (item + 17) % kItems;
      ++lookups;
    }
  });
  Rates()["LastItemEvent"].push_back(lookups / seconds);
}

// In turns, since the speed of a disk changes from one minute to the next.
void InTurns(benchmark::internal::Benchmark* benchmark) {
  benchmark->UseManualTime()->Iterations(1)->Repetitions(kRepetitions)->Unit(benchmark::kMillisecond);
}
BENCHMARK(RawSqlite)->Apply(InTurns);
BENCHMARK_CAPTURE(ItemEvents, OneWriter, "OneWriter", 1)->Apply(InTurns);
BENCHMARK_CAPTURE(ItemEvents, EightWriters, "EightWriters", 8)->Apply(InTurns);
BENCHMARK(LastItemEvent)->Unit(benchmark::kMicrosecond)->Iterations(20000);

}  // namespace

int main(int argc, char** argv) {
  std::string in_turns = "--benchmark_enable_random_interleaving=true";
  std::vector<char*> arguments(argv, argv + argc);
  arguments.insert(arguments.begin() + 1, in_turns.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(Folder());

  const auto& rates = Rates();
  std::printf("\nMedians\n");
  if (rates.contains("RawSqlite") && rates.contains("OneWriter")) {
    PrintTarget("one writer / raw SQLite", Median(rates.at("OneWriter")) / Median(rates.at("RawSqlite")), ">=", 0.8);
  }
  if (rates.contains("EightWriters") && rates.contains("OneWriter")) {
    PrintTarget("eight writers / one writer", Median(rates.at("EightWriters")) / Median(rates.at("OneWriter")),
                ">=", 3);
  }
  if (rates.contains("LastItemEvent")) {
    PrintTarget("last item event among 1,000,000 records, us", 1e6 / Median(rates.at("LastItemEvent")), "<", 50);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
