#include "platform/session_process.h"

// The user agent is a window of a Windows session; there is none to start here.
platform::SessionProgramStarter platform::LocalSessionProgramStarter() {
  return nullptr;
}
