// What is recorded of a display says which one it is to nobody who does not have it.
#include "monitors/session/display_facts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <vector>

#include "client/text/hash_utility.h"

namespace TVK {
namespace {

constexpr std::string_view kModel = "DELL U2715H";
constexpr std::string_view kSerial = "7MT0186418CL";

std::vector<std::uint8_t> Edid(std::string_view serial, std::uint32_t number = 0) {
  std::vector<std::uint8_t> block(128);
  std::fill(block.begin() + 1, block.begin() + 7, 0xFF);
  block[8] = 0x10;  // DEL
  block[9] = 0xAC;
  block[10] = 0x98;
  block[11] = 0x40;
  for (std::size_t i = 0; i < 4; ++i)
    block[12 + i] = static_cast<std::uint8_t>(number >> 8 * i);
  block[17] = 29;
  const auto put = [&block](std::size_t at, std::uint8_t tag, std::string_view text) {
    block[at + 3] = tag;
    std::ranges::copy(text, block.begin() + static_cast<std::ptrdiff_t>(at) + 5);
    if (text.size() < 13) block[at + 5 + text.size()] = '\n';
  };
  if (!serial.empty()) put(0x48, 0xFF, serial);
  put(0x5A, 0xFC, kModel);
  block[127] = static_cast<std::uint8_t>(-std::accumulate(block.begin(), block.end(), 0));
  return block;
}

TEST(DisplayFacts, SerialNumbersAreHashed) {
  const struct {
    const char* what;
    std::string id;
    std::vector<std::uint8_t> edid;
    std::wstring serial;  ///< Nothing: none is told.
  } rows[] = {{"of text", "port 1", Edid(kSerial), L"7MT0186418CL"},
              {"of a number", "port 1", Edid("", 1234567890), L"1234567890"},
              {"without", "port 1", Edid(""), L""},
              {"that says nothing of itself", "port 1", {}, L""}};
  for (const auto& [what, id, edid, serial] : rows) {
    SCOPED_TRACE(what);
    const ObservedDevice device = ObserveDisplay({.id = id, .edid = edid, .mode = {1920, 1080, 32, 60}});
    const auto found = device.facts.find(L"SerialNumber");
    ASSERT_EQ(found != device.facts.end(), !serial.empty());
    EXPECT_EQ(device.facts.contains(L"Model"), !edid.empty());
    EXPECT_EQ(device.key.size(), 64u);
    if (serial.empty()) continue;
    EXPECT_EQ(found->second, HashUtility::HashSerialNumber(serial));
    EXPECT_EQ(device.key.find(serial), device.key.npos);
    for (const auto& [key, value] : device.facts)
      EXPECT_EQ(value.find(serial), value.npos) << "in the clear";
  }
}

TEST(DisplayFacts, ADisplayHasOneKeyAndAnotherDisplayAnother) {
  const auto key = [](const char* id, std::vector<std::uint8_t> edid) {
    return ObserveDisplay({.id = id, .edid = std::move(edid)}).key;
  };
  const struct {
    const char* what;
    std::wstring one;
    std::wstring other;
    bool same;
  } rows[] = {{"one at two inputs", key("1", Edid(kSerial)), key("2", Edid(kSerial)), true},
              {"two of a model", key("1", Edid(kSerial)), key("1", Edid("7MT0186418CM")), false},
              {"twins that tell no serial number", key("1", Edid("")), key("2", Edid("")), false},
              {"one of these looked at again", key("1", Edid("")), key("1", Edid("")), true},
              {"two that say nothing of themselves", key("1", {}), key("2", {}), false}};
  for (const auto& [what, one, other, same] : rows)
    EXPECT_EQ(one == other, same) << what;
}

}  // namespace
}  // namespace TVK
