// The machine's firmware as the system-BIOS dataset describes it.
#pragma once

#include "client/identity/machine_information.h"
#include "client/log/log.h"
#include "client/smbios/smbios_identity.h"
#include "tvk/records.h"

/// Plain value. A text is empty until it is set or collected, and where no source supplies it.
class SystemBiosInfo {
  TVK_RECORD_FIELD(manufacturer);               ///< Of the machine.
  TVK_RECORD_FIELD(biosName);                   ///< The firmware's version as its maker writes it.
  TVK_RECORD_FIELD(embeddedControllerVersion);  ///< "major.minor".
  TVK_RECORD_FIELD(smbiosVersion);              ///< "major.minor" of the standard that the table keeps to.
  TVK_RECORD_FIELD(system_biosversion);         ///< "major.minor" of the firmware's release.
  TVK_RECORD_FIELD(biosReleaseDate);            ///< "2025-03-31"; see ConvertDateFormat.
  TVK_RECORD_FIELD(ecReleaseDate);              ///< The same, of the embedded controller.

 public:
  /// `machine` is read by CollectBiosInfo and must live until then. Null: Describe fills the object in.
  explicit SystemBiosInfo(const MachineInformation* machine = nullptr) : machine_(machine) {}
  virtual ~SystemBiosInfo() = default;
  SystemBiosInfo(const SystemBiosInfo&) = default;
  SystemBiosInfo& operator=(const SystemBiosInfo&) = default;

  /// Fills everything in, from the machine or from `firmware`. A date that is none is logged to `log` and taken as it
  /// stands.
  void CollectBiosInfo(const TVK::Log& log);
  void Describe(const TVK::SmbiosIdentity& firmware, const TVK::Log& log);

  /// What is known, under the keys of the records; empty when nothing is.
  ItemData ToItemData() const;

  /// The same with every key; of what is not known the text is empty.
  ItemData AllKeys() const;

 private:
  const MachineInformation* machine_;
};
