// Messages of a window as Windows sends them. The codes and layouts are data, so this is the same on every system. Pure
// functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <variant>

namespace platform {

struct WindowMessage {
  void* window = nullptr;  ///< Its HWND.
  std::uint32_t id = 0;
  std::uintptr_t wparam = 0;
  std::intptr_t lparam = 0;
};

inline constexpr std::uint32_t kMessageCreate = 0x0001;                   ///< WM_CREATE
inline constexpr std::uint32_t kMessageDestroy = 0x0002;                  ///< WM_DESTROY
inline constexpr std::uint32_t kMessagePaint = 0x000F;                    ///< WM_PAINT
inline constexpr std::uint32_t kMessageClose = 0x0010;                    ///< WM_CLOSE
inline constexpr std::uint32_t kMessageQueryEndSession = 0x0011;          ///< WM_QUERYENDSESSION
inline constexpr std::uint32_t kMessageEndSession = 0x0016;               ///< WM_ENDSESSION
inline constexpr std::uint32_t kMessageDisplayChange = 0x007E;            ///< WM_DISPLAYCHANGE
inline constexpr std::uint32_t kMessageInput = 0x00FF;                    ///< WM_INPUT
inline constexpr std::uint32_t kMessagePowerBroadcast = 0x0218;           ///< WM_POWERBROADCAST
inline constexpr std::uint32_t kMessageDeviceChange = 0x0219;             ///< WM_DEVICECHANGE
inline constexpr std::uint32_t kMessagePointerDeviceInRange = 0x0239;     ///< WM_POINTERDEVICEINRANGE
inline constexpr std::uint32_t kMessagePointerDeviceOutOfRange = 0x023A;  ///< WM_POINTERDEVICEOUTOFRANGE

/// PBT_POWERSETTINGCHANGE, of a power broadcast.
inline constexpr std::uint32_t kPowerSettingChange = 0x8013;
/// DBT_DEVICEARRIVAL and DBT_DEVICEREMOVECOMPLETE, of a change of devices.
inline constexpr std::uint32_t kDeviceArrival = 0x8000;
inline constexpr std::uint32_t kDeviceRemoveComplete = 0x8004;

/// The most bytes behind a message's lparam that the decoders below look at.
inline constexpr std::size_t kMessageDataSize = 64;

/// What the display of the console does (GUID_CONSOLE_DISPLAY_STATE).
enum class DisplayState { kOff, kOn, kDimmed };
/// How bright the display is (GUID_VIDEO_CURRENT_MONITOR_BRIGHTNESS).
struct Brightness {
  std::uint32_t percent = 0;  ///< 0..100.
  bool operator==(const Brightness&) const = default;
};
using DisplayPower = std::variant<DisplayState, Brightness>;

/// What a POWERBROADCAST_SETTING tells of the display; nothing for another setting, and for bytes that are cut short or
/// a value that is out of range.
std::optional<DisplayPower> DecodeDisplayPower(std::span<const std::uint8_t> setting);

/// Something that a person puts into the machine.
enum class Medium {
  kSmartCard,  ///< A device of the class GUID_DEVINTERFACE_SMARTCARD_READER.
  kDisc,       ///< A volume whose medium came or went (DBTF_MEDIA).
};

/// Of which medium a DEV_BROADCAST_HDR tells; nothing for other devices and for bytes that are cut short.
std::optional<Medium> DecodeMedium(std::span<const std::uint8_t> device);

}  // namespace platform
