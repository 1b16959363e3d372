// Decoders of the texts about processors in /proc/cpuinfo and /sys/devices/system/cpu. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The processors of a list such as "0-3,8,10-11", in rising order, each once. Empty for an empty text, one that is no
/// such list, and one that names a processor above 65535 (Linux has at most 8192).
std::vector<std::uint32_t> ParseProcessorList(std::string_view text);

/// The processors whose bits are set in a mask such as "00000000,0000000f": hexadecimal in groups of 32 bits, the
/// highest processors first. Rising order; empty for a text that is no such mask or sets a bit above 65535.
std::vector<std::uint32_t> ParseProcessorMask(std::string_view text);

/// The bytes of a cache size such as "1280K" or "32M"; 0 when it is none.
std::uint64_t ParseCacheSize(std::string_view text);

/// One block of /proc/cpuinfo. Absent: the kernel does not tell (most virtual machines, other architectures).
struct CpuinfoProcessor {
  std::uint32_t number = 0;
  std::optional<std::uint64_t> package = {};
  std::optional<std::uint64_t> core = {};
};

struct Cpuinfo {
  std::string name;                 ///< Of the first processor that has one.
  std::uint32_t address_width = 0;  ///< 64, 32, or 0 when the text tells no flags.
  std::vector<CpuinfoProcessor> processors;
};

Cpuinfo DecodeCpuinfo(std::string_view text);

}  // namespace platform
