// Owners of SQLite's handles. Results are SQLite's primary result codes (0 = SQLITE_OK).
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace TVK {

/// Whether the code says that the file is damaged or no database at all. SQLite says so of a read that failed, too.
bool IsCorruption(int code);

/// Whether the code says that the system refused something that it may grant the next time: a read, a write, memory,
/// another open file.
bool MayPass(int code);

/// Whether another file, or none, now stands where `file` was opened. Never on systems that keep an open file in its
/// place.
bool HasMoved(sqlite3_file* file);

/// One connection. One thread at a time; statements must be gone before it.
class Database {
 public:
  Database() = default;
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// `flags` as sqlite3_open_v2 takes them. Comes before anything else; closes what was open.
  int Open(const std::filesystem::path& file, int flags);
  /// The same for a URI (sqlite.org/uri.html).
  int OpenName(const std::string& name, int flags);

  /// Runs statements that need no arguments; their rows are passed over.
  int Execute(const char* sql);
  /// The first column of the first row; `value` stays untouched when there is no row.
  int ReadNumber(const char* sql, std::int64_t& value);
  int ReadText(const char* sql, std::string& value);

  /// Ends an open transaction without its changes; does nothing when there is none.
  void Rollback();

  /// Whether another file, or none, now stands where this one was opened.
  bool FileHasMoved();

  /// Whether every byte of the file and of its log of changes can be read. False after damage was found means that the
  /// disk, and perhaps not the file, is at fault: SQLite reports a read that failed as damage.
  bool CanBeReadWhole();
  /// The first bytes of the file, `count` at most; fewer where the file has no more or cannot be read.
  std::string FirstBytes(int count);
  /// Whether `text` stands anywhere in the file, as far as it can be read.
  bool Contains(std::string_view text);

  /// What SQLite says about the error `code`, its last one, and the system where it was the system's refusal: that a
  /// file may not be longer, say.
  std::string Message(int code) const;
  sqlite3* handle() const { return handle_; }

 private:
  int FileError() const;
  int WriteError() const;

  sqlite3* handle_ = nullptr;
};

/// A prepared statement, kept for many runs.
class Statement {
 public:
  Statement() = default;
  ~Statement() { sqlite3_finalize(handle_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  int Prepare(Database& database, std::string_view sql);

 private:
  friend class Run;
  sqlite3_stmt* handle_ = nullptr;
};

/// One run of a statement: arguments, rows, and at its end the reset that releases locks. Texts that are bound must
/// live as long as the run. A failed bind shows in Step.
class Run {
 public:
  explicit Run(Statement& statement) : handle_(statement.handle_) {}
  ~Run();
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  Run& Bind(int index, std::int64_t value);
  Run& Bind(int index, std::string_view value);

  /// SQLITE_ROW, SQLITE_DONE or an error.
  int Step();
  /// Step for statements without rows: 0 when done.
  int Finish();

  /// Columns of the present row; texts live until the next Step.
  std::int64_t Number(int column) const { return sqlite3_column_int64(handle_, column); }
  std::string_view Text(int column) const;

 private:
  sqlite3_stmt* handle_;
  int bind_result_ = SQLITE_OK;
};

}  // namespace TVK
