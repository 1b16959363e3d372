// What another account may do with an object, in the system's own judgement: that of a token which has what every
// logged-on user has, but neither this user's own rights nor an administrator's. No account is made, and no thread acts
// as somebody else, for which ordinary users lack the right.
#pragma once

#include "platform/windows/sys.h"

#include <optional>
#include <string>

namespace windows_kit {

/// Whether such an account gets `rights`, no generic ones among them, to an object whose handle has READ_CONTROL.
/// Nothing where the system does not say; GetLastError tells why.
std::optional<bool> MayAnotherAccount(HANDLE object, DWORD rights);

/// "another account may", "another account may not", or the last error.
std::string DescribeAccess(std::optional<bool> may);

}  // namespace windows_kit
