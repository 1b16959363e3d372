// The real world: this process's runtime and this computer.
#pragma once

#include <filesystem>
#include <memory>

#include "platform/machine.h"
#include "platform/runtime.h"

namespace platform {

struct RealRuntimeOptions {
  /// Where named events live on systems that keep them in the file system (Linux: one FIFO a name, made when needed,
  /// the folder too). Processes that share events name the same folder. Not used on Windows.
  std::filesystem::path named_event_folder;
};

/// The runtime of the running system.
std::unique_ptr<Runtime> MakeRealRuntime(RealRuntimeOptions options);

struct LocalMachineOptions {
  /// Folder below which every file of the machine is read: "/" for this computer, or a recorded tree of another one.
  /// Linux only; elsewhere it must be empty or "/". The drives of a tree with a folder "drives" are those that
  /// drive_recording.h reads from it; without one they are listed by its /sys, and none can be asked.
  std::filesystem::path sysroot = "/";
};

/// The computer that the process runs on, or the recorded one. `clock` must outlive the machine.
std::unique_ptr<Machine> OpenLocalMachine(const LocalMachineOptions& options, const Clock& clock);

}  // namespace platform
