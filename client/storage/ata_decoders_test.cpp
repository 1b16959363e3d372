#include <gtest/gtest.h>

#include <tuple>

#include "client/storage/ata_identify.h"
#include "client/storage/ata_self_test_log.h"
#include "client/storage/ata_smart.h"
#include "testing/drive_sectors.h"

namespace TVK {
namespace {

using namespace testing_support;

TEST(AtaIdentify, ReadsTextsAndFeatures) {
  const auto drive = DecodeAtaIdentify(AtaIdentify({.model = "  Contoso\tX\x7F", .serial = "S 1"}));
  ASSERT_TRUE(drive);
  EXPECT_EQ(drive->model, "Contoso X");
  EXPECT_EQ(drive->serial_number, "S 1");
  EXPECT_EQ(drive->firmware_version, "FW1.20");
  for (const auto& [supported, enabled, expected] : {std::tuple(0x4000, 0x4000, std::tuple(true, true, true)),
                                                     {0xC000, 0x4000, {false, true, false}},
                                                     {0x4000, 0x0000, {true, false, true}}}) {
    const auto features = DecodeAtaIdentify(AtaIdentify({.supported_mark = static_cast<std::uint16_t>(supported),
                                                         .enabled_mark = static_cast<std::uint16_t>(enabled)}));
    EXPECT_EQ(std::tuple(features->smart_supported, features->smart_enabled, features->self_test_supported), expected);
  }
  for (const std::size_t feature : {82, 84, 85}) {
    Sector sector = AtaIdentify();
    sector[2 * feature] = 0;
    const auto without = DecodeAtaIdentify(WithChecksum(sector));
    EXPECT_EQ(without->smart_supported, feature != 82);
    EXPECT_EQ(without->self_test_supported, feature != 84);
    EXPECT_EQ(without->smart_enabled, feature != 85);
  }
}

TEST(AtaIdentify, KnowsWhatRotates) {
  for (const auto& [rate, rotating] : {std::pair(0, std::optional<bool>()),
                                       {1, false},
                                       {2, std::nullopt},
                                       {0x0400, std::nullopt},
                                       {0x0401, true},
                                       {7200, true},
                                       {0xFFFE, true},
                                       {0xFFFF, std::nullopt}}) {
    EXPECT_EQ(DecodeAtaIdentify(AtaIdentify({.rotation_rate = static_cast<std::uint16_t>(rate)}))->rotating, rotating)
        << rate;
  }
}

TEST(AtaIdentify, RefusesDamageAndPacketDevices) {
  Sector sector = AtaIdentify();
  EXPECT_FALSE(DecodeAtaIdentify(std::span(sector).first(511)));
  sector[300] ^= 1;
  EXPECT_FALSE(DecodeAtaIdentify(sector));
  sector[510] = 0;  // No checksum.
  EXPECT_TRUE(DecodeAtaIdentify(sector));
  EXPECT_FALSE(DecodeAtaIdentify(AtaIdentify({.configuration = 0x85C0})));
  EXPECT_TRUE(DecodeAtaIdentify(AtaIdentify({.configuration = 0x848A})));  // A memory card.
}

TEST(AtaSmart, JoinsAttributesWithThresholdsById) {
  const Sector values = AtaValues({{.id = 5, .normalized = 99, .worst = 98, .raw = 0xFEDCBA987654},
                                   {},
                                   {.id = 9, .normalized = 0, .worst = 253, .raw = 1},
                                   {.id = 194}},
                                  0xF3);
  const auto smart = DecodeAtaSmart(values, AtaThresholds({{9, 20}, {5, 36}, {5, 1}, {200, 7}}));
  ASSERT_TRUE(smart);
  const std::vector<AtaAttribute> expected = {
      {5, 99, 98, 0xFEDCBA987654, 36}, {9, 0, 253, 1, 20}, {194, 100, 100, 0, {}}};
  EXPECT_EQ(smart->attributes, expected);
  EXPECT_EQ(smart->self_test, (AtaSelfTestStatus{kAtaSelfTestRuns, 3}));
  EXPECT_TRUE(smart->self_test_supported);
  EXPECT_EQ(smart->short_test_minutes, 2);
  for (const std::uint8_t capability : {std::uint8_t{0x5A}, std::uint8_t{0x4B}}) {
    Sector less = values;
    less[367] = capability;
    EXPECT_FALSE(DecodeAtaSmart(WithChecksum(less), {})->self_test_supported);
  }
}

TEST(AtaSmart, ReadsThirtyEntriesAndNoDamage) {
  Sector values = AtaValues(std::vector<AttributeSpec>(31, {.id = 7}), 0x74);
  Sector thresholds = AtaThresholds(std::vector<ThresholdSpec>(30, {7, 50}));
  const auto smart = DecodeAtaSmart(values, thresholds);
  ASSERT_TRUE(smart);
  EXPECT_EQ(smart->attributes.size(), 30u);
  EXPECT_EQ(smart->attributes.back().threshold, 50);
  EXPECT_EQ(smart->self_test, (AtaSelfTestStatus{7, 0}));
  thresholds[511] ^= 1;
  EXPECT_FALSE(DecodeAtaSmart(values, thresholds)->attributes.back().threshold);
  EXPECT_FALSE(DecodeAtaSmart(values, {})->attributes.back().threshold);
  values.push_back(0);
  EXPECT_FALSE(DecodeAtaSmart(values, {}));
  values.resize(511);
  EXPECT_FALSE(DecodeAtaSmart(values, {}));
  values.push_back(1);
  EXPECT_FALSE(DecodeAtaSmart(values, {}));
}

TEST(AtaSelfTestLog, ReadsTheNewestEntry) {
  for (const auto& [index, status, lba, expected] :
       {std::tuple(1, 0x00, 77u, std::optional(AtaSelfTestLog{AtaSelfTestEntry{1, {0, 0}, 0x1234, {}, 1}})),
        {21, 0x72, 77u, AtaSelfTestLog{AtaSelfTestEntry{1, {7, 0}, 0x1234, 77, 21}}},
        {2, 0x70, 0xFFFFFFFF, AtaSelfTestLog{AtaSelfTestEntry{1, {7, 0}, 0x1234, {}, 2}}},
        {3, 0xF9, 77u, AtaSelfTestLog{AtaSelfTestEntry{1, {15, 9}, 0x1234, {}, 3}}},
        {0, 0x00, 0u, AtaSelfTestLog{}},
        {22, 0x00, 0u, {}}}) {
    Sector sector(512);
    const std::size_t at = 2 + 24 * (static_cast<std::size_t>(index) - 1);
    if (expected && expected->newest) {
      PutLittleEndian(sector, at, 1, 1);
      PutLittleEndian(sector, at + 1, status, 1);
      PutLittleEndian(sector, at + 2, 0x1234, 2);
      PutLittleEndian(sector, at + 5, lba, 4);
    }
    sector[508] = static_cast<std::uint8_t>(index);
    EXPECT_EQ(DecodeAtaSelfTestLog(WithChecksum(sector)), expected) << index;
    sector[510] ^= 1;
    EXPECT_FALSE(DecodeAtaSelfTestLog(sector));
  }
  Sector empty(512);
  empty[508] = 4;
  EXPECT_EQ(DecodeAtaSelfTestLog(WithChecksum(empty)), AtaSelfTestLog());
}

}  // namespace
}  // namespace TVK
