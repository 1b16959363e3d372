#include "platform/windows/driver_request.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/windows/owner.h"

namespace platform::windows {
namespace {

DriverAnswer Given(bool done, DWORD error, std::vector<std::uint8_t> bytes, DWORD given) {
  if (!done) return {error};
  bytes.resize(std::min<std::size_t>(given, bytes.size()));
  return {ERROR_SUCCESS, std::move(bytes)};
}

// What the system and the driver use until the request is complete.
struct PendingRequest {
  OVERLAPPED overlapped{};
  UniqueKernelHandle complete;
  std::vector<std::uint8_t> request;
  std::vector<std::uint8_t> answer;
};

}  // namespace

DriverAnswer AskDriver(HANDLE device, DWORD code, std::span<const std::uint8_t> request, std::size_t size) {
  std::vector<std::uint8_t> answer(size);
  DWORD given = 0;
  const bool done =
      DeviceIoControl(device, code, const_cast<std::uint8_t*>(request.data()), static_cast<DWORD>(request.size()),
                      answer.data(), static_cast<DWORD>(size), &given, nullptr) != FALSE;
  return Given(done, GetLastError(), std::move(answer), given);
}

DriverAnswer AskDriverWithin(DWORD limit, HANDLE device, DWORD code, std::span<const std::uint8_t> request,
                             std::size_t size) {
  auto pending = std::make_unique<PendingRequest>();
  pending->request.assign(request.begin(), request.end());
  pending->answer.resize(size);
  pending->complete.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!pending->complete) return {GetLastError()};
  pending->overlapped.hEvent = pending->complete.get();
  bool cancelled = false;
  if (!DeviceIoControl(device, code, pending->request.data(), static_cast<DWORD>(request.size()),
                       pending->answer.data(), static_cast<DWORD>(size), nullptr, &pending->overlapped)) {
    if (const DWORD error = GetLastError(); error != ERROR_IO_PENDING) return {error};
    if (WaitForSingleObject(pending->complete.get(), limit) != WAIT_OBJECT_0) {
      cancelled = CancelIoEx(device, &pending->overlapped) != FALSE;
      constexpr DWORD kPatience = 100;
      if (WaitForSingleObject(pending->complete.get(), kPatience) != WAIT_OBJECT_0) {
        // A driver that does not even let go of it may write to the buffers at any time: they stay.
        (void)pending.release();
        return {ERROR_TIMEOUT};
      }
    }
  }
  DWORD given = 0;
  const bool done = GetOverlappedResult(device, &pending->overlapped, &given, FALSE) != FALSE;
  const DWORD error = GetLastError();
  return Given(done, cancelled ? ERROR_TIMEOUT : error, std::move(pending->answer), given);
}

}  // namespace platform::windows
