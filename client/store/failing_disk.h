// A disk that fails when a test says so.
#pragma once

#include <sqlite3.h>

#include <map>
#include <string_view>

#include "client/store/event_data_logging.h"

namespace TVK {

/// Stands in front of the system's file layer (sqlite.org/vfs.html) while it lives: the files are those of the layer
/// below, with three of their methods replaced.
class FailingDisk {
 public:
  FailingDisk() {
    below_ = sqlite3_vfs_find(nullptr);
    vfs_ = *below_;
    vfs_.zName = "failing";
    vfs_.pNext = nullptr;
    vfs_.xOpen = Open;
    sqlite3_vfs_register(&vfs_, 1);
  }
  ~FailingDisk() {
    sqlite3_vfs_unregister(&vfs_);
    sqlite3_vfs_register(below_, 1);
  }
  FailingDisk(const FailingDisk&) = delete;
  FailingDisk& operator=(const FailingDisk&) = delete;

  /// The n-th write or flush from now fails with `code`, and all later ones when `for_good`; reads or flushes alone
  /// when the code is one of theirs. 0: none.
  void FailAt(int n, int code, bool for_good) {
    left_ = n;
    code_ = code;
    for_good_ = for_good;
    failed_ = false;
  }
  static bool failed() { return failed_; }

  /// Stores that are opened while it is set may not be written.
  void set_read_only(bool read_only) { read_only_ = read_only; }

 private:
  enum class Call { kRead, kWrite, kFlush };
  static bool IsMeant(Call call) {
    if (code_ == SQLITE_IOERR_READ || code_ == SQLITE_IOERR_CORRUPTFS) return call == Call::kRead;
    if (code_ == SQLITE_IOERR_FSYNC) return call == Call::kFlush;
    return call != Call::kRead;
  }
  static bool Fails(Call call) {
    if (!IsMeant(call)) return false;
    if (for_good_ && failed_) return true;
    if (left_ == 0 || --left_ != 0) return false;
    failed_ = true;
    return true;
  }

  static int Open(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* out_flags) {
    if (read_only_ && name != nullptr && std::string_view(name).ends_with(kStoreFileName)) {
      flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
    }
    const int code = below_->xOpen(below_, name, file, flags, out_flags);
    if (file->pMethods == nullptr) return code;
    write_below_ = file->pMethods->xWrite;  // one for all kinds of files
    sqlite3_io_methods& methods = methods_[file->pMethods];
    methods = *file->pMethods;
    methods.iVersion = 2;  // without mapping, which would write past us
    read_below_ = file->pMethods->xRead;
    methods.xWrite = Write;
    methods.xRead = Read;
    methods.xSync = Sync;
    file->pMethods = &methods;
    return code;
  }
  static int Read(sqlite3_file* file, void* data, int size, sqlite3_int64 offset) {
    return Fails(Call::kRead) ? code_ : read_below_(file, data, size, offset);
  }
  static int Write(sqlite3_file* file, const void* data, int size, sqlite3_int64 offset) {
    return Fails(Call::kWrite) ? code_ : write_below_(file, data, size, offset);
  }
  static int Sync(sqlite3_file* /*file*/, int /*flags*/) {
    // No power is lost here: what the layer below was given it has, so the real flush would only take time.
    return Fails(Call::kFlush) ? SQLITE_IOERR_FSYNC : SQLITE_OK;
  }

  sqlite3_vfs vfs_;
  static inline std::map<const sqlite3_io_methods*, sqlite3_io_methods> methods_;  ///< Ours, by those below.
  static inline decltype(sqlite3_io_methods::xWrite) write_below_ = nullptr;
  static inline decltype(sqlite3_io_methods::xRead) read_below_ = nullptr;
  static inline sqlite3_vfs* below_ = nullptr;
  static inline int left_ = 0;
  static inline int code_ = 0;
  static inline bool for_good_ = false;
  static inline bool failed_ = false;
  static inline bool read_only_ = false;
};

}  // namespace TVK
