// What the driver of drive_stand_in.cpp and the test that scripts it tell each other, by control codes of its control
// device. For a program behind <winioctl.h>, for the driver behind <ntddk.h>.
#pragma once

namespace drive_stand_in {

/// The control device, "\\.\DriveStandIn".
inline constexpr wchar_t kControlName[] = L"DriveStandIn";

inline constexpr unsigned kDrives = 4;             ///< Drives 0 to 3; there is none until it is named.
inline constexpr unsigned kMostBytes = 48 + 4096;  ///< Of an answer and of a request that is remembered.
inline constexpr unsigned kAnySelector = 0xFFFFFFFF;

/// What a drive answers to `code` when the request begins with `selector`. Answers to the same are used up in their
/// order; the last one stays.
struct Answer {
  unsigned drive;
  unsigned code;
  unsigned selector;  ///< kAnySelector: whatever it begins with.
  int status;         ///< NTSTATUS
  unsigned held;      ///< Not 0: it comes with kRelease only.
  unsigned size;
  unsigned char bytes[kMostBytes];
};

/// The last request that a drive had.
struct Request {
  unsigned count;  ///< How many there were.
  unsigned code;
  unsigned size;
  unsigned held;  ///< How many wait for their answer, of all drives.
  unsigned char bytes[kMostBytes];
};

constexpr unsigned Code(unsigned function) {
  return CTL_CODE(0x8311, 0x900 + function, METHOD_BUFFERED, FILE_ANY_ACCESS);
}
inline constexpr unsigned kAnswer = Code(0);   ///< Answer, its bytes cut to `size`.
inline constexpr unsigned kRequest = Code(1);  ///< The drive's number; gives Request.
inline constexpr unsigned kName = Code(2);     ///< The drive's number, and N of "PhysicalDriveN", its name from now on.
inline constexpr unsigned kUnname = Code(3);   ///< N of a "PhysicalDriveN", whosever: there is none from now on.
inline constexpr unsigned kForget = Code(4);   ///< No drive has an answer.
inline constexpr unsigned kRelease = Code(5);  ///< Held answers go out.
inline constexpr unsigned kReset = Code(6);    ///< No drive has a name or an answer, and none is held.

}  // namespace drive_stand_in
