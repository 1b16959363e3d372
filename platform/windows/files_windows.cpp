#include "platform/files.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cwctype>
#include <vector>

#include "platform/windows/access_list.h"
#include "platform/windows/folder_owners.h"
#include "platform/windows/owner.h"
#include "platform/windows/security.h"
#include "platform/windows/system_folders.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

using windows::UniqueFile;

// One read or write call counts in DWORD.
constexpr std::size_t kLargestPiece = 1u << 30;

constexpr DWORD kAnyShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::string Failed(std::string_view call, const std::filesystem::path& file, DWORD error = GetLastError()) {
  return std::string(call) + " " + PathToUtf8(file) + ": " + windows::ErrorText(error);
}

std::string WriteAndFlush(const std::filesystem::path& file, std::string_view content) {
  const UniqueFile out(
      CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!out) return Failed("cannot create", file);
  while (!content.empty()) {
    DWORD written = 0;
    const auto piece = static_cast<DWORD>(std::min(content.size(), kLargestPiece));
    if (!WriteFile(out.get(), content.data(), piece, &written, nullptr)) return Failed("cannot write", file);
    content.remove_prefix(written);
  }
  return FlushFileBuffers(out.get()) ? std::string() : Failed("cannot flush", file);
}

// Calls `attempt`, which returns the system's error, until that is none of `passing` or `patience` (in ms) is over; the
// last error.
template <class Attempt>
DWORD Persist(DWORD patience, std::initializer_list<DWORD> passing, Attempt attempt) {
  constexpr DWORD kPause = 5;
  const ULONGLONG end = GetTickCount64() + patience;
  for (;;) {
    const DWORD error = attempt();
    if (std::ranges::find(passing, error) == passing.end() || GetTickCount64() >= end) return error;
    Sleep(kPause);
  }
}

// The rename that takes a name from a file which others have open and lets them read on. Only newer systems know it,
// and only some of their file systems.
bool RenameOverOpenFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  const UniqueFile file(CreateFileW(from.c_str(), DELETE | SYNCHRONIZE, kAnyShare, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_WRITE_THROUGH, nullptr));
  // FileRenameInfoEx, which mingw's headers keep back.
  constexpr auto kRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
  std::error_code error;
  const std::wstring name = std::filesystem::absolute(to, error).native();
  if (!file || error) return false;
  const std::size_t size = sizeof(FILE_RENAME_INFO) + name.size() * sizeof(wchar_t);
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* const rename = reinterpret_cast<FILE_RENAME_INFO*>(buffer.data());
  rename->Flags = FILE_RENAME_FLAG_REPLACE_IF_EXISTS | FILE_RENAME_FLAG_POSIX_SEMANTICS;
  rename->FileNameLength = static_cast<DWORD>(name.size() * sizeof(wchar_t));
  std::ranges::copy(name, rename->FileName);
  return SetFileInformationByHandle(file.get(), kRenameInfoEx, rename, static_cast<DWORD>(size)) != FALSE;
}

DWORD Rename(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (RenameOverOpenFile(from, to)) return ERROR_SUCCESS;
  constexpr DWORD kHow = MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH;
  return MoveFileExW(from.c_str(), to.c_str(), kHow) ? ERROR_SUCCESS : GetLastError();
}

// A name of its own for each call, NAME.PROCESS-NUMBER.new: two writers must not share a temporary file.
std::filesystem::path TemporaryName(const std::filesystem::path& file) {
  static std::atomic<unsigned> calls{0};
  std::filesystem::path temporary = file;
  temporary += L"." + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++calls) + L".new";
  return temporary;
}

