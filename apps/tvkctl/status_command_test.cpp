// The screen of a status, told by a service that is played.
#include "apps/tvkctl/status_command.h"

#include <gtest/gtest.h>

#include <sstream>

#include "client/channel/channel_request.h"
#include "client/channel/channel_server.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

std::string ScreenOf(const std::string& status, std::size_t width = kAnyWidth) {
  const TempFolder folder;
  const std::filesystem::path place = folder.path() / "run";
  const auto runtime = platform::MakeRealRuntime({});
  const TVK::Log log;
  TVK::Refusals refusals(log);
  TVK::ChannelServer server(*runtime, log, refusals, [&](const platform::LocalCaller&, std::string_view, const auto&) {
    return TVK::ChannelServer::Answer{ToJson(TVK::ChannelAnswer{0, {}, status})};
  });
  EXPECT_EQ(server.Start(place), "");
  std::ostringstream out;
  std::ostringstream errors;
  EXPECT_EQ(RunStatus({.place = place, .data_folder = folder.path(), .policy_file = {}, .width = width}, *runtime, out,
                      errors),
            0)
      << errors.str();
  return out.str();
}

std::string Status(int refused) {
  return R"({"now":"2026-01-10T12:00:00+0000","up":true,"up_since":"2026-01-07T12:00:00+0000",
      "version":"1","policy":"p","scope":"full","store":{"bytes":1024,"refused":)" +
         std::to_string(refused) +
         R"(},"process":{"processor_ms":1,"memory_bytes":1024},"channel_refused":{"no room":2},
      "datasets":[{"name":"PCIe_NVMe_SelfTestResult","runs":true,"why":"runs","collects":true,
                   "since":"2026-01-07T12:00:00+0000","last_record":"2026-01-10T11:01:00+0000",
                   "next_due":"2026-01-10T12:59:00+0000"},
                  {"name":"AlexaEvent","runs":true,"why":"runs","since":"2026-01-10T11:01:00+0000"},
                  {"name":"PenEvent","runs":false,"why":"disabled"}]})";
}

TEST(StatusScreen, SaysSinceWhenDatasetsRun) {
  std::istringstream lines(ScreenOf(Status(0)));
  std::vector<std::string> table;
  for (std::string line; std::getline(lines, line);) {
    for (const char* const name : {"DATASET", "PCIe", "Alexa", "Pen"})
      if (line.starts_with(name)) table.push_back(line);
  }
  ASSERT_EQ(table.size(), 4u);
  EXPECT_LE(table[1].size(), 80u) << "what runs fits, whatever else there is";
  EXPECT_LE(table[2].size(), 80u);
  const std::size_t at = table[0].find("SINCE");
  ASSERT_NE(at, std::string::npos);
  EXPECT_EQ(table[1].substr(at, 5), "3 d  ");
  EXPECT_EQ(table[2].substr(at), "59 min");
  EXPECT_EQ(table[3].find("59"), std::string::npos);
}

TEST(StatusScreen, FitsANarrowTerminal) {
  std::istringstream lines(ScreenOf(Status(0), 60));
  std::string last;
  for (std::string line; std::getline(lines, line); last = line)
    EXPECT_LE(line.size(), 60u) << line;
  EXPECT_TRUE(last.ends_with("disabled")) << last;
}

TEST(StatusScreen, SaysHowManyRecordsWereRefusedWhereAnyWere) {
  EXPECT_EQ(ScreenOf(Status(0)).find("records refused"), std::string::npos);
  const std::string screen = ScreenOf(Status(17));
  const std::size_t at = screen.find("records refused");
  ASSERT_NE(at, std::string::npos) << screen;
  EXPECT_EQ(screen.substr(at, screen.find('\n', at) - at), "records refused  17");
}

}  // namespace
}  // namespace tvkctl
