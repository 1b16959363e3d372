// Who may reach a file or a folder: its access list as data, and what we think of it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace platform::windows {

/// One entry that allows something. Those that deny are left out: a verdict that relied on them would have to know of
/// whom each group consists.
struct AccessEntry {
  std::string trustee;     ///< Security identifier; "?" of a form of entry that we do not know.
  std::uint32_t mask = 0;  ///< ACCESS_MASK, generic rights among it as they stand.
  bool here = true;        ///< Whether it stands for the object itself, or for what is made in it alone.
};

struct AccessList {
  std::string owner;  ///< Security identifier; empty when the system does not say.
  std::vector<AccessEntry> allowed;
};

/// The access list of a file or a folder, and of what a link at that place stands for. An object without a list is one
/// that everyone may do everything with. Nothing where it cannot be read; GetLastError says why.
std::optional<AccessList> ReadAccessList(const std::filesystem::path& path);

/// Whether nobody but accounts that are trusted (IsTrustedAccount: the system, the administrators, the running account)
/// may change the object, what lies in it if it is a folder, or its access list. True of a library and of its folder:
/// loading it runs nobody else's code.
bool OnlyTrustedMayWrite(const AccessList& list);

/// The same of putting something else in the place of the object or of what lies in it; who may only add to a folder
/// does not count. True of the folders above: nobody else can lead us elsewhere.
bool OnlyTrustedMayReplace(const AccessList& list);

/// Whether a folder of ours is open to others: somebody who is not trusted may write in it or list or read what it
/// holds. As a file's group on Linux, single accounts and groups of the machine's or the domain's own making, or
/// services, may read: an administrator has named them.
bool IsTooOpen(const AccessList& list);

/// The text of the access list of a private folder: for the system, the administrators and the running account, for
/// files and folders inside too; nothing inherited.
std::string PrivateFolderList();

/// Gives a folder that list, and the files and folders in it what they inherit of it. Returns whether it is not too
/// open afterwards: a file system without lists takes one and forgets it.
bool MakePrivate(const std::filesystem::path& folder);

}  // namespace platform::windows
