#include "platform/system_facts.h"

#include "platform/windows/sys.h"

#include <winternl.h>

#include "platform/clock.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/registry.h"
#include "platform/windows/registry_names.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform::windows {
namespace {

namespace names = Constants::Registry;

// The true version: GetVersionEx tells a program without a manifest that it runs on an older system.
OSVERSIONINFOW Version() {
  using RtlGetVersionCall = NTSTATUS(NTAPI*)(OSVERSIONINFOW*);
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  const auto call = reinterpret_cast<RtlGetVersionCall>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  if (call != nullptr) call(&version);
  return version;
}

std::string LanguageTag(LANGID language) {
  wchar_t name[LOCALE_NAME_MAX_LENGTH];
  if (LCIDToLocaleName(MAKELCID(language, SORT_DEFAULT), name, LOCALE_NAME_MAX_LENGTH, 0) == 0) return {};
  return Utf8FromWide(name);
}

class WindowsSystemFacts final : public SystemFacts {
 public:
  explicit WindowsSystemFacts(const Clock& clock) : clock_(clock) {}

  OperatingSystemFacts ReadOperatingSystem() override {
    constexpr std::string_view kOldName = "Windows 10";
    constexpr DWORD kFirstBuildOf11 = 22000;
    const OSVERSIONINFOW version = Version();
    const auto text = [](const wchar_t* name) {
      return RegistryText(HKEY_LOCAL_MACHINE, names::WindowsCurrentVersionSubPath, name);
    };

    OperatingSystemFacts facts;
    facts.name = text(names::OSProductName);
    // Windows 11 still calls itself Windows 10 here.
    if (version.dwBuildNumber >= kFirstBuildOf11 && facts.name.starts_with(kOldName)) {
      facts.name.replace(0, kOldName.size(), "Windows 11");
    }
    facts.version = std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                    std::to_string(version.dwBuildNumber);
    facts.display_language = LanguageTag(GetSystemDefaultUILanguage());
    facts.update_title = text(L"DisplayVersion");
    if (facts.update_title.empty()) facts.update_title = text(L"ReleaseId");  // before 20H2

    facts.update_description = facts.name;
    if (!facts.update_title.empty()) facts.update_description += " " + facts.update_title;
    facts.update_description += " (build " + std::to_string(version.dwBuildNumber);
    if (const auto revision = RegistryNumber(HKEY_LOCAL_MACHINE, names::WindowsCurrentVersionSubPath, L"UBR")) {
      facts.update_description += "." + std::to_string(*revision);
    }
    facts.update_description += ")";
    return facts;
  }

  std::string ReadInstallationId() override {
    return RegistryText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid");
  }

  std::string ReadLoggedInUserId() override { return ReadLoggedInUserSid(); }

  std::optional<std::int64_t> ReadBootTime() override {
    const milliseconds up(static_cast<std::int64_t>(GetTickCount64()));
    return std::chrono::floor<std::chrono::seconds>(clock_.Now() - up).time_since_epoch().count();
  }

  std::string ReadBootId() override { return {}; }

 private:
  const Clock& clock_;
};

}  // namespace

std::unique_ptr<SystemFacts> MakeSystemFacts(const Clock& clock) {
  return std::make_unique<WindowsSystemFacts>(clock);
}

}  // namespace platform::windows
