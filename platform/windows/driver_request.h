// How the doors ask a driver.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/driver_answer.h"
#include "platform/windows/sys.h"

namespace platform::windows {

/// Waits for the driver, which has its own limit. `size` bytes at most come back.
DriverAnswer AskDriver(HANDLE device, DWORD code, std::span<const std::uint8_t> request, std::size_t size);

/// The same of a driver that may have none: the request is taken back after `limit` milliseconds, and fails as
/// ERROR_TIMEOUT. `device` was opened with FILE_FLAG_OVERLAPPED.
DriverAnswer AskDriverWithin(DWORD limit, HANDLE device, DWORD code, std::span<const std::uint8_t> request,
                             std::size_t size);

}  // namespace platform::windows
