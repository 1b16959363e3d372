#include "apps/tvkctl/doctor.h"

#include <gtest/gtest.h>
#include <json/reader.h>

#include <memory>
#include <sstream>
#include <thread>

#include "apps/tvkctl/time_text.h"
#include "platform/drives.h"
#include "platform/simulated/simulated_batteries.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/virtual_runtime.h"

namespace tvkctl {
namespace {

constexpr TVK::DatasetRow kCpu{7, L"AAAA-1", L"CPUEvent", L"full", TVK::DatasetRule::kByScope, L"Cpu"};
const TVK::Dataset kDataset{kCpu};

// A service in which nothing is wrong.
Json::Value SoundStatus() {
  Json::Value status;
  std::istringstream(R"({"up":true,"up_since":"2026-01-31T08:00:00+0000","now":"2026-01-31T09:00:00+0000",
      "policy":"/p.json","policy_state":"file","scope":"full","store":{"bytes":1,"refused":0},"attention":[],
      "datasets":[{"name":"CPUEvent","runs":true,"why":"runs","collects":true,
                   "last_record":"2026-01-31T08:59:37+0000","next_due":"2026-01-31T09:00:37+0000"},
                  {"name":"LateEvent","runs":false,"why":"scope","collects":true},
                  {"name":"DeviceContext","runs":true,"why":"runs","collects":true}]})") >>
      status;
  return status;
}

TEST(Doctor, EndsWithTheFirstThingThatIsWrong) {
  const platform::VirtualRuntime runtime;
  struct Row {
    const char* change;  // Of the status, as an object that is laid over it; empty: there is none.
    SourceReport source;
    std::uint64_t free_bytes;
    const char* of_dataset;  // What is wrong where the dataset is named, and where none is.
    const char* of_all;
  };
  const SourceReport fine{SourceState::kTells, "2 processors"};
  const auto cpu = [](const std::string& change, const std::string& name = "CPUEvent") {
    return R"({"datasets":[{"name":"DeviceContext","why":"runs","collects":true},{"name":")" + name + "\"," + change +
           "}]}";
  };
  const std::string missing = cpu(R"("why":"not started","collects":true)");
  const std::string older = cpu(R"("why":"runs","collects":true)", "OldEvent");
  const std::string silent = cpu(R"("why":"runs","collects":true)");
  const std::string faulty =
      cpu(R"("why":"runs","collects":true,"last_error":"x","next_due":"2026-01-31T10:00:00+0000")");
  const std::string disabled = cpu(R"("why":"disabled","collects":true)");
  const std::string failed = cpu(R"("why":"failed","collects":true)");
  const std::string nothing = cpu(R"("why":"runs","collects":false)");
  const std::string late = cpu(R"("why":"runs","collects":true,"next_due":"2026-01-31T08:57:00+0000")");
  const std::string ahead = cpu(R"("why":"runs","collects":true,"last_record":"2026-01-31T10:00:00+0000")");
  constexpr std::uint64_t kRoom = 1ull << 30;
  for (const Row& row : {
           Row{"{}", fine, kRoom, "", ""},
           Row{"", fine, kRoom, "service", "service"},
           Row{"", {SourceState::kNoRight, "refused"}, kRoom, "this account", "this account"},
           Row{R"({"up":false})", fine, kRoom, "service", "service"},
           Row{R"({"policy_state":"none"})", fine, kRoom, "policy", "policy"},
           Row{R"({"policy_state":"last good copy","policy_problem":"x"})", fine, kRoom, "policy", "policy"},
           Row{disabled.c_str(), fine, kRoom, "scope and filters", "scope and filters"},
           Row{failed.c_str(), fine, kRoom, "scope and filters", "scope and filters"},
           Row{missing.c_str(), fine, kRoom, "scope and filters", "scope and filters"},
           Row{older.c_str(), fine, kRoom, "scope and filters", ""},
           Row{silent.c_str(), fine, kRoom, "", ""},
           Row{faulty.c_str(), fine, kRoom, "store", ""},
           Row{nothing.c_str(), fine, kRoom, "scope and filters", "scope and filters"},
           Row{"{}", {SourceState::kNoRight, "x"}, kRoom, "rights", "rights"},
           Row{"{}", {SourceState::kFails, "x"}, kRoom, "source of the facts", "source of the facts"},
           Row{"{}", {SourceState::kNothing, "x"}, kRoom, "source of the facts", ""},
           Row{"{}", {SourceState::kUnknown, "x"}, kRoom, "", ""},
           Row{late.c_str(), fine, kRoom, "clock and sleep", "clock and sleep"},
           Row{ahead.c_str(), fine, kRoom, "clock and sleep", "clock and sleep"},
           Row{R"({"store":{"problem":"x"}})", fine, kRoom, "store", "store"},
           Row{R"({"store":{"bytes":1,"refused":2}})", fine, kRoom, "store", "store"},
           Row{R"({"store":{"bytes":1,"refused":2,"failing":false}})", fine, kRoom, "", ""},
           Row{"{}", fine, 1 << 20, "disk", "disk"},
       }) {
    Symptoms symptoms{.no_answer = "it is not there", .free_bytes = row.free_bytes};
    symptoms.refused = row.source.text == "refused";
    symptoms.try_source = [&](std::wstring_view) { return row.source; };
    if (row.change[0] != '\0') {
      symptoms.status = SoundStatus();
      Json::Value change;
      std::istringstream(row.change) >> change;
      for (const std::string& key : change.getMemberNames())
        (*symptoms.status)[key] = change[key];
    }
    for (const auto& [dataset, wrong] :
         {std::pair(&kDataset, row.of_dataset), {static_cast<const TVK::Dataset*>(nullptr), row.of_all}}) {
      SCOPED_TRACE(testing::Message() << row.change << ' ' << row.source.text << ' ' << (dataset != nullptr));
      const std::vector<Examination> chain = Examine(symptoms, dataset, runtime.clock());
      std::ostringstream out;
      const std::string step(chain.back().finding == Finding::kWrong ? chain.back().step : "");
      EXPECT_EQ(step, wrong);
      EXPECT_EQ(WriteDiagnosis(chain, false, out), step.empty() ? 0 : step == "service" ? 3 : 4);
      const bool unknown = row.change == silent && dataset != nullptr;
      EXPECT_EQ(out.str().find("nothing is wrong") == std::string::npos, !step.empty() || unknown);
      EXPECT_EQ(out.str().find("nothing is known to be wrong; tvkctl policy check /p.json") != std::string::npos,
                unknown);
      for (std::size_t i = 0; i + 1 < chain.size(); ++i)
        EXPECT_NE(chain[i].finding, Finding::kWrong);
      EXPECT_TRUE(!step.empty() || chain.size() == 8u);
    }
  }
}

