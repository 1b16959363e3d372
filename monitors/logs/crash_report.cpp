#include "monitors/logs/crash_report.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "client/text/string.h"
#include "monitors/logs/event_data.h"

namespace TVK {
namespace {

constexpr wchar_t kErrorReporting[] = L"Microsoft-Windows-WER-SystemErrorReporting";
constexpr wchar_t kKernelPower[] = L"Microsoft-Windows-Kernel-Power";
constexpr wchar_t kHardwareErrors[] = L"Microsoft-Windows-WHEA-Logger";
constexpr wchar_t kApplicationError[] = L"Application Error";
constexpr wchar_t kHang[] = L"Application Hang";
constexpr wchar_t kCoredump[] = L"systemd-coredump";
constexpr wchar_t kKernel[] = L"kernel";
constexpr wchar_t kDumpKeeper[] = L"systemd-pstore";

/// The event of one source, and what it is read as.
class Source {
 public:
  explicit Source(std::string_view xml) : items_(EventDataItems(xml)) {}

  /// The datum of this name; empty without one.
  std::string Named(std::string_view name) const {
    const auto found = std::ranges::find(items_, name, &EventDataItem::name);
    return found == items_.end() ? std::string() : found->value;
  }
  /// The datum at this place: the older providers give no names, the newer ones the same order.
  std::string At(std::size_t place) const { return place < items_.size() ? items_[place].value : std::string(); }

