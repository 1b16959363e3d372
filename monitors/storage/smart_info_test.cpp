#include "monitors/storage/smart_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>

#include "monitors/storage/pcie_nvme_smart_info.h"
#include "testing/drive_sectors.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace testing_support;
using ::testing::ElementsAre;
using ::testing::Pair;

class SmartInfoTest : public testing::Test {
 protected:
  SmartInfoTest() { utility::InitLog(log_, L"test.log", 4); }

  const LogCapture logs_;
  Log log_;
};

TEST_F(SmartInfoTest, NamesTheAttributesOfItsTable) {
  for (const auto& [names, ids, different] : {std::tuple(&kSataSmartNames, 35, 35u), {&kGenericSmartNames, 80, 75u}}) {
    std::set<std::wstring_view> texts;
    for (const std::wstring_view name : *names)
      if (!name.empty()) texts.insert(name);
    EXPECT_EQ(256 - std::ranges::count(*names, L""), ids);
    EXPECT_EQ(texts.size(), different);
  }
  const auto smart = DecodeAtaSmart(AtaValues({{.id = 178, .raw = 7}, {.id = 251, .raw = 0xFFFFFFFFFFFF}}), {});
  ItemData data;
  EXPECT_TRUE(SATASmartInfo(log_).FillSmartAttribValues2(*smart, data));
  EXPECT_TRUE(SmartInfo(log_).FillSmartAttribValues2(*smart, data));
  EXPECT_THAT(data,
              ElementsAre(Pair(L"MinimumSparesReamaining",
                               LR"({ "raw": "281474976710655","normalized": "100","threshold": "","worst": "100"})"),
                          Pair(L"UsedReservedBlockCount",
                               LR"({ "raw": "7","normalized": "100","threshold": "","worst": "100"})")));
}

TEST_F(SmartInfoTest, ReadsTheThresholdsOrLeavesThemOut) {
  const auto smart = DecodeAtaSmart(
      AtaValues({{.id = 211, .raw = 1}, {.id = 255}, {.id = 210, .normalized = 0, .worst = 9, .raw = 10}}),
      AtaThresholds({{210, 255}}));
  ItemData data;
  EXPECT_TRUE(SmartInfo(log_).FillSmartAttribValues2(*smart, data));
  EXPECT_THAT(data, ElementsAre(Pair(L"VibrationDuringWrite",
                                     LR"({ "raw": "10","normalized": "0","threshold": "255","worst": "9"})")));
  EXPECT_TRUE(SmartInfo(log_).FillSmartAttribValues(*smart, data));
  EXPECT_THAT(data, ElementsAre(Pair(L"VibrationDuringWrite",
                                     LR"({ "raw": "10","normalized": "0","threshold": "","worst": "9"})")));
  EXPECT_THAT(logs_.Lines(), ElementsAre());
}

TEST_F(SmartInfoTest, SaysThatNothingHasAName) {
  AtaSmart smart;
  smart.attributes = {{.id = 255, .threshold = {}}};
  ItemData data;
  EXPECT_FALSE(SmartInfo(log_).FillSmartAttribValues(smart, data));
  EXPECT_FALSE(SATASmartInfo(log_).FillSmartAttribValues2(smart, data));
  EXPECT_TRUE(data.empty());
  EXPECT_THAT(
      logs_.Lines(),
      ElementsAre(L"SmartInfo FillSmartAttribValues failed reason: the drive tells no attribute that has a name",
                  L"SATASmartInfo FillSmartAttribValues2 failed reason: "
                  L"the drive tells no attribute that has a name"));
}

