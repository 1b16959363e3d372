// The operating system of a machine and who uses it. Any thread. Texts are UTF-8.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

struct OperatingSystemFacts {
  std::string name;                ///< "Windows 10 Pro", "Debian GNU/Linux".
  std::string version;             ///< "10.0.19045", "12".
  std::string display_language;    ///< Tag of the system's language, "en-US".
  std::string update_title;        ///< Name of the release, "22H2", "12 (bookworm)".
  std::string update_description;  ///< One line about the system, "Debian GNU/Linux 12 (bookworm)".
};

class SystemFacts {
 public:
  SystemFacts() = default;
  SystemFacts(const SystemFacts&) = delete;
  SystemFacts& operator=(const SystemFacts&) = delete;
  virtual ~SystemFacts() = default;

  virtual OperatingSystemFacts ReadOperatingSystem() = 0;

  /// The identifier that the operating system's installation keeps for itself (Linux /etc/machine-id, machine-id(5);
  /// Windows MachineGuid). It must not leave the machine in clear. Empty when there is none.
  virtual std::string ReadInstallationId() = 0;

  /// The security identifier (Windows) or the number (Linux) of the user who is logged on at this machine; empty when
  /// nobody is.
  virtual std::string ReadLoggedInUserId() = 0;

  /// When the running system was booted, in seconds since 1970; empty when unknown.
  virtual std::optional<std::int64_t> ReadBootTime() = 0;

  /// What names the running boot of the system, another text after each boot (Linux: boot_id, random(4)). Empty where
  /// the system has no such name (Windows): the boot time tells boots apart there.
  virtual std::string ReadBootId() = 0;
};

}  // namespace platform
