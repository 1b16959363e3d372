#include "platform/system_events.h"

#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

#include <dbt.h>
#include <winioctl.h>

namespace platform::windows {
namespace {

// The service's control handler is told of drives that come and go as long as this lives.
class DriveNotices final : public SystemEventSource {
 public:
  explicit DriveNotices(UniqueDeviceNotices notices) : notices_(std::move(notices)) {}

 private:
  const UniqueDeviceNotices notices_;
};

class WindowsSystemEvents final : public SystemEvents {
 public:
  SystemEventOpening Open(Runtime& /*runtime*/, SystemEventCallback /*callback*/, void* service) override {
    if (service == nullptr) return {nullptr, "only a service is told of drives that come and go"};
    DEV_BROADCAST_DEVICEINTERFACE_W disks{};
    disks.dbcc_size = sizeof(disks);
    disks.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    disks.dbcc_classguid = GUID_DEVINTERFACE_DISK;
    UniqueDeviceNotices notices(RegisterDeviceNotificationW(service, &disks, DEVICE_NOTIFY_SERVICE_HANDLE));
    if (!notices) return {nullptr, LastErrorText("drives that come and go are not told")};
    return {std::make_unique<DriveNotices>(std::move(notices)), {}};
  }
};

}  // namespace

std::unique_ptr<SystemEvents> MakeSystemEvents() {
  return std::make_unique<WindowsSystemEvents>();
}

}  // namespace platform::windows
