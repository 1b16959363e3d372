#include "client/identity/machine_device_id_agent.h"

#include "client/smbios/smbios_identity.h"
#include "client/text/hash_utility.h"
#include "client/text/string.h"
#include "platform/system_facts.h"

namespace TVK {
namespace {

constexpr unsigned long kErrorNotFound = 1168;

// Salts keep the ids apart from hashes that others make of the same facts.
constexpr wchar_t kDeviceIdSalt[] = L"tvk.device-id.1";
constexpr wchar_t kLegacyDeviceIdSalt[] = L"tvk.legacy-device-id.1";

unsigned long MakeId(const std::wstring& fact, const wchar_t* salt, std::wstring& id) {
  if (fact.empty()) return kErrorNotFound;
  std::wstring text = HashUtility::Hash(fact, salt).substr(0, 32);
  for (const std::size_t at : {20, 16, 12, 8})
    text.insert(at, 1, L'-');
  id = std::move(text);
  return 0;
}

}  // namespace

unsigned long MachineDeviceIdAgent::GetDeviceID(std::wstring& id) {
  return MakeId(String::UTF8ToUTF16(system_.ReadInstallationId()), kDeviceIdSalt, id);
}

unsigned long MachineDeviceIdAgent::GetLegacyDeviceID(std::wstring& id) {
  SMBiosTool tool(firmware_);
  tool.Initialize();  // Whatever it says of the table, what can be read counts.
  return MakeId(ReadSmbiosIdentity(tool).uuid_hash, kLegacyDeviceIdSalt, id);
}

}  // namespace TVK
