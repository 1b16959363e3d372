// How the service stands, for a person or a program that asks through the local channel.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "client/channel/refusals.h"
#include "client/identity/tvk_info.h"
#include "client/log/last_errors.h"
#include "client/policy/policy_source.h"
#include "client/store/event_data_logging.h"
#include "core/manager_access.h"
#include "platform/runtime.h"

namespace TVK {

/// Any thread.
class ServiceStatus {
 public:
  /// What the status is read from. All must outlive the object. `errors` may be null: no errors are told then.
  struct Sources {
    const platform::Runtime& runtime;
    const TvkInfo& tvk_info;
    const EventDataLogging& store;
    const std::filesystem::path store_file;
    const std::filesystem::path policy_file;  ///< Empty where the policy comes from no file.
    const std::shared_ptr<const LastErrors> errors = nullptr;
    const std::function<PolicyStanding()> policy_standing = {};  ///< Empty where the policy comes from no file.
  };

  /// The service counts as up from now on.
  explicit ServiceStatus(const Sources& sources) : sources_(sources), up_since_(sources.runtime.clock().Now()) {}

  const platform::Clock& clock() const { return sources_.runtime.clock(); }
  const std::filesystem::path& store_file() const { return sources_.store_file; }

  /// A JSON object; docs/tvkctl.md tells its keys.
  std::string ToJson(ManagerAccess& manager, const Refusals& refusals) const;

 private:
  const Sources sources_;
  const platform::WallTime up_since_;
};

}  // namespace TVK
