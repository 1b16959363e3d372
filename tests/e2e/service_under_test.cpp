#include "tests/e2e/service_under_test.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "client/records/record_json.h"
#include "client/store/event_data_logging.h"
#include "platform/files.h"

namespace {

std::vector<std::string> WithConsole(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "--console");
  return arguments;
}

}  // namespace

std::string CpuPolicy(const std::string& scope, const std::string& settings) {
  return R"({"telemetryScope": ")" + scope + R"(", "datasets": [{"id": ")" + kCpuDatasetId +
         R"(", "name": "CPUEvent", "enabled": true, "settings": {)" + settings + "}}]}";
}

void ServiceFolder::WritePolicy(const std::string& text) const {
  EXPECT_EQ(platform::ReplaceFile(policy(), text), "");
}

std::vector<std::string> ServiceFolder::Arguments(const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"--policy", platform::PathToUtf8(policy()), "--data-dir",
                                        platform::PathToUtf8(data())};
  if (std::ranges::find(more, "--for") == more.end()) arguments.insert(arguments.end(), {"--for", "2m"});
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::vector<TVK::StoredRecord> ServiceFolder::Records(const TVK::RecordQuery& query) const {
  std::string problem;
  std::vector<TVK::StoredRecord> records;
  const auto take = [&](std::span<const TVK::StoredRecord> some) {
    records.insert(records.end(), some.begin(), some.end());
    return true;
  };
  const auto reader = TVK::RecordReader::Open(data() / TVK::kStoreFileName, problem);
  EXPECT_TRUE(reader != nullptr && reader->Read(query, take, problem)) << problem;
  return records;
}

std::size_t ServiceFolder::CountInLog(const std::string& name, const std::string& text) const {
  constexpr std::size_t kLimit = 6u << 20;  // a log is begun anew after 5 MiB
  const std::string log = platform::ReadWholeFile(data() / "log" / name, kLimit).value_or("");
  std::size_t count = 0;
  for (std::size_t at = log.find(text); at != log.npos; at = log.find(text, at + text.size()))
    ++count;
  return count;
}

ConsoleService::ConsoleService(const ServiceFolder& folder, const std::vector<std::string>& more)
    : ChildProcess(ProgramBeside("TVKClientService"), WithConsole(folder.Arguments(more))) {}

void ExpectOneNewDeviceContext(const ServiceFolder& folder, const std::wstring& before, const std::wstring& after) {
  std::vector<DeviceContext> devices;
  std::vector<std::wstring> described_under;
  for (const TVK::StoredRecord& record : folder.Records({.kind = TVK::RecordKind::kDevice}))
    devices.push_back(TVK::DeviceContextFromJson(record.json).value());
  for (const auto& record : folder.Records({.kind = TVK::RecordKind::kDataset, .dataset_name = L"CPUEvent"}))
    described_under.push_back(TVK::DatasetContextFromJson(record.json).value().device_context_id());
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].region_info().country_code(), before);
  EXPECT_EQ(devices[1].region_info().country_code(), after);
  EXPECT_NE(devices[0].device_context_id(), devices[1].device_context_id());
  EXPECT_EQ(described_under,
            (std::vector<std::wstring>{devices[0].device_context_id(), devices[1].device_context_id()}));
}

std::size_t CountLines(const std::vector<std::string>& lines, const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(lines, [&](const std::string& line) { return line.find(text) != line.npos; }));
}
