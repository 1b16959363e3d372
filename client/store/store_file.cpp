#include "client/store/store_file.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <system_error>

namespace TVK {
namespace {

constexpr std::int64_t kApplicationId = 0x54564B45;  // "TVKE", PRAGMA application_id

int CreateVersion1(Database& database) {
  return database.Execute(
      "PRAGMA application_id = 1414941509;"
      "CREATE TABLE series(id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, dataset_id TEXT NOT NULL,"
      " item_id TEXT NOT NULL, UNIQUE(kind, dataset_id, item_id));"
      "CREATE TABLE record(sequence INTEGER PRIMARY KEY, series INTEGER NOT NULL REFERENCES series(id),"
      " number INTEGER NOT NULL, written INTEGER NOT NULL, json TEXT NOT NULL);"
      "CREATE UNIQUE INDEX record_by_series ON record(series, number);"
      "PRAGMA user_version = 1;");
}
static_assert(kApplicationId == 1414941509);

// kMigrations[n] makes version n + 1 of version n.
constexpr int (*kMigrations[])(Database&) = {CreateVersion1};

constexpr std::chrono::milliseconds kReaderBusyTimeout{2000};

struct Header {
  std::int64_t application_id = 0;
  std::int64_t version = 0;
  std::int64_t tables = 0;
};

int ReadHeader(Database& database, Header& header) {
  int code = database.ReadNumber("PRAGMA application_id", header.application_id);
  if (code == SQLITE_OK) code = database.ReadNumber("PRAGMA user_version", header.version);
  if (code == SQLITE_OK) code = database.ReadNumber("SELECT count(*) FROM sqlite_schema", header.tables);
  return code;
}

StoreFileOpening Failed(int code, const Database& database) {
  return {IsCorruption(code) ? StoreFileState::kDamaged : StoreFileState::kUnavailable, database.Message()};
}

// Whose file it is, by its header.
StoreFileOpening Judge(const Header& header) {
  const bool empty = header.application_id == 0 && header.version == 0 && header.tables == 0;
  if (header.application_id != kApplicationId && !empty) {
    return {StoreFileState::kForeign, "the file is a database of another program"};
  }
  if (header.version > NewestSchemaVersion()) {
    return {StoreFileState::kForeign, "the file has version " + std::to_string(header.version) +
                                          ", this program knows versions up to " +
                                          std::to_string(NewestSchemaVersion())};
  }
  return {StoreFileState::kReady, {}};
}

int Migrate(Database& database) {
  int code = database.Execute("BEGIN IMMEDIATE");
  Header header;  // read again: another process may have been faster
  if (code == SQLITE_OK) code = ReadHeader(database, header);
  for (std::int64_t version = header.version; code == SQLITE_OK && version < NewestSchemaVersion(); ++version) {
    code = kMigrations[version](database);
  }
  if (code == SQLITE_OK) code = database.Execute("COMMIT");
  if (code != SQLITE_OK) database.Rollback();
  return code;
}

int SetUpConnection(std::chrono::milliseconds busy_timeout, Database& database) {
  sqlite3_busy_timeout(database.handle(), static_cast<int>(busy_timeout.count()));
  // A quarter of a MiB of cache holds the pages that appending and looking up touch; the service has to stay small.
  return database.Execute("PRAGMA cache_size = -256; PRAGMA temp_store = MEMORY; PRAGMA mmap_size = 0");
}

// Changes that stand beside the file and not in it: somebody writes, or the last writer ended without closing it.
bool HasChangesBeside(const std::filesystem::path& file) {
  for (const char* suffix : {"-wal", "-journal"}) {
    std::filesystem::path log = file;
    log += suffix;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(log, error);
    if (!error && size > 0) return true;
  }
  return false;
}

// As SQLite's URIs want a path; everything but unreserved characters is escaped (RFC 3986, 2.3).
std::string ImmutableUri(const std::filesystem::path& file) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string uri = "file:";
  const std::u8string path = std::filesystem::absolute(file).generic_u8string();
  if (!path.empty() && path.front() != u8'/') uri += "///";
  for (const char8_t c : path) {
    const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '/' ||
                       c == ':' || c == '-' || c == '.' || c == '_' || c == '~';
    if (plain) {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += kHex[c >> 4];
      uri += kHex[c & 15];
    }
  }
  return uri + "?immutable=1";
}

}  // namespace

int NewestSchemaVersion() {
  return static_cast<int>(std::size(kMigrations));
}

