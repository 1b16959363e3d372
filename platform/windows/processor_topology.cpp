#include "platform/windows/processor_topology.h"

#include <vector>

#include "platform/processor_relations.h"
#include "platform/windows/registry.h"

namespace platform::windows {
namespace {

using RelationsCall = BOOL(WINAPI*)(LOGICAL_PROCESSOR_RELATIONSHIP, SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*, DWORD*);
static_assert(kCoreRecordSize ==
              offsetof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX, Processor) + sizeof(PROCESSOR_RELATIONSHIP));

std::string Trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::uint32_t AddressWidth() {
  SYSTEM_INFO info{};
  GetNativeSystemInfo(&info);
  const WORD kind = info.wProcessorArchitecture;
  return kind == PROCESSOR_ARCHITECTURE_AMD64 || kind == PROCESSOR_ARCHITECTURE_ARM64 ? 64 : 32;
}

}  // namespace

TopologyReading ReadProcessorTopology() {
  TopologyReading reading;
  reading.entry_bytes = kCoreRecordSize;
  const auto call = reinterpret_cast<RelationsCall>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetLogicalProcessorInformationEx")));
  if (call == nullptr) {
    reading.supported = false;
    return reading;
  }

  // 8-byte units, aligned for the system's structures.
  std::vector<std::uint64_t> buffer(512);
  DWORD bytes = 0;
  for (;;) {
    bytes = static_cast<DWORD>(buffer.size() * sizeof buffer[0]);
    auto* const entries = reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX*>(buffer.data());
    if (call(RelationAll, entries, &bytes)) break;
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
      reading.error = static_cast<std::int32_t>(error);
      return reading;
    }
    buffer.resize(bytes / sizeof buffer[0] + 1);
  }
  reading.returned_bytes = bytes;
  reading.topology = DecodeProcessorRelations({reinterpret_cast<const std::uint8_t*>(buffer.data()), bytes});
  reading.topology.name = Trimmed(
      RegistryText(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", L"ProcessorNameString"));
  reading.topology.address_width = AddressWidth();
  return reading;
}

}  // namespace platform::windows
