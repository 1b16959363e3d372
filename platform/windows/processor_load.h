// Processor utilisation from the performance data helper (PDH).
#pragma once

#include "platform/processors.h"

namespace platform::windows {

/// A reader of the counter `path`, an English counter path whatever the system's language. Where the path has a
/// wildcard instance, the instance "_Total" is read. The error of a failed opening is the PDH_STATUS as an unsigned
/// number (0xC0000BB9: there is no such counter).
ProcessorLoadOpening OpenProcessorLoad(const wchar_t* path);

}  // namespace platform::windows
