// Who knows the device's identity.
#pragma once

#include <string>

namespace TVK {

/// Gives the ids that stand on every device context. The client hands one to EventManager::Initialize; the component's
/// own (Component::device_id_agent) derives them from the machine. Any thread may call it.
class DeviceIdAgent {
 public:
  virtual ~DeviceIdAgent() = default;

  /// 0 and the id in `id`, or an error code with `id` untouched.
  virtual unsigned long GetDeviceID(std::wstring& id) = 0;
  virtual unsigned long GetLegacyDeviceID(std::wstring& id) = 0;
};

}  // namespace TVK
