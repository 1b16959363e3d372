// The computer, as the component asks for it. One interface, three kinds: the local Windows machine, the local or
// recorded Linux machine (both through local.h) and the scripted one (simulated/simulated_machine.h).
//
// The machine finds things and hands out facts, bytes and texts; what they mean is decoded by portable code above.
// Texts are UTF-8. Any thread may call a Machine; the readers that it hands out belong to one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/event_log.h"
#include "platform/setting_watcher.h"

namespace platform {

class Runtime;

/// Reads the processors' utilisation; each reader measures from its own previous sample.
class ProcessorLoadReader {
 public:
  ProcessorLoadReader() = default;
  ProcessorLoadReader(const ProcessorLoadReader&) = delete;
  ProcessorLoadReader& operator=(const ProcessorLoadReader&) = delete;
  virtual ~ProcessorLoadReader() = default;

  /// Utilisation of all processors together since the previous sample, in percent; "% Processor Utility" may pass 100
  /// on a processor that runs above its nominal frequency. Empty when it cannot be read now.
  virtual std::optional<std::int32_t> Sample() = 0;
};

/// What opening a reader gave.
struct ProcessorLoadOpening {
  std::unique_ptr<ProcessorLoadReader> reader;  ///< Null on failure.
  std::int64_t error = 0;                       ///< The system's status (PDH_STATUS, errno) when `reader` is null.
};

/// All caches of one level.
struct CacheLevel {
  std::uint64_t total_bytes = 0;  ///< Of all caches of the level together.
  std::uint32_t count = 0;        ///< How many caches of that level there are.
};

/// The processors that are online. A fact that the machine does not tell is 0 or empty.
struct ProcessorTopology {
  std::string name;                 ///< As the processor names itself, blanks trimmed.
  std::uint32_t address_width = 0;  ///< 32 or 64 bits.
  std::uint32_t cores = 0;
  std::uint32_t logical_processors = 0;
  CacheLevel l2;
  CacheLevel l3;
};

/// One try at reading the topology.
struct TopologyReading {
  bool supported = true;             ///< False where the system lacks the call altogether.
  std::int32_t error = 0;            ///< 0, or the system's error; `topology` then holds nothing.
  std::uint32_t returned_bytes = 0;  ///< Length of the system's answer.
  std::uint32_t entry_bytes = 0;     ///< Length of one entry of it.
  ProcessorTopology topology;
};

struct MemoryStatus {
  std::uint32_t load_percent = 0;     ///< Physical memory in use, 0..100.
  std::uint64_t total_bytes = 0;      ///< Physical memory that the system can use.
  std::uint64_t available_bytes = 0;  ///< Of it, what can be had without swapping.
};

/// Facts about firmware and system that the operating system keeps readable for everybody, used where the SMBIOS table
/// itself cannot be read. Empty texts where the system tells nothing.
struct FirmwareFacts {
  std::string manufacturer;
  std::string product_name;
  std::string product_version;
  std::string product_family;
  std::string product_sku;
  std::string board_manufacturer;
  std::string board_product;
  std::string board_version;
  std::string chassis_type;  ///< Decimal text of the SMBIOS enclosure type (DMTF DSP0134, 7.4.1).
  std::string bios_vendor;
  std::string bios_version;
  std::string bios_date;     ///< As the firmware gives it, "mm/dd/yyyy".
  std::string bios_release;  ///< "major.minor".
  std::string ec_release;    ///< "major.minor".
};

struct OperatingSystemFacts {
  std::string name;                ///< "Windows 10 Pro", "Debian GNU/Linux".
  std::string version;             ///< "10.0.19045", "12".
  std::string display_language;    ///< Tag of the system's language, "en-US".
  std::string update_title;        ///< Name of the release, "22H2", "12 (bookworm)".
  std::string update_description;  ///< One line about the system, "Debian GNU/Linux 12 (bookworm)".
};

struct RegionFacts {
  std::string nation;       ///< Windows: decimal geographic id of the user. Elsewhere: ISO 3166-1 alpha-2 code.
  std::string locale_name;  ///< "de-DE". Empty for the C locale.
  std::string time_zone;    ///< "Europe/Berlin" or Windows' zone name.
};

class Machine {
 public:
  Machine() = default;
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  virtual ~Machine() = default;

  /// "% Processor Utility": utilisation weighted by the frequency, as the task manager shows it. Linux: the share of
  /// time not idle.
  virtual ProcessorLoadOpening OpenProcessorUtility() = 0;

  /// "% Processor Time": the share of time not idle. Exists on every system.
  virtual ProcessorLoadOpening OpenProcessorTime() = 0;

  virtual TopologyReading ReadProcessorTopology() = 0;

  /// Empty when the system does not tell; `error`, when given, then receives the system's error number.
  virtual std::optional<MemoryStatus> ReadMemoryStatus(std::uint32_t* error = nullptr) = 0;

  /// The raw SMBIOS data in the form that Windows gives for the firmware table provider 'RSMB': calling method, major,
  /// minor, DMI revision (one byte each), table length (32 bits, little endian), then the structures. The length is
  /// that which the firmware announces, where it announces an exact one; fewer bytes may follow.
  /// Empty when the machine has none or does not let us read it; `error`, when given, then receives the error number,
  /// which for a damaged entry point (Linux) is the one of std::errc::bad_message.
  virtual std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error = nullptr) = 0;

  virtual FirmwareFacts ReadFirmwareFacts() = 0;
  virtual OperatingSystemFacts ReadOperatingSystemFacts() = 0;
  virtual RegionFacts ReadRegionFacts() = 0;

  /// The ISO 3166-1 alpha-2 code of a nation as RegionFacts gives it. Empty when the system knows no such nation; where
  /// it keeps no table of its own, the nation as it stands.
  virtual std::string CountryOfNation(const std::string& nation) = 0;

  /// Watches settings of the system and its user. Null when the system refuses. The machine and `runtime` must outlive
  /// the watcher.
  virtual std::unique_ptr<SettingWatcher> OpenSettingWatcher(Runtime& runtime, SettingChange on_change) = 0;

  /// The identifier that the operating system's installation keeps for itself (Linux /etc/machine-id, machine-id(5);
  /// Windows MachineGuid). It must not leave the machine in clear. Empty when there is none.
  virtual std::string ReadInstallationId() = 0;

  /// The security identifier (Windows) or the number (Linux) of the user who is logged on at this machine; empty when
  /// nobody is.
  virtual std::string ReadLoggedInUserId() = 0;

  /// When the running system was booted, in seconds since 1970; empty when unknown.
  virtual std::optional<std::int64_t> ReadBootTime() = 0;

  /// The newest events that answer `query`. May wait some seconds for the system's log service.
  virtual EventLogReading QueryEventLog(const EventLogQuery& query) = 0;
};

}  // namespace platform
