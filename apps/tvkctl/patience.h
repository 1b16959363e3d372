// Says of a command that takes long that it is still at its work.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <thread>

#include "platform/runtime.h"

namespace tvkctl {

/// While it lives it writes whole lines, "tvkctl: the drives are asked, for 2 seconds now", to `errors`: after two
/// seconds, and each time that it has taken twice as long. What else is written there meanwhile must be safe beside it,
/// as it is with standard error. Where the system gives no thread for it, nothing is written.
class Patience {
 public:
  /// `runtime` and `errors` must outlive the object.
  Patience(platform::Runtime& runtime, std::string doing, std::ostream& errors);
  ~Patience();
  Patience(const Patience&) = delete;
  Patience& operator=(const Patience&) = delete;

 private:
  void Tell();

  platform::Runtime& runtime_;
  const std::string doing_;
  std::ostream& errors_;
  const std::unique_ptr<platform::Event> done_;  ///< Manual-reset.
  std::thread thread_;                           ///< None where the system gives none.
};

}  // namespace tvkctl
