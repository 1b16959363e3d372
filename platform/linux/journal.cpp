#include "platform/linux/journal.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "platform/linux/journal_entry.h"
#include "platform/linux/unique_fd.h"

namespace platform {
namespace {
namespace fs = std::filesystem;

using std::chrono::microseconds;

constexpr const char* kFolders[] = {"var/log/journal", "run/log/journal"};

WallTime TimeOf(std::uint64_t microseconds_since_1970) {
  return std::chrono::floor<milliseconds>(std::chrono::sys_time<microseconds>(microseconds(microseconds_since_1970)));
}

}  // namespace

std::optional<Journal> Journal::Open(const fs::path& root, int& error) {
  std::error_code ignored;
  bool kept = false;
  for (const char* const folder : kFolders)
    kept = kept || fs::is_directory(root / folder, ignored);
  error = ENOENT;
  if (!kept) return std::nullopt;
  const SystemdLibrary* const library = SystemdLibrary::Get();
  error = ELIBACC;
  if (library == nullptr) return std::nullopt;
  sd_journal* journal = nullptr;
  // Beside this machine's own entries its folders may hold those of containers.
  error = -(root == "/" ? library->open(&journal, SD_JOURNAL_LOCAL_ONLY)
                        : library->open_directory(&journal, root.c_str(), SD_JOURNAL_OS_ROOT));
  if (error > 0) return std::nullopt;
  error = 0;
  return Journal(*library, journal);
}

bool Journal::SeekTo(const std::string& bookmark) {
  return library_->seek_cursor(journal_.get(), bookmark.c_str()) >= 0;
}

void Journal::SeekTo(WallTime time) {
  const auto since = std::chrono::duration_cast<microseconds>(time.time_since_epoch()).count();
  library_->seek_realtime_usec(journal_.get(), since > 0 ? static_cast<std::uint64_t>(since) : 0);
}

void Journal::SeekToBegin() {
  library_->seek_head(journal_.get());
}

Journal::Step Journal::Next(int& error) {
  const int result = library_->next(journal_.get());
  if (result < 0) error = -result;
  return result > 0 ? Step::kEntry : result == 0 ? Step::kEnd : Step::kFailed;
}

bool Journal::IsAt(const std::string& bookmark) {
  if (library_->test_cursor(journal_.get(), bookmark.c_str()) > 0) return true;
  // Behind the place in the file a cursor has boot, times and a digest of the entry.
  const std::size_t entry = bookmark.find(";b=");
  return entry != bookmark.npos && Bookmark().ends_with(bookmark.substr(entry));
}

std::string Journal::Bookmark() {
  char* cursor = nullptr;
  if (library_->get_cursor(journal_.get(), &cursor) < 0) return {};
  const std::unique_ptr<char, decltype(&std::free)> owned(cursor, std::free);
  return cursor;
}

WallTime Journal::Time() {
  std::uint64_t time = 0;
  library_->get_realtime_usec(journal_.get(), &time);
  return TimeOf(time);
}

const std::vector<std::string_view>& Journal::Fields() {
  text_.clear();
  fields_.clear();
  std::vector<std::size_t> ends;
  const void* data = nullptr;
  std::size_t length = 0;
  constexpr std::size_t kLongest = 64u << 10;  // the library keeps to its threshold where it decompresses alone
  JournalFieldFilter wanted;
  library_->restart_data(journal_.get());
  while (library_->enumerate_available_data(journal_.get(), &data, &length) > 0) {
    const std::string_view field(static_cast<const char*>(data), std::min(length, kLongest));
    if (!wanted.Takes(field)) continue;
    text_.append(field);
    ends.push_back(text_.size());
  }
  std::size_t begin = 0;
  for (const std::size_t end : ends)
    fields_.push_back(std::string_view(text_).substr(std::exchange(begin, end), end - begin));
  return fields_;
}

int Journal::fd() {
  return library_->get_fd(journal_.get());
}

Journal::News Journal::Refresh() {
  switch (library_->process(journal_.get())) {
    case SD_JOURNAL_NOP:
      return News::kNone;
    case SD_JOURNAL_APPEND:
      return News::kEntries;
    case SD_JOURNAL_INVALIDATE:
      return News::kFiles;
    default:  // an error: where nothing can be watched there is never news
      return News::kNone;
  }
}

std::uint64_t Journal::BytesOnDisk() {
  std::uint64_t bytes = 0;
  library_->get_usage(journal_.get(), &bytes);
  return bytes;
}

std::optional<WallTime> Journal::OldestEntry() {
  std::uint64_t oldest = 0;
  if (library_->get_cutoff_realtime_usec(journal_.get(), &oldest, nullptr) <= 0) return std::nullopt;
  return TimeOf(oldest);
}

JournalAccess CheckJournalAccess(const fs::path& root) {
  JournalAccess access;
  for (const char* const folder : kFolders) {
    std::error_code failure;
    fs::recursive_directory_iterator entry(root / folder, failure);
    for (const fs::recursive_directory_iterator end; !failure && entry != end; entry.increment(failure)) {
      if (entry->path().extension() != ".journal") continue;
      access.files = true;
      const UniqueFd file(::open(entry->path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
      access.refused = access.refused || (!file && (errno == EACCES || errno == EPERM));
    }
    access.refused = access.refused || failure == std::errc::permission_denied;
  }
  return access;
}

}  // namespace platform