// The process that made `name`, if it is such a file.
std::optional<DWORD> MakerOfTemporary(const std::filesystem::path& file, const std::filesystem::path& name) {
  const std::wstring whole = name.filename().native();
  std::wstring_view text = whole;
  const std::wstring begin = file.filename().native() + L".";
  constexpr std::wstring_view kEnd = L".new";
  if (!text.starts_with(begin) || !text.ends_with(kEnd) || text.size() < begin.size() + kEnd.size()) return {};
  text.remove_prefix(begin.size());
  text.remove_suffix(kEnd.size());
  std::uint64_t process = 0;
  std::size_t digits = 0;
  for (; digits < std::min<std::size_t>(text.size(), 10) && std::iswdigit(text[digits]) != 0; ++digits)
    process = process * 10 + static_cast<unsigned>(text[digits] - L'0');
  const std::wstring_view rest = text.substr(digits);
  if (digits == 0 || rest.size() < 2 || rest.front() != L'-') return {};
  if (rest.find_first_not_of(L"0123456789", 1) != rest.npos) return {};
  return static_cast<DWORD>(process);
}

// Its number may have been given out again: what it left then stays until that one has ended.
bool IsRunning(DWORD process) {
  const windows::UniqueKernelHandle opened(OpenProcess(SYNCHRONIZE, FALSE, process));
  if (!opened) return GetLastError() != ERROR_INVALID_PARAMETER;  // which says that there is none
  return WaitForSingleObject(opened.get(), 0) == WAIT_TIMEOUT;
}

}  // namespace

