// The machine's and the region's facts, as records carry them.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "client/policy/eligibility_filter.h"
#include "client/smbios/smbios_identity.h"
#include "platform/clock.h"

namespace platform {
class Machine;
class Region;
struct RegionFacts;
}  // namespace platform

/// Facts about device, firmware and operating system, read once and kept until ReInitialize. A fact that no source
/// supplied is an empty text. Any thread.
class MachineInformation {
 public:
  /// Both must outlive the object. Nothing is read before the first question.
  MachineInformation(platform::Machine& machine, const platform::Clock& clock) : machine_(machine), clock_(clock) {}

  /// A copy that keeps its facts: all answers are of one moment.
  MachineInformation Frozen() const { return MachineInformation(machine_, clock_, Get()); }

  /// Forgets what was read; `now` true: reads it again at once, else at the next question.
  void ReInitialize(bool now);

  std::wstring device_model() const;
  std::wstring device_manufacturer() const;
  std::wstring device_brand() const;     ///< The product family's first word, "Notebook" of "Notebook X1".
  std::wstring device_subbrand() const;  ///< What follows it, "X1".
  std::wstring device_family() const;
  std::wstring device_mt() const;             ///< The manufacturer's type number of the model.
  std::wstring device_enclosuretype() const;  ///< Decimal number of the SMBIOS enclosure type, "10" for a notebook.
  std::wstring device_bios_version() const;   ///< As the firmware names it.
  std::wstring device_bios_version_short() const;  ///< "major.minor" of the firmware's release.
  std::wstring device_bios_release_date() const;   ///< "mm/dd/yyyy".
  std::wstring device_ec_version() const;          ///< "major.minor" of the embedded controller.
  std::wstring device_ec_release_date() const;     ///< No source supplies it yet: always empty.
  std::wstring device_smbios_version() const;      ///< "major.minor" of the table.
  std::wstring device_extension_keyvalue() const;  ///< No source supplies it yet: always empty.
  std::wstring device_info_datetime() const;       ///< Record time at which the facts were read.
  std::wstring os_name() const;
  std::wstring os_version() const;
  std::wstring os_language() const;
  std::wstring os_region() const;
  std::wstring os_update_title() const;
  std::wstring os_update_description() const;

  /// The firmware's facts; see ReadMachineFirmware.
  TVK::SmbiosIdentity firmware() const;

  /// The region's facts as the system has them.
  platform::RegionFacts region() const;

  /// What policy filters look at.
  TVK::DeviceTraits traits() const;

 private:
  struct Facts;
  MachineInformation(platform::Machine& machine, const platform::Clock& clock, std::shared_ptr<const Facts> facts)
      : machine_(machine), clock_(clock), facts_(std::move(facts)) {}
  std::shared_ptr<const Facts> Get() const;

  platform::Machine& machine_;
  const platform::Clock& clock_;
  mutable std::mutex mutex_;                    ///< Guards facts_.
  mutable std::shared_ptr<const Facts> facts_;  ///< Null: not read yet.
};

/// The region that the user chose. Any thread.
class RegionInformation {
 public:
  /// Both must outlive the object.
  RegionInformation(platform::Region& region, const platform::Clock& clock) : region_(region), clock_(clock) {}

  struct Facts {
    std::wstring region_name;    ///< The locale, "de-DE".
    std::wstring country_name;   ///< English name of the country (ISO 3166-1).
    std::wstring country_code;   ///< ISO 3166-1 alpha-2.
    std::wstring language_name;  ///< English name of the language (ISO 639).
    std::wstring language_code;  ///< ISO 639-1, or ISO 639-2 where that has none.
    std::wstring region_info_datetime;
  };
  /// What the system's facts mean.
  Facts Describe(const platform::RegionFacts& region) const;

 private:
  platform::Region& region_;
  const platform::Clock& clock_;
};