 private:
  const std::vector<EventDataItem> items_;
};

/// A path's last part, on any system.
std::string FileName(const std::string& path) {
  return path.substr(path.find_last_of("/\\") + 1);
}

/// The executable's file name. The kernel's link to one that was replaced while it ran ends so (proc_pid_exe(5)).
std::string ProgramName(std::string path) {
  constexpr std::string_view kReplaced = " (deleted)";
  if (path.ends_with(kReplaced)) path.resize(path.size() - kReplaced.size());
  return FileName(path);
}

/// A stop code as the other report of the same crash has it, "159" as "0x0000009f"; 0, without one, as it is.
std::string StopCode(std::string decimal) {
  std::uint32_t code = 0;
  const char* const end = decimal.data() + decimal.size();
  if (std::from_chars(decimal.data(), end, code).ptr != end || code == 0) return decimal;
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(8) << std::setfill('0') << code;
  return std::move(text).str();
}

std::string FirstWord(const std::string& text) {
  return text.substr(0, text.find(' '));
}

CrashReport Report(const wchar_t* item, std::initializer_list<std::pair<const wchar_t*, std::string>> values) {
  CrashReport report{item, {}};
  for (const auto& [key, value] : values) {
    if (!value.empty()) report.data[key] = BoundedEventValue(String::UTF8ToUTF16(value));
  }
  return report;
}

constexpr char kMemoryCode[] = "memory";

/// Takes the digits that `rest` begins with away; how many they were.
std::size_t TakeDigits(std::string_view& rest, std::string_view digits = "0123456789") {
  const std::size_t count = std::min(rest.find_first_not_of(digits), rest.size());
  rest.remove_prefix(count);
  return count;
}

bool Take(std::string_view& rest, std::string_view text) {
  if (!rest.starts_with(text)) return false;
  rest.remove_prefix(text.size());
  return true;
}

/// "Oops: 0002 [#1] SMP", with the name of the fault first, so that no line is one in which a device or a program bears
/// such a name: the kernel cuts a program's after 15 characters, which leaves none for the blank (TASK_COMM_LEN).
bool IsOops(std::string_view line) {
  constexpr std::string_view kFaults[] = {"Oops",
                                          "Internal error: ",
                                          "general protection fault",
                                          "invalid opcode",
                                          "divide error",
                                          "stack segment",
                                          "double fault",
                                          "segment not present",
                                          "kernel stack overflow",
                                          "stack guard page",
                                          "int3",
                                          "alignment check",
                                          "invalid TSS",
                                          "bounds"};
  if (std::ranges::none_of(kFaults, [&](std::string_view fault) { return line.starts_with(fault); })) return false;
  const std::size_t count = line.find(" [#");
  const std::size_t code = line.substr(0, count).rfind(": ");
  if (count == line.npos || code == line.npos) return false;
  std::string_view rest = line.substr(code + 2);
  if (TakeDigits(rest, "0123456789abcdef") < 4 || !Take(rest, " [#") || TakeDigits(rest) == 0) return false;
  return rest == "]" || rest.starts_with("] ");
}

/// "EDAC MC0: 1 CE memory read error on ...": a controller counted errors. Others tell how it is set up, at each boot.
bool IsMemoryError(std::string_view line) {
  return Take(line, "EDAC MC") && TakeDigits(line) > 0 && Take(line, ": ") && TakeDigits(line) > 0 &&
         (Take(line, " CE ") || Take(line, " UE ")) && !line.starts_with('[');  // as behind a program of that name
}

/// "pcieport 0000:00:1c.0: AER: PCIe Bus Error: severity=...": of a port's lines those of its error reporting.
bool IsPcieError(std::string_view line) {
  if (!Take(line, "pcieport ") || TakeDigits(line, "0123456789abcdef:.") == 0) return false;
  Take(line, " ");
  Take(line, "AER: ");
  return line.starts_with("PCIe Bus Error: ");
}

bool IsMachineCheck(std::string_view line) {
  Take(line, "mce: ");
  return line.starts_with("[Hardware Error]: Machine check events logged");
}

/// What the kernel's line is the sign of. One crash has several lines; these are those that stand once in each (Linux:
/// kernel/panic.c, arch/x86/kernel/dumpstack.c, kernel/watchdog.c, drivers/edac/edac_mc.c, drivers/pci/pcie/aer.c).
struct KernelSign {
  bool (*is)(std::string_view line);
  const wchar_t* item;
  const char* code;
};
constexpr std::array<KernelSign, 6> kKernelSigns = {{
    {[](std::string_view line) { return line.starts_with("Kernel panic - not syncing"); }, kSystemCrash, "panic"},
    {IsOops, kSystemCrash, "oops"},
    {[](std::string_view line) { return line.starts_with("watchdog: BUG: soft lockup"); }, kSystemCrash, "soft lockup"},
    {IsMachineCheck, kHardwareError, "machine check"},
    {IsMemoryError, kHardwareError, kMemoryCode},
    {IsPcieError, kHardwareError, "PCIe"},
}};

std::optional<CrashReport> ReadKernelLine(const std::string& line) {
  for (const KernelSign& sign : kKernelSigns) {
    if (sign.is(line)) return Report(sign.item, {{L"Code", sign.code}});
  }
  return std::nullopt;
}

/// What the kernel kept of a panic over the boot, in parts of which one counts. `header`: "Panic#1 Part1" (Linux:
/// fs/pstore/platform.c). A dump of an oops that the system outlived stands in the kernel's log, too.
std::optional<CrashReport> ReadDump(std::string_view header) {
  constexpr std::string_view kPanic = "Panic#";
  if (!header.starts_with(kPanic) || !header.ends_with(" Part1")) return std::nullopt;
  return Report(kSystemCrash, {{L"Code", "panic"}});
}

}  // namespace

bool IsOfMemory(const CrashReport& report) {
  const auto code = report.data.find(L"Code");
  return report.item == kHardwareError && code != report.data.end() && code->second == String::UTF8ToUTF16(kMemoryCode);
}

CrashReport MemoryErrorReport(const platform::MemoryErrors& errors) {
  return Report(kHardwareError, {{L"Source", "EDAC"},
                                 {L"Code", kMemoryCode},
                                 {L"Controller", errors.controller},
                                 {L"Corrected", std::to_string(errors.corrected)},
                                 {L"Uncorrected", std::to_string(errors.uncorrected)}});
}

std::string CrashQuery() {
  constexpr const char* kSelects[][2] = {
      {"System", "Provider[@Name='Microsoft-Windows-WER-SystemErrorReporting'] and EventID=1001"},
      {"System", "Provider[@Name='Microsoft-Windows-Kernel-Power'] and EventID=41"},
      {"System", "Provider[@Name='Microsoft-Windows-WHEA-Logger'] and (Level=1 or Level=2 or Level=3)"},
      {"Application", "Provider[@Name='Application Error'] and EventID=1000"},
      {"Application", "Provider[@Name='Application Hang'] and EventID=1002"},
      {"Application", "Provider[@Name='systemd-coredump'] and EventID=64558"},
      {"System", "Provider[@Name='kernel']"},
      {"System", "Provider[@Name='systemd-pstore']"},
  };
  std::string query = "<QueryList><Query>";
  for (const auto& [channel, conditions] : kSelects) {
    query.append("<Select Path='").append(channel).append("'>*[System[").append(conditions);
    query += " and TimeCreated[timediff(@SystemTime) &lt;= 2592000000]]]</Select>";
  }
  return query + "</Query></QueryList>";
}

std::optional<CrashReport> ReadCrashReport(const RenderedEvent& event, std::string_view xml) {
  const std::wstring& provider = event.provider_name;
  const auto field = [&](const wchar_t* name) {
    const auto found = event.fields.find(name);
    return found == event.fields.end() ? std::string() : String::UTF16ToUTF8(found->second);
  };
  const Source source(xml);
  std::optional<CrashReport> report;
  if (provider == kApplicationError) {
    report = Report(kApplicationCrash, {{L"Program", FileName(source.At(0))},
                                        {L"ProgramVersion", source.At(1)},
                                        {L"Module", FileName(source.At(3))},
                                        {L"ModuleVersion", source.At(4)},
                                        {L"Code", source.At(6)}});
  } else if (provider == kHang) {
    report = Report(kApplicationHang, {{L"Program", FileName(source.At(0))}, {L"ProgramVersion", source.At(1)}});
  } else if (provider == kErrorReporting) {
    report = Report(kSystemCrash, {{L"Code", FirstWord(source.At(0))}});  // "0x0000009f (0x3, ...)"
  } else if (provider == kKernelPower) {
    report = Report(kSystemCrash, {{L"Code", StopCode(source.Named("BugcheckCode"))}});
  } else if (provider == kHardwareErrors) {
    report = Report(kHardwareError, {{L"Code", field(L"EventID")},
                                     {L"ErrorSource", source.Named("ErrorSource")},
                                     {L"ErrorType", source.Named("ErrorType")}});
  } else if (provider == kCoredump) {
    report = Report(kApplicationCrash, {{L"Program", ProgramName(source.Named("COREDUMP_EXE"))},
                                        {L"ProgramVersion", source.Named("COREDUMP_PACKAGE_VERSION")},
                                        {L"Code", source.Named("COREDUMP_SIGNAL_NAME")}});
  } else if (provider == kKernel) {
    report = ReadKernelLine(source.Named("MESSAGE"));
  } else if (provider == kDumpKeeper) {
    report = ReadDump(source.Named("DUMP"));
  }
  if (report) report->data[L"Source"] = provider;
  return report;
}

}  // namespace TVK
