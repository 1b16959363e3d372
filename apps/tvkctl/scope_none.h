// Withdrawing consent from the command line.
#pragma once

#include <filesystem>
#include <string>

namespace tvkctl {

/// Gives the policy in `file` the scope "none"; the rest of it stays as it is, but that a policy that is broken is
/// replaced as a whole; what is no policy is left alone. Without such a file nothing is done: nobody has consented.
/// Empty, or what went wrong.
std::string SetScopeNone(const std::filesystem::path& file);

}  // namespace tvkctl
