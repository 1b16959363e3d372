// Windows' access lists as data: who, by them, may change a file or a folder. Pure; any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// One entry of an access list. `mask` as the system has it (winnt.h), generic rights not yet resolved.
struct AccessEntry {
  enum class Kind {
    kAllow,
    kDeny,
    kOther,  ///< With conditions, or of a kind that came later.
  };
  Kind kind = Kind::kAllow;
  bool inherit_only = false;  ///< For what lies inside, not for the object itself.
  std::uint32_t mask = 0;
  std::string sid = {};  ///< "S-1-5-32-545".
};

struct AccessList {
  std::string owner = {};  ///< Security identifier; empty: not known.
  bool absent = false;     ///< There is no list, so that everybody may do everything.
  std::vector<AccessEntry> entries = {};
};

/// What an object is to a file that is to be relied on.
enum class PathPart {
  kFile,         ///< The file: its content is what counts.
  kFolder,       ///< Its folder: files beside it count, too.
  kFolderAbove,  ///< A folder further up: what it holds may be neither renamed nor replaced; new things do no harm.
};

/// Whether nobody but the system, its installer, the administrators and `trusted` may change the object, or who may.
/// What cannot be judged is no. That somebody is denied something gives nobody else a right, and is left out.
bool OnlyAdministratorsMayChange(const AccessList& list, PathPart part, std::span<const std::string> trusted = {});

}  // namespace platform
