#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include "client/storage/nvme_controller.h"
#include "client/storage/nvme_health.h"
#include "client/storage/nvme_self_test_log.h"
#include "testing/drive_sectors.h"

namespace TVK {
namespace {

using namespace testing_support;

TEST(NvmeController, ReadsTextsAndSelfTest) {
  Sector data(4096, ' ');
  const auto put = [&](std::size_t at, std::string_view text) { std::ranges::copy(text, data.begin() + at); };
  put(4, "S3CRET-NVME-01234567");
  put(24, "Contoso NVMe");
  put(64, "1.2.3.4x");
  PutLittleEndian(data, 256, 0x0010, 2);
  const auto drive = DecodeNvmeController(data);
  ASSERT_TRUE(drive);
  EXPECT_EQ(drive->serial_number, "S3CRET-NVME-01234567");
  EXPECT_EQ(drive->model, "Contoso NVMe");
  EXPECT_EQ(drive->firmware_version, "1.2.3.4x");
  EXPECT_TRUE(drive->self_test_supported);
  PutLittleEndian(data, 256, 0xFFEF, 2);
  EXPECT_FALSE(DecodeNvmeController(data)->self_test_supported);
  data.pop_back();
  EXPECT_FALSE(DecodeNvmeController(data));
}

TEST(NvmeHealth, ReadsEveryField) {
  Sector page = NvmeHealthPage();
  PutLittleEndian(page, 1, 260, 2);
  PutLittleEndian(page, 32 + 8, 7, 8);
  PutLittleEndian(page, 200, 1, 2);  // the coldest that is no missing sensor
  PutLittleEndian(page, 200 + 2 * 2, 0, 2);
  const auto health = DecodeNvmeHealth(page);
  ASSERT_TRUE(health);
  EXPECT_EQ(health->critical_warning, 4);
  EXPECT_EQ(health->temperature_c, -13);
  EXPECT_EQ(std::tuple(health->available_spare, health->available_spare_threshold, health->percentage_used),
            std::tuple(98, 10, 3));
  EXPECT_EQ(health->data_units_read, (Counter128{1001, 7}));
  std::uint64_t expected = 1002;
  for (const Counter128& counter :
       {health->data_units_written, health->host_read_commands, health->host_written_commands,
        health->controller_busy_time, health->power_cycles, health->power_on_hours, health->unsafe_shutdowns,
        health->media_errors, health->error_log_entries})
    EXPECT_EQ(counter, (Counter128{expected++, 0}));
  EXPECT_EQ(health->warning_temperature_minutes, 5u);
  EXPECT_EQ(health->critical_temperature_minutes, 6u);
  const std::array<std::optional<std::int32_t>, 8> sensors = {-272, 42, std::nullopt, 44, 45, 46, 47, 48};
  EXPECT_EQ(health->sensors_c, sensors);
  page.push_back(0);
  EXPECT_FALSE(DecodeNvmeHealth(page));
}

TEST(Counter128, IsWrittenInFull) {
  constexpr std::uint64_t kMost = ~std::uint64_t{0};
  for (const auto& [counter, text] : {std::pair(Counter128{0, 0}, L"0"),
                                      {{kMost, 0}, L"18446744073709551615"},
                                      {{0, 1}, L"18446744073709551616"},
                                      {{0x4B3B4CA85A86C47A, 0x098A2240}, L"2952358597971973592408573050"},
                                      {{kMost, kMost}, L"340282366920938463463374607431768211455"}})
    EXPECT_EQ(counter.Decimal(), text);
}

TEST(NvmeSelfTestLog, ReadsWhatRunsAndTheNewestResult) {
  struct Row {
    int running, completion, status;
    std::uint8_t runs, percent;
    std::optional<NvmeSelfTestResult> newest;
  };
  constexpr std::uint64_t kHours = 0x0102030405060708;
  for (const Row& row : {Row{0, 0, 0x0F, 0, 0, {}}, Row{0, 55, 0x10, 0, 0, NvmeSelfTestResult{1, 0, kHours}},
                         Row{0xF2, 0x80 | 55, 0x27, 2, 55, NvmeSelfTestResult{2, 7, kHours}}, Row{0, 0, 0x1F, 0, 0, {}},
                         Row{1, 100, 0x00, 1, 100, {}}}) {
    Sector page(564);
    PutLittleEndian(page, 0, static_cast<std::uint64_t>(row.running), 1);
    PutLittleEndian(page, 1, static_cast<std::uint64_t>(row.completion), 1);
    PutLittleEndian(page, 4, static_cast<std::uint64_t>(row.status), 1);
    PutLittleEndian(page, 8, kHours, 8);
    const auto log = DecodeNvmeSelfTestLog(page);
    ASSERT_TRUE(log);
    EXPECT_EQ(std::tuple(log->running, log->percent_complete), std::tuple(row.runs, row.percent)) << row.status;
    EXPECT_EQ(log->newest, row.newest) << row.status;
    page.pop_back();
    EXPECT_FALSE(DecodeNvmeSelfTestLog(page));
  }
}

}  // namespace
}  // namespace TVK
