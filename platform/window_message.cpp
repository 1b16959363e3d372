#include "platform/window_message.h"

#include <algorithm>
#include <array>

#include "platform/little_endian.h"

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;
using Guid = std::array<std::uint8_t, 16>;

// As they lie in memory.
constexpr Guid kConsoleDisplayState = {0x56, 0x95, 0xE6, 0x6F, 0x4A, 0x70, 0xA0, 0x47,
                                       0x8F, 0x24, 0xC2, 0x8D, 0x93, 0x6F, 0xDA, 0x47};
constexpr Guid kMonitorBrightness = {0xC6, 0xE2, 0xFE, 0x8F, 0x01, 0x2D, 0xB5, 0x46,
                                     0xAD, 0xB9, 0x39, 0x8A, 0xDD, 0xC5, 0xB4, 0xFF};
constexpr Guid kSmartCardReader = {0x30, 0x52, 0xDD, 0x50, 0x8A, 0xBA, 0xD1, 0x11,
                                   0xBF, 0x5D, 0x00, 0x00, 0xF8, 0x05, 0xF5, 0x30};

bool Holds(Bytes bytes, std::size_t at, const Guid& guid) {
  return bytes.size() >= at + guid.size() && std::ranges::equal(bytes.subspan(at, guid.size()), guid);
}

}  // namespace

std::optional<DisplayPower> DecodeDisplayPower(Bytes setting) {
  // POWERBROADCAST_SETTING: a GUID, the length of the data, the data, here a number of 32 bits.
  constexpr std::size_t kLengthAt = 16;
  constexpr std::size_t kDataAt = 20;
  if (setting.size() < kDataAt + 4 || LittleEndianAt<std::uint32_t>(setting, kLengthAt) < 4) return std::nullopt;
  const std::uint32_t value = LittleEndianAt<std::uint32_t>(setting, kDataAt);
  if (Holds(setting, 0, kConsoleDisplayState)) {
    constexpr DisplayState kStates[] = {DisplayState::kOff, DisplayState::kOn, DisplayState::kDimmed};
    if (value < std::size(kStates)) return kStates[value];
  } else if (Holds(setting, 0, kMonitorBrightness) && value <= 100) {
    return Brightness{value};
  }
  return std::nullopt;
}

std::optional<Medium> DecodeMedium(Bytes device) {
  // DEV_BROADCAST_HDR: its own size, what kind of device, a reserved word. Behind it, of an interface, its class; of a
  // volume, the mask of drive letters and the flags.
  constexpr std::size_t kTypeAt = 4;
  constexpr std::size_t kClassAt = 12;
  constexpr std::size_t kFlagsAt = 16;
  constexpr std::uint32_t kInterface = 5;  // DBT_DEVTYP_DEVICEINTERFACE
  constexpr std::uint32_t kVolume = 2;     // DBT_DEVTYP_VOLUME
  constexpr std::uint16_t kMedia = 1;      // DBTF_MEDIA
  if (device.size() < kClassAt) return std::nullopt;
  const Bytes stated = device.first(std::min<std::size_t>(device.size(), LittleEndianAt<std::uint32_t>(device, 0)));
  if (stated.size() < kClassAt) return std::nullopt;
  const std::uint32_t type = LittleEndianAt<std::uint32_t>(stated, kTypeAt);
  if (type == kInterface && Holds(stated, kClassAt, kSmartCardReader)) return Medium::kSmartCard;
  if (type == kVolume && stated.size() >= kFlagsAt + 2 &&
      (LittleEndianAt<std::uint16_t>(stated, kFlagsAt) & kMedia) != 0) {
    return Medium::kDisc;
  }
  return std::nullopt;
}

}  // namespace platform