std::string MakePrivateFolder(const std::filesystem::path& folder) {
  // The system takes paths of 259 characters, with the name of a file and what it is called while it is written or when
  // it is set aside. Better refused than half usable.
  constexpr std::size_t kLongest = 200;
  if (folder.native().size() > kLongest) {
    return PathToUtf8(folder) + " is longer than " + std::to_string(kLongest) + " characters";
  }
  if (!folder.has_filename() && folder.has_relative_path()) return MakePrivateFolder(folder.parent_path());  // "data\\"
  std::error_code error;
  const std::filesystem::path foreign =
      windows::FindForeignFolder(folder, windows::CommonFolder(), &windows::OwnerOfEntry);
  if (!foreign.empty()) return PathToUtf8(foreign) + " belongs to an account that could change what lies in it";
  if (std::filesystem::is_directory(folder, error)) {
    // The right to add a file is asked for, and not used.
    const UniqueFile writable(CreateFileW(folder.c_str(), FILE_ADD_FILE, kAnyShare, nullptr, OPEN_EXISTING,
                                          FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    return writable ? std::string() : Failed("cannot write in", folder);
  }
  const std::filesystem::path parent = folder.parent_path();
  // A parent of our making is private too: where every account may make files, one could put a policy beside the data.
  if (!parent.empty() && parent != folder && !std::filesystem::is_directory(parent, error)) {
    if (std::string problem = MakePrivateFolder(parent); !problem.empty()) return problem;
  }
  windows::SecurityAttributes security(windows::PrivateFolderList());
  if (!security.ok()) return Failed("cannot make the access list of", folder);
  if (CreateDirectoryW(folder.c_str(), security.get())) return {};
  // Another process may have been faster.
  const std::string problem = Failed("cannot make", folder);
  return std::filesystem::is_directory(folder, error) ? std::string() : problem;
}

std::optional<std::string> ReadWholeFile(const std::filesystem::path& file, std::size_t limit, FileProblem* problem) {
  const auto fail = [&](FileFault fault, std::string text) {
    if (problem != nullptr) *problem = {fault, std::move(text)};
    return std::nullopt;
  };
  constexpr DWORD kPatience = 200;
  UniqueFile in;
  const DWORD error = Persist(kPatience, {ERROR_SHARING_VIOLATION}, [&] {
    in.Reset(
        CreateFileW(file.c_str(), GENERIC_READ, kAnyShare, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    return in ? ERROR_SUCCESS : GetLastError();
  });
  if (error != ERROR_SUCCESS) {
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return fail(absent ? FileFault::kAbsent : FileFault::kUnreadable, Failed("cannot open", file, error));
  }
  // Not by its size: the file may grow while it is read.
  std::string content;
  for (;;) {
    char piece[16384];
    DWORD count = 0;
    if (!ReadFile(in.get(), piece, sizeof piece, &count, nullptr)) {
      return fail(FileFault::kUnreadable, Failed("cannot read", file));
    }
    if (count == 0) return content;
    if (content.size() + count > limit) {
      return fail(FileFault::kUnsuitable, PathToUtf8(file) + " is longer than " + std::to_string(limit) + " bytes");
    }
    content.append(piece, count);
  }
}

std::string CloseFolder(const std::filesystem::path& folder,
                        const std::function<bool(const std::string& name)>& is_ours) {
  const std::optional<windows::AccessList> list = windows::ReadAccessList(folder);
  if (!list || !windows::IsTooOpen(*list)) return {};
  bool alone = windows::IsTrustedAccount(list->owner);
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; alone && !failure && entry != end;
       entry.increment(failure))
    alone = is_ours(PathToUtf8(entry->path().filename()));
  const std::string open = "the folder " + PathToUtf8(folder) + " was open to other accounts; ";
  if (!alone || failure) return open + "it stays so, since it is not the service's alone";
  return open + (windows::MakePrivate(folder) ? "it is closed now" : "it stays so, since the system does not close it");
}

std::filesystem::path FindForeignFile(const std::filesystem::path& folder,
                                      const std::function<bool(const std::string& name)>& is_ours) {
  const std::string owner = windows::OwnerOfEntry(folder);
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (!is_ours(PathToUtf8(entry->path().filename()))) continue;
    const std::string of_entry = windows::OwnerOfEntry(entry->path());
    if (!of_entry.empty() && of_entry != owner && !windows::IsTrustedAccount(of_entry)) return entry->path();
  }
  return {};
}

std::string WarnOfWriters(const std::filesystem::path& folder) {
  const std::optional<windows::AccessList> list = windows::ReadAccessList(folder);
  if (!list || windows::OnlyTrustedMayWrite(*list)) return {};
  return "other accounts may write in the folder " + PathToUtf8(folder);
}

void CloseFile(const std::filesystem::path& /*file*/) {}

std::string MakePrivateFile(const std::filesystem::path& /*file*/) {
  return {};
}

std::string ReplaceFile(const std::filesystem::path& file, std::string_view content, FileAccess /*access*/) {
  const std::filesystem::path temporary = TemporaryName(file);
  std::string problem = WriteAndFlush(temporary, content);
  if (problem.empty()) {
    constexpr DWORD kPatience = 5000;
    const DWORD error =
        Persist(kPatience, {ERROR_ACCESS_DENIED, ERROR_SHARING_VIOLATION}, [&] { return Rename(temporary, file); });
    if (error != ERROR_SUCCESS) problem = Failed("cannot replace", file, error);
  }
  if (!problem.empty()) DeleteFileW(temporary.c_str());
  return problem;
}

std::string ProbeReplaceFile(const std::filesystem::path& file) {
  const std::filesystem::path temporary = TemporaryName(file);
  std::string problem = WriteAndFlush(temporary, {});
  DeleteFileW(temporary.c_str());
  return problem;
}

void RemoveLeftovers(const std::filesystem::path& file) {
  std::error_code error;
  std::filesystem::directory_iterator entry(file.has_parent_path() ? file.parent_path() : L".", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::optional<DWORD> maker = MakerOfTemporary(file, entry->path());
    if (maker && !IsRunning(*maker)) DeleteFileW(entry->path().c_str());
  }
}

std::filesystem::path PathFromUtf8(std::string_view text) {
  return windows::WideFromUtf8(text);
}

std::string PathToUtf8(const std::filesystem::path& path) {
  return windows::Utf8FromWide(path.native());
}

DefaultPlaces GetDefaultPlaces() {
  const std::filesystem::path base = windows::CommonFolder() / L"TVK";
  return {.policy_file = base / L"policy.json",
          .data_folder = base / L"data",
          .log_folder = base / L"log",
          .named_event_folder = {}};
}

}  // namespace platform
