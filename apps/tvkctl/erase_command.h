// `tvkctl erase`: deletes for good what is kept of this machine.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>

#include "component/eraser.h"
#include "platform/runtime.h"

namespace tvkctl {

struct EraseOptions {
  TVK::ErasurePlaces places;          ///< Of the service.
  std::filesystem::path channel;      ///< Where the service is reached; see platform::ChannelPlace.
  std::filesystem::path policy_file;  ///< That `stop` changes; a service that says that its is another is not stopped.
  bool all = false;                   ///< One of three that say what is deleted; `dataset` and `before` may be joined.
  std::string dataset = {};           ///< Dataset name, UTF-8, ASCII case aside.
  std::string before = {};            ///< As ParseMoment (client/text/moment.h) takes it.
  bool stop = false;                  ///< The scope "none" first.
  bool dry_run = false;               ///< Only says what would be deleted.
  bool yes = false;                   ///< Without it nothing is deleted either.
};

/// Has the running service delete it, or does it itself where none runs. Returns the exit code: 0; 1 when an option has
/// no meaning, or `yes` is missing; 2 when there is no such folder, its store is not ours, or the policy cannot be
/// changed; 3 when not everything could be deleted, or it is not known. What was done and what would be goes to `out`,
/// what is wrong to `errors`.
int RunErase(const EraseOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl
