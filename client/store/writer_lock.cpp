#include "client/store/writer_lock.h"

#include "client/store/sqlite_database.h"
#include "platform/files.h"

namespace TVK {

std::string WriterLock::Take(const std::filesystem::path& store_file) {
  if (file_ != nullptr && !HasMoved(file_)) return {};
  Release();
  const std::filesystem::path lock_file = std::filesystem::absolute(store_file).replace_extension("lock");
  const std::u8string path = lock_file.u8string();
  const std::string text(path.begin(), path.end());
  // Who may read it could keep the lock from being taken.
  if (std::string problem = platform::MakePrivateFile(lock_file); !problem.empty()) return problem;

  sqlite3_vfs* const layer = sqlite3_vfs_find(nullptr);
  name_.reset(sqlite3_create_filename(text.c_str(), "", "", 0, nullptr));
  if (layer == nullptr || !name_) return "no memory for the lock";
  memory_ = std::make_unique<char[]>(static_cast<std::size_t>(layer->szOsFile));
  auto* const file = reinterpret_cast<sqlite3_file*>(memory_.get());
  int flags = 0;
  // As a main database, since the layer locks nothing else.
  int code =
      layer->xOpen(layer, name_.get(), file, SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, &flags);
  if (file->pMethods != nullptr) file_ = file;
  if (code == SQLITE_OK && (flags & SQLITE_OPEN_READONLY) != 0) code = SQLITE_READONLY;
  if (code == SQLITE_OK) code = file_->pMethods->xLock(file_, SQLITE_LOCK_SHARED);
  if (code == SQLITE_OK) code = file_->pMethods->xLock(file_, SQLITE_LOCK_RESERVED);
  if (code == SQLITE_OK) return {};
  Release();
  if (code == SQLITE_BUSY) return "another process writes to it";
  return text + " cannot be locked: " + sqlite3_errstr(code);
}

void WriterLock::Release() {
  if (file_ != nullptr) {
    file_->pMethods->xUnlock(file_, SQLITE_LOCK_NONE);
    file_->pMethods->xClose(file_);
    file_ = nullptr;
  }
  memory_.reset();
  name_.reset();
}

}  // namespace TVK