StoreFileOpening OpenStoreForWriting(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout,
                                     Database& database) {
  int code = database.Open(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  if (code == SQLITE_OK) code = SetUpConnection(busy_timeout, database);
  Header header;
  if (code == SQLITE_OK) code = ReadHeader(database, header);
  if (code != SQLITE_OK) return Failed(code, database);

  if (StoreFileOpening judged = Judge(header); judged.state != StoreFileState::kReady) {
    sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    return judged;
  }
  if (sqlite3_db_readonly(database.handle(), "main") == 1) {
    // SQLite opens what it may not write for reading only, and says nothing before the first change.
    return {StoreFileState::kUnavailable, "the file cannot be written"};
  }
  std::string finding;
  code = database.ReadText("PRAGMA quick_check(1)", finding);
  if (code != SQLITE_OK) return Failed(code, database);
  if (finding != "ok") return {StoreFileState::kDamaged, finding};
  // FULL: the log of changes is flushed to the disk with every commit, which is what makes a record durable.
  code = database.Execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
  if (code == SQLITE_OK) code = Migrate(database);
  if (code != SQLITE_OK) return Failed(code, database);
  return {StoreFileState::kReady, {}};
}

int OpenStoreForQueries(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout, Database& database) {
  const int code = database.Open(file, SQLITE_OPEN_READWRITE);
  return code == SQLITE_OK ? SetUpConnection(busy_timeout, database) : code;
}

StoreFileOpening OpenStoreReadOnly(const std::filesystem::path& file, Database& database) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    return {StoreFileState::kMissing, "there is no such file"};
  }
  if (!std::filesystem::status_known(status)) return {StoreFileState::kUnavailable, error.message()};
  if (!std::filesystem::is_regular_file(status)) return {StoreFileState::kForeign, "it is no file"};
  Header header;
  // A connection that may only read makes the files that connections share and cannot remove them. Where nobody writes,
  // one that may write and never does takes them away again.
  const bool quiet = !HasChangesBeside(file);
  int code = database.Open(file, quiet ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY);
  if (code == SQLITE_OK) code = database.Execute("PRAGMA query_only = ON");
  if (code == SQLITE_OK) code = SetUpConnection(kReaderBusyTimeout, database);
  if (code == SQLITE_OK) code = ReadHeader(database, header);
  constexpr int kNoSharedFiles[] = {SQLITE_CANTOPEN, SQLITE_READONLY, SQLITE_IOERR, SQLITE_FULL};
  if (quiet && std::ranges::find(kNoSharedFiles, code) != std::end(kNoSharedFiles)) {
    // Without the right or the room to make the files that readers share, but nobody writes either: take the file as it
    // stands.
    code = database.OpenName(ImmutableUri(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
    if (code == SQLITE_OK) code = ReadHeader(database, header);
  }
  if (code == SQLITE_NOTADB) return {StoreFileState::kForeign, database.Message()};
  if (code != SQLITE_OK) return Failed(code, database);
  StoreFileOpening judged = Judge(header);
  if (judged.state == StoreFileState::kReady && header.version == 0) {
    return {StoreFileState::kForeign, "the file is empty"};
  }
  if (judged.state == StoreFileState::kReady && header.version != NewestSchemaVersion()) {
    return {StoreFileState::kForeign, "the file has version " + std::to_string(header.version) +
                                          ", this program reads version " + std::to_string(NewestSchemaVersion())};
  }
  return judged;
}

std::string SetAside(const std::filesystem::path& file, const platform::Clock& clock, std::filesystem::path& new_name) {
  const platform::LocalTime now = clock.ToLocal(clock.NowSeconds());
  char stamp[64];
  static_cast<void>(std::snprintf(stamp, sizeof stamp, ".corrupt-%04d%02d%02dT%02d%02d%02d", now.year, now.month,
                                  now.day, now.hour, now.minute, now.second));
  std::filesystem::path target = file;
  target += stamp;
  std::error_code error;
  for (int copy = 2; std::filesystem::exists(target, error); ++copy) {
    target = file;
    target += stamp;
    target += '-';
    target += std::to_string(copy);
  }
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::path from = file;
    std::filesystem::path to = target;
    from += suffix;
    to += suffix;
    if (!std::filesystem::exists(from, error)) continue;
    std::filesystem::rename(from, to, error);
    if (error) return error.message();
  }
  new_name = target;
  return {};
}

}  // namespace TVK
