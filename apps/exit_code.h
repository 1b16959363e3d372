// The exit codes of our programs; each program's --help lists them.
#pragma once

enum ExitCode : int {
  kExitOk = 0,
  kExitWrongCommandLine = 1,
  kExitWrongConfiguration = 2,  ///< Configuration or another input cannot be used as it is.
  kExitFailed = 3,              ///< Failure while running.
  kExitNeedsAttention = 4,      ///< All is up, and something is to be looked at.
  kExitStarts = 5,              ///< A dataset would start that does not run.
};
