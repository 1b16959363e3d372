#include "platform/desktop.h"

#include <algorithm>

#include "platform/local_desktop.h"
#include "platform/windows/displays.h"
#include "platform/windows/kernel_object.h"
#include "platform/windows/process_list.h"
#include "platform/windows/security.h"
#include "platform/windows/session_window.h"

namespace platform {
namespace windows {
namespace {

class LocalDesktop final : public Desktop {
 public:
  NamedEventResult OpenSessionEvent(std::wstring_view name, EventRights rights) override {
    const DWORD access = rights == EventRights::kAll ? EVENT_ALL_ACCESS : SYNCHRONIZE;
    UniqueKernelHandle event(OpenEventW(access, FALSE, std::wstring(name).c_str()));
    if (!event) return {nullptr, GetLastError()};
    return {std::make_unique<KernelEvent>(std::move(event)), 0};
  }

  bool ServiceRuns(std::wstring_view program, std::wstring_view event) override {
    const UniqueKernelHandle opened(OpenEventW(READ_CONTROL, FALSE, std::wstring(event).c_str()));
    const std::string account = opened ? OwnerSid(opened.get()) : std::string();
    return std::ranges::any_of(ProcessesOf(program),
                               [&](std::uint32_t id) { return MayBeService(OwnerOfProcess(id), account, true); });
  }

  std::optional<int> RunWindow(const std::wstring& name, const WindowProcedure& procedure) override {
    return RunHiddenWindow(name, procedure);
  }
  void QuitWindow() override { PostQuitMessage(0); }
  bool CloseWindow(const std::wstring& name) override { return CloseHiddenWindow(name); }
  std::uint32_t ForgetWindowClass(const std::wstring& name) override { return ForgetHiddenWindowClass(name); }

  std::size_t ReadMessageData(std::intptr_t lparam, std::span<std::uint8_t> into) override {
    // Whatever another process sent ends in an error of this call, not of ours. What the system sent may lie right
    // before the end of a page.
    for (std::size_t size = into.size(); size != 0; --size) {
      SIZE_T read = 0;
      if (ReadProcessMemory(GetCurrentProcess(), reinterpret_cast<const void*>(lparam), into.data(), size, &read)) {
        return read;
      }
    }
    return 0;
  }

  WindowNoticesResult RegisterForDisplays(void* window) override {
    return RegisterDisplayNotices(static_cast<HWND>(window));
  }
  WindowNoticesResult RegisterForDigitizers(void* window) override {
    return RegisterDigitizerNotices(static_cast<HWND>(window));
  }
  std::vector<AttachedDisplay> ListDisplays() override { return ListDesktopDisplays(); }
  Digitizers ReadDigitizers() override { return ReadSystemDigitizers(); }
  std::optional<DigitizerKind> ReadInputKind(std::intptr_t lparam) override {
    return KindOfInput(reinterpret_cast<HRAWINPUT>(lparam));
  }

  std::optional<std::wstring> ReadProfile(const std::filesystem::path& file, const std::wstring& section,
                                          const std::wstring& key, std::size_t longest) override {
    if (GetFileAttributesW(file.c_str()) == INVALID_FILE_ATTRIBUTES) return std::nullopt;
    std::wstring value(longest + 1, L'\0');
    value.resize(GetPrivateProfileStringW(section.c_str(), key.c_str(), L"", value.data(),
                                          static_cast<DWORD>(value.size()), file.c_str()));
    return value;
  }
  std::uint32_t WriteProfile(const std::filesystem::path& file, const std::wstring& section, const std::wstring& key,
                             const std::wstring& value) override {
    return WritePrivateProfileStringW(section.c_str(), key.c_str(), value.c_str(), file.c_str()) ? ERROR_SUCCESS
                                                                                                 : GetLastError();
  }
};

}  // namespace
}  // namespace windows

std::unique_ptr<Desktop> OpenLocalDesktop() {
  return std::make_unique<windows::LocalDesktop>();
}

std::filesystem::path LocalUserFolder() {
  constexpr wchar_t kName[] = L"LOCALAPPDATA";
  // Asked for its length first: room for the longest value would stay in the heap of a program that needs little else.
  const DWORD size = GetEnvironmentVariableW(kName, nullptr, 0);
  std::wstring folder(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(kName, folder.data(), size);
  folder.resize(length < size ? length : 0);
  return folder;
}

}  // namespace platform
