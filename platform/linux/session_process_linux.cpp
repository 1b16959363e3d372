#include "platform/session_process.h"

// The user agent is a window of a Windows session; there is none to start here.
std::unique_ptr<platform::UserSessions> platform::OpenLocalUserSessions() {
  return nullptr;
}
