#include "platform/processor_relations.h"

#include <bit>

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Of each record: the relationship, and the size of the record.
constexpr std::size_t kHeaderSize = 8;
constexpr std::uint64_t kRelationProcessorCore = 0;
constexpr std::uint64_t kRelationCache = 2;

// Of PROCESSOR_RELATIONSHIP, from the record's begin: the count of groups, and a GROUP_AFFINITY for each, which begins
// with the mask of the processors.
constexpr std::size_t kGroupCountAt = 30;
constexpr std::size_t kGroupsAt = 32;
constexpr std::size_t kGroupSize = 16;
static_assert(kCoreRecordSize == kGroupsAt + kGroupSize);

// Of CACHE_RELATIONSHIP.
constexpr std::size_t kCacheLevelAt = 8;
constexpr std::size_t kCacheSizeAt = 12;
constexpr std::size_t kCacheRecordSize = 20;

std::uint64_t NumberAt(Bytes bytes, std::size_t at, std::size_t size) {
  std::uint64_t number = 0;
  for (std::size_t i = size; i-- > 0;)
    number = number << 8 | bytes[at + i];
  return number;
}

bool AddCore(Bytes record, ProcessorTopology& topology) {
  if (record.size() < kGroupsAt) return false;
  const std::uint64_t groups = NumberAt(record, kGroupCountAt, 2);
  if (groups == 0 || groups > (record.size() - kGroupsAt) / kGroupSize) return false;
  ++topology.cores;
  for (std::size_t i = 0; i < groups; ++i) {
    const std::uint64_t mask = NumberAt(record, kGroupsAt + i * kGroupSize, 8);
    topology.logical_processors += static_cast<std::uint32_t>(std::popcount(mask));
  }
  return true;
}

bool AddCache(Bytes record, ProcessorTopology& topology) {
  if (record.size() < kCacheRecordSize) return false;
  const std::uint8_t which = record[kCacheLevelAt];
  if (which != 2 && which != 3) return true;
  CacheLevel& level = which == 2 ? topology.l2 : topology.l3;
  level.total_bytes += NumberAt(record, kCacheSizeAt, 4);
  ++level.count;
  return true;
}

}  // namespace

ProcessorTopology DecodeProcessorRelations(Bytes bytes) {
  ProcessorTopology topology;
  while (bytes.size() >= kHeaderSize) {
    const std::uint64_t relation = NumberAt(bytes, 0, 4);
    const std::uint64_t size = NumberAt(bytes, 4, 4);
    if (size < kHeaderSize || size > bytes.size()) break;
    const Bytes record = bytes.first(size);
    if (relation == kRelationProcessorCore && !AddCore(record, topology)) break;
    if (relation == kRelationCache && !AddCache(record, topology)) break;
    bytes = bytes.subspan(size);
  }
  return topology;
}

}  // namespace platform
