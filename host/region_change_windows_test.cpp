// The user's region, changed in the registry by another process.
#include <gtest/gtest.h>

#include <cstdlib>

#include "host/device_context_event_monitor.h"
#include "platform/local.h"
#include "platform/region.h"
#include "testing/log_capture.h"

namespace {

// Both as text; an empty one: the value is removed.
void SetByAnotherProcess(const std::string& key, const std::string& name, const std::string& value) {
  const std::string where = " \"HKCU\\" + key + "\" /v " + name + " /f";
  const std::string command =
      value.empty() ? "reg delete" + where : "reg add" + where + " /t REG_SZ /d \"" + value + "\"";
  ASSERT_EQ(std::system((command + " >NUL").c_str()), 0) << command;
}

constexpr char kInternational[] = "Control Panel\\International";
constexpr char kGeo[] = "Control Panel\\International\\Geo";

class RegionChangeWindowsTest : public testing::Test {
 protected:
  RegionChangeWindowsTest() { SetByAnotherProcess(kGeo, "Nation", "94"); }
  ~RegionChangeWindowsTest() override {
    monitor_.Stop();
    SetByAnotherProcess(kInternational, "LocaleName", before_.locale_name);
    SetByAnotherProcess(kGeo, "Nation", before_.nation);
  }

  bool Raised() { return runtime_->Wait(*monitor_.getRegionChangeEventHandle(), std::chrono::seconds(20)) == 0; }

  LogCapture log_;
  std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  std::unique_ptr<platform::Machine> machine_ = platform::OpenLocalMachine({}, runtime_->clock());
  const platform::RegionFacts before_ = machine_->region().ReadFacts();
  MachineInformation information_{*machine_, runtime_->clock()};
  RegionInformation region_{machine_->region(), runtime_->clock()};
  DeviceContextEventMonitor monitor_{*runtime_, *machine_, information_};
};

TEST_F(RegionChangeWindowsTest, AnotherProcessChangesNationAndLocale) {
  monitor_.Start();
  ASSERT_TRUE(log_.Has(L"Added user related registry monitors."));
  EXPECT_EQ(region_.Describe(information_.region()).country_code, L"DE");
  SetByAnotherProcess(kGeo, "Nation", "84");
  ASSERT_TRUE(Raised());
  EXPECT_EQ(information_.os_region(), L"84");
  EXPECT_EQ(region_.Describe(information_.region()).country_code, L"FR");

  // Impossible and equal values, then one that counts: only that one may raise the event.
  SetByAnotherProcess(kGeo, "Nation", "99999");
  SetByAnotherProcess(kGeo, "Nation", "99999");
  SetByAnotherProcess(kGeo, "Nation", "94");
  ASSERT_TRUE(Raised());
  EXPECT_EQ(region_.Describe(information_.region()).country_code, L"DE");

  // Last: Wine puts the international settings back when a process starts that finds another locale than its own.
  SetByAnotherProcess(kInternational, "LocaleName", before_.locale_name == "fr-FR" ? "fr-CA" : "fr-FR");
  ASSERT_TRUE(Raised());
  EXPECT_EQ(region_.Describe(information_.region()).language_code, L"fr");
  EXPECT_EQ(log_.Count(L"Setting event on region change"), 3u);
}

}  // namespace
