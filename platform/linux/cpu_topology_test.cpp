#include "platform/linux/cpu_topology.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "platform/linux/cpu_text.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

constexpr const char* kCpuinfo =
    "processor\t: 0\nmodel name\t:  Contoso Fast(TM) CPU @ 3.0GHz \nphysical id\t: 0\ncore id\t: 0\nflags\t: fpu lm "
    "sse\n\n"
    "processor\t: 1\nmodel name\t: other\nphysical id\t: 0\ncore id\t: 1\nflags\t: fpu lm sse\n\n"
    "processor\t: 2\nphysical id\t: 1\ncore id\t: 0\nflags\t: fpu lm sse\n\n";

struct Cache {
  std::string level, type, size, shared;
};

void WriteProcessor(const RecordedTree& tree, int number, int package, int core, const std::string& siblings,
                    const std::vector<Cache>& caches) {
  const std::string folder = "/sys/devices/system/cpu/cpu" + std::to_string(number);
  tree.Write(folder + "/topology/physical_package_id", std::to_string(package) + "\n");
  tree.Write(folder + "/topology/core_id", std::to_string(core) + "\n");
  if (!siblings.empty()) tree.Write(folder + "/topology/thread_siblings_list", siblings + "\n");
  for (int index = 0; const Cache& cache : caches) {
    const std::string place = folder + "/cache/index" + std::to_string(index++);
    tree.Write(place + "/level", cache.level + "\n");
    tree.Write(place + "/type", cache.type + "\n");
    tree.Write(place + "/size", cache.size + "\n");
    tree.Write(place + "/shared_cpu_list", cache.shared + "\n");
  }
}

ProcessorTopology Read(const RecordedTree& tree) {
  const TopologyReading reading = ReadTopology(Sysroot(tree.root()));
  EXPECT_EQ(reading.error, 0);
  return reading.topology;
}

void ExpectCaches(const CacheLevel& level, std::uint64_t kib, std::uint32_t count) {
  EXPECT_EQ(level.total_bytes, kib * 1024);
  EXPECT_EQ(level.count, count);
}

TEST(CpuTopology, CountsAHybridProcessor) {
  // One fast core of two threads with an L2 of its own, four small cores that share one; the L3 is shared by all.
  const RecordedTree tree{{"/sys/devices/system/cpu/online", "0-5\n"}, {"/proc/cpuinfo", kCpuinfo}};
  for (int number = 0; number < 6; ++number) {
    const bool fast = number < 2;
    const std::string threads = fast ? "0-1" : std::to_string(number);
    WriteProcessor(tree, number, 0, fast ? 0 : number + 6, threads,
                   {{"1", "Data", "48K", threads},
                    {"1", "Instruction", "32K", threads},
                    {"2", "Unified", fast ? "1280K" : "2048K", fast ? "0-1" : "2-5"},
                    {"3", "Unified", "12M", "0-5"}});
  }
  const ProcessorTopology topology = Read(tree);
  EXPECT_EQ(topology.name, "Contoso Fast(TM) CPU @ 3.0GHz");
  EXPECT_EQ(topology.address_width, 64u);
  EXPECT_EQ(topology.logical_processors, 6u);
  EXPECT_EQ(topology.cores, 5u);
  ExpectCaches(topology.l2, 1280 + 2048, 2);
  ExpectCaches(topology.l3, 12288, 1);
}

TEST(CpuTopology, TellsTheCoresOfTwoSocketsApartAndCountsOnlyWhatIsOnline) {
  const RecordedTree tree{{"/sys/devices/system/cpu/online", "0-1,4-5\n"},
                          {"/sys/devices/system/cpu/cpu2/online", "0\n"},
                          {"/sys/devices/system/cpu/cpu3/online", "0\n"}};
  for (const int number : {0, 1, 4, 5}) {
    WriteProcessor(tree, number, number / 4, number % 2, "", {{"3", "Unified", "32M", number < 2 ? "0-1" : "4-5"}});
  }
  for (const bool listed : {true, false}) {
    if (!listed) tree.Remove("/sys/devices/system/cpu/online");  // The processors' own files tell it as well.
    const ProcessorTopology topology = Read(tree);
    EXPECT_EQ(topology.logical_processors, 4u);
    EXPECT_EQ(topology.cores, 4u) << "core numbers repeat in each package";
    ExpectCaches(topology.l3, 65536, 2);
    EXPECT_EQ(topology.address_width, 0u) << "nothing tells the flags";
  }
}

TEST(CpuTopology, FallsBackToWhatIsKnown) {
  const RecordedTree tree{{"/proc/cpuinfo", kCpuinfo}};
  EXPECT_EQ(Read(tree).logical_processors, 3u);
  EXPECT_EQ(Read(tree).cores, 3u);
  ExpectCaches(Read(tree).l2, 0, 0);

  tree.Write("/proc/cpuinfo", "processor : 0\nBogoMIPS : 50.00\nFeatures : fp\nCPU architecture: 8\n");  // A small VM.
  EXPECT_EQ(Read(tree).logical_processors, 1u);
  EXPECT_EQ(Read(tree).cores, 1u);
  EXPECT_EQ(Read(tree).address_width, 64u);
  EXPECT_EQ(Read(tree).name, "");

  tree.Remove("/proc/cpuinfo");
  EXPECT_EQ(ReadTopology(Sysroot(tree.root())).error, ENOENT);
}