TEST(Doctor, TriesTheSourceOfTheDataset) {
  platform::VirtualRuntime runtime;
  const auto machine = std::make_shared<platform::SimulatedMachine>();
  const auto attempt = [&](const wchar_t* dataset) {
    SourceReport report;
    std::thread thread = runtime.StartThread("test", [&] { report = TrySource(dataset, machine, runtime); });
    runtime.Join(thread);
    return report;
  };
  EXPECT_EQ(attempt(L"CPUEvent").state, SourceState::kTells);
  EXPECT_NE(attempt(L"TVKEvent").text.find("tvkctl event"), std::string::npos);
  EXPECT_NE(attempt(L"DisplayEvent").text.find("user agent"), std::string::npos);
  machine->batteries().Change([](auto& batteries) { batteries.clear(); });
  EXPECT_EQ(attempt(L"BatteryEvent").state, SourceState::kNothing);
  machine->drives().Set({{.listing = {.path = "/dev/sda", .bus = platform::DriveBus::kAta, .rotating = false},
                          .opening = platform::DriveResult::kNoRight}});
  EXPECT_EQ(attempt(L"SATA_SSD_SMARTEvent").state, SourceState::kNoRight);
  EXPECT_EQ(attempt(L"PCIe_NVMe_SMARTEvent").state, SourceState::kNothing);
  // A driver that hangs.
  const auto comes_back = runtime.MakeEvent(platform::EventReset::kManual);
  machine->batteries().on_question = [&] { runtime.Wait(*comes_back, platform::kForever); };
  const SourceReport silent = attempt(L"BatteryEvent");
  EXPECT_EQ(silent.state, SourceState::kFails);
  EXPECT_EQ(silent.text, "the machine did not answer within 10 seconds");
  comes_back->Set();
  runtime.Settle();
}

TEST(TimeText, IsShort) {
  for (const auto& [seconds, text] : {std::pair(0, L"now"),
                                      {-1, L"1 s ago"},
                                      {119, L"in 119 s"},
                                      {120, L"in 2 min"},
                                      {-7199, L"119 min ago"},
                                      {-7200, L"2 h ago"},
                                      {47 * 3600, L"in 47 h"},
                                      {-48 * 3600, L"2 d ago"}})
    EXPECT_EQ(FromNow(seconds), text);
}

}  // namespace
}  // namespace tvkctl
