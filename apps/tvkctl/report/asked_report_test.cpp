#include "apps/tvkctl/report/asked_report.h"

#include <gtest/gtest.h>

#include <sstream>

#include "client/channel/channel_request.h"
#include "client/channel/channel_server.h"
#include "client/report/report_json.h"
#include "platform/local.h"
#include "platform/runtime.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

// A service that answers every request with `body`.
class AskedReportTest : public testing::Test {
 protected:
  bool Ask(const std::string& body) {
    TVK::Refusals refusals(log_);
    TVK::ChannelServer server(*runtime_, log_, refusals, [&](const auto&, std::string_view request, const auto&) {
      std::string ignored;
      const auto asked = TVK::RequestFromJson(request, ignored);
      const bool right = asked && asked->wish == TVK::ChannelWish::kReport && asked->since_seconds == 7;
      return TVK::ChannelServer::Answer{TVK::ToJson(TVK::ChannelAnswer{right ? 0 : 1, "\u202Eno", body, {}})};
    });
    EXPECT_EQ(server.Start(place_), "");
    return AskReport(place_, 7, *runtime_, report_, standing_, problem_);
  }

  const TempFolder folder_;
  const std::filesystem::path place_ = folder_.path() / "run";
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({folder_.path() / "run"});
  TVK::Log log_;
  TVK::Report report_;
  Standing standing_;
  std::string problem_;
};

TEST_F(AskedReportTest, TakesAReportAndNothingElse) {
  TVK::Report report;
  report.records = 42;
  const std::string told = TVK::ReportToJson(report).toStyledString();
  const std::string deep(100'000, '[');
  for (const std::string& body : {std::string(), std::string("[]"), std::string("{}"), deep, "{\"report\":" + deep,
                                  "{\"report\":" + told + "}", std::string(R"({"report":{},"status":{}})")}) {
    EXPECT_FALSE(Ask(body)) << body.substr(0, 100);
    EXPECT_EQ(problem_, "the service answers something that is no report");
    EXPECT_EQ(report_.records, 0u) << "untouched";
  }
  EXPECT_TRUE(Ask("{\"report\":" + told + R"(,"status":{"up":true,"scope":"full","datasets":[
      {"name":"CPUEvent","runs":true,"collects":true,"why":"runs"}]}})"));
  EXPECT_EQ(report_.records, 42u);
  EXPECT_TRUE(standing_.answered && standing_.up == true);
  EXPECT_EQ(standing_.scope, "full");
  ASSERT_EQ(standing_.datasets.size(), 1u);
  EXPECT_EQ(standing_.datasets[0].state, "runs");
  EXPECT_TRUE(Ask("{\"report\":" + told + R"(,"status":{"up":"yes","scope":7,"datasets":[1,"x",{"name":2},
      {"name":"CPUEvent","runs":"x","collects":[],"why":{}}]}})"))
      << "what is no word of a status is none";
  EXPECT_EQ(standing_.up, false);
  EXPECT_EQ(standing_.datasets.size(), 1u);
}

}  // namespace
}  // namespace tvkctl
