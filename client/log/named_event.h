// Making a named event of ours.
#pragma once

#include <string>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// That another account holds the name of an event of ours, for a log: it tells of an attack, or of a second client.
std::wstring ForeignEventProblem(const std::wstring& name);

/// Runtime::MakeNamedEvent, not signalled from the start. That another account holds the name is an error line in `log`
/// of its own.
platform::NamedEventResult MakeNamedEvent(platform::Runtime& runtime, const Log& log, const std::wstring& name,
                                          platform::EventReset reset, platform::EventAccess access);

}  // namespace TVK
