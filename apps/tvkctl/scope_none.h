// Withdrawing consent from the command line.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tvkctl {

/// What a policy file becomes with the scope "none".
struct ScopeNonePlan {
  std::string problem = {};  ///< Why it cannot get that scope; empty: it can, or there is none.
  bool absent = false;       ///< There is no such file: nobody has consented by it.
  std::string text = {};     ///< What it is to hold.
  /// What it holds, where that is no JSON in which the scope could be changed alone: it goes as a whole.
  std::optional<std::string> replaced = {};
};

/// Looks, and changes nothing. What is no policy is to be left alone, and has a problem: a name that was mistyped is
/// not to cost a file.
ScopeNonePlan PlanScopeNone(const std::filesystem::path& file);

/// Where what a plan replaces is kept.
std::filesystem::path ReplacedPolicy(const std::filesystem::path& file);

/// Carries out a plan without a problem. Empty, or what went wrong; `file` is untouched then.
std::string PutScopeNone(const std::filesystem::path& file, const ScopeNonePlan& plan);

}  // namespace tvkctl
