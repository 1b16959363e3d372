#include "client/battery/battery_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "client/battery/battery_item_data.h"
#include "client/battery/smart_battery_status.h"
#include "platform/simulated/simulated_batteries.h"
#include "testing/battery_blocks.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

using namespace testing_support;
using platform::PowerManagerLog;

/// Everything that records tell of it, "Key=text;" by key; the hash of a serial number as the number behind a "#".
std::wstring Facts(const BatteryInfo& battery) {
  ItemData data = BatteryContextItemData(battery);
  data.merge(BatteryItemData(battery));
  const std::wstring& serial = battery.batterySerialNumber();
  std::wstring facts;
  for (const auto& [key, text] : data)
    facts += key + L'=' + (text == BatteryInfo::GetHashedString(serial) ? L'#' + serial : text) + L';';
  return facts;
}

/// Of the first slots of a machine; nothing else is known of them.
std::list<BatteryInfo> InSlots(std::uint32_t count) {
  std::list<BatteryInfo> list(count);
  std::uint32_t number = 0;
  for (BatteryInfo& battery : list)
    battery.set_number(number++);
  return list;
}

class BatterySourceTest : public testing::Test {
 protected:
  static Log OpenLog() {
    Log log;
    utility::InitLog(log, L"BatteryInfo.log", 4);
    return log;
  }
  BatteryInfo AskDriver() {
    std::list<BatteryInfo> list = InSlots(1);
    GetBatteryInfoFromEmDriver(power_manager_, list);
    return list.front();
  }

  LogCapture lines_;
  SourceFaults faults_{OpenLog(), L"It"};
  platform::SimulatedPowerManager power_manager_;
};

