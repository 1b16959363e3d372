#include "client/display/edid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <string_view>
#include <vector>

namespace TVK {
namespace {

using Block = std::vector<std::uint8_t>;

void PutDescriptor(Block& block, std::size_t at, std::uint8_t tag, std::string_view text) {
  block[at + 3] = tag;
  std::ranges::copy(text, block.begin() + static_cast<std::ptrdiff_t>(at) + 5);
}

Block Closed(Block block) {
  block[127] = 0;
  block[127] = static_cast<std::uint8_t>(-std::accumulate(block.begin(), block.begin() + 128, 0));
  return block;
}

// As a monitor of 2019 has it: a timing first, then its serial number and its name.
Block Monitor() {
  Block block(128);
  std::fill(block.begin() + 1, block.begin() + 7, 0xFF);
  block[8] = 0x10;  // DEL
  block[9] = 0xAC;
  block[10] = 0x98;
  block[11] = 0x40;
  block[12] = 0x4C;
  block[17] = 29;
  block[0x36] = 0x02;
  PutDescriptor(block, 0x48, 0xFF, "7MT0186418CL\n");
  PutDescriptor(block, 0x5A, 0xFC, "DELL U2715H\n ");
  return Closed(block);
}

TEST(Edid, SaysMakerModelSerialNumberAndYear) {
  Block bytes = Monitor();
  bytes.resize(256, 0x77);  // an extension
  const auto facts = DecodeEdid(bytes);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->maker, "DEL");
  EXPECT_EQ(facts->product, 0x4098);
  EXPECT_EQ(facts->model, "DELL U2715H");
  EXPECT_EQ(facts->serial_number, "7MT0186418CL");
  EXPECT_EQ(facts->year, 2019);
}

TEST(Edid, WhatIsNotSoundIsNotTold) {
  struct Case {
    const char* what;
    std::function<void(Block&)> change;
    bool sound = true;
    const char* model = "DELL U2715H";
    const char* serial = "7MT0186418CL";
  };
  for (const auto& [what, change, sound, model, serial] : std::vector<Case>{
           {"header", [](Block& block) { block[7] = 1; }, false},
           {"checksum", [](Block& block) { ++block[127]; }, false},
           {"cut short", [](Block& block) { block.pop_back(); }, false},
           {"a maker of letter 0",
            [](Block& block) {
              block[8] = block[9] = 0;
              block = Closed(block);
            },
            false},
           {"a maker of letter 27",
            [](Block& block) {
              block[9] = 0xBB;
              block = Closed(block);
            },
            false},
           {"a maker of 16 bits",
            [](Block& block) {
              block[8] |= 0x80;
              block = Closed(block);
            },
            false},
           {"a name with a control character",
            [](Block& block) {
              block[0x5A + 6] = 7;
              block = Closed(block);
            },
            true, ""},
           {"the number where no text is",
            [](Block& block) {
              block[0x48] = 1;
              block = Closed(block);
            },
            true, "DELL U2715H", "76"},
           {"a number that is none",
            [](Block& block) {
              block[0x48] = 1;
              std::fill_n(block.begin() + 12, 4, std::uint8_t{1});
              block = Closed(block);
            },
            true, "DELL U2715H", ""},
           {"no serial number",
            [](Block& block) {
              block[0x48] = 1;
              block[12] = 0;
              block = Closed(block);
            },
            true, "DELL U2715H", ""},
       }) {
    SCOPED_TRACE(what);
    Block block = Monitor();
    change(block);
    const auto facts = DecodeEdid(block);
    ASSERT_EQ(facts.has_value(), sound);
    if (!sound) continue;
    EXPECT_EQ(facts->model, model);
    EXPECT_EQ(facts->serial_number, serial);
  }
}

}  // namespace
}  // namespace TVK
