#include "client/store/sqlite_database.h"

#include <algorithm>
#include <system_error>
#include <vector>

namespace TVK {
namespace {

int Primary(int code) {
  return code & 0xFF;
}

bool IsOpen(const sqlite3_file* file) {
  return file != nullptr && file->pMethods != nullptr;
}

}  // namespace

bool IsCorruption(int code) {
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

bool MayPass(int code) {
  return code == SQLITE_IOERR || code == SQLITE_NOMEM || code == SQLITE_CANTOPEN;
}

bool HasMoved(sqlite3_file* file) {
  int moved = 0;
  return file->pMethods->xFileControl(file, SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK && moved != 0;
}

Database::~Database() {
  sqlite3_close(handle_);
}

int Database::Open(const std::filesystem::path& file, int flags) {
  const std::u8string name = file.u8string();
  return OpenName(std::string(name.begin(), name.end()), flags);
}

int Database::OpenName(const std::string& name, int flags) {
  sqlite3_close(handle_);
  handle_ = nullptr;
  return Primary(sqlite3_open_v2(name.c_str(), &handle_, flags | SQLITE_OPEN_NOMUTEX, nullptr));
}

int Database::Execute(const char* sql) {
  return Primary(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr));
}

int Database::ReadNumber(const char* sql, std::int64_t& value) {
  Statement statement;
  if (const int code = statement.Prepare(*this, sql); code != SQLITE_OK) return code;
  Run run(statement);
  const int code = run.Step();
  if (code == SQLITE_ROW) value = run.Number(0);
  return code == SQLITE_ROW || code == SQLITE_DONE ? SQLITE_OK : code;
}

int Database::ReadText(const char* sql, std::string& value) {
  Statement statement;
  if (const int code = statement.Prepare(*this, sql); code != SQLITE_OK) return code;
  Run run(statement);
  const int code = run.Step();
  if (code == SQLITE_ROW) value = run.Text(0);
  return code == SQLITE_ROW || code == SQLITE_DONE ? SQLITE_OK : code;
}

void Database::Rollback() {
  // After some errors SQLite has rolled back by itself; a second ROLLBACK would be an error of its own.
  if (sqlite3_get_autocommit(handle_) == 0) Execute("ROLLBACK");
}

bool Database::FileHasMoved() {
  sqlite3_file* file = nullptr;
  return sqlite3_file_control(handle_, "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK && IsOpen(file) &&
         HasMoved(file);
}

bool Database::CanBeReadWhole() {
  for (const int which : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(handle_, "main", which, &file) != SQLITE_OK || !IsOpen(file)) continue;
    sqlite3_int64 size = 0;
    if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) return false;
    std::vector<char> block(1 << 16);
    for (sqlite3_int64 at = 0; at < size; at += static_cast<sqlite3_int64>(block.size())) {
      const auto length = static_cast<int>(std::min<sqlite3_int64>(size - at, static_cast<int>(block.size())));
      if (file->pMethods->xRead(file, block.data(), length, at) != SQLITE_OK) return false;
    }
  }
  return true;
}

std::string Database::FirstBytes(int count) {
  sqlite3_file* file = nullptr;
  sqlite3_int64 size = 0;
  if (sqlite3_file_control(handle_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !IsOpen(file) ||
      file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
    return {};
  }
  std::string bytes(static_cast<std::size_t>(std::min<sqlite3_int64>(size, count)), '\0');
  if (file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()), 0) != SQLITE_OK) return {};
  return bytes;
}

bool Database::Contains(std::string_view text) {
  sqlite3_file* file = nullptr;
  sqlite3_int64 size = 0;
  if (sqlite3_file_control(handle_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !IsOpen(file) ||
      file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
    return false;
  }
  constexpr sqlite3_int64 kBlock = 1 << 16;
  const auto beyond = static_cast<sqlite3_int64>(text.size()) - 1;  // it may begin at a block's end
  for (sqlite3_int64 at = 0; at < size; at += kBlock) {
    std::string bytes(static_cast<std::size_t>(std::min(size - at, kBlock + beyond)), '\0');
    if (file->pMethods->xRead(file, bytes.data(), static_cast<int>(bytes.size()), at) != SQLITE_OK) return false;
    if (bytes.find(text) != bytes.npos) return true;
  }
  return false;
}

std::string Database::Message(int code) const {
  const bool last = Primary(sqlite3_errcode(handle_)) == code;
  std::string message = last ? sqlite3_errmsg(handle_) : sqlite3_errstr(code);
  int system_error = 0;
  if (code == SQLITE_CANTOPEN && last) system_error = sqlite3_system_errno(handle_);
  if (code == SQLITE_IOERR) system_error = FileError();
  if (code == SQLITE_IOERR && system_error == 0 && last) system_error = WriteError();
  if (system_error != 0) message += ": " + std::system_category().message(system_error);
  return message;
}

// A commit that fails leaves nothing at the connection; each file keeps what the system said last.
int Database::FileError() const {
  for (const int which : {SQLITE_FCNTL_JOURNAL_POINTER, SQLITE_FCNTL_FILE_POINTER}) {
    sqlite3_file* file = nullptr;
    int error = 0;
    if (sqlite3_file_control(handle_, "main", which, &file) == SQLITE_OK && IsOpen(file) &&
        file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &error) == SQLITE_OK && error != 0) {
      return error;
    }
  }
  return 0;
}

// A journal that could not be begun is closed by now, and of the file that the connections share no error is kept. What
// the system said last may be of another call: it counts where only a write says so.
int Database::WriteError() const {
  const int said = sqlite3_system_errno(handle_);
  const std::error_condition meant = std::system_category().default_error_condition(said);
  for (const std::errc refusal : {std::errc::file_too_large, std::errc::no_space_on_device}) {
    if (meant == refusal) return said;
  }
  return 0;
}

int Statement::Prepare(Database& database, std::string_view sql) {
  return Primary(sqlite3_prepare_v3(database.handle(), sql.data(), static_cast<int>(sql.size()),
                                    SQLITE_PREPARE_PERSISTENT, &handle_, nullptr));
}

Run::~Run() {
  sqlite3_reset(handle_);
  sqlite3_clear_bindings(handle_);
}

Run& Run::Bind(int index, std::int64_t value) {
  if (bind_result_ == SQLITE_OK) bind_result_ = Primary(sqlite3_bind_int64(handle_, index, value));
  return *this;
}

Run& Run::Bind(int index, std::string_view value) {
  if (bind_result_ == SQLITE_OK) {
    // A null pointer would bind NULL, and an empty view may hold one.
    const char* data = value.empty() ? "" : value.data();
    bind_result_ =
        Primary(sqlite3_bind_text64(handle_, index, data, value.size(), /*destructor=*/nullptr, SQLITE_UTF8));
  }
  return *this;
}

int Run::Step() {
  return bind_result_ != SQLITE_OK ? bind_result_ : Primary(sqlite3_step(handle_));
}

int Run::Finish() {
  const int code = Step();
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

std::string_view Run::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
  return text == nullptr ? std::string_view() : std::string_view(text, sqlite3_column_bytes(handle_, column));
}

}  // namespace TVK
