#include "platform/windows/processor_topology.h"

#include <bit>
#include <vector>

#include "platform/windows/registry.h"

namespace platform::windows {
namespace {

using GetLogicalProcessorInformationCall = BOOL(WINAPI*)(SYSTEM_LOGICAL_PROCESSOR_INFORMATION*, DWORD*);

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

void AddCache(const CACHE_DESCRIPTOR& cache, ProcessorTopology& topology) {
  if (cache.Level != 2 && cache.Level != 3) return;
  CacheLevel& level = cache.Level == 2 ? topology.l2 : topology.l3;
  level.total_bytes += cache.Size;
  ++level.count;
}

}  // namespace

TopologyReading ReadProcessorTopology() {
  TopologyReading reading;
  reading.entry_bytes = sizeof(SYSTEM_LOGICAL_PROCESSOR_INFORMATION);
  const auto call = reinterpret_cast<GetLogicalProcessorInformationCall>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "GetLogicalProcessorInformation")));
  if (call == nullptr) {
    reading.supported = false;
    return reading;
  }

  std::vector<SYSTEM_LOGICAL_PROCESSOR_INFORMATION> entries(64);
  DWORD bytes = 0;
  for (;;) {
    bytes = static_cast<DWORD>(entries.size() * sizeof entries[0]);
    if (call(entries.data(), &bytes)) break;
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER) {
      reading.error = static_cast<std::int32_t>(error);
      return reading;
    }
    entries.resize(bytes / sizeof entries[0] + 1);
  }
  reading.returned_bytes = bytes;
  entries.resize(bytes / sizeof entries[0]);

  ProcessorTopology& topology = reading.topology;
  topology.name = Trimmed(
      RegistryText(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", L"ProcessorNameString"));
  topology.address_width = AddressWidth();
  for (const SYSTEM_LOGICAL_PROCESSOR_INFORMATION& entry : entries) {
    if (entry.Relationship == RelationProcessorCore) {
      ++topology.cores;
      topology.logical_processors += static_cast<std::uint32_t>(std::popcount(entry.ProcessorMask));
    } else if (entry.Relationship == RelationCache) {
      AddCache(entry.Cache, topology);
    }
  }
  return reading;
}

}  // namespace platform::windows
