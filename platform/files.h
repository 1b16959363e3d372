// Files and folders, where the standard library leaves something to be wished: permissions, durability, limits.
// Any thread may call these functions.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Makes `folder` and its missing parents, `folder` for the running account alone (Linux: mode 0750; Windows, where
/// that holds for the parents too: an access list for SYSTEM, the administrators and the owner). A folder that exists
/// keeps its permissions; that the account may not make files in it is a failure, as on Windows a path of more than 200
/// characters is. Returns an empty text, or what went wrong.
std::string MakePrivateFolder(const std::filesystem::path& folder);

/// Takes `folder` from everybody but the running account and its group (Linux: mode 0750; Windows: the access list of a
/// folder that is made), when it belongs to that account alone: `is_ours` knows the name of everything in it. Returns
/// an empty text when no other account could read or write there (Windows: single accounts and groups that an
/// administrator let read do not count), else what a person should know: that it was open and is closed now, or that it
/// stays open.
std::string CloseFolder(const std::filesystem::path& folder,
                        const std::function<bool(const std::string& name)>& is_ours);

/// The first entry of `folder` that `is_ours` knows by its name and that another account made than the running one, the
/// system's administrators and the folder's owner (a link counts as itself); empty: none. Whoever planted it while the
/// folder was open could read what is written there, or give his own policy for ours.
std::filesystem::path FindForeignFile(const std::filesystem::path& folder,
                                      const std::function<bool(const std::string& name)>& is_ours);

/// What a person should know when accounts that are not the service's or an administrator's may write in `folder`,
/// where the files that command the service lie; empty: they may not, or the folder does not tell. Linux: everybody,
/// a group is the administrator's choice.
std::string WarnOfWriters(const std::filesystem::path& folder);

/// Takes `file` from every other account (Linux: mode 0600, also where it is another's to change and this fails). A
/// link is left alone, a file that is not there is no failure. On Windows its folder decides, and nothing is done.
void CloseFile(const std::filesystem::path& file);

/// The same, after making the file, empty, when nothing has its name. One that exists is not opened: a process that
/// holds a lock of it would lose that by closing it again. Returns an empty text, or why it could not be made.
std::string MakePrivateFile(const std::filesystem::path& file);

/// Why a file gave no content.
enum class FileFault {
  kAbsent,      ///< There is no such file.
  kUnreadable,  ///< It could not be read this time: no right, an error of the disk, too many open files.
  kUnsuitable,  ///< What stands there is not to be read: too long or, on Linux, a folder, a pipe or a socket.
};

struct FileProblem {
  FileFault fault = FileFault::kAbsent;
  std::string text;  ///< Names the file.
};

/// The content of `file`, or nothing when it has none that can be read within `limit` bytes; `problem`, when given,
/// then says why. Windows: a file that somebody has open for themselves alone is waited for, up to 200 ms.
std::optional<std::string> ReadWholeFile(const std::filesystem::path& file, std::size_t limit,
                                         FileProblem* problem = nullptr);

/// Puts `content` in place of `file` so that a reader, or the loss of power, sees the old or the new content and
/// nothing between: temporary file beside it, flush to disk, rename. Returns an empty text, or what went wrong; `file`
/// is then untouched. Windows: as long as somebody holds `file` so that it cannot be replaced, or access to it is
/// denied, it is tried again, up to a second; who reads it through ReadWholeFile does not hold it on a local disk of
/// Windows 10 or later. `access`, on Linux: of a file that is there the permissions are kept, a new one is for the
/// account and its group (kKept), or it is for the account alone (kPrivate).
enum class FileAccess { kKept, kPrivate };
std::string ReplaceFile(const std::filesystem::path& file, std::string_view content,
                        FileAccess access = FileAccess::kKept);

/// Why ReplaceFile could not begin on `file`, for whoever wants to know before making the content; empty: it could.
/// Nothing is left of the attempt.
std::string ProbeReplaceFile(const std::filesystem::path& file);

/// Removes the temporary files that calls of ReplaceFile for `file` left beside it when their process was killed; those
/// that a process is still at stay. What may not be removed stays, too.
void RemoveLeftovers(const std::filesystem::path& file);

/// Paths from and to UTF-8, whatever the process's locale.
std::filesystem::path PathFromUtf8(std::string_view text);
std::string PathToUtf8(const std::filesystem::path& path);

/// Where the service keeps its things when the command line says nothing.
struct DefaultPlaces {
  std::filesystem::path policy_file;         ///< /etc/tvk/policy.json ; %ProgramData%\TVK\policy.json
  std::filesystem::path data_folder;         ///< /var/lib/tvk ; %ProgramData%\TVK\data
  std::filesystem::path log_folder;          ///< /var/log/tvk ; %ProgramData%\TVK\log
  std::filesystem::path named_event_folder;  ///< /run/tvk ; not used on Windows
};
DefaultPlaces GetDefaultPlaces();

}  // namespace platform
