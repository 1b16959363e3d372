// Files and folders.
#include "platform/file_watcher.h"
#include "platform/files.h"
#include "platform/local.h"
#include "platform/windows/owner.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/trusted_file.h"
#include "testing/child_process.h"
#include "testing/temp_folder.h"
#include "windows_kit/checks.h"
#include "windows_kit/other_account_windows.h"

namespace windows_kit {
namespace {

using platform::windows::ErrorText;
using platform::windows::LastErrorText;
using platform::windows::SecurityAttributes;
using platform::windows::UniqueFile;

constexpr std::chrono::seconds kPatience(20);
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

UniqueFile OpenForReading(const std::filesystem::path& file) {
  return UniqueFile(CreateFileW(file.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::optional<bool> AnotherMayRead(const std::filesystem::path& file) {
  return MayAnotherAccount(OpenForReading(file).get(), FILE_READ_DATA);
}

// A folder that everybody may change, and a file in it.
bool MakeOpenFolder(const std::filesystem::path& folder, const std::filesystem::path& file) {
  SecurityAttributes everybody("D:P(A;OICI;FA;;;WD)");
  return everybody.ok() && CreateDirectoryW(folder.c_str(), everybody.get()) &&
         platform::ReplaceFile(file, "content").empty();
}

Finding ReplacedUnderAReader() {
  constexpr std::chrono::milliseconds kAtOnce(500);
  const TempFolder temp;
  const std::filesystem::path file = temp.path() / "policy.json";
  if (const std::string problem = platform::ReplaceFile(file, "old"); !problem.empty()) return CannotTell(problem);
  const UniqueFile reader = OpenForReading(file);
  if (!reader) return CannotTell(LastErrorText("opening the file"));
  const auto runtime = platform::MakeRealRuntime({});
  const platform::SteadyTime begin = runtime->clock().Steady();
  const std::string problem = platform::ReplaceFile(file, "new");
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(runtime->clock().Steady() - begin);
  const bool replaced = problem.empty() && platform::ReadWholeFile(file, 16) == "new";
  return Judge(replaced && took < kAtOnce,
               replaced ? "replaced in " + std::to_string(took.count()) + " ms" : "not replaced: " + problem);
}

Finding WatchedFolderThatGoes() {
  const TempFolder temp;
  const std::filesystem::path file = temp.path() / "watched" / "policy.json";
  std::filesystem::create_directory(file.parent_path());
  if (const std::string problem = platform::ReplaceFile(file, "old"); !problem.empty()) return CannotTell(problem);
  const auto runtime = platform::MakeRealRuntime({});
  const auto gone = runtime->MakeEvent(platform::EventReset::kManual);
  const auto back = runtime->MakeEvent(platform::EventReset::kManual);
  std::string problem;
  const auto watcher = platform::FileWatcher::Watch(
      *runtime, {file},
      [&] {
        const auto content = platform::ReadWholeFile(file, 16);
        if (!content) gone->Set();
        if (content == "new") back->Set();
      },
      &problem);
  if (watcher == nullptr) return CannotTell(problem);
  std::error_code error;
  std::filesystem::remove_all(file.parent_path(), error);
  if (error) return Judge(false, "a watched folder cannot be removed: " + ErrorText(static_cast<DWORD>(error.value())));
  if (runtime->Wait(*gone, kPatience) != 0) return Judge(false, "the removal was not told");
  const bool made = WaitForState(
      [&] {
        std::filesystem::create_directory(file.parent_path(), error);
        return platform::ReplaceFile(file, "new").empty();
      },
      kPatience);
  if (!made) return Judge(false, "the folder's name stays taken");
  return Judge(runtime->Wait(*back, kPatience) == 0, "the removal was told; then the new file was awaited");
}

Finding ClosedFolder() {
  const TempFolder temp;
  const std::filesystem::path folder = temp.path() / "open";
  const std::filesystem::path file = folder / "records.db";
  if (!MakeOpenFolder(folder, file)) return CannotTell(LastErrorText("making an open folder"));
  const auto before = AnotherMayRead(file);
  if (before != true) return CannotTell("an open folder: " + DescribeAccess(before));
  const std::string told = platform::CloseFolder(folder, [](const std::string&) { return true; });
  const auto after = AnotherMayRead(file);
  return Judge(!told.empty() && after == false,
               "before: " + DescribeAccess(before) + "; after: " + DescribeAccess(after));
}

Finding PrivateFolder() {
  const TempFolder temp;
  const std::filesystem::path open = temp.path() / "open" / "file";
  const std::filesystem::path closed = temp.path() / "private" / "file";
  if (!MakeOpenFolder(open.parent_path(), open)) return CannotTell(LastErrorText("making an open folder"));
  if (const auto may = AnotherMayRead(open); may != true) return CannotTell("an open folder: " + DescribeAccess(may));
  std::string problem = platform::MakePrivateFolder(closed.parent_path());
  if (problem.empty()) problem = platform::ReplaceFile(closed, "content");
  if (!problem.empty()) return CannotTell(problem);
  const auto result = AnotherMayRead(closed);
  return Judge(result == false, DescribeAccess(result));
}

Finding TrustedPlaces() {
  const auto in = [](const wchar_t* variable, const wchar_t* place) {
    const wchar_t* const folder = _wgetenv(variable);
    return std::filesystem::path(folder != nullptr ? folder : L"") / place;
  };
  const TempFolder temp;
  const std::filesystem::path planted = temp.path() / "open" / "library.dll";
  if (!MakeOpenFolder(planted.parent_path(), planted)) return CannotTell(LastErrorText("making an open folder"));
  const auto trusts = [](const std::filesystem::path& file) {
    return !platform::windows::FindTrustedFile(file).empty();
  };
  const bool of_system = trusts(in(L"SystemRoot", L"System32\\kernel32.dll"));
  const bool of_program = trusts(in(L"ProgramFiles", L"Common Files\\System\\ado\\msado15.dll"));
  const bool of_others = trusts(planted);
  const auto text = [](bool trusted) { return std::string(trusted ? "trusted" : "not trusted"); };
  return Judge(of_system && of_program && !of_others, "system's library " + text(of_system) + ", program's library " +
                                                          text(of_program) + ", planted library " + text(of_others));
}

constexpr Check kChecks[] = {
    {"replace-under-reader", "A file is replaced at once while somebody has it open for reading.",
     ReplacedUnderAReader},
    {"watched-folder", "A watched file's folder can be removed and made again, and both are told.",
     WatchedFolderThatGoes},
    {"closed-folder", "Closing a folder takes the files in it from other accounts, too.", ClosedFolder},
    {"private-folder", "Another account cannot read what lies in a private folder.", PrivateFolder},
    {"program-folders",
     "Libraries below the system's and the programs' folders are trusted; one that anybody may "
     "change is not.",
     TrustedPlaces},
};

}  // namespace

std::span<const Check> FileChecks() {
  return kChecks;
}

}  // namespace windows_kit
