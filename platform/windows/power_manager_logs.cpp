#include "platform/windows/power_manager_logs.h"

#include "platform/windows/sys.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/windows/owner.h"
#include "platform/windows/system_folders.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

// Below the common folder.
constexpr wchar_t kMakersFolder[] = L"Xelvra";
constexpr wchar_t kFolder[] = L"Power Manager";
constexpr wchar_t kEnding[] = L".PWM";
constexpr std::size_t kMostFiles = 16;
constexpr DWORD kPatience = 3'000;  // milliseconds

struct FileSearchTraits {
  using Handle = HANDLE;
  static Handle None() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { FindClose(handle); }
};
using UniqueFileSearch = Owner<FileSearchTraits>;

// A folder itself, not a link in its place.
bool IsFolder(const std::filesystem::path& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  constexpr DWORD kBoth = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kBoth) == FILE_ATTRIBUTE_DIRECTORY;
}

std::vector<std::wstring> LogNames(const std::filesystem::path& folder) {
  std::vector<std::wstring> names;
  WIN32_FIND_DATAW entry{};
  const UniqueFileSearch search(FindFirstFileW((folder / (std::wstring(L"*") + kEnding)).c_str(), &entry));
  if (!search) return names;
  do {
    // The search finds "a.pwmx" too, by its short name.
    const bool log = CompareStringOrdinal(std::filesystem::path(entry.cFileName).extension().c_str(), -1, kEnding, -1,
                                          TRUE) == CSTR_EQUAL;
    if (log) names.emplace_back(entry.cFileName);
  } while (names.size() < kMostFiles && FindNextFileW(search.get(), &entry));
  std::ranges::sort(names);
  return names;
}

// Up to `size` bytes; fewer when the file has been cut since.
std::string ReadText(HANDLE file, std::uint64_t size) {
  std::string text(static_cast<std::size_t>(size), '\0');
  std::size_t length = 0;
  DWORD count = 0;
  constexpr std::size_t kPiece = 1u << 20;
  while (length < text.size() &&
         ReadFile(file, text.data() + length, static_cast<DWORD>(std::min(text.size() - length, kPiece)), &count,
                  nullptr) &&
         count != 0) {
    length += count;
  }
  text.resize(length);
  return text;
}

void AppendLog(const std::filesystem::path& folder, const std::wstring& name, std::uint64_t least, std::uint64_t most,
               std::vector<PowerManagerLog>& logs) {
  const UniqueFile file(CreateFileW((folder / name).c_str(), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  BY_HANDLE_FILE_INFORMATION found{};
  if (!file || GetFileType(file.get()) != FILE_TYPE_DISK || !GetFileInformationByHandle(file.get(), &found)) return;
  if ((found.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0) return;
  PowerManagerLog log{Utf8FromWide(name), std::uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow};
  if (log.bytes >= least && log.bytes <= most) log.text = ReadText(file.get(), log.bytes);
  logs.push_back(std::move(log));
}

/// What a thread is to read. It owns its part: whoever asked may have gone.
struct Reading {
  UniqueKernelHandle user;
  std::filesystem::path folder;
  std::uint64_t least = 0;
  std::uint64_t most = 0;
  PowerManagerLogs answer = {};
};

PowerManagerLogs ReadAsUser(const Reading& reading) {
  // For this thread, and as long as it lives.
  if (!ImpersonateLoggedOnUser(reading.user.get())) return {.refusal = GetLastError()};
  PowerManagerLogs answer;
  if (!IsFolder(reading.folder)) return answer;
  for (const std::wstring& name : LogNames(reading.folder))
    AppendLog(reading.folder, name, reading.least, reading.most, answer.logs);
  return answer;
}

/// The reading whose thread could not be called off; gone when that has come back. Never destroyed: the thread may be
/// there when the process ends.
std::atomic<std::weak_ptr<Reading>>& LeftBehind() {
  static auto* const left = new std::atomic<std::weak_ptr<Reading>>();
  return *left;
}

DWORD WINAPI ReadOnThread(void* argument) {
  const std::unique_ptr<std::shared_ptr<Reading>> owned(static_cast<std::shared_ptr<Reading>*>(argument));
  Reading& reading = **owned;
  try {
    reading.answer = ReadAsUser(reading);
  } catch (const std::exception&) {
    reading.answer = {.failure = ERROR_NOT_ENOUGH_MEMORY};
  }
  return 0;
}

}  // namespace

PowerManagerLogs ReadPowerManagerLogs(std::uint64_t least, std::uint64_t most, Sessions& sessions) {
  const std::filesystem::path makers_folder = CommonFolder() / kMakersFolder;
  if (!IsFolder(makers_folder)) return {};
  // Otherwise one file that hangs would cost a thread with each look.
  if (LeftBehind().load().lock() != nullptr) return {.failure = ERROR_TIMEOUT};
  const auto reading = std::make_shared<Reading>();
  reading->folder = makers_folder / kFolder;
  reading->least = least;
  reading->most = most;
  if (const DWORD error = OpenUserToken(sessions, reading->user); error != ERROR_SUCCESS) return {.refusal = error};
  auto owned = std::make_unique<std::shared_ptr<Reading>>(reading);
  // Not this thread: were the rights not given back, everything after would be done with them; and whoever may make
  // files there can make one whose opening waits for him.
  const UniqueKernelHandle thread(CreateThread(nullptr, 0, ReadOnThread, owned.get(), 0, nullptr));
  if (!thread) return {.failure = GetLastError()};
  static_cast<void>(owned.release());  // the thread's now
  if (WaitForSingleObject(thread.get(), kPatience) == WAIT_OBJECT_0) return std::move(reading->answer);
  CancelSynchronousIo(thread.get());
  if (WaitForSingleObject(thread.get(), kPatience) == WAIT_OBJECT_0) return std::move(reading->answer);
  LeftBehind() = reading;
  return {.failure = ERROR_TIMEOUT};
}

}  // namespace platform::windows
