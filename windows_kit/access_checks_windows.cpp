// Named events and pipes: who reaches them.
#include "platform/local.h"
#include "platform/local_channel.h"
#include "platform/windows/local_channel_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"
#include "testing/temp_folder.h"
#include "windows_kit/checks.h"
#include "windows_kit/other_account_windows.h"

namespace windows_kit {
namespace {

using platform::windows::ErrorText;
using platform::windows::LastErrorText;
using platform::windows::UniqueFile;
using platform::windows::UniqueKernelHandle;

std::wstring OwnName(const wchar_t* start) {
  return start + std::to_wstring(GetCurrentProcessId());
}

Finding EventsOfTheService() {
  const auto runtime = platform::MakeRealRuntime({});
  const std::wstring own_name = OwnName(L"Global\\TvkKitOwn");
  const std::wstring shared_name = OwnName(L"Global\\TvkKitShared");
  const auto make = [&](const std::wstring& name, platform::EventAccess access) {
    return runtime->MakeNamedEvent(name, platform::EventReset::kAuto, false, access);
  };
  const auto own = make(own_name, platform::EventAccess::kServiceOnly);
  const auto shared = make(shared_name, platform::EventAccess::kSessionUsers);
  if (!own.event || !shared.event) return CannotTell("making events: " + ErrorText(own.error + shared.error));
  const auto may_signal = [](const std::wstring& name) {
    const UniqueKernelHandle event(OpenEventW(READ_CONTROL, FALSE, name.c_str()));
    return MayAnotherAccount(event.get(), SYNCHRONIZE | EVENT_MODIFY_STATE);
  };
  if (const auto may = may_signal(shared_name); may != true) {
    return CannotTell("another user of a session, and an event for those: " + DescribeAccess(may));
  }
  const auto may = may_signal(own_name);
  return Judge(may == false, "the service's own: " + DescribeAccess(may));
}

// A pipe of its own, as the service's one is made.
class Listening {
 public:
  Listening() : listening_(platform::ListenLocally(*runtime_, place_.path(), *stop_)) {}

  bool ok() const { return listening_.listener != nullptr; }
  const std::string& problem() const { return listening_.problem; }
  const std::filesystem::path& place() const { return place_.path(); }
  platform::LocalListening ListenAgain() { return platform::ListenLocally(*runtime_, place_.path(), *stop_); }

