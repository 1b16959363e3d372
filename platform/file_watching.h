// What the watchers of all systems have in common: where to look for a file whose folder may not exist yet, and how a
// watcher begins.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/file_watcher.h"

namespace platform {

struct WatchPlace {
  std::filesystem::path folder;  ///< Exists and is watched.
  std::filesystem::path name;    ///< What to look for in it: the file, or the next folder on the way to it.
  bool direct = true;            ///< It is the file's own folder.
  bool blind = false;            ///< The next folder is there and cannot be watched: a change in it is not told.
};

/// Finds the place for `file`, an absolute path: its folder, or the nearest one above that `attach` accepts.
/// `attach(folder)` starts to watch a folder and returns whether it could; it may be asked for one more than once.
/// Empty when not even the root is accepted.
template <class Attach>
std::optional<WatchPlace> FindWatchPlace(const std::filesystem::path& file, Attach attach) {
  std::filesystem::path before;
  for (;;) {
    WatchPlace place{file.parent_path(), file.filename(), true};
    while (!attach(place.folder)) {
      if (!place.folder.has_relative_path()) return std::nullopt;
      place = {place.folder.parent_path(), place.folder.filename(), false};
    }
    // The next folder may have come between the try to watch it and the watch on its parent: then once more. When that
    // ends at the same place, the folder is there but cannot be watched.
    std::error_code ignored;
    if (place.direct || !std::filesystem::exists(place.folder / place.name, ignored)) return place;
    if (place.folder == before) {
      place.blind = true;
      return place;
    }
    before = place.folder;
  }
}

/// How many files one watcher takes: Windows waits for 64 things at once, two for each file and the end.
inline constexpr std::size_t kMostWatchedFiles = 31;

/// How often the files are looked at while the system does not tell of them: it refuses a watch, or an exception ended
/// a round of the watcher's thread, which has no log to tell. So no change is missed.
inline constexpr int kRetryMs = 1000;

/// Makes `files` absolute. False when there are none or too many, or one names no file.
template <class Paths>
bool NormaliseWatchedFiles(Paths& files) {
  if (files.empty() || files.size() > kMostWatchedFiles) return false;
  for (auto& file : files) {
    std::error_code error;
    if (!file.has_filename()) return false;
    file = std::filesystem::absolute(file, error);
    if (error) return false;
  }
  return true;
}

/// FileWatcher::Watch by a `Watcher`, whose Start returns an empty text or what went wrong.
template <class Watcher>
std::unique_ptr<FileWatcher> StartFileWatcher(Runtime& runtime, std::vector<std::filesystem::path> files,
                                              std::function<void()> on_change, std::string* problem) {
  std::string text = "between 1 and " + std::to_string(kMostWatchedFiles) + " files can be watched, not folders";
  if (NormaliseWatchedFiles(files)) {
    auto watcher = std::make_unique<Watcher>(runtime, std::move(files), std::move(on_change));
    text = watcher->Start();
    if (text.empty()) return watcher;
  }
  if (problem != nullptr) *problem = text;
  return nullptr;
}

}  // namespace platform
