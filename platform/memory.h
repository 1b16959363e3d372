// The physical memory of a machine. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

struct MemoryStatus {
  std::uint32_t load_percent = 0;     ///< Physical memory in use, 0..100.
  std::uint64_t total_bytes = 0;      ///< Physical memory that the system can use.
  std::uint64_t available_bytes = 0;  ///< Of it, what can be had without swapping.
};

/// What the memory controller's error correction counted since its driver started, which is once in a boot.
struct MemoryErrors {
  std::string controller;  ///< As the system names it, "mc0".
  std::uint64_t corrected = 0;
  std::uint64_t uncorrected = 0;
  bool operator==(const MemoryErrors&) const = default;
};

class Memory {
 public:
  Memory() = default;
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  virtual ~Memory() = default;

  /// Empty when the system does not tell; `error`, when given, then receives the system's error number.
  virtual std::optional<MemoryStatus> ReadStatus(std::uint32_t* error = nullptr) = 0;

  /// Of each controller that counts; none on most machines, and on Windows, whose event log tells of such errors.
  virtual std::vector<MemoryErrors> ReadErrors() { return {}; }
};

}  // namespace platform
