// Tells when one of a few named files may have changed, without looking at them while nothing changes.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/runtime.h"

namespace platform {

/// Watches files by their folders, so that a file may come, go, or be replaced by a rename, and so may its folders: as
/// long as a folder is missing, the nearest one that exists is watched in its place.
///
/// Linux: where the path, or a folder on it, is a symbolic link, the link is watched and so is what it stands for,
/// up to 40 links. A folder further up that is renamed or removed is noticed when the account may read it; a mount over
/// it and a change of its permissions are not, since that would need a wake-up for each change in folders such as /tmp.
/// Windows: links are not followed. The file's own folder may be renamed and another take its name where the account
/// may list the parent; what happens further up (a parent of an existing folder renamed) is not seen.
///
/// It waits in the system and not in the runtime: with the virtual runtime, its thread counts as working all the time
/// and the clock of that world would stand still. Use it with the real one.
class FileWatcher {
 public:
  FileWatcher() = default;
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;

  /// Stops watching. When it returns, `on_change` does not run and will not. Must not be called from `on_change`.
  virtual ~FileWatcher() = default;

  /// Starts a thread of `runtime`, which must outlive the watcher. The thread calls `on_change` whenever a file may
  /// have changed: at the end of each change (a writer that keeps the file open is seen when it closes it), several
  /// times for one change, or once for several. Changes after the return of `Watch` are never missed: watch first, then
  /// read. When `on_change` throws, or the memory ends, the files are looked up and `on_change` is called once more a
  /// second later. While the system refuses a watch (too many of them, a folder that may be entered but not listed),
  /// that is tried again and `on_change` called each second. `files` holds 1 to 31 paths; relative ones count from the
  /// present working folder. Returns null when there can be no thread; `problem`, when given, then says why.
  static std::unique_ptr<FileWatcher> Watch(Runtime& runtime, std::vector<std::filesystem::path> files,
                                            std::function<void()> on_change, std::string* problem = nullptr);
};

}  // namespace platform
