// What the local channel asks of the manager.
#pragma once

#include "client/channel/session_recorder.h"

namespace TVK {

/// Lives as long as the manager. Any thread.
class ManagerAccess {
 public:
  /// Makes records of what the user agent observes.
  virtual SessionRecorder& session_recorder() = 0;

 protected:
  ~ManagerAccess() = default;
};

}  // namespace TVK
