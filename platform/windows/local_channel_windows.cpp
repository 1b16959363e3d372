#include "platform/windows/local_channel_windows.h"

#include <algorithm>
#include <cstdlib>

#include "platform/files.h"
#include "platform/hash.h"
#include "platform/local_channel.h"
#include "platform/windows/kernel_object.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform {
namespace windows {

std::string PipeAccessList(const std::string& own) {
  std::string list = "D:P(A;;GA;;;SY)(A;;GA;;;BA)";
  if (!own.empty()) list = "O:" + own + list + "(A;;GA;;;" + own + ")";
  return list + "(A;;0x12008b;;;IU)";
}
static_assert(kPipeClientRights == 0x12008B);

std::wstring PipeName(const std::filesystem::path& place) {
  std::wstring name = L"\\\\.\\pipe\\TVKClientService";
  if (place.empty()) return name;
  std::wstring path = std::filesystem::absolute(place).lexically_normal().make_preferred().native();
  if (path.ends_with(L'\\')) path.pop_back();
  // Two spellings of one folder are one place.
  CharLowerBuffW(path.data(), static_cast<DWORD>(path.size()));
  constexpr wchar_t kDigits[] = L"0123456789abcdef";
  constexpr std::size_t kBytes = 12;
  name += L'-';
  const Sha256Digest digest = Sha256(Utf8FromWide(path));
  for (std::size_t i = 0; i < kBytes; ++i) {
    name += kDigits[digest[i] >> 4];
    name += kDigits[digest[i] & 15];
  }
  return name;
}

DWORD TakePipeName(PipeSystem& system, UniqueFile& pipe) {
  const DWORD refused = system.MakeInstance(true, pipe);
  if (refused != ERROR_ACCESS_DENIED) return refused;
  UniqueFile client;
  if (system.Connect(client) != ERROR_FILE_NOT_FOUND) return refused;
  UniqueFile added;
  if (const DWORD error = system.MakeInstance(false, added); error != ERROR_SUCCESS) return error;
  if (!IsTrustedAccount(system.OwnerOf(added.get()))) return refused;
  pipe = std::move(added);
  return ERROR_SUCCESS;
}

namespace {

constexpr DWORD kPipeBuffer = 16 << 10;  // each way; what is longer waits for its reader

UniqueKernelHandle MakeSignal() {
  return UniqueKernelHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

/// The overlapped calls of one pipe handle. Waits end with the stop event or the deadline; a call that is under way is
/// then taken back, and its buffers are free when that is done.
class PipeCalls {
 public:
  PipeCalls(Runtime& runtime, Waitable* stop, HANDLE pipe)
      : runtime_(runtime), stop_(stop), pipe_(pipe), done_(MakeSignal()) {}

  /// Runs `begin`, which starts the call, and waits for its end. `bytes`: how many it moved, 0 unless kDone.
  template <typename Begin>
  ChannelWait Run(SteadyTime deadline, DWORD& bytes, const Begin& begin) {
    bytes = 0;
    if (done_.handle() == nullptr) return ChannelWait::kClosed;
    OVERLAPPED call{};
    call.hEvent = done_.handle();
    ChannelWait wait = ChannelWait::kDone;
    if (!begin(&call)) {
      if (GetLastError() != ERROR_IO_PENDING) return ChannelWait::kClosed;
      wait = Wait(deadline);
      if (wait != ChannelWait::kDone) CancelIoEx(pipe_, &call);
    }
    // It may have succeeded before it was taken back: what came is not lost then.
    if (!GetOverlappedResult(pipe_, &call, &bytes, TRUE)) {
      bytes = 0;
      return wait == ChannelWait::kDone ? ChannelWait::kClosed : wait;
    }
    return ChannelWait::kDone;
  }

 private:
  ChannelWait Wait(SteadyTime deadline) {
    Waitable* const objects[] = {stop_, &done_};
    const std::span<Waitable* const> waited = stop_ == nullptr ? std::span(objects).subspan(1) : std::span(objects);
    const milliseconds left = deadline == SteadyTime::max()
                                  ? kForever
                                  : std::chrono::ceil<milliseconds>(deadline - runtime_.clock().Steady());
    const WaitCode code = runtime_.WaitAny(waited, left);
    if (code == kWaitTimeout) return ChannelWait::kTimeout;
    if (code == kWaitFailed) return ChannelWait::kClosed;
    return code + 1 == waited.size() ? ChannelWait::kDone : ChannelWait::kStopped;
  }

  Runtime& runtime_;
  Waitable* const stop_;
  const HANDLE pipe_;
  KernelEvent done_;
};

/// What a token says of its user; nothing when it says too little.
std::optional<LocalCaller> CallerOf(HANDLE token) {
  LocalCaller caller;
  caller.user = UserSid(token);
  DWORD size = sizeof caller.session;
  DWORD session = 0;
  if (caller.user.empty() || !GetTokenInformation(token, TokenSessionId, &session, size, &size)) return std::nullopt;
  caller.session = session;
  SID_IDENTIFIER_AUTHORITY authority = SECURITY_NT_AUTHORITY;
  struct SidTraits : NullHandle<PSID, FreeSid> {};
  Owner<SidTraits> administrators;
  BOOL administrator = FALSE;
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                administrators.Receive()) ||
      !CheckTokenMembership(token, administrators.get(), &administrator)) {
    return std::nullopt;
  }
  Sessions& sessions = LocalSessions();
  const bool active =
      session != 0 && (session == sessions.Console() || std::ranges::count(sessions.Active(), session) > 0);
  constexpr char kSystem[] = "S-1-5-18";
  caller.kind = CallerKindOf(caller.user == kSystem || caller.user == ProcessUserSid(), administrator != FALSE, active);
  return caller;
}

class PipeConnection final : public LocalConnection {
 public:
  /// `end`: the stop event after which no client may keep the pipe; null for the client's own end.
  PipeConnection(Runtime& runtime, Waitable* stop, UniqueFile pipe, Waitable* end = nullptr)
      : runtime_(runtime), end_(end), pipe_(std::move(pipe)), calls_(runtime, stop, pipe_.get()) {}
  /// A client that keeps its end would keep the pipe's name and memory. Of one that was waited for in vain nothing is
  /// on its way; else what was answered last may be, and would be lost.
  ~PipeConnection() override {
    if (end_ == nullptr) return;
    if (was_quiet_ || runtime_.Wait(*end_, milliseconds(0)) == 0) DisconnectNamedPipe(pipe_.get());
  }

