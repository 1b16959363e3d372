#include "client/display/edid.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "platform/little_endian.h"

namespace TVK {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::size_t kBlockSize = 128;
// Section 3.3.
constexpr std::array<std::uint8_t, 8> kHeader = {0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
// Section 3.4.
constexpr std::size_t kMakerAt = 0x08;
constexpr std::size_t kProductAt = 0x0A;
constexpr std::size_t kSerialAt = 0x0C;
constexpr std::size_t kYearAt = 0x11;
constexpr int kFirstYear = 1990;
// Section 3.10: four descriptors of 18 bytes; one that begins with two zeros is a display descriptor (3.10.3), whose
// fourth byte is its tag and whose last 13 are its content.
constexpr std::size_t kDescriptorsAt = 0x36;
constexpr std::size_t kDescriptorSize = 18;
constexpr std::size_t kDescriptors = 4;
constexpr std::size_t kTagAt = 3;
constexpr std::size_t kTextAt = 5;
constexpr std::uint8_t kSerialTag = 0xFF;
constexpr std::uint8_t kNameTag = 0xFC;

// Three letters of five bits each, the highest bit clear, the first byte first.
std::string Maker(Bytes block) {
  const unsigned packed = block[kMakerAt] << 8 | block[kMakerAt + 1];
  std::string maker;
  for (const int shift : {10, 5, 0}) {
    const unsigned letter = packed >> shift & 0x1F;
    if (letter < 1 || letter > 26) return {};
    maker += static_cast<char>('A' + letter - 1);
  }
  return packed < 0x8000 ? maker : std::string();
}

// Ends with a line feed where it is shorter than its place.
std::string DescriptorText(Bytes text) {
  std::string result;
  for (const std::uint8_t byte : text) {
    if (byte == '\n' || byte == 0) break;
    if (byte < 0x20 || byte > 0x7E) return {};
    result += static_cast<char>(byte);
  }
  const std::size_t begin = result.find_first_not_of(' ');
  if (begin == result.npos) return {};
  return result.substr(begin, result.find_last_not_of(' ') - begin + 1);
}

}  // namespace

std::optional<EdidFacts> DecodeEdid(Bytes bytes) {
  if (bytes.size() < kBlockSize) return std::nullopt;
  const Bytes block = bytes.first(kBlockSize);
  if (!std::ranges::equal(block.first(kHeader.size()), kHeader)) return std::nullopt;
  // Section 3.11: all bytes add up to 0.
  if (std::accumulate(block.begin(), block.end(), 0u) % 256 != 0) return std::nullopt;
  EdidFacts facts{.maker = Maker(block), .product = platform::LittleEndianAt<std::uint16_t>(block, kProductAt)};
  if (facts.maker.empty()) return std::nullopt;
  if (block[kYearAt] != 0) facts.year = kFirstYear + block[kYearAt];
  for (std::size_t i = 0; i < kDescriptors; ++i) {
    const Bytes descriptor = block.subspan(kDescriptorsAt + i * kDescriptorSize, kDescriptorSize);
    if (descriptor[0] != 0 || descriptor[1] != 0) continue;  // a timing
    const std::uint8_t tag = descriptor[kTagAt];
    if (tag == kNameTag) facts.model = DescriptorText(descriptor.subspan(kTextAt));
    if (tag == kSerialTag) facts.serial_number = DescriptorText(descriptor.subspan(kTextAt));
  }
  const auto number = platform::LittleEndianAt<std::uint32_t>(block, kSerialAt);
  // What makers leave in it who number nothing would make one display of two.
  const bool is_number = number != 0 && number != 0x01010101 && number != 0xFFFFFFFF;
  if (facts.serial_number.empty() && is_number) facts.serial_number = std::to_string(number);
  return facts;
}

}  // namespace TVK
