#include "platform/processor_relations.h"

#include <gtest/gtest.h>

#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes& Put(Bytes& bytes, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    bytes.at(at + i) = static_cast<std::uint8_t>(value >> (8 * i));
  return bytes;
}

Bytes Record(std::uint32_t relation, std::uint32_t size) {
  Bytes bytes(size);
  Put(bytes, 0, relation, 4);
  return Put(bytes, 4, size, 4);
}

// A core whose processors are the bits of a mask, in one group.
Bytes Core(std::uint16_t group, std::uint64_t mask) {
  Bytes bytes = Record(0, kCoreRecordSize);
  Put(bytes, 30, 1, 2);
  Put(bytes, 32, mask, 8);
  return Put(bytes, 40, group, 2);
}

Bytes Cache(std::uint8_t level, std::uint32_t size) {
  Bytes bytes = Record(2, 56);
  Put(bytes, 8, level, 1);
  return Put(bytes, 12, size, 4);
}

void Add(Bytes& all, const Bytes& record) {
  all.insert(all.end(), record.begin(), record.end());
}

// 96 cores of two threads in groups of 64, which is how a machine of 192 processors comes.
Bytes LargeMachine() {
  Bytes all = Record(4, 80);  // what the groups are
  for (std::uint16_t group = 0; group < 3; ++group) {
    for (int core = 0; core < 32; ++core) {
      Add(all, Core(group, std::uint64_t{3} << (2 * core)));
      Add(all, Cache(1, 0x8000));
      Add(all, Cache(2, 0x100000));
    }
    Add(all, Cache(3, 0x2000000));
  }
  return all;
}

TEST(ProcessorRelationsTest, EveryGroupCounts) {
  const ProcessorTopology topology = DecodeProcessorRelations(LargeMachine());
  EXPECT_EQ(topology.cores, 96u);
  EXPECT_EQ(topology.logical_processors, 192u);
  EXPECT_EQ(topology.l2.count, 96u);
  EXPECT_EQ(topology.l2.total_bytes, 96u * 0x100000);
  EXPECT_EQ(topology.l3.count, 3u);
  EXPECT_EQ(topology.l3.total_bytes, 3u * 0x2000000);
}

TEST(ProcessorRelationsTest, ReadingEndsBeforeARecordThatIsNotWhole) {
  Bytes no_size = Core(0, 1);
  Put(no_size, 4, 0, 4);
  Bytes long_size = Core(0, 1);
  Put(long_size, 4, kCoreRecordSize + 1, 4);
  Bytes many_groups = Core(0, 1);
  Put(many_groups, 30, 2, 2);
  Bytes no_group = Core(0, 1);
  Put(no_group, 30, 0, 2);
  for (const Bytes& broken :
       {no_size, long_size, many_groups, no_group, Record(0, 31), Record(2, 19), Bytes(7), Bytes()}) {
    Bytes all = Core(1, 0xF);
    Add(all, broken);
    const ProcessorTopology topology = DecodeProcessorRelations(all);
    EXPECT_EQ(topology.logical_processors, 4u) << broken.size();
    EXPECT_EQ(topology.cores, 1u);
  }
}

}  // namespace
}  // namespace platform
