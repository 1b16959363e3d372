// What does the local channel cost?
//
//   Through    an observation through the channel, until it is durable   target: below 200 us beyond Beside
//   Beside     the same handed to the recorder in this process
//   Eight      observations of eight clients at once                     target: twice the rate of Through
//   Idle       memory of a channel that nobody uses                      target: below 100 KiB
//              wake-ups of its threads in five seconds                   target: none
//
// The store lies below the working folder, so that the disk is the one that the folder is on; run it on a real one.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <vector>

#include "bench/targets.h"
#include "client/channel/channel_client.h"
#include "component/service_channel.h"
#include "platform/local.h"

namespace {

constexpr int kRecords = 400;
constexpr int kClients = 8;
constexpr int kRuns = 9;

/// Records straight into a store: what is measured is the way there.
class StoringRecorder final : public TVK::SessionRecorder {
 public:
  explicit StoringRecorder(TVK::EventDataLogging& store) : store_(store) {}
  int LogDatasetContext(const std::wstring& /*dataset*/, const std::vector<TVK::ObservedDevice>& /*devices*/,
                        bool /*anew*/) override {
    return 0;
  }
  int LogDevInitEvent(const std::wstring& /*dataset*/) override { return 0; }
  int WriteItem(const std::wstring& dataset, const std::wstring& item, const ItemData& data,
                const std::wstring& /*device*/) override {
    ItemEvent event;
    event.set_dataset_id(dataset);
    event.set_item_id(item);
    event.set_item_name(item);
    event.set_item_data(data);
    return store_.LogItemEvent(event);
  }

 private:
  TVK::EventDataLogging& store_;
};

class Manager final : public TVK::ManagerAccess {
 public:
  explicit Manager(TVK::SessionRecorder& recorder) : recorder_(recorder) {}
  TVK::SessionRecorder& session_recorder() override { return recorder_; }
  TVK::ManagerStatus Status() override { return {}; }
  TVK::TakenEvent TakeApplicationEvent(const std::wstring& /*item_name*/, const ItemData& /*data*/,
                                       TVK::EventSender /*sender*/) override {
    return {};
  }

 private:
  TVK::SessionRecorder& recorder_;
};

class NoPolicies final : public IConfigAgent {
 public:
  bool GetTelemetryPolicy(TelemetryPolicy& /*policy*/) override { return false; }
  bool GetTvkPolicy(TVK::TvkPolicy& /*policy*/) override { return false; }
};

/// Records a second of as many clients, each with a recorder of its own.
double Rate(const platform::Clock& clock, std::vector<TVK::SessionRecorder*> recorders) {
  const platform::SteadyTime begin = clock.Steady();
  {
    std::vector<std::jthread> threads;
    for (TVK::SessionRecorder* const recorder : recorders) {
      threads.emplace_back([recorder] {
        for (int i = 0; i < kRecords; ++i)
          Check(recorder->WriteItem(L"D", L"I", {{L"Width", std::to_wstring(i)}}, L"") == 0, "writing");
      });
    }
  }
  const std::chrono::duration<double> seconds = clock.Steady() - begin;
  return kRecords * static_cast<double>(recorders.size()) / seconds.count();
}

/// What the process holds in memory that no file stands for, in KiB, counted page by page.
double AnonymousMemory() {
  std::ifstream file("/proc/self/smaps_rollup");
  for (std::string word; file >> word;) {
    double kib = 0;
    if (word == "Anonymous:" && file >> kib) return kib;
  }
  Check(false, "reading the memory");
  return 0;
}

/// How often the threads of the process beside the first were switched away from: each wake-up ends in that.
double SwitchesOfOtherThreads() {
  const std::filesystem::path first = std::filesystem::read_symlink("/proc/self");
  double sum = 0;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    if (thread.path().filename() == first) continue;
    std::ifstream file(thread.path() / "status");
    for (std::string word; file >> word;) {
      double count = 0;
      if (word.ends_with("ctxt_switches:") && file >> count) sum += count;
    }
  }
  return sum;
}

/// Of nobody's use, in five seconds.
double IdleWakeUps(platform::Runtime& runtime) {
  const auto never = runtime.MakeEvent(platform::EventReset::kManual);
  runtime.Wait(*never, std::chrono::seconds(1));  // until its thread waits
  const double before = SwitchesOfOtherThreads();
  runtime.Wait(*never, std::chrono::seconds(5));
  return SwitchesOfOtherThreads() - before;
}

}  // namespace

int main() {
  const std::filesystem::path folder = std::filesystem::current_path() / "channel_benchmark.tmp";
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  {
    const auto runtime = platform::MakeRealRuntime({});
    const TvkInfo tvk_info(L"");
    TVK::EventDataLogging store({.file = folder / TVK::kStoreFileName, .limits = {}}, runtime->clock());
    StoringRecorder direct(store);
    Manager manager(direct);
    NoPolicies policies;
    const TVK::ServiceStatus status({.runtime = *runtime,
                                     .tvk_info = tvk_info,
                                     .store = store,
                                     .store_file = folder / TVK::kStoreFileName,
                                     .policy_file = {}});
    TVK::Eraser eraser(*runtime, &store, {.data_folder = folder, .log_folder = {}}, TVK::Eraser::Rest::kLeft);
    // The store's own memory is there before the channel's; no thread has left a stack that the channel's could take.
    Check(direct.WriteItem(L"D", L"I", {}, L"") == 0, "writing");
    const double before = AnonymousMemory();
    TVK::ServiceChannel channel(*runtime, policies, status, manager, eraser);
    Check(channel.Start(folder / "run").empty(), "listening");
    const double idle = AnonymousMemory() - before;
    const double wake_ups = IdleWakeUps(*runtime);

    const TVK::Log log;
    std::vector<std::unique_ptr<TVK::ChannelClient>> clients;
    std::vector<std::unique_ptr<TVK::ChannelRecorder>> recorders;
    std::vector<TVK::SessionRecorder*> all;
    for (int i = 0; i < kClients; ++i) {
      clients.push_back(std::make_unique<TVK::ChannelClient>(*runtime, folder / "run"));
      recorders.push_back(std::make_unique<TVK::ChannelRecorder>(*clients.back(), log));
      all.push_back(recorders.back().get());
    }
    std::map<std::string, std::vector<double>> rates;
    for (int run = 0; run < kRuns; ++run) {
      rates["beside"].push_back(Rate(runtime->clock(), {&direct}));
      rates["through"].push_back(Rate(runtime->clock(), {all.front()}));
      rates["eight"].push_back(Rate(runtime->clock(), all));
    }
    const double beside = 1e6 / Median(rates["beside"]);
    const double through = 1e6 / Median(rates["through"]);
    std::printf("\nMedians\n");
    PrintFigure("a record without the channel, us", beside);
    PrintTarget("a record through the channel, us beyond that", through - beside, "<", 200);
    PrintTarget("eight clients / one client", Median(rates["eight"]) / Median(rates["through"]), ">=", 2);
    PrintTarget("the channel idle, KiB", idle, "<", 100);
    PrintTarget("the channel idle, wake-ups in five seconds", wake_ups, "<", 1);
  }
  std::filesystem::remove_all(folder);
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
