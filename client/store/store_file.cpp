#include "client/store/store_file.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <system_error>

#include "client/store/store_schema.h"
#include "platform/files.h"

namespace TVK {
namespace {

// A version above this one was never given to a newer program; the number is damage.
constexpr std::int64_t kLargestVersion = 9999;

// The header of a database (sqlite.org/fileformat.html, 1.3): what it begins with, which version of the file format may
// be written, whose it is.
constexpr std::string_view kMagicText("SQLite format 3\0", 16);
constexpr std::size_t kWriteVersionOffset = 18;
constexpr unsigned char kNewestWriteVersion = 2;
constexpr std::size_t kApplicationIdOffset = 68;
constexpr int kFirstPage = 4096;

constexpr std::size_t kMostOfChanges = 4 << 20;  // the log of changes is begun anew after 1000 pages, SQLite's default

constexpr std::chrono::milliseconds kReaderBusyTimeout{2000};

struct Header {
  std::int64_t application_id = 0;
  std::int64_t version = 0;
  std::int64_t tables = 0;
  std::int64_t tables_of_ours = 0;  ///< How many of our two tables there are.
};

int ReadHeader(Database& database, Header& header) {
  int code = database.ReadNumber("PRAGMA application_id", header.application_id);
  if (code == SQLITE_OK) code = database.ReadNumber("PRAGMA user_version", header.version);
  if (code == SQLITE_OK) code = database.ReadNumber("SELECT count(*) FROM sqlite_schema", header.tables);
  if (code == SQLITE_OK) {
    code =
        database.ReadNumber("SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name IN ('series','record')",
                            header.tables_of_ours);
  }
  return code;
}

// Whose file it is, by its header.
StoreFileOpening Judge(const Header& header) {
  const bool empty = header.application_id == 0 && header.version == 0 && header.tables == 0;
  const bool ours = header.application_id == kStoreApplicationId;
  if (!ours && header.tables_of_ours == 2) {
    return {StoreFileState::kDamaged, "the header of the file is damaged: our tables without our mark"};
  }
  if (!ours && !empty) {
    return {StoreFileState::kForeign, "the file is a database of another program"};
  }
  const std::string version = std::to_string(header.version);
  if (header.version < 0 || header.version > kLargestVersion || (header.version == 0 && !empty)) {
    return {StoreFileState::kDamaged, "the header of the file is damaged: it says version " + version};
  }
  if (header.version > kNewestSchemaVersion) {
    return {StoreFileState::kNewer, "the file has version " + version + ", this program knows versions up to " +
                                        std::to_string(kNewestSchemaVersion)};
  }
  return {StoreFileState::kReady, {}};
}

// Records in a file that is no text: a page of ours, and no list of records that somebody keeps.
constexpr std::string_view kMarksOfPages[] = {"\"device_context_id\":\"", std::string_view("\0", 1)};

// Changes of ours that stand beside a file, which need not hold a record yet. SQLite keeps no lock of them.
bool HasOurChangesBeside(const Database& database) {
  const char* const name = sqlite3_db_filename(database.handle(), "main");
  if (name == nullptr || *name == 0) return false;
  std::ifstream in(platform::PathFromUtf8(std::string(name) + "-wal"), std::ios::binary);
  std::string bytes(kMostOfChanges, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return std::ranges::all_of(kMarksOfPages, [&](std::string_view mark) { return bytes.find(mark) != bytes.npos; });
}

// Of a file that is no database as it stands: whether it was one, or ours. What a person put there by mistake has none
// of the marks; what a disk overwrote keeps some in its first page, in another one or in the changes beside it, or is
// nothing but zeros.
bool HasBeenDatabase(Database& database) {
  const std::string page = database.FirstBytes(kFirstPage);
  constexpr char kOurMark[] = {
      static_cast<char>(kStoreApplicationId >> 24), static_cast<char>(kStoreApplicationId >> 16 & 255),
      static_cast<char>(kStoreApplicationId >> 8 & 255), static_cast<char>(kStoreApplicationId & 255)};
  return page.starts_with(kMagicText.substr(0, page.size())) ||
         page.find(std::string_view(kOurMark, sizeof kOurMark), kApplicationIdOffset) == kApplicationIdOffset ||
         page.find("CREATE TABLE series") != page.npos || page.find_first_not_of('\0') == page.npos ||
         std::ranges::all_of(kMarksOfPages, [&](std::string_view mark) { return database.Contains(mark); }) ||
         HasOurChangesBeside(database);
}

// Reads the header and judges it.
StoreFileOpening JudgeFile(Database& database, Header& header) {
  const int code = ReadHeader(database, header);
  if (code == SQLITE_OK) return Judge(header);
  // A list of tables that cannot be understood; whose, the part of the header that was read before says.
  if (code == SQLITE_ERROR && header.application_id != kStoreApplicationId) {
    return {StoreFileState::kForeign, database.Message(code), code};
  }
  return FailedOpening(code, database);
}

// Leaves the file as it was when it fails.
StoreFileOpening Upgrade(Database& database) {
  int code = database.Execute("BEGIN IMMEDIATE");
  std::int64_t version = 0;  // read again: another process may have been faster
  if (code == SQLITE_OK) code = database.ReadNumber("PRAGMA user_version", version);
  if (code == SQLITE_OK) code = UpgradeSchema(database, version);
  if (code == SQLITE_OK) code = database.Execute("COMMIT");
  if (code == SQLITE_OK) return {StoreFileState::kReady, {}};
  StoreFileOpening failed = FailedOpening(code, database);  // the rollback forgets what was wrong
  database.Rollback();
  return failed;
}

int SetUpConnection(std::chrono::milliseconds busy_timeout, Database& database) {
  sqlite3_busy_timeout(database.handle(), static_cast<int>(busy_timeout.count()));
  // A quarter of a MiB of cache holds the pages that appending and looking up touch; the service has to stay small.
  return database.Execute("PRAGMA cache_size = -256; PRAGMA temp_store = MEMORY; PRAGMA mmap_size = 0");
}

bool HasContent(std::filesystem::path file, const char* suffix) {
  file += suffix;
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  return !error && size > 0;
}

// Changes that stand beside the file and not in it: somebody writes, or the last writer ended without closing it.
bool HasChangesBeside(const std::filesystem::path& file) {
  return HasContent(file, "-wal") || HasContent(file, "-journal");
}

bool IsCutToNothing(const std::filesystem::path& file) {
  std::error_code error;
  return std::filesystem::file_size(file, error) == 0 && !error;
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

StoreFileOpening FailedOpening(int code, Database& database) {
  // A file that says that it is ours and whose tables are not as they were made is damaged, too.
  constexpr int kOfTheContent[] = {SQLITE_CORRUPT, SQLITE_NOTADB,   SQLITE_ERROR,
                                   SQLITE_SCHEMA,  SQLITE_MISMATCH, SQLITE_CONSTRAINT};
  std::string problem = database.Message(code);
  if (std::ranges::find(kOfTheContent, code) == std::end(kOfTheContent)) {
    return {StoreFileState::kUnavailable, std::move(problem), code};
  }
  if (!database.CanBeReadWhole()) return {StoreFileState::kUnavailable, sqlite3_errstr(SQLITE_IOERR), SQLITE_IOERR};
  const bool foreign = code == SQLITE_NOTADB && !HasBeenDatabase(database);
  return {foreign ? StoreFileState::kForeign : StoreFileState::kDamaged, std::move(problem), code};
}

namespace {

// What the file by itself says, read without a lock and without the files that connections share, so that one that is
// not ours stays as it was, with its permissions and what lies beside it. kUnavailable when it cannot be opened so.
StoreFileOpening JudgeUntouched(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return {};  // a pipe would be waited for
  Database database;
  const int code = database.OpenName(ImmutableUri(file), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  if (code != SQLITE_OK) {
    const std::error_code refusal(sqlite3_system_errno(database.handle()), std::system_category());
    const bool denied = code == SQLITE_CANTOPEN && refusal == std::errc::permission_denied;
    return {denied ? StoreFileState::kDenied : StoreFileState::kUnavailable, refusal.message(), code};
  }
  Header header;
  return JudgeFile(database, header);
}

bool IsNotForUs(const StoreFileOpening& judged) {
  return judged.state == StoreFileState::kForeign || judged.state == StoreFileState::kNewer;
}

}  // namespace

StoreFileOpening OpenStoreForWriting(const std::filesystem::path& file, std::chrono::milliseconds busy_timeout,
                                     Database& database) {
  const bool cut = IsCutToNothing(file);
  // A log of changes is begun after the file has its first page. SQLite would throw it away.
  if (HasContent(file, "-wal")) {
    std::error_code error;
    if (cut) return {StoreFileState::kDamaged, "the file was cut to nothing"};
    if (!std::filesystem::exists(file, error) && !error) {
      return {StoreFileState::kDamaged, "its last changes are there without it"};
    }
  }
  if (StoreFileOpening judged = JudgeUntouched(file); IsNotForUs(judged)) return judged;
  // What SQLite makes beside it has its permissions, where it is made anew.
  if (std::string problem = platform::MakePrivateFile(file); !problem.empty()) {
    return {StoreFileState::kUnavailable, std::move(problem), SQLITE_CANTOPEN};
  }
  for (const char* const suffix : {"-wal", "-shm"}) {
    std::filesystem::path beside = file;
    platform::CloseFile(beside += suffix);
  }
  int code = database.Open(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  if (code == SQLITE_OK) code = SetUpConnection(busy_timeout, database);
  if (code != SQLITE_OK) return FailedOpening(code, database);
  Header header;
  if (StoreFileOpening judged = JudgeFile(database, header); judged.state != StoreFileState::kReady) {
    sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    return judged;
  }
  if (sqlite3_db_readonly(database.handle(), "main") == 1) {
    const std::string page = database.FirstBytes(kFirstPage);
    if (page.size() > kWriteVersionOffset &&
        static_cast<unsigned char>(page[kWriteVersionOffset]) > kNewestWriteVersion) {
      return {StoreFileState::kDamaged, "the header of the file is damaged: it is of no version that can be written"};
    }
    // SQLite opens what it may not write for reading only, and says nothing before the first change.
    return {StoreFileState::kUnavailable, "the file cannot be written", SQLITE_READONLY};
  }
  std::string finding;
  code = database.ReadText("PRAGMA quick_check(1)", finding);
  if (code == SQLITE_OK && finding != "ok") {
    // It finds a page that could not be read as wrong as one that is wrong.
    if (database.CanBeReadWhole()) return {StoreFileState::kDamaged, finding};
    code = SQLITE_IOERR;
  }
  // FULL: the log of changes is flushed to the disk with every commit, which is what makes a record durable.
  if (code == SQLITE_OK) code = database.Execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
  if (code != SQLITE_OK) return FailedOpening(code, database);
  if (header.version != kNewestSchemaVersion) {
    if (StoreFileOpening upgraded = Upgrade(database); upgraded.state != StoreFileState::kReady) return upgraded;
    // The log of changes had room for every record; nobody minds when it keeps that.
    static_cast<void>(database.Execute("PRAGMA wal_checkpoint(TRUNCATE)"));
  }
  return {StoreFileState::kReady,
          cut ? "the file was empty; it is begun anew, and records that may have been in it are lost" : ""};
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
  const std::error_code denied = std::make_error_code(std::errc::permission_denied);
  if (error == denied) return {StoreFileState::kDenied, error.message()};
  if (!std::filesystem::status_known(status)) return {StoreFileState::kUnavailable, error.message()};
  if (!std::filesystem::is_regular_file(status)) return {StoreFileState::kForeign, "it is no file"};
  StoreFileOpening untouched = JudgeUntouched(file);
  if (untouched.state == StoreFileState::kDenied || IsNotForUs(untouched)) return untouched;
  // A connection that may only read makes the files that connections share and cannot remove them. Where nobody writes,
  // one that may write and never does takes them away again.
  const bool quiet = !HasChangesBeside(file);
  Header header;
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
  if (code != SQLITE_OK) return FailedOpening(code, database);
  StoreFileOpening judged = Judge(header);
  if (judged.state == StoreFileState::kReady && header.version == 0) {
    return {StoreFileState::kMissing, "the file is empty"};
  }
  return judged;
}

namespace {

constexpr std::string_view kAside = ".corrupt-";

// The newest name by which the file was set aside without its changes: something came between the two. Empty when there
// is none.
std::filesystem::path FindHalfSetAside(const std::filesystem::path& file) {
  const std::string begin = platform::PathToUtf8(file.filename()).append(kAside);
  std::string newest;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(file.parent_path(), error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = platform::PathToUtf8(entry->path().filename());
    const bool file_itself = name.starts_with(begin) && !name.ends_with("-wal") && !name.ends_with("-shm");
    if (file_itself && name > newest) newest = std::move(name);
  }
  if (newest.empty()) return {};
  std::filesystem::path found = file.parent_path() / platform::PathFromUtf8(newest);
  return HasContent(found, "-wal") ? std::filesystem::path() : found;
}

// A name that nothing has yet.
std::filesystem::path FreeNameAside(const std::filesystem::path& file, const platform::Clock& clock) {
  const platform::LocalTime now = clock.ToLocal(clock.NowSeconds());
  char stamp[64];
  static_cast<void>(std::snprintf(stamp, sizeof stamp, "%04d%02d%02dT%02d%02d%02d", now.year, now.month, now.day,
                                  now.hour, now.minute, now.second));
  std::filesystem::path plain = file;
  plain += kAside;
  plain += stamp;
  std::filesystem::path target = plain;
  std::error_code error;
  for (int copy = 2; std::filesystem::exists(target, error); ++copy) {
    target = plain;
    target += '-';
    target += std::to_string(copy);
  }
  return target;
}

}  // namespace

std::string SetAside(const std::filesystem::path& file, const platform::Clock& clock, std::filesystem::path& new_name) {
  std::error_code error;
  std::filesystem::path target;
  if (!std::filesystem::exists(file, error)) target = FindHalfSetAside(file);
  if (target.empty()) target = FreeNameAside(file, clock);
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::filesystem::path from = file;
    std::filesystem::path to = target;
    from += suffix;
    to += suffix;
    if (!std::filesystem::exists(from, error)) continue;
    std::filesystem::rename(from, to, error);
    if (error) return platform::PathToUtf8(from.filename()) + ": " + error.message();
  }
  new_name = target;
  return {};
}

}  // namespace TVK
