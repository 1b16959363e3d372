// The values of the manager that stand on records, and its flags.
#pragma once

#include <mutex>
#include <string>

#include "client/identity/tvk_info.h"
#include "client/store/event_data_logging.h"
#include "core/dataset_table.h"
#include "framework/manager_identity.h"
#include "tvk/device_id_agent.h"

namespace TVK {

class IdentityValues final : public ManagerIdentity {
 public:
  struct Values {
    SERVICE_STATUS_HANDLE service_handle = nullptr;
    DeviceIdAgent* device_id_agent = nullptr;  ///< Not owned.
    std::wstring device_id;
    std::wstring legacy_device_id;
    std::wstring schema_ver = L"2.0";
    std::wstring device_context_id;  ///< Of the context in force.
    std::wstring device_path;        ///< Of the same.
    bool need_to_log_dataset_context_on_change = false;
    bool no_hash_network_data = false;
    bool first_invocation = false;
  };

  /// All must outlive the object.
  IdentityValues(const EventDataLogging& store, const TvkInfo& tvk_info, const DatasetTable& datasets,
                 SERVICE_STATUS_HANDLE handle);

  template <typename Value>
  Value Get(Value Values::*member) const {
    const std::lock_guard lock(mutex_);
    return values_.*member;
  }
  template <typename Value>
  void Set(Value Values::*member, const Value& value) {
    const std::lock_guard lock(mutex_);
    values_.*member = value;
  }
  /// The id and the path of the context in force, at once.
  void SetDeviceContext(const std::wstring& id, const std::wstring& device_path);

  SERVICE_STATUS_HANDLE get_svrHandle() override { return Get(&Values::service_handle); }
  std::wstring get_schema_ver() override { return Get(&Values::schema_ver); }
  std::wstring get_device_context_id() override { return Get(&Values::device_context_id); }
  bool get_FirstInvocation() override { return Get(&Values::first_invocation); }
  int DecideTVKVer(std::wstring version) override;
  bool IsOfThisClient(const std::wstring& device_context_id) override;
  bool get_NeedToLogDatasetContextOnChange() override { return Get(&Values::need_to_log_dataset_context_on_change); }

 private:
  enum Origin { kSame = 0, kOtherVersion = 1, kNone = 2, kOtherPath = 3 };  ///< As DecideTVKVer answers.
  Origin OriginOf(const std::wstring& device_context_id);

  const EventDataLogging& store_;
  const TvkInfo& tvk_info_;
  const DatasetTable& datasets_;
  mutable std::mutex mutex_;  ///< Guards values_; held for a copy only.
  Values values_;
};

}  // namespace TVK
