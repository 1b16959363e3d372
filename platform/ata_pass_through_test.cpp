#include "platform/ata_pass_through.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using enum DriveResult;

TEST(AtaPassThroughTest, PacksTheRegisters) {
  const AtaRegisters read = {1, 2, 3, 4, 5, 6, 7};
  EXPECT_EQ(AtaPassThrough16(read, AtaTransfer::kOneSector),
            (std::array<std::uint8_t, 16>{0x85, 0x08, 0x0E, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 6, 7, 0}));
  EXPECT_EQ(AtaPassThrough12(read, AtaTransfer::kOneSector),
            (std::array<std::uint8_t, 12>{0xA1, 0x08, 0x0E, 1, 2, 3, 4, 5, 6, 7, 0, 0}));
  EXPECT_EQ(AtaPassThrough16(read, AtaTransfer::kNone)[1], 0x06);
  EXPECT_EQ(AtaPassThrough16(read, AtaTransfer::kNone)[2], 0x20);
}

TEST(AtaPassThroughTest, ReadsWhatCameBack) {
  // Both formats with the registers of a drive in standby, and of one that aborted the command.
  const Bytes standby = {0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0x10, 0, 0x20, 0, 0x30, 0, 0x40, 0, 0x50, 0x60, 0x50};
  const AtaRegisters standby_registers = {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x50};
  const Bytes fixed = {0x70, 0, 1, 0x10, 0x50, 0x60, 0x20, 10, 0, 0x30, 0x40, 0x50, 0, 0x1D, 0, 0, 0, 0};
  Bytes aborted = standby;
  aborted[1] = 0x0B;
  aborted[11] = 0x04;
  aborted[21] = 0x51;
  Bytes refused = aborted;
  refused[11] = 0x10;
  Bytes no_error_told = aborted;
  no_error_told[21] = 0x50;
  Bytes behind_another = standby;
  behind_another.insert(behind_another.begin() + 8, {2, 2, 0, 0});
  behind_another[7] = 18;
  Bytes cut = standby;
  cut.pop_back();
  Bytes cut_by_length = standby;
  cut_by_length[7] = 13;
  Bytes short_descriptor = standby;
  short_descriptor[9] = 11;
  Bytes earlier = standby;
  earlier[0] = 0x73;
  const auto plain = [](std::uint8_t key, std::uint8_t code, std::uint8_t qualifier = 0) {
    return Bytes{0x70, 0, key, 1, 2, 3, 4, 10, 0, 0, 0, 0, code, qualifier};
  };
  struct Row {
    const char* what;
    Bytes sense;
    DriveResult result;
    std::uint32_t error = 0;
    bool registers = false;
    bool unknown = false;
    bool news = false;
    std::uint8_t status = 2;
  };
  for (const Row& row : {
           Row{"good, and nothing told", {}, kDone, 0, false, false, false, 0},
           Row{"bad, and nothing told", {}, kFailed, 0, false, false, true},
           Row{"standby", standby, kDone, 0, true},
           Row{"fixed format", fixed, kDone, 0, true},
           Row{"behind another descriptor", behind_another, kDone, 0, true},
           Row{"cut", cut, kDone},
           Row{"its length leaves the registers out", cut_by_length, kDone},
           Row{"a descriptor too short", short_descriptor, kDone},
           Row{"of an earlier command", earlier, kFailed, 0, false, false, true},
           Row{"aborted", aborted, kNotSupported, 0x5104, true},
           Row{"refused", refused, kRefused, 0x5110, true},
           Row{"an error on the way", no_error_told, kFailed, 0, true},
           Row{"aborted, registers kept back", plain(0x0B, 0), kNotSupported},
           Row{"an error of the link", plain(0x0B, 0x47), kFailed},
           Row{"a command nobody knows", plain(0x05, 0x20), kNotSupported, 0, false, true},
           Row{"a reset before", plain(0x06, 0x29), kFailed, 0, false, false, true},
           Row{"other recovered error", plain(0x01, 0x17, 0x1D), kDone},
           Row{"no medium", {0x72, 2, 0x3A, 0}, kFailed},
           Row{"of the fixed format the key alone", {0x70, 0, 2}, kFailed},
           Row{"of the fixed format less", {0x70, 0}, kFailed, 0, false, false, true},
           Row{"of the other less", {0x72, 5, 0x20}, kFailed, 0, false, false, true},
       }) {
    SCOPED_TRACE(row.what);
    const AtaPassThroughOutcome outcome = ReadAtaPassThrough(row.status, DecodeSense(row.sense));
    EXPECT_EQ(outcome.answer.result, row.result);
    EXPECT_EQ(outcome.answer.error, row.error);
    EXPECT_EQ(outcome.is_unknown_command, row.unknown);
    EXPECT_EQ(outcome.has_other_news, row.news);
    EXPECT_EQ(outcome.registers.has_value(), row.registers);
    if (row.registers && row.result == kDone) {
      EXPECT_EQ(outcome.registers, standby_registers);
    }
  }
}

}  // namespace
}  // namespace platform
