// Makes a store of many records for bench/records: usage records_store FOLDER COUNT.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "client/store/event_data_logging.h"
#include "platform/local.h"

namespace {

constexpr int kAtATime = 5000;
constexpr int kDatasets = 5;

ItemEvent MakeEvent(int number) {
  const std::wstring dataset = std::to_wstring(number % kDatasets);
  ItemEvent event;
  event.set_dataset_id(L"00000000-0000-4000-8000-00000000000" + dataset);
  event.set_dataset_name(L"Dataset" + dataset);
  event.set_item_id(L"A0C1B46E-A5EB-454B-A6F4-8A0A77BEF076");
  event.set_item_name(L"ReadUsagePerInterval");
  event.set_item_time(L"2026-01-31T09:05:00+0000");
  event.set_schema_ver(L"2.0");
  event.set_source(L"tvk/cpu");
  event.set_source_component(L"5B1E4C0D-7C0A-4A57-9A53-0F2C6D0E8B11");
  event.set_item_data({{L"CPUUtilization", std::to_wstring(number % 101)}});
  return event;
}

}  // namespace

int main(int count, char** values) {
  if (count != 3) return 2;
  const std::filesystem::path folder = values[1];
  const int wanted = std::atoi(values[2]);
  std::filesystem::create_directories(folder);
  const std::unique_ptr<platform::Runtime> runtime = platform::MakeRealRuntime({folder});
  TVK::StoreOptions options;
  options.file = folder / TVK::kStoreFileName;
  options.limits.max_bytes = 4ull << 30;
  TVK::EventDataLogging store(options, runtime->clock());
  for (int made = 0; made < wanted;) {
    std::vector<TVK::ItemEventWithState> events;
    for (; made < wanted && events.size() < kAtATime; ++made)
      events.push_back({MakeEvent(made), {}});
    if (const int code = store.LogItemEvents(events); code != 0) {
      std::cerr << "records_store: the store cannot be written, error " << code << '\n';
      return 3;
    }
  }
  return 0;
}
