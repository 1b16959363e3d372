// The processors of a machine: how busy they are and how they are built. Any thread may call Processors; the readers
// that it hands out belong to one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace platform {

/// Reads the processors' utilisation; each reader measures from its own previous sample.
class ProcessorLoadReader {
 public:
  ProcessorLoadReader() = default;
  ProcessorLoadReader(const ProcessorLoadReader&) = delete;
  ProcessorLoadReader& operator=(const ProcessorLoadReader&) = delete;
  virtual ~ProcessorLoadReader() = default;

  /// Utilisation of all processors together since the previous sample, in percent; "% Processor Utility" may pass 100
  /// on a processor that runs above its nominal frequency. Empty when it cannot be read now.
  virtual std::optional<std::int32_t> Sample() = 0;
};

/// What opening a reader gave.
struct ProcessorLoadOpening {
  std::unique_ptr<ProcessorLoadReader> reader;  ///< Null on failure.
  std::int64_t error = 0;                       ///< The system's status (PDH_STATUS, errno) when `reader` is null.
};

/// All caches of one level.
struct CacheLevel {
  std::uint64_t total_bytes = 0;  ///< Of all caches of the level together.
  std::uint32_t count = 0;        ///< How many caches of that level there are.
};

/// The processors that are online. A fact that the machine does not tell is 0 or empty.
struct ProcessorTopology {
  std::string name;                 ///< As the processor names itself, blanks trimmed.
  std::uint32_t address_width = 0;  ///< 32 or 64 bits.
  std::uint32_t cores = 0;
  std::uint32_t logical_processors = 0;
  CacheLevel l2;
  CacheLevel l3;
};

/// One try at reading the topology.
struct TopologyReading {
  bool supported = true;             ///< False where the system lacks the call altogether.
  std::int32_t error = 0;            ///< 0, or the system's error; `topology` then holds nothing.
  std::uint32_t returned_bytes = 0;  ///< Length of the system's answer.
  std::uint32_t entry_bytes = 0;     ///< The least that an entry takes.
  ProcessorTopology topology;
};

class Processors {
 public:
  Processors() = default;
  Processors(const Processors&) = delete;
  Processors& operator=(const Processors&) = delete;
  virtual ~Processors() = default;

  /// "% Processor Utility": utilisation weighted by the frequency, as the task manager shows it. Linux: the share of
  /// time not idle.
  virtual ProcessorLoadOpening OpenUtility() = 0;

  /// "% Processor Time": the share of time not idle. Exists on every system.
  virtual ProcessorLoadOpening OpenTime() = 0;

  virtual TopologyReading ReadTopology() = 0;
};

}  // namespace platform
