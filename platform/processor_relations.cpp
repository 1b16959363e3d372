#include "platform/processor_relations.h"

#include <bit>

#include "platform/little_endian.h"

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Of each record: the relationship, and the size of the record.
constexpr std::size_t kHeaderSize = 8;
constexpr std::uint64_t kRelationProcessorCore = 0;
constexpr std::uint64_t kRelationCache = 2;

// Of PROCESSOR_RELATIONSHIP, from the record's begin: its one GROUP_AFFINITY, since a core lies in one group, which
// begins with the mask of the processors.
constexpr std::size_t kMaskAt = 32;

// Of CACHE_RELATIONSHIP.
constexpr std::size_t kCacheLevelAt = 8;
constexpr std::size_t kCacheSizeAt = 12;
constexpr std::size_t kCacheRecordSize = 16;

bool AddCore(Bytes record, ProcessorTopology& topology) {
  if (record.size() < kCoreRecordSize) return false;
  ++topology.cores;
  topology.logical_processors +=
      static_cast<std::uint32_t>(std::popcount(LittleEndianAt<std::uint64_t>(record, kMaskAt)));
  return true;
}

bool AddCache(Bytes record, ProcessorTopology& topology) {
  if (record.size() < kCacheRecordSize) return false;
  const std::uint8_t which = record[kCacheLevelAt];
  if (which != 2 && which != 3) return true;
  CacheLevel& level = which == 2 ? topology.l2 : topology.l3;
  level.total_bytes += LittleEndianAt<std::uint32_t>(record, kCacheSizeAt);
  ++level.count;
  return true;
}

}  // namespace

ProcessorTopology DecodeProcessorRelations(Bytes bytes) {
  ProcessorTopology topology;
  while (bytes.size() >= kHeaderSize) {
    const std::uint64_t relation = LittleEndianAt<std::uint32_t>(bytes, 0);
    const std::uint64_t size = LittleEndianAt<std::uint32_t>(bytes, 4);
    if (size < kHeaderSize || size > bytes.size()) break;
    const Bytes record = bytes.first(size);
    if (relation == kRelationProcessorCore && !AddCore(record, topology)) break;
    if (relation == kRelationCache && !AddCache(record, topology)) break;
    bytes = bytes.subspan(size);
  }
  return topology;
}

}  // namespace platform
