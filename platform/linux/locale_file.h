// The file that names the system's locale.
#pragma once

#include "platform/linux/sysroot.h"
#include "platform/linux/system_text.h"

namespace platform {

/// The variables of /etc/default/locale, where Debian and its kin keep them, or else of /etc/locale.conf (systemd).
Assignments ReadLocaleFile(const Sysroot& root);

}  // namespace platform
