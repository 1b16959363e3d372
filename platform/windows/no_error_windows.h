// Errors of the system stay answers to the caller.
#pragma once

#include "platform/windows/sys.h"

namespace platform::windows {

/// As long as it lives the system shows the user no window about what fails on this thread: an empty card reader, a
/// medium that cannot be read, a library that is not whole.
class NoErrorWindows {
 public:
  NoErrorWindows() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &before_); }
  ~NoErrorWindows() { SetThreadErrorMode(before_, nullptr); }
  NoErrorWindows(const NoErrorWindows&) = delete;
  NoErrorWindows& operator=(const NoErrorWindows&) = delete;

 private:
  DWORD before_ = 0;
};

}  // namespace platform::windows
