// The machine that the kit runs on: what the report says of it, what it must not say, and that it stays as it was.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "windows_kit/kit_report.h"

namespace windows_kit {

bool IsAdministrator();

/// Empty on Windows itself.
std::string WineVersion();

/// System, rights, processors.
std::vector<std::pair<std::string, std::string>> DescribeMachine();

/// Serial numbers and ids of the machine and its parts, of which none may stand in a report. Drivers are asked, which
/// may hang.
std::vector<std::string> ReadIdentifiers();

/// The names of the user, of the computer and of the user's folders, and the kit's own folder.
Blanks BlanksOfSession(const std::filesystem::path& kit);

/// What tests may leave when they end early: keys in the user's part of the registry and the service's entry. What was
/// there before is not touched.
class Leftovers {
 public:
  Leftovers();

  /// Takes away what has come since, and says what it was, with what went wrong; empty: nothing.
  std::vector<std::string> TakeAway() const;

 private:
  const std::set<std::wstring> before_;
};

}  // namespace windows_kit