TEST_F(BatterySourceTest, TheDriverTellsWhatItsThreeBlocksHold) {
  power_manager_.Set({.driver = {{{0x831020F8, 1}, EmIdentityBlock()},
                                 {{0x83102120, 1}, EmConditionBlock()},
                                 {{0x83102138, 1}, EmUsageBlock()}}});
  std::list<BatteryInfo> batteries = InSlots(2);
  GetBatteryInfoFromEmDriver(power_manager_, batteries);
  EXPECT_EQ(Facts(batteries.front()), L"");
  EXPECT_EQ(Facts(batteries.back()),
            L"Chemistry=LiP;Condition=Performance Degradation;CycleCount=200;DesignChargeCapacity=57020;"
            L"DeviceName=5B10W13930;FirstUseDate=2024-02-29;FullChargeCapacity=51000;"
            L"FwVersion=8899-AABB-CCDD-EEFF;HoursAtFullCharge=203;HoursAtFullChargeAndHighTemp=205;"
            L"HoursAtHighTemp=204;Hwid=0011-2233-4455-6677;ManufactureDate=2023-12-31;Manufacturer=Fabrikam;"
            L"RemainingCapacity=0;SerialNumber=#EM-0815;TotalBatteryAwakeHrs=202;TotalChargedCapacity=201;");
  EXPECT_EQ(batteries.back().EmBatteryInfo().design_mwh, 57'020u);
}

TEST_F(BatterySourceTest, ABatteryIsAskedForByItsSlotAndIsNotMixedWithAnother) {
  const std::string log = "Battery=1\nUsage=2024-05-31,1,9\nBattery=2\nUsage=2024-05-31,2,812\n";
  power_manager_.Set({.driver = {{{0x831020F8, 0}, EmIdentityBlock("OTHER")},
                                 {{0x831020F8, 1}, EmIdentityBlock("SN-2")},
                                 {{0x83102138, 1}, EmUsageBlock()}},
                      .smart_batteries = {{1, {.information_block = SmartInformationBlock("OTHER")}},
                                          {2,
                                           {.status_block = SmartStatusBlock(0x10),
                                            .information_block = SmartInformationBlock("SN-2")}}},
                      .firmware = {{2, {1, 2, 3, 4}}},
                      .logs = {.logs = {{.name = "a.PWM", .bytes = log.size(), .text = log}}}});
  struct Row {
    std::optional<std::uint32_t> number;
    const wchar_t* serial_number;
    bool from_driver_and_library, from_log;
  };
  for (const Row& row : {Row{1, L"SN-2", true, true}, Row{1, L"UnKnown", true, true}, Row{1, L"SN-3", false, true},
                         Row{2, L"SN-2", false, false}, Row{std::nullopt, L"SN-2", false, false}}) {
    SCOPED_TRACE(testing::PrintToString(row.serial_number));
    std::list<BatteryInfo> list(1);
    BatteryInfo& battery = list.front();
    battery.set_number(row.number);
    battery.set_batterySerialNumber(row.serial_number);
    BatteryInfo before = battery;
    GetBatteryInfoFromEmDriver(power_manager_, list);
    EXPECT_EQ(battery.batteryManufactureName(), row.from_driver_and_library ? L"Fabrikam" : L"UnKnown");
    EXPECT_EQ(battery.EmBatteryInfo() != _EM_BATTERY_INFO(), row.from_driver_and_library);
    EXPECT_EQ(Facts(battery) != Facts(before), row.from_driver_and_library);
    battery = before;
    GetBatteryInfoFromPMDriver(power_manager_, list, faults_);
    EXPECT_EQ(battery.batteryCondition(), row.from_driver_and_library ? L"Overheated" : L"UnKnown");
    EXPECT_EQ(Facts(battery) != Facts(before), row.from_driver_and_library);
    battery = before;
    GetBatteryInfoFromPwmLogFile(power_manager_, list, faults_);
    EXPECT_EQ(battery.batteryTotalBatteryAwakeHrs(), row.from_log ? L"812" : L"UnKnown");
  }
}

TEST_F(BatterySourceTest, AFaultIsToldAsItBeginsAndWhenAllHasEnded) {
  const auto library = [&](std::optional<std::uint32_t> first, std::optional<std::uint32_t> second) {
    platform::PowerManagerScript script;
    if (first) script.smart_batteries[1] = {.result = *first};
    if (second) script.smart_batteries[2] = {.result = *second};
    power_manager_.Set(std::move(script));
    std::list<BatteryInfo> list = InSlots(2);
    lines_.Clear();
    GetBatteryInfoFromPMDriver(power_manager_, list, faults_);
    return lines_.Lines();
  };
  using Lines = std::vector<std::wstring>;
  const auto failed = [](int status) { return L"GetBatteryInfoFromPMDriver failed=" + std::to_wstring(status); };
  EXPECT_EQ(library(5, 0), Lines{failed(5)});
  EXPECT_EQ(library(5, 5), Lines{failed(5)}) << "of the other one";
  EXPECT_EQ(library(5, 5), Lines());
  EXPECT_EQ(library(7, 5), Lines{failed(7)});
  EXPECT_EQ(library(std::nullopt, std::nullopt), Lines()) << "no answer says nothing";
  EXPECT_EQ(library(0, 5), Lines());
  EXPECT_EQ(library(0, 0), Lines{L"It: it works again"});
  EXPECT_EQ(library(0, 0), Lines());
  EXPECT_EQ(library(0, 5), Lines{failed(5)});
  EXPECT_EQ(library(0, 0), Lines{L"It: it works again"});

  const auto files = [&](std::uint64_t bytes, const std::string& text, std::optional<std::uint32_t> refusal = {}) {
    power_manager_.Set(
        {.logs = {.logs = {{.name = "a.PWM", .bytes = bytes}, {.name = "b.PWM", .bytes = text.size(), .text = text}},
                  .refusal = refusal}});
    std::list<BatteryInfo> list = InSlots(1);
    lines_.Clear();
    GetBatteryInfoFromPwmLogFile(power_manager_, list, faults_);
    return lines_.Lines().size();
  };
  EXPECT_EQ(files(2'000'000, "Battery=0\n", 5), 3u);
  EXPECT_EQ(files(2'000'001, "Battery=0\nUsage=1\n", 5), 0u) << "it went on growing";
  EXPECT_EQ(files(2'000'001, "\nBattery=0\n", 6), 2u) << "in another line, another refusal";
  EXPECT_EQ(files(2'000'001, "\nBattery=0\n"), 0u);
  EXPECT_EQ(files(10, "Battery=1\n"), 1u);
}

TEST_F(BatterySourceTest, ABlockOfTheDriverGivesWhatItHolds) {
  const auto count = [&](std::uint32_t code, BatteryBytes block) {
    power_manager_.Set({.driver = {{{code, 0}, std::move(block)}}});
    return std::ranges::count(Facts(AskDriver()), L';');
  };
  for (const auto& [code, whole, ends] :
       {std::tuple(0x831020F8u, EmIdentityBlock(), std::vector<std::ptrdiff_t>{8, 16, 20, 24, 28, 60, 92, 124, 140}),
        {0x83102120u, EmConditionBlock(), {4, 8, 12}},
        {0x83102138u, EmUsageBlock(), {4, 8, 12, 16, 20, 24}}}) {
    for (int i = 0; i < std::ssize(ends); ++i) {
      EXPECT_EQ(count(code, {whole.begin(), whole.begin() + ends[i]}), i + 1);
      EXPECT_EQ(count(code, {whole.begin(), whole.begin() + ends[i] - 1}), i);
    }
    EXPECT_EQ(count(code, BatteryBytes(512, 0xFF)), 0);  // unknown, one and all
  }
  EXPECT_EQ(count(0x831020F8, BatteryBytes(140)), 0);
  for (const auto& [condition, words] : {std::pair(0u, L"Normal"), {2u, L"Unsupported"}, {3u, L"UnKnown"}}) {
    count(0x83102120, EmConditionBlock(condition));
    EXPECT_EQ(AskDriver().batteryCondition(), words);
  }
}

TEST_F(BatterySourceTest, TheLibraryFillsGapsAndItsConditionAndFirmwareStand) {
  std::list<BatteryInfo> list = InSlots(3);
  list.front().set_batteryCondition(L"Performance Degradation");
  list.front().set_batteryFwVersion(L"8899-AABB-CCDD-EEFF");
  list.front().set_batteryCycleCount(L"7");
  list.back().set_batteryCondition(L"Normal");
  power_manager_.Set(
      {.smart_batteries =
           {{1,
             {.result = 0x10003, .status_block = SmartStatusBlock(0x08), .information_block = SmartInformationBlock()}},
            {3, {.result = 0, .status_block = {}, .information_block = SmartInformationBlock("", "", 8)}}},
       .firmware = {{1, {0x1, 0xABC, 0x0, 0xFFFF}}, {2, {1, 2, 3, 4}}}});
  GetBatteryInfoFromPMDriver(power_manager_, list, faults_);
  EXPECT_EQ(Facts(list.front()),
            L"Chemistry=LiP;Condition=Trickle Charge;CycleCount=7;DesignChargeCapacity=57030;"
            L"DeviceName=5B10W13930;FirstUseDate=2023-11-30;FullChargeCapacity=50000;"
            L"FwVersion=0001-0abc-0000-ffff;HoursAtFullCharge=303;HoursAtFullChargeAndHighTemp=305;"
            L"HoursAtHighTemp=304;ManufactureDate=2023-05-03;Manufacturer=Litware;RemainingCapacity=25000;"
            L"SerialNumber=#SM-0815;TotalBatteryAwakeHrs=302;TotalChargedCapacity=301;ValidWarranty=true;"
            L"Warranty=3 years, on site;");
  EXPECT_EQ(Facts(*std::next(list.begin())), L"");
  EXPECT_EQ(Facts(list.back()), L"Condition=Normal;ValidWarranty=true;");
}

TEST_F(BatterySourceTest, TheLowStatusOfTheLibraryDecides) {
  for (const std::uint32_t result : {0, 1, 2, 3, 4, 5, 6, 7, 8, 0x10007, 0x10000, 0x107}) {
    const bool failed = result == 1 || result == 5 || result == 7 || result == 0x10007;
    SCOPED_TRACE(result);
    lines_.Clear();
    SourceFaults faults(OpenLog(), L"It");
    std::list<BatteryInfo> list = InSlots(1);
    power_manager_.Set({.smart_batteries = {{1, {.result = result, .status_block = SmartStatusBlock()}}},
                        .firmware = {{1, {1, 2, 3, 4}}}});
    GetBatteryInfoFromPMDriver(power_manager_, list, faults);
    EXPECT_EQ(Facts(list.front()).empty(), failed);
    const std::wstring said = L"GetBatteryInfoFromPMDriver failed=" + std::to_wstring(result & 0xFFFF);
    EXPECT_EQ(lines_.Lines(), failed ? std::vector{said} : std::vector<std::wstring>());
  }
}

TEST(SmartBatteryTest, ConditionsAreSingleBits) {
  using Words = std::map<std::uint32_t, std::wstring>;
  for (const auto& [bits, words] : Words{{0, L"Normal"},
                                         {1, L"Permanent Error"},
                                         {2, L"Unsupported"},
                                         {4, L"High Temperature"},
                                         {8, L"Trickle Charge"},
                                         {16, L"Overheated"},
                                         {6, L"Abnormal6"},
                                         {32, L"Abnormal20"},
                                         {0xABCD0000, L"Abnormalabcd0000"}})
    EXPECT_EQ(SmartBatteryCondition(bits), words);
}

TEST(SmartBatteryTest, OnlyWhatWasFilledAndMakesSenseIsTold) {
  const auto date = [](std::string_view text) {
    return DecodeSmartBatteryStatus({}, SmartInformationBlock("", text)).manufactured;
  };
  using std::chrono::year;
  for (const auto& [text, told] : {std::pair("2024-2-29", std::optional(year(2024) / 2 / 29)),
                                   {"1980-01-01", year(1980) / 1 / 1},
                                   {" 2107-12-31 ", year(2107) / 12 / 31}})
    EXPECT_EQ(date(text), told) << text;
  for (const char* const text :
       {"", "2023-2-29", "2024-13-1", "2024-0-1", "2024-1-32", "2024-257-1", "1979-12-31", "24-5-31", "2108-1-1",
        "2024-5", "2024-5-", "2024-5-3x", "2024--5-3", "-5-3", "2024/5/3", "2024-5-3-1"})
    EXPECT_EQ(date(text), std::nullopt) << text;

  for (const auto& [filled, bits, full] : {std::tuple(0u, false, false),
                                           {4u, false, false},
                                           {7u, false, false},
                                           {8u, true, false},
                                           {12u, true, true},
                                           {0xFFFFFFFFu, false, false},
                                           {1000u, true, true}}) {
    const auto status = DecodeSmartBatteryStatus(SmartStatusBlock(0, filled), {});
    EXPECT_EQ(status.status_bits.has_value(), bits) << filled;
    EXPECT_EQ(status.full_mwh.has_value(), full) << filled;
  }
  BatteryBytes information = SmartInformationBlock();
  for (const auto& [number, valid] : {std::pair(0, std::optional(false)), {1, true}, {2, std::nullopt}}) {
    PutLittleEndian(information, 4, static_cast<std::uint64_t>(number), 4);
    EXPECT_EQ(DecodeSmartBatteryStatus({}, information).warranty_valid, valid);
  }
}

struct PwmRow {
  std::string text;
  std::wstring first, second;  // what the machine's batteries then have
  std::vector<std::wstring> said = {};
};

TEST_F(BatterySourceTest, ALogFileTellsOfTheBatteriesThatItNames) {
  const std::wstring usage = L"CycleCount=120;TotalBatteryAwakeHrs=812;";
  const std::wstring fault = L"mFileTool::GetPwmFileInfo, line ";
  for (const PwmRow& row : std::vector<PwmRow>{
           {"Battery=1\nUsage=2024-05-31,120,812\n", usage, L""},
           {"\xEF\xBB\xBF Battery = 2 \r\n\r\nUsage =2024-05-31 , 120,,812,\r\nA heading\nColour=red,blue", L"", usage},
           // The latest day, of one day the last; the earliest first use.
           {"Battery=1\nUsage=2024-05-31,9,9\nUsage=2024-05-31,120,812\nUsage=2024-05-30,7,7\nFirstUseDate=2023-04-02\n"
            "Battery=2\nFirstUseDate=2023-4-9\nBattery=1\nFirstUseDate=2023-04-01\nFirstUseDate=2023-04-03",
            L"CycleCount=120;FirstUseDate=2023-04-01;TotalBatteryAwakeHrs=812;", L"FirstUseDate=2023-04-09;"},
           // The serial number decides where the machine knows it (the second's), else the number.
           {"Battery=1,OTHER\nUsage=2024-05-31,120,812", usage, L""},
           {"Battery=1,ABC\nUsage=2024-05-31,120,812", L"", usage},
           {"Battery=2,UnKnown\nUsage=2024-05-31,120,812", L"", usage},
           {"Battery=2,OTHER\nUsage=2024-05-31,120,812", L"", L""},
           {"Battery=3,ABC\nUsage=2024-05-31,120,812", L"", usage},
           // Of two for a battery whose number the machine does not know, the one that was used last.
           {"Battery=1,OLD\nFirstUseDate=2019-01-01\nUsage=2022-01-01,9,9\nBattery=1,NEW\nUsage=2024-05-31,120,812",
            usage, L""},
           // What cannot be used is left out, and what follows a battery that cannot be read is nobody's.
           {"Usage=2024-05-31,120,812", L"", L"", {fault + L"1: it follows no battery"}},
           {"Battery=1\nBattery=0,SECRET\nUsage=2024-05-31,120,812", L"", L"", {fault + L"2: a field is 0"}},
           {"Battery=SECRET\n", L"", L"", {fault + L"1: a field is no number"}},
           {"Battery=4294967296\n", L"", L"", {fault + L"1: a field is no number"}},
           {"Battery=1\nUsage=2024-05-31,120\nUsage=SECRET\nUsage=2024-05-31,120,812,3\nFirstUseDate=2023-04-01,"
            "1\nBattery=1,2,3\nUsage=2024-05-31,120,812",
            L"",
            L"",
            {fault + L"2: another number of fields than its name wants"}},
           {"Battery=1\nFirstUseDate=2024-02-30\nUsage=2024-05-31,120,812\nUsage=2024-06-01,0,1",
            usage,
            L"",
            {fault + L"2: a field is no date"}},
           {"Battery=1\nBattery=2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18\nUsage=,1,2,3,4,5,6,7,8,9,0,1,2,3,4,5,6,"
            "7\nUsage=2024-05-31,120,812",
            L"",
            L"",
            {L"PwmFileTool::GetPwmLineDataFieldList, line 2: too many fields", fault + L"4: it follows no battery"}},
           {"Battery=1\n\xFF", L"", L"", {L"mFileTool::GetPwmFileInfo, the file is no UTF-8 text"}},
           {std::string("B\0a\0", 4), L"", L"", {L"mFileTool::GetPwmFileInfo, the file is no UTF-8 text"}},
       }) {
    SCOPED_TRACE(row.text);
    lines_.Clear();
    SourceFaults faults(OpenLog(), L"It");
    std::list<BatteryInfo> list = InSlots(2);
    list.back().set_batterySerialNumber(L"ABC");
    power_manager_.Set({.logs = {.logs = {{.name = "a.PWM", .bytes = row.text.size(), .text = row.text}}}});
    GetBatteryInfoFromPwmLogFile(power_manager_, list, faults);
    EXPECT_EQ(Facts(list.front()), row.first);
    list.back().set_batterySerialNumber(L"");
    EXPECT_EQ(Facts(list.back()), row.second);
    EXPECT_EQ(lines_.Lines(), row.said);
  }
}

TEST_F(BatterySourceTest, LogFilesFillGapsTheNewestFirst) {
  std::string many;
  for (int i = 1; i <= 17; ++i)
    many += "Battery=" + std::to_string(i) + "\nUsage=2023-01-01," + std::to_string(i) + ",1\n";
  std::vector<PowerManagerLog> logs;
  for (const std::string_view text : {std::string_view("Battery=1\nUsage=2024-05-31,120,812"),
                                      std::string_view("Battery=1\nUsage=2024-05-30,9,9"), std::string_view(many)})
    logs.push_back({.name = "a.PWM", .bytes = text.size(), .text = std::string(text)});
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{1} << 20, (std::uint64_t{1} << 20) + 1})
    logs.push_back(
        {.name = std::to_string(size) + ".PWM", .bytes = size, .text = "Battery=16\nFirstUseDate=2023-04-01"});
  power_manager_.Set({.logs = {.logs = logs, .refusal = 1300, .failure = 1460}});
  std::list<BatteryInfo> list = InSlots(17);
  list.front().set_batteryTotalBatteryAwakeHrs(L"5");
  GetBatteryInfoFromPwmLogFile(power_manager_, list, faults_);
  EXPECT_EQ(Facts(list.front()), L"CycleCount=120;TotalBatteryAwakeHrs=5;");
  EXPECT_EQ(list.front().pwmFileInfo().usage_hours, 812u);
  EXPECT_EQ(list.front().pwmFileInfo().battery_number, 1u);
  EXPECT_EQ(std::next(list.rbegin())->batteryFirstUseDate(), L"2023-04-01");
  EXPECT_EQ(list.back().batteryCycleCount(), L"UnKnown");
  EXPECT_EQ(lines_.Lines(), (std::vector<std::wstring>{
                                L"PwmFileTool::GetPwmFileInfo ImperonateLogonUser failed,should run it with system "
                                L"privilege,errorcode=1300\n",
                                L"PwmFileTool::GetPwmFileInfoList the log files could not be read, error 1460",
                                L"mFileTool::GetPwmFileInfo, line 33: too many batteries",
                                L"PwmFileTool::GetPwmFileInfoList PWM log file size (0 bytes) is out of range",
                                L"PwmFileTool::GetPwmFileInfoList PWM log file size (1048577 bytes) is out of range"}));
}

}  // namespace
}  // namespace TVK
