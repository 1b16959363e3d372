#include "apps/tvkctl/store_access.h"

#include <ostream>

#include "apps/exit_code.h"
#include "client/text/string.h"
#include "platform/files.h"

namespace tvkctl {

int ExplainAccess(TVK::StoreAccess access, const std::filesystem::path& file, const std::string& problem,
                  std::ostream& errors) {
  const std::string name = TVK::HarmlessText(platform::PathToUtf8(file));
  const std::string why = TVK::HarmlessText(problem);
  switch (access) {
    case TVK::StoreAccess::kOpen:
      return kExitOk;
    case TVK::StoreAccess::kMissing:
      errors << "tvkctl: no store at " << name << ": " << why
             << "; the service makes it, --data-dir names the folder of another one\n";
      return kExitWrongConfiguration;
    case TVK::StoreAccess::kForeign:
      errors << "tvkctl: no store of this client at " << name << ": " << why << '\n';
      return kExitWrongConfiguration;
    case TVK::StoreAccess::kNewer:
      errors << "tvkctl: the store " << name << " is of a newer version of this client: " << why << '\n';
      return kExitWrongConfiguration;
    case TVK::StoreAccess::kDenied:
      errors << "tvkctl: this account may not read the store " << name
             << "; that takes the rights of root or an administrator, or the service's own account\n";
      return kExitFailed;
    case TVK::StoreAccess::kFailed:
      break;
  }
  errors << "tvkctl: cannot read the store " << name << ": " << why << '\n';
  return kExitFailed;
}

}  // namespace tvkctl
