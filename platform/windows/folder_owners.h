// Whose folders those are in which our files lie.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace platform::windows {

/// The first of `folder` and the folders between it and `common` (those alone, where it does not lie below `common`:
/// `folder` alone) that exists and has an owner who is not to be trusted (IsTrustedAccount); empty: none. In `common`,
/// which is %ProgramData%, every user may make folders: whoever makes ours first could keep a policy of his own in it,
/// or a link in its place. `owner_of` gives the security identifier of a folder's owner, empty for one that does not
/// exist.
std::filesystem::path FindForeignFolder(const std::filesystem::path& folder, const std::filesystem::path& common,
                                        const std::function<std::string(const std::filesystem::path&)>& owner_of);

/// The owner of a folder or file, or of the link in its place, as `owner_of` above. "?" where the system does not tell.
std::string OwnerOfEntry(const std::filesystem::path& entry);

}  // namespace platform::windows