 private:
  const TempFolder place_;
  const std::unique_ptr<platform::Runtime> runtime_ = platform::MakeRealRuntime({});
  const std::unique_ptr<platform::Event> stop_ = runtime_->MakeEvent(platform::EventReset::kManual);
  const platform::LocalListening listening_;
};

Finding PipeServedByOne() {
  Listening first;
  if (!first.ok()) return CannotTell(first.problem());
  const platform::LocalListening second = first.ListenAgain();
  return Judge(second.listener == nullptr, second.listener ? "a second one serves the name" : second.problem);
}

Finding PipeNameOfADeadService() {
  const TempFolder place;
  const auto runtime = platform::MakeRealRuntime({});
  const auto stop = runtime->MakeEvent(platform::EventReset::kManual);
  platform::LocalListening dead = platform::ListenLocally(*runtime, place.path(), *stop);
  if (dead.listener == nullptr) return CannotTell(dead.problem);
  const std::wstring name = platform::windows::PipeName(place.path());
  const auto connect = [&name] {
    return UniqueFile(CreateFileW(name.c_str(), platform::windows::kPipeClientRights, 0, nullptr, OPEN_EXISTING,
                                  SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr));
  };
  const UniqueFile kept = connect();
  if (!kept) return CannotTell(LastErrorText("connecting to it"));
  // Closed and not disconnected, as a process's that is killed.
  dead.listener->Accept().reset();
  dead.listener = nullptr;
  const UniqueFile client = connect();
  const DWORD unserved = client ? ERROR_SUCCESS : GetLastError();
  UniqueFile first(CreateNamedPipeW(name.c_str(), platform::windows::PipeOpenMode(true), platform::windows::kPipeMode,
                                    PIPE_UNLIMITED_INSTANCES, 512, 512, 0, nullptr));
  const DWORD refused = first ? ERROR_SUCCESS : GetLastError();
  first.Reset();
  const platform::LocalListening next = platform::ListenLocally(*runtime, place.path(), *stop);
  return Judge(next.listener != nullptr && refused == ERROR_ACCESS_DENIED && unserved == ERROR_FILE_NOT_FOUND,
               "as the first instance: " + ErrorText(refused) + "; a client: " + ErrorText(unserved) +
                   "; the next service: " + (next.listener ? "listens" : next.problem));
}

Finding PipeClientsCannotServe() {
  const Listening service;
  if (!service.ok()) return CannotTell(service.problem());
  const std::wstring name = platform::windows::PipeName(service.place());
  const UniqueFile client(
      CreateFileW(name.c_str(), FILE_GENERIC_READ, 0, nullptr, OPEN_EXISTING, SECURITY_SQOS_PRESENT, nullptr));
  if (!client) return CannotTell(LastErrorText("connecting to it"));
  const auto connects = MayAnotherAccount(client.get(), platform::windows::kPipeClientRights);
  if (connects != true) return CannotTell("connecting: " + DescribeAccess(connects));
  const auto serves = MayAnotherAccount(client.get(), FILE_CREATE_PIPE_INSTANCE);
  return Judge(serves == false,
               "connecting: " + DescribeAccess(connects) + "; making an instance: " + DescribeAccess(serves));
}

Finding PipeTellsWhoCalls() {
  const std::wstring name = OwnName(L"\\\\.\\pipe\\TvkKit");
  const UniqueFile server(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                           PIPE_TYPE_BYTE | PIPE_REJECT_REMOTE_CLIENTS, 1, 512, 512, 0, nullptr));
  if (!server) return CannotTell(LastErrorText("CreateNamedPipe"));
  // Not overlapped: everything here is done by one thread, in turn.
  const DWORD flags = platform::windows::kPipeClientFlags & ~static_cast<DWORD>(FILE_FLAG_OVERLAPPED);
  const UniqueFile client(
      CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, flags, nullptr));
  if (!client) return CannotTell(LastErrorText("CreateFile"));
  const DWORD early = ImpersonateNamedPipeClient(server.get()) ? ERROR_SUCCESS : GetLastError();
  RevertToSelf();
  char byte = 'x';
  DWORD count = 0;
  if (!WriteFile(client.get(), &byte, 1, &count, nullptr) || !ReadFile(server.get(), &byte, 1, &count, nullptr)) {
    return CannotTell(LastErrorText("a byte through the pipe"));
  }
  if (!ImpersonateNamedPipeClient(server.get())) return Judge(false, LastErrorText("ImpersonateNamedPipeClient"));
  SECURITY_IMPERSONATION_LEVEL level = SecurityAnonymous;
  UniqueKernelHandle token;
  DWORD size = 0;
  const bool known = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Receive()) &&
                     GetTokenInformation(token.get(), TokenImpersonationLevel, &level, sizeof level, &size);
  RevertToSelf();
  return Judge(early == ERROR_CANNOT_IMPERSONATE && known && level == SecurityIdentification,
               "before the first byte: " + ErrorText(early) + "; then level " +
                   (known ? std::to_string(static_cast<int>(level)) : "unknown") + " (1 is identification)");
}

constexpr Check kChecks[] = {
    {"service-events", "Another account cannot open an event that is the service's own.", EventsOfTheService},
    {"pipe-first-instance", "While the service listens nobody else can serve its pipe's name.", PipeServedByOne},
    {"pipe-kept-by-client", "A client that keeps a dead service's pipe keeps the next one from nothing.",
     PipeNameOfADeadService},
    {"pipe-instances", "Who may connect to the service's pipe cannot make an instance of it.", PipeClientsCannotServe},
    {"pipe-identification", "A pipe's server learns who calls once a message was read, and cannot act for the caller.",
     PipeTellsWhoCalls},
};

}  // namespace

std::span<const Check> AccessChecks() {
  return kChecks;
}

}  // namespace windows_kit
