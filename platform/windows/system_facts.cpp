#include "platform/windows/system_facts.h"

#include "platform/windows/sys.h"

#include <winternl.h>
#include <wtsapi32.h>

#include <charconv>
#include <cwchar>

#include "platform/registry_names.h"
#include "platform/windows/owner.h"
#include "platform/windows/registry.h"
#include "platform/windows/security.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

namespace names = Constants::Registry;

struct SessionListTraits : NullHandle<WTS_SESSION_INFOW*, WTSFreeMemory> {};
using UniqueSessionList = Owner<SessionListTraits>;

constexpr wchar_t kBiosKey[] = L"HARDWARE\\DESCRIPTION\\System\\BIOS";
constexpr DWORD kNoSession = 0xFFFFFFFF;

std::string BiosText(const wchar_t* name) {
  return RegistryText(HKEY_LOCAL_MACHINE, kBiosKey, name);
}

// "major.minor" of two values. 255 in both stands for "not told" (DMTF DSP0134, 7.1).
std::string BiosRelease(const wchar_t* major_name, const wchar_t* minor_name) {
  const auto major = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, major_name);
  const auto minor = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, minor_name);
  if (!major || !minor || (*major == 255 && *minor == 255)) return {};
  return std::to_string(*major) + "." + std::to_string(*minor);
}

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

// Calls `visit` with the session at the console, then with each active remote one, until it returns true.
template <class Visit>
void VisitUserSessions(Visit visit) {
  if (const DWORD console = WTSGetActiveConsoleSessionId(); console != kNoSession && visit(console)) return;
  UniqueSessionList sessions;
  DWORD count = 0;
  if (!WTSEnumerateSessionsW(WTS_CURRENT_SERVER_HANDLE, 0, 1, sessions.Receive(), &count)) return;
  for (DWORD i = 0; i < count; ++i) {
    if (sessions.get()[i].State == WTSActive && visit(sessions.get()[i].SessionId)) return;
  }
}

std::string SidOfSession(DWORD session) {
  UniqueKernelHandle token;
  if (WTSQueryUserToken(session, token.Receive())) return UserSid(token.get());
  const DWORD error = GetLastError();
  DWORD own_session = kNoSession;
  ProcessIdToSessionId(GetCurrentProcessId(), &own_session);
  return error != ERROR_NO_TOKEN && own_session == session ? ProcessUserSid() : std::string();
}

}  // namespace

FirmwareFacts ReadFirmwareFacts() {
  FirmwareFacts facts;
  facts.manufacturer = BiosText(L"SystemManufacturer");
  facts.product_name = BiosText(L"SystemProductName");
  facts.product_version = BiosText(L"SystemVersion");
  facts.product_family = BiosText(L"SystemFamily");
  facts.product_sku = BiosText(L"SystemSKU");
  facts.board_manufacturer = BiosText(L"BaseBoardManufacturer");
  facts.board_product = BiosText(L"BaseBoardProduct");
  facts.board_version = BiosText(L"BaseBoardVersion");
  if (const auto type = RegistryNumber(HKEY_LOCAL_MACHINE, kBiosKey, L"EnclosureType")) {
    facts.chassis_type = std::to_string(*type);
  }
  facts.bios_vendor = BiosText(L"BIOSVendor");
  facts.bios_version = BiosText(L"BIOSVersion");
  facts.bios_date = BiosText(L"BIOSReleaseDate");
  facts.bios_release = BiosRelease(L"BiosMajorRelease", L"BiosMinorRelease");
  facts.ec_release = BiosRelease(L"ECFirmwareMajorRelease", L"ECFirmwareMinorRelease");
  return facts;
}

OperatingSystemFacts ReadOperatingSystemFacts() {
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

RegionFacts ReadRegionFacts() {
  RegionFacts facts;
  const auto read = [&](HKEY root, const std::wstring& prefix) {
    facts.nation = RegistryText(root, prefix + names::CountryCodeInternationalGeoSubPath, names::CountryCodeNation);
    facts.locale_name =
        RegistryText(root, prefix + names::CountryCodeInternationalSubPath, names::CountryCodeLocaleName);
  };
  if (const std::string user = ReadLoggedInUserSid(); !user.empty()) read(HKEY_USERS, WideFromUtf8(user) + L"\\");
  if (facts.locale_name.empty()) read(HKEY_CURRENT_USER, L"");
  DYNAMIC_TIME_ZONE_INFORMATION zone{};
  if (GetDynamicTimeZoneInformation(&zone) != TIME_ZONE_ID_INVALID) {
    constexpr std::size_t kLength = std::size(zone.TimeZoneKeyName);
    facts.time_zone = Utf8FromWide({zone.TimeZoneKeyName, wcsnlen(zone.TimeZoneKeyName, kLength)});
  }
  return facts;
}

std::string CountryOfNation(const std::string& nation) {
  GEOID id = 0;
  const char* const end = nation.data() + nation.size();
  const auto [parsed, error] = std::from_chars(nation.data(), end, id);
  if (error != std::errc() || parsed != end) return {};
  wchar_t code[8];
  const int length = GetGeoInfoW(id, GEO_ISO2, code, static_cast<int>(std::size(code)), 0);
  return length > 0 ? Utf8FromWide(code) : std::string();
}

std::string ReadInstallationId() {
  return RegistryText(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid");
}

std::string ReadLoggedInUserSid() {
  std::string sid;
  VisitUserSessions([&](DWORD session) {
    sid = SidOfSession(session);
    return !sid.empty();
  });
  return sid;
}

UniqueKernelHandle OpenUserToken() {
  UniqueKernelHandle token;
  VisitUserSessions([&](DWORD session) { return WTSQueryUserToken(session, token.Receive()) != FALSE; });
  return token;
}

}  // namespace platform::windows