TEST_F(SmartInfoTest, FindsWhatIsAtOrBelowItsThreshold) {
  AtaSmart smart;
  smart.attributes = {{.id = 255, .normalized = 1, .threshold = 9},  // has no name
                      {.id = 1, .normalized = 0, .threshold = 9},    // tells no value
                      {.id = 3, .normalized = 1, .threshold = {}},
                      {.id = 4, .normalized = 10, .threshold = 9}};
  EXPECT_FALSE(SmartInfo(log_).FoundPredictFailure(smart));
  EXPECT_THAT(logs_.Lines(), ElementsAre());
  smart.attributes.push_back({.id = 10, .normalized = 9, .worst = 8, .threshold = 9});
  smart.attributes.push_back({.id = 5, .normalized = 1, .threshold = 36});
  const auto first = SmartInfo(log_).FoundPredictFailure(smart);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->getAttribute(), smart.attributes[4]);
  EXPECT_THAT(logs_.Lines(), ElementsAre(L"SmartInfo::FoundPredictFailure: SpinupRetryCount,value=9,worst=8,thresh=9"));
  using StorageCollector::HardDiskSmartInfo;
  EXPECT_THAT(SmartInfo(log_).PredictedFailures(smart),
              ElementsAre(testing::Property(&HardDiskSmartInfo::getName, L"SpinupRetryCount"),
                          testing::Property(&HardDiskSmartInfo::getName, L"ReallocatedSectorCount")));
  EXPECT_EQ(SATASmartInfo(log_).FoundPredictFailure(smart)->getName(), L"ReallocatedSectorCount");
}

TEST_F(SmartInfoTest, NvmeItemDataHasEveryField) {
  Sector page = NvmeHealthPage();
  PutLittleEndian(page, 1, 233, 2);
  PutLittleEndian(page, 40, 1, 8);
  PutLittleEndian(page, 202, 0, 2);
  PCIeNVMeSmartInfo info(log_);
  ItemData data;
  EXPECT_EQ(info.ReadSMARTInfo([&](NvmeHealth& health) {
    health = *DecodeNvmeHealth(page);
    return 0;
  }),
            0);
  EXPECT_EQ(info.GetSmartInfoList(data), 0);
  const ItemData expected = {{L"CriticalWarning", L"4"},
                             {L"TemperatureC", L"-40"},
                             {L"AvailableSpare", L"98"},
                             {L"AvailableSpareThreshold", L"10"},
                             {L"PercentageUsed", L"3"},
                             {L"DataUnitsRead", L"18446744073709552617"},
                             {L"DataUnitsWritten", L"1002"},
                             {L"HostReadCommands", L"1003"},
                             {L"HostWrittenCommands", L"1004"},
                             {L"ControllerBusyTime", L"1005"},
                             {L"PowerCycle", L"1006"},
                             {L"PowerOnHours", L"1007"},
                             {L"UnsafeShutdowns", L"1008"},
                             {L"MediaErrors", L"1009"},
                             {L"ErrorInfoLogEntryCount", L"1010"},
                             {L"WarningCompositeTemperatureTime", L"5"},
                             {L"CriticalCompositeTemperatureTime", L"6"},
                             {L"TemperatureSensor1", L"41"},
                             {L"TemperatureSensor3", L"43"},
                             {L"TemperatureSensor4", L"44"},
                             {L"TemperatureSensor5", L"45"},
                             {L"TemperatureSensor6", L"46"},
                             {L"TemperatureSensor7", L"47"},
                             {L"TemperatureSensor8", L"48"}};
  EXPECT_EQ(data, expected);
}

TEST_F(SmartInfoTest, NvmeSaysWhyThereIsNothing) {
  PCIeNVMeSmartInfo info(log_);
  ItemData data;
  EXPECT_EQ(info.ReadSMARTInfo([](NvmeHealth&) { return 0; }), 0);
  EXPECT_EQ(info.ReadSMARTInfo([](NvmeHealth&) { return 5; }), 5);
  EXPECT_EQ(info.ReadSMARTInfo([](NvmeHealth&) -> int { throw std::runtime_error("gone"); }), -1);
  EXPECT_EQ(info.GetSmartInfoList(data), 1168);
  EXPECT_TRUE(data.empty());
  EXPECT_THAT(logs_.Lines(), ElementsAre(L"PCIeNVMeSmartInfo::ReadSMARTInfo: Failed retCode: 5",
                                         L"PCIeNVMeSmartInfo::ReadSMARTInfo: Exception: gone",
                                         L"PCIeNVMeSmartInfo::GetSmartInfoList: Failed retCode: 1168"));
}

}  // namespace
}  // namespace TVK
