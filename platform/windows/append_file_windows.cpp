#include "platform/append_file.h"
#include "platform/files.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace platform {
namespace {

class AppendFileWindows final : public AppendFile {
 public:
  explicit AppendFileWindows(windows::UniqueFile file) : file_(std::move(file)) {}

  std::uint64_t Size() const override {
    LARGE_INTEGER size{};
    return GetFileSizeEx(file_.get(), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
  }

  std::string Append(std::string_view text) override {
    // Both halves full: at the end of the file, wherever that is by now.
    OVERLAPPED end{};
    end.Offset = end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    const bool accepted = WriteFile(file_.get(), text.data(), static_cast<DWORD>(text.size()), &written, &end) != FALSE;
    if (accepted && written == text.size()) return {};
    const std::string problem = windows::ErrorText(accepted ? ERROR_DISK_FULL : GetLastError());
    LARGE_INTEGER before{};
    before.QuadPart = static_cast<LONGLONG>(Size() - written);
    // Where that fails too, the beginning of a line stands there.
    if (written > 0 && SetFilePointerEx(file_.get(), before, nullptr, FILE_BEGIN)) SetEndOfFile(file_.get());
    return problem;
  }

 private:
  const windows::UniqueFile file_;
};

/// Open for writing, and a file of its own. Null else, and `problem` says why.
windows::UniqueFile OpenOwn(const std::filesystem::path& file, DWORD disposition, std::string& problem) {
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  windows::UniqueFile opened(CreateFileW(file.c_str(), GENERIC_WRITE | FILE_READ_ATTRIBUTES, kShare, nullptr,
                                         disposition, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  BY_HANDLE_FILE_INFORMATION facts{};
  if (!opened || !GetFileInformationByHandle(opened.get(), &facts)) {
    problem = PathToUtf8(file) + ": " + windows::ErrorText(GetLastError());
    return {};
  }
  if (GetFileType(opened.get()) != FILE_TYPE_DISK || (facts.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    problem = PathToUtf8(file) + ": it is a link, a pipe or a device, no file";
    return {};
  }
  return opened;
}

}  // namespace

std::unique_ptr<AppendFile> AppendFile::Open(const std::filesystem::path& file, std::string& problem) {
  windows::UniqueFile opened = OpenOwn(file, OPEN_ALWAYS, problem);
  return opened ? std::make_unique<AppendFileWindows>(std::move(opened)) : nullptr;
}

std::string AppendFile::Empty(const std::filesystem::path& file) {
  std::error_code ignored;
  if (!std::filesystem::exists(std::filesystem::symlink_status(file, ignored))) return {};
  std::string problem;
  const windows::UniqueFile opened = OpenOwn(file, OPEN_EXISTING, problem);
  if (!opened) return problem;
  // A second name would be emptied, too.
  BY_HANDLE_FILE_INFORMATION facts{};
  if (!GetFileInformationByHandle(opened.get(), &facts) || facts.nNumberOfLinks > 1) {
    return PathToUtf8(file) + ": the file has another name elsewhere";
  }
  if (SetEndOfFile(opened.get())) return {};
  return PathToUtf8(file) + ": " + windows::ErrorText(GetLastError());
}

}  // namespace platform
