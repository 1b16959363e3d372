// What the driver of driver_stand_in.cpp and the test that scripts it tell each other, by control codes of its control
// device. For a program behind <winioctl.h>, for the driver behind <ntddk.h>.
#pragma once

namespace driver_stand_in {

/// The control device, "\\.\DriverStandIn", and the service.
inline constexpr wchar_t kControlName[] = L"DriverStandIn";

inline constexpr unsigned kNamed = 4;              ///< Devices 0 to 3: there is none until it is named.
inline constexpr unsigned kFirstBattery = kNamed;  ///< ROOT\TVKBATTERY\0000 and the next, where they are installed.
inline constexpr unsigned kBatteries = 2;
inline constexpr unsigned kDevices = kNamed + kBatteries;
inline constexpr unsigned kMostBytes = 48 + 4096;  ///< Of an answer and of a request that is remembered.
inline constexpr unsigned kAnySelector = 0xFFFFFFFF;

/// What a device answers to `code` when the request has `selector` in its byte `selector_at` and the next three.
/// Answers to the same are used up in their order; the last one stays.
struct Answer {
  unsigned device;
  unsigned code;
  unsigned selector_at;
  unsigned selector;  ///< kAnySelector: whatever it has there.
  int status;         ///< NTSTATUS
  unsigned held;      ///< Not 0: it comes with kRelease only.
  unsigned size;
  unsigned char bytes[kMostBytes];
};

/// The last request that a device had.
struct Request {
  unsigned count;  ///< How many there were.
  unsigned code;
  unsigned size;
  unsigned held;  ///< How many wait for their answer, of all devices.
  unsigned char bytes[kMostBytes];
};

/// "\\.\`name`", with its terminator.
struct Naming {
  unsigned device;
  wchar_t name[32];
};

constexpr unsigned Code(unsigned function) {
  return CTL_CODE(0x8311, 0x900 + function, METHOD_BUFFERED, FILE_ANY_ACCESS);
}
inline constexpr unsigned kAnswer = Code(0);   ///< Answer, its bytes cut to `size`.
inline constexpr unsigned kRequest = Code(1);  ///< The device's number; gives Request.
inline constexpr unsigned kName = Code(2);     ///< Naming: its name from now on.
inline constexpr unsigned kUnname = Code(3);   ///< Naming, whosever: there is none of this name from now on.
inline constexpr unsigned kForget = Code(4);   ///< No device has an answer.
inline constexpr unsigned kRelease = Code(5);  ///< Held answers go out.
inline constexpr unsigned kReset = Code(6);    ///< No device has a name or an answer, and none is held.

}  // namespace driver_stand_in
