#include "windows_kit/machine_windows.h"

#include <array>
#include <list>

#include "client/smbios/smbios_fields.h"
#include "client/text/string.h"
#include "platform/batteries.h"
#include "platform/drives.h"
#include "platform/files.h"
#include "platform/firmware.h"
#include "platform/local.h"
#include "platform/service_control.h"
#include "platform/system_facts.h"
#include "platform/volumes.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

namespace windows_kit {
namespace {

using platform::windows::UniqueKernelHandle;
using platform::windows::UniqueRegistryKey;
using platform::windows::Utf8FromWide;

std::string Variable(const wchar_t* name) {
  const wchar_t* const value = _wgetenv(name);
  return value != nullptr ? Utf8FromWide(value) : std::string();
}

// The tests' own keys begin so.
std::set<std::wstring> OwnKeys() {
  constexpr std::wstring_view kStart = L"Tvk";
  std::set<std::wstring> keys;
  UniqueRegistryKey software;
  RegOpenKeyExW(HKEY_CURRENT_USER, L"Software", 0, KEY_READ, software.Receive());
  std::array<wchar_t, 256> name;
  DWORD length = static_cast<DWORD>(name.size());
  for (DWORD i = 0; RegEnumKeyExW(software.get(), i, name.data(), &length, nullptr, nullptr, nullptr, nullptr) == 0;
       ++i) {
    const std::wstring_view key(name.data(), length);
    if (key.starts_with(kStart)) keys.emplace(key);
    length = static_cast<DWORD>(name.size());
  }
  return keys;
}

// System, board, chassis, processors and memory: each has one or two serial numbers, the chassis' and the board's also
// a tag that a company sticks on.
void AddSmbios(std::vector<std::string>& identifiers) {
  const auto firmware = platform::windows::MakeFirmware();
  SMBiosTool tool(*firmware);
  if (tool.Initialize() != 0) return;
  constexpr std::pair<int, std::size_t> kFields[] = {{1, 0x07}, {2, 0x07}, {2, 0x08},  {3, 0x07},  {3, 0x08},
                                                     {4, 0x20}, {4, 0x21}, {17, 0x18}, {17, 0x19}, {22, 0x07}};
  for (const auto& [type, offset] : kFields) {
    std::list<_SMBiosBuffer> structures;
    tool.GetSMBiosBufferByType(type, structures);
    for (const _SMBiosBuffer& structure : structures)
      identifiers.push_back(TVK::String::UTF16ToUTF8(TVK::SmbiosFields(tool, structure).Text(offset)));
  }
}

}  // namespace

bool IsAdministrator() {
  UniqueKernelHandle token;
  TOKEN_ELEVATION elevation{};
  DWORD size = 0;
  return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Receive()) &&
         GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &size) &&
         elevation.TokenIsElevated != 0;
}

std::string WineVersion() {
  const FARPROC call = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version");
  if (call == nullptr) return {};
  return std::string("Wine ") + reinterpret_cast<const char* (*)()>(reinterpret_cast<void*>(call))();
}

std::vector<std::pair<std::string, std::string>> DescribeMachine() {
  const auto runtime = platform::MakeRealRuntime({});
  const auto system = platform::windows::MakeSystemFacts(runtime->clock())->ReadOperatingSystem();
  const std::string wine = WineVersion();
  return {{"system", system.name + ", " + system.version + (wine.empty() ? "" : " (" + wine + ")")},
          {"rights", IsAdministrator() ? "administrator" : "ordinary user"},
          {"processors", std::to_string(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS))}};
}

std::vector<std::string> ReadIdentifiers() {
  const auto runtime = platform::MakeRealRuntime({});
  std::vector<std::string> identifiers = {platform::windows::MakeSystemFacts(runtime->clock())->ReadInstallationId()};
  AddSmbios(identifiers);
  for (const auto& volume : platform::windows::MakeVolumes()->List())
    identifiers.push_back(volume.id);
  for (const auto& battery : platform::windows::MakeBatteries()->List())
    identifiers.push_back(battery.serial_number);
  for (const auto& drive : platform::windows::MakeDrives()->List())
    identifiers.push_back(drive.serial_number);
  return identifiers;
}

Blanks BlanksOfSession(const std::filesystem::path& kit) {
  Blanks blanks;
  blanks.Add(platform::PathToUtf8(kit), "(kit)");
  blanks.Add(kit.generic_string(), "(kit)");
  blanks.Add(Variable(L"USERPROFILE"), "(profile)");
  blanks.Add(Variable(L"USERNAME"), "(user)");
  blanks.Add(Variable(L"COMPUTERNAME"), "(computer)");
  blanks.Add(Variable(L"USERDOMAIN"), "(domain)");
  blanks.Add(Variable(L"USERDNSDOMAIN"), "(domain)");
  return blanks;
}

Leftovers::Leftovers() : before_(OwnKeys()) {}

std::vector<std::string> Leftovers::TakeAway() const {
  constexpr std::chrono::seconds kPatience(20);
  std::vector<std::string> found;
  for (const std::wstring& key : OwnKeys()) {
    if (before_.contains(key)) continue;
    const LSTATUS error = RegDeleteTreeW(HKEY_CURRENT_USER, (L"Software\\" + key).c_str());
    found.push_back("registry key HKEY_CURRENT_USER\\Software\\" + Utf8FromWide(key) +
                    (error == 0 ? ", removed" : ", not removed: " + platform::windows::ErrorText(error)));
  }
  if (platform::ReadServiceReport().state != platform::ServiceState::kNotInstalled) {
    const std::string problem = platform::UninstallService(kPatience);
    found.push_back("the service's entry" + (problem.empty() ? ", removed" : ", not removed: " + problem));
  }
  return found;
}

}  // namespace windows_kit
