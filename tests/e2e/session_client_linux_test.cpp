// A program that hands observations over is killed while it does: where no user agent of the service's own is beside
// it.
#include <gtest/gtest.h>

#include <set>

#include "platform/files.h"
#include "platform/local_channel.h"
#include "tests/e2e/service_under_test.h"

namespace {

using TVK::RecordKind;

TEST(Service, WhatAProgramOfTheSessionWasToldToBeWrittenIsThereWhenItIsKilled) {
  const ServiceFolder folder;
  folder.WritePolicy(R"({"telemetryScope": "full", "datasets": [
    {"id": "DAA0ED20-1EC1-42CE-9C96-BC9E81D0A146", "name": "PenEvent", "enabled": true}]})");
  ConsoleService service(folder);
  ASSERT_TRUE(service.WaitFor(
      [&] { return folder.CountInLog("EventManager.log", "NotificationProcessorThread Entry") == 1; }, kPatience));
  ChildProcess client(ProgramBeside("session_client"), {platform::PathToUtf8(platform::ChannelPlace(folder.data()))});
  constexpr std::size_t kEnough = 25;
  ASSERT_TRUE(client.WaitFor([&] { return client.Lines().size() >= kEnough; }, kPatience));
  client.Ask(ChildRequest::kKill);
  ASSERT_TRUE(client.WaitForEnd(kPatience));
  std::multiset<std::string> written;
  for (const TVK::StoredRecord& record : folder.Records({.kind = RecordKind::kItem, .dataset_name = L"PenEvent"})) {
    constexpr std::string_view kKey = R"("PenSessions":")";
    const std::size_t at = record.json.find(kKey);
    if (at == record.json.npos) continue;  // its DeviceInit
    const std::size_t begin = at + kKey.size();
    written.insert(record.json.substr(begin, record.json.find('"', begin) - begin));
  }
  const std::vector<std::string> acknowledged = client.Lines();
  for (const std::string& number : acknowledged)
    EXPECT_EQ(written.count(number), 1u) << number;
  EXPECT_LE(written.size(), acknowledged.size() + 1) << "one was on its way";
}

}  // namespace
