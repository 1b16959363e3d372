// The systemd journal of this computer, or of a recorded one.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/linux/systemd_library.h"

namespace platform {

/// An open journal. One thread at a time, and the one that opened it.
class Journal {
 public:
  /// The journal below `root` (/var/log/journal and /run/log/journal in it); of "/" what this machine logged itself.
  /// Nothing on failure; `error` is then the errno, ENOENT where neither folder exists,
  /// ELIBACC where the system lacks the library that reads it.
  static std::optional<Journal> Open(const std::filesystem::path& root, int& error);

  // What the first Next gives: the bookmark's own entry, or the one behind its place when that is gone; the first entry
  // that was logged at `time` or later; the first one.
  /// False: that is no bookmark.
  bool SeekTo(const std::string& bookmark);
  void SeekTo(WallTime time);
  void SeekToBegin();

  enum class Step { kEntry, kEnd, kFailed };
  /// Goes to the next entry. `error`: the errno of a failure.
  Step Next(int& error);
  // Of the present entry.
  /// Whether it is the bookmark's own, or a copy of it in another file: a journal of the early boot is moved from
  /// memory to the disk, which numbers its entries anew.
  bool IsAt(const std::string& bookmark);
  std::string Bookmark();
  WallTime Time();
  /// Those that JournalFieldFilter takes, "NAME=value" each, until the next call of this object. What is beyond 64 KiB
  /// of one is cut off.
  const std::vector<std::string_view>& Fields();

  /// A descriptor that is readable when Refresh should be called; below 0 where the system gives none.
  int fd();
  /// Takes notice of what came and went.
  enum class News { kNone, kEntries, kFiles };
  News Refresh();

  std::uint64_t BytesOnDisk();
  std::optional<WallTime> OldestEntry();

 private:
  struct Close {
    const SystemdLibrary* library;
    void operator()(sd_journal* journal) const { library->close(journal); }
  };

  Journal(const SystemdLibrary& library, sd_journal* journal)
      : library_(&library), journal_(journal, Close{&library}) {}

  const SystemdLibrary* library_;
  std::unique_ptr<sd_journal, Close> journal_;
  std::string text_;  ///< What Fields refers to: the library keeps one field at a time.
  std::vector<std::string_view> fields_;
};

/// Whether files of the journal below `root` may not be read, and whether there are any at all.
struct JournalAccess {
  bool files = false;
  bool refused = false;
};
JournalAccess CheckJournalAccess(const std::filesystem::path& root);

}  // namespace platform
