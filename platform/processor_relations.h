// The processors of a Windows machine of any size, from what GetLogicalProcessorInformationEx gives. The layout is
// data, so this is the same on every system. A pure function; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/processors.h"

namespace platform {

/// The least that a record of a processor's core takes: the two numbers that each record begins with, the processor's
/// own part, one group's mask.
inline constexpr std::size_t kCoreRecordSize = 48;

/// Counts cores, their logical processors in all processor groups (of at most 64 each), and the caches of levels 2 and
/// 3, from SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX records of 64-bit Windows, little endian, one behind the other.
/// Kinds of records that say nothing of these are passed over. Reading ends before a record that is shorter than it
/// must be or reaches beyond the bytes. Name and address width stay as they are by default.
ProcessorTopology DecodeProcessorRelations(std::span<const std::uint8_t> bytes);

}  // namespace platform
