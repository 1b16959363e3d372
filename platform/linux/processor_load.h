#pragma once

#include <filesystem>

#include "platform/clock.h"
#include "platform/processors.h"

namespace platform {

/// Opens a reader of the share of time in which the processors were not idle, from `stat` (/proc/stat), which stays
/// open. `clock` must outlive the reader. The error is an errno, or EBADMSG when the file does not begin with the times
/// of all processors.
///
/// The kernel counts in ticks of 10 ms, so a measurement over a few milliseconds would be 0 or 100. The reader measures
/// over 100 ms at least: a sample that is asked for earlier repeats the last one without reading, and is empty while
/// the reader has been open for less. The first sample counts from the opening. When the counters went backwards, or
/// did not move at all, the sample is empty and the next one counts from there.
ProcessorLoadOpening OpenProcessorLoad(const std::filesystem::path& stat, const Clock& clock);

}  // namespace platform