  ChannelWait Receive(std::span<char> buffer, SteadyTime deadline, std::size_t& received) override {
    DWORD bytes = 0;
    const ChannelWait result = calls_.Run(deadline, bytes, [&](OVERLAPPED* call) {
      return ReadFile(pipe_.get(), buffer.data(), static_cast<DWORD>(buffer.size()), nullptr, call) != FALSE;
    });
    received = bytes;
    was_quiet_ = result == ChannelWait::kTimeout;
    return result == ChannelWait::kDone && bytes == 0 ? ChannelWait::kClosed : result;
  }

  ChannelWait Send(std::string_view bytes, SteadyTime deadline) override {
    while (!bytes.empty()) {
      DWORD sent = 0;
      const ChannelWait result = calls_.Run(deadline, sent, [&](OVERLAPPED* call) {
        return WriteFile(pipe_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, call) != FALSE;
      });
      if (result != ChannelWait::kDone) return result;
      bytes.remove_prefix(sent);
    }
    return ChannelWait::kDone;
  }

  std::optional<LocalCaller> Identify() override {
    // The client let us ask who it is, and no more. Where this fails the thread is still itself: no rights then.
    if (!ImpersonateNamedPipeClient(pipe_.get())) return std::nullopt;
    UniqueKernelHandle token;
    const bool opened = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.Receive()) != FALSE;
    if (!RevertToSelf()) std::abort();  // the thread would go on as somebody else
    if (!opened) return std::nullopt;
    std::optional<LocalCaller> caller = CallerOf(token.get());
    ULONG process = 0;
    if (caller && GetNamedPipeClientProcessId(pipe_.get(), &process)) caller->process = process;
    return caller;
  }

  std::optional<std::uint32_t> ClaimedSession() override {
    ULONG session = 0;
    if (!GetNamedPipeClientSessionId(pipe_.get(), &session)) return std::nullopt;
    return session;
  }

  bool HasHungUp() override {
    return !PeekNamedPipe(pipe_.get(), nullptr, 0, nullptr, nullptr, nullptr) && GetLastError() == ERROR_BROKEN_PIPE;
  }

 private:
  Runtime& runtime_;
  Waitable* const end_;
  const UniqueFile pipe_;
  PipeCalls calls_;
  bool was_quiet_ = false;  ///< What was waited for last did not come.
};

/// The client's end of a connection: 0, or the system's error.
DWORD ConnectPipe(const std::wstring& name, UniqueFile& pipe) {
  pipe.Reset(CreateFileW(name.c_str(), kPipeClientRights, 0, nullptr, OPEN_EXISTING, kPipeClientFlags, nullptr));
  return pipe ? DWORD{ERROR_SUCCESS} : GetLastError();
}

class LocalPipeSystem final : public PipeSystem {
 public:
  LocalPipeSystem(std::wstring name, SecurityAttributes security)
      : name_(std::move(name)), security_(std::move(security)) {}

