// Runs a drive's own short self-test and waits for what it comes to.
#pragma once

#include <string>

#include "client/storage/hard_disk.h"
#include "platform/power.h"
#include "platform/runtime.h"

namespace StorageCollector {

struct SelfTestOutcome {
  /// The result in the words of the drive's standard, "Completed without error"; "Aborted, not completed in time" for
  /// a test that was aborted after twice its estimated time and some minutes. Empty: there was no test, or it was
  /// aborted since `stop` came.
  std::wstring result = {};
  std::wstring reason = {};  ///< Why there is no result.
  bool busy = false;         ///< There was no test, since the drive runs another one, which will be through some day.
};

/// The words for what a short self-test came to; the code itself for one that the standard keeps for later.
std::wstring AtaSelfTestWords(std::uint8_t code);
std::wstring NvmeSelfTestWords(std::uint8_t code);

/// Starts the test and looks after it at the times at which it may be through, some twice a minute at most; the drive
/// goes on serving meanwhile. No test is started on a drive that runs one already, whoever began it, nor on a machine
/// that runs from less than a third of its battery, by its percentage or in the system's words: a test of minutes keeps
/// it from sleeping. When `stop` is signalled the test is aborted. Blocks for the time of the test. Any thread of the
/// runtime.
SelfTestOutcome RunShortSelfTest(platform::Runtime& runtime, platform::Power& power, const HardDisk& drive,
                                 platform::Waitable& stop);

}  // namespace StorageCollector
