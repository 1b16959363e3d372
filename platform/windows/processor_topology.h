// What the system tells about its processors.
#pragma once

#include "platform/processors.h"

namespace platform::windows {

/// One try; the buffer grows until the answer fits. Counts the processors of every processor group.
TopologyReading ReadProcessorTopology();

}  // namespace platform::windows