  DWORD MakeInstance(bool first, UniqueFile& pipe) override {
    pipe.Reset(CreateNamedPipeW(name_.c_str(), PipeOpenMode(first), kPipeMode, PIPE_UNLIMITED_INSTANCES, kPipeBuffer,
                                kPipeBuffer, 0, security_.get()));
    return pipe ? DWORD{ERROR_SUCCESS} : GetLastError();
  }
  DWORD Connect(UniqueFile& pipe) override { return ConnectPipe(name_, pipe); }
  std::string OwnerOf(HANDLE pipe) override { return OwnerSid(pipe); }

 private:
  const std::wstring name_;
  SecurityAttributes security_;
};

class PipeListener final : public LocalListener {
 public:
  PipeListener(Runtime& runtime, Waitable& stop, std::wstring name, SecurityAttributes security)
      : runtime_(runtime), stop_(stop), system_(std::move(name), std::move(security)) {}

  ~PipeListener() override { DisconnectNamedPipe(next_.get()); }

  /// 0, or the system's error.
  DWORD Open() { return TakePipeName(system_, next_); }

  std::unique_ptr<LocalConnection> Accept() override {
    constexpr milliseconds kPause(1000);
    for (;;) {
      const ChannelWait connected = WaitForClient();
      if (connected == ChannelWait::kStopped) return nullptr;
      if (connected == ChannelWait::kDone) {
        // Before this one is handed out: a name without an instance is free for anybody to take.
        if (UniqueFile following; system_.MakeInstance(false, following) == ERROR_SUCCESS) {
          UniqueFile pipe = std::exchange(next_, std::move(following));
          return std::make_unique<PipeConnection>(runtime_, &stop_, std::move(pipe), &stop_);
        }
      }
      // One that went before it was accepted is common; anything else may come again at once, and without an end.
      const bool went = connected == ChannelWait::kClosed && connect_error_ == ERROR_NO_DATA;
      if (!went && runtime_.Wait(stop_, kPause) == 0) return nullptr;
      DisconnectNamedPipe(next_.get());
    }
  }

 private:
  ChannelWait WaitForClient() {
    DWORD ignored = 0;
    bool came_first = false;
    PipeCalls calls(runtime_, &stop_, next_.get());
    const ChannelWait result = calls.Run(SteadyTime::max(), ignored, [&](OVERLAPPED* call) {
      if (ConnectNamedPipe(next_.get(), call)) return true;
      connect_error_ = GetLastError();
      came_first = connect_error_ == ERROR_PIPE_CONNECTED;  // no end of the call follows
      return false;
    });
    return came_first ? ChannelWait::kDone : result;
  }

  Runtime& runtime_;
  Waitable& stop_;
  LocalPipeSystem system_;
  DWORD connect_error_ = 0;
  UniqueFile next_;  ///< The instance that waits for a client; there is always one.
};

}  // namespace
}  // namespace windows

LocalListening ListenLocally(Runtime& runtime, const std::filesystem::path& place, Waitable& stop) {
  const std::wstring name = windows::PipeName(place);
  windows::SecurityAttributes security(windows::PipeAccessList(windows::ProcessUserSid()));
  if (!security.ok()) return {nullptr, windows::LastErrorText(windows::Utf8FromWide(name))};
  auto listener = std::make_unique<windows::PipeListener>(runtime, stop, name, std::move(security));
  if (const DWORD error = listener->Open(); error != ERROR_SUCCESS) {
    return {nullptr, windows::Utf8FromWide(name) + ": " + windows::ErrorText(error)};
  }
  return {std::move(listener), {}};
}

LocalConnecting ConnectLocally(Runtime& runtime, const std::filesystem::path& place, Waitable* stop,
                               SteadyTime deadline) {
  constexpr milliseconds kTurn(100);  // of waiting for a free instance, which no event tells
  const std::wstring name = windows::PipeName(place);
  windows::UniqueFile pipe;
  DWORD error = ERROR_SUCCESS;
  while ((error = windows::ConnectPipe(name, pipe)) == ERROR_PIPE_BUSY) {
    const milliseconds left = std::chrono::ceil<milliseconds>(deadline - runtime.clock().Steady());
    if (left.count() <= 0 || (stop != nullptr && runtime.Wait(*stop, milliseconds(0)) == 0)) break;
    WaitNamedPipeW(name.c_str(), static_cast<DWORD>(std::min(left, kTurn).count()));
  }
  if (!pipe)
    return {nullptr, windows::Utf8FromWide(name) + ": " + windows::ErrorText(error), error == ERROR_ACCESS_DENIED};
  if (!windows::IsTrustedAccount(windows::OwnerSid(pipe.get()))) {
    return {nullptr, windows::Utf8FromWide(name) + ": another account than the service's listens here"};
  }
  return {std::make_unique<windows::PipeConnection>(runtime, stop, std::move(pipe)), {}};
}

std::filesystem::path ChannelPlace(const std::filesystem::path& data_folder) {
  return data_folder;
}

}  // namespace platform
