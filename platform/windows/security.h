// Access lists for what we make, as texts of the security descriptor definition language.
#pragma once

#include <string>

#include "platform/windows/owner.h"

namespace platform::windows {

/// The text ("S-1-5-18") of a valid security identifier; empty when there is no memory for it.
std::string SidText(PSID sid);

/// The security identifier ("S-1-5-18") of the user that `token` belongs to; empty when the system does not say.
std::string UserSid(HANDLE token);

/// The security identifier of the account that this process runs as.
std::string ProcessUserSid();

/// Whether that is the system account (LocalSystem), which may act for the users of other sessions.
bool RunsAsSystem();

/// The security identifier of the account that owns an object, whose handle has READ_CONTROL; empty when the system
/// does not say.
std::string OwnerSid(HANDLE object);

/// The system with its installer, or the administrators: those who may do everything on this machine.
bool IsPrivilegedAccount(const std::string& sid);

/// Whether what this account owns or may write may be relied on: the system with its installer, the administrators and
/// the running account. The administrators, because what the system account makes belongs to them unless it says
/// otherwise, and because an administrator's process can name them as the owner only while it acts with that one's full
/// rights.
bool IsTrustedAccount(const std::string& sid);

/// A security descriptor made from its text, in the form that the calls which make things take.
class SecurityAttributes {
 public:
  /// Check `ok` afterwards.
  explicit SecurityAttributes(const std::string& definition);

  /// False: the text was refused, GetLastError says why; `get` must not be used, since null would mean default access.
  bool ok() const { return static_cast<bool>(descriptor_); }
  SECURITY_ATTRIBUTES* get() { return &attributes_; }

 private:
  UniqueLocalMemory descriptor_;
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace platform::windows
