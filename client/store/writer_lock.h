// One writer a store: the mark on a file beside it that keeps a second process from writing.
#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <string>

namespace TVK {

/// Holds the mark while it lives. The system takes it back when the process ends, however that happens; the empty file
/// stays. Made of SQLite's own file layer, so it costs neither a connection nor a thread. Not safe for two threads.
class WriterLock {
 public:
  WriterLock() = default;
  ~WriterLock() { Release(); }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

  /// Takes the lock of the store `store_file`, whose name gets the extension "lock"; does nothing when it is held and
  /// its file still in its place. Does not wait. Returns an empty text, or why the store is not to be written to.
  std::string Take(const std::filesystem::path& store_file);

 private:
  void Release();

  struct FileNameDeleter {
    void operator()(const char* name) const { sqlite3_free_filename(name); }
  };
  std::unique_ptr<const char, FileNameDeleter> name_;  // SQLite's layer keeps a pointer to it
  std::unique_ptr<char[]> memory_;                     // of the layer's file object
  sqlite3_file* file_ = nullptr;                       // in memory_; null: not held
};

}  // namespace TVK
