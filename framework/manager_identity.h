// What monitors ask of the manager: the identity values that stand on every record.
#pragma once

#include <string>

#include "tvk/service_types.h"

namespace TVK {

/// Implemented by the event manager. Any thread may call it at any time.
class ManagerIdentity {
 public:
  /// Of the hosting service; null in a console and where there are none.
  virtual SERVICE_STATUS_HANDLE get_svrHandle() = 0;
  /// Schema version of the records, "2.0".
  virtual std::wstring get_schema_ver() = 0;
  /// Id of the device context in force; empty before the first was built.
  virtual std::wstring get_device_context_id() = 0;
  /// Whether this is the client's first run on the device, or the first after it changed.
  virtual bool get_FirstInvocation() = 0;
  /// Whether the last device-initialisation event was written by another version of the client, or while the device
  /// belonged elsewhere. `version`: the id of the dataset that asks, whose own last event then counts; any other text:
  /// the last event of any dataset. 0: by this version, for the device path in force. 1: by another version. 2: there
  /// is none, or its device context is gone. 3: for another device path.
  virtual int DecideTVKVer(std::wstring version) = 0;
  /// Whether the device context of this id was written by this version of the client, for the device path in force.
  /// False for one that the store does not have.
  virtual bool IsOfThisClient(const std::wstring& device_context_id) = 0;
  virtual bool get_NeedToLogDatasetContextOnChange() = 0;

 protected:
  ~ManagerIdentity() = default;
};

}  // namespace TVK
