// What events of the system's logs tell of crashes. Pure; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "monitors/logs/event_log_rendering.h"
#include "platform/memory.h"
#include "tvk/records.h"

namespace TVK {

inline constexpr wchar_t kSystemCrash[] = L"SystemCrash";
inline constexpr wchar_t kApplicationCrash[] = L"ApplicationCrash";
inline constexpr wchar_t kApplicationHang[] = L"ApplicationHang";
inline constexpr wchar_t kHardwareError[] = L"HardwareError";

/// The item that is made of a crash.
struct CrashReport {
  const wchar_t* item = kSystemCrash;  ///< One of the four above.
  ItemData data;                       ///< No path, no command line, no user, no free text; no empty value.
};

/// The structured query of the events that ReadCrashReport understands, of the last thirty days. On Windows those of
/// the error reporting, of the kernel's power manager and of the hardware errors' logger; on Linux the notice that a
/// program dumped core, what the kernel logs, and that it kept a dump of the boot before.
std::string CrashQuery();

/// `xml`: the whole event. Nothing for an event that tells of no crash.
std::optional<CrashReport> ReadCrashReport(const RenderedEvent& event, std::string_view xml);

/// Whether the kernel's log told of a memory error, which the memory controller counts as well.
bool IsOfMemory(const CrashReport& report);
/// Of what a controller counted.
CrashReport MemoryErrorReport(const platform::MemoryErrors& errors);

}  // namespace TVK