TEST(CpuTopology, CountsACoreOnceWhateverIsMissing) {
  const std::string cpu = "/sys/devices/system/cpu/cpu";
  const auto every = [&](const std::string& file, const std::vector<std::string>& texts) {
    std::map<std::string, std::string> files;
    for (std::size_t number = 0; number < texts.size(); ++number) {
      if (!texts[number].empty()) files[cpu + std::to_string(number) + file] = texts[number] + "\n";
    }
    return files;
  };
  std::map<std::string, std::string> masks = every("/topology/thread_siblings", {"3", "3", "c", "0000000c"});
  masks.merge(every("/cache/index0/level", {"3", "3", "3", "3"}));
  masks.merge(every("/cache/index0/size", {"8M", "8M", "8M", "8M"}));
  masks.merge(every("/cache/index0/shared_cpu_map", {"3", "3", "00000000,0000000c", "c"}));
  std::map<std::string, std::string> sockets = every("/topology/core_id", {"0", "1", "0", "1"});
  sockets["/proc/cpuinfo"] =
      "processor : 0\nphysical id : 0\n\nprocessor : 1\nphysical id : 0\n\n"
      "processor : 2\nphysical id : 1\n\nprocessor : 3\nphysical id : 1\n";
  struct Row {
    const char* what;
    std::map<std::string, std::string> files;
    std::uint32_t cores;
    std::uint32_t l3_caches;
  };
  for (const Row& row : {
           Row{"nothing is known of any", {}, 4, 0},
           Row{"two are known from their siblings alone", every("/topology/core_cpus_list", {"", "0-1", "2-3"}), 2, 0},
           Row{"the package is known from cpuinfo alone", sockets, 4, 0},
           Row{"there are masks, and no lists", masks, 2, 2},
       }) {
    SCOPED_TRACE(row.what);
    const RecordedTree tree{{"/sys/devices/system/cpu/online", "0-3\n"}};
    for (const auto& [file, text] : row.files)
      tree.Write(file, text);
    EXPECT_EQ(Read(tree).cores, row.cores);
    ExpectCaches(Read(tree).l3, row.l3_caches * 8192, row.l3_caches);
  }
}

TEST(CpuTopology, IgnoresCachesThatMakeNoSense) {
  const RecordedTree tree{{"/sys/devices/system/cpu/online", "0\n"}};
  WriteProcessor(tree, 0, 0, 0, "7",
                 {{"2", "Instruction", "64K", "0"},
                  {"2", "Unified", "lots", "0"},
                  {"3", "Unified", "8M", "all"},
                  {"3", "Unified", "8M", "5"},
                  {"4", "Unified", "64M", "0"}});
  const ProcessorTopology topology = Read(tree);
  EXPECT_EQ(topology.cores, 1u) << "a list without the processor itself is not believed";
  ExpectCaches(topology.l2, 0, 1);
  ExpectCaches(topology.l3, 0, 0);
}

TEST(CpuText, ParsesListsAndMasksOfProcessors) {
  using List = std::vector<std::uint32_t>;
  EXPECT_EQ(ParseProcessorList("0-2,8,1,10-11\n"), (List{0, 1, 2, 8, 10, 11}));
  for (const char* const text : {"", "3-1", "0-", "-1", "a", "0,,1", "0-4294967295", "65536", "0-65535,0-65535"})
    EXPECT_EQ(ParseProcessorList(text), List{}) << text;
  EXPECT_EQ(ParseProcessorMask("1,00000000,8000000F\n"), (List{0, 1, 2, 3, 31, 64}));
  for (const char* const text : {"", "0", "g", "1,2", "100000001", "0x3", "-1", "1,"})
    EXPECT_EQ(ParseProcessorMask(text), List{}) << text;
  std::string highest = "80000000";  // Bit 65535 when it is the first of 2048 groups.
  for (int group = 1; group < 2048; ++group)
    highest += ",00000000";
  EXPECT_EQ(ParseProcessorMask(highest), List{65535});
  EXPECT_EQ(ParseProcessorMask("1," + highest), List{});
}

TEST(CpuText, ReadsTheAddressWidth) {
  EXPECT_EQ(DecodeCpuinfo("flags : fpu almost lmx\n").address_width, 32u);
  EXPECT_EQ(DecodeCpuinfo("CPU architecture: 7\nProcessor : ARMv7 rev 4\n").address_width, 32u);
  EXPECT_EQ(DecodeCpuinfo("CPU architecture: 7\nProcessor : ARMv7 rev 4\n").name, "ARMv7 rev 4");
}

}  // namespace
}  // namespace platform
