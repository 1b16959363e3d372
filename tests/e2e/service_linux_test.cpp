// How the service lives under a service manager of this system: signals and sd_notify.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "platform/files.h"
#include "testing/recorded_tree.h"
#include "tests/e2e/service_surroundings_linux.h"
#include "tests/e2e/service_under_test.h"

// A sanitiser has memory and threads of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TVK_SANITIZED
#endif

namespace {

/// Without --console, as the service manager starts it.
class Daemon : public ChildProcess {
 public:
  explicit Daemon(const ServiceFolder& folder) : ChildProcess(ProgramBeside("TVKClientService"), folder.Arguments()) {}
};

constexpr std::chrono::seconds kStopLimit(20);

TEST(Daemon, TellsItsManagerWhatItDoesAndReadsThePolicyAgainWhenToldTo) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const TempFolder socket_folder;
  NotifySocket socket(socket_folder.path() / "notify");
  Daemon service(folder);
  ASSERT_TRUE(service.WaitFor([&] { return socket.Got("READY=1\n"); }, kPatience));
  ASSERT_TRUE(service.WaitFor(
      [&] { return folder.CountInLog("CpuEventMonitor.log", "ReadAndUpdateDatasetSettings: delay") == 1; }, kPatience));
  const auto count = [&] { return folder.CountInLog("ConfigPolicyAgent.log", "LoadTelemetryPolicy: accepted = 1"); };
  const std::size_t before = count();
  service.Ask(ChildRequest::kReload);
  EXPECT_TRUE(service.WaitFor([&] { return count() > before; }, kPatience));
  EXPECT_FALSE(socket.Got("STOPPING=1")) << "being told to read again is no wish to end";
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
  EXPECT_TRUE(socket.Got("STOPPING=1\n"));
  EXPECT_TRUE(service.Lines().empty()) << "only a console shows records";
}

TEST(Daemon, EndsInTimeWhenAskedRightAfterItsStart) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  for (const ChildRequest request : {ChildRequest::kTerminate, ChildRequest::kInterrupt}) {
    Daemon service(folder);
    ASSERT_TRUE(service.WaitFor([&] { return exists(folder.data() / "log" / "EventManager.log"); }, kPatience));
    service.Ask(request);
    EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
    std::filesystem::remove_all(folder.data());
  }
}

TEST(Daemon, TellsTheSystemsLogOnceWhatIsWrongWithThePolicy) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  // Standard error as systemd hands it to the journal.
  const std::filesystem::path journal = folder.policy().parent_path() / "journal";
  std::vector<std::string> words = {"-c", R"(exec 2>"$0"; export JOURNAL_STREAM=$(stat -c %d:%i "$0"); exec "$@")",
                                    journal.string(), ProgramBeside("TVKClientService")};
  for (const std::string& argument : folder.Arguments())
    words.push_back(argument);
  ChildProcess service("/bin/sh", words);
  ASSERT_TRUE(
      service.WaitFor([&] { return folder.CountInLog("ConfigPolicyAgent.log", "accepted = 1") > 0; }, kPatience));
  folder.WritePolicy("{");
  const auto told = [&] { return platform::ReadWholeFile(journal, 4096).value_or(""); };
  const std::string last = "policy.json: cannot be used; the policy before it stays in force\n";
  ASSERT_TRUE(service.WaitFor([&] { return told().ends_with(last); }, kPatience));
  EXPECT_TRUE(told().starts_with("<3>" + folder.policy().string() + ": line 1")) << told();
  const std::string lines = told();
  EXPECT_EQ(std::ranges::count(lines, '\n'), 2) << lines;
  folder.WritePolicy(CpuPolicy("none"));
  const std::string news = "<5>" + folder.policy().string() + ": is in force now\n";
  EXPECT_TRUE(service.WaitFor([&] { return told() == lines + news; }, kPatience)) << told();
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
}

TEST(Service, FollowsThePolicyAndEndsInTimeWhenNobodyTakesItsOutput) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const std::filesystem::path pipe = folder.policy().parent_path() / "output";
  const FullPipe full(pipe);
  std::vector<std::string> words = {"-c", R"(exec "$0" --console "$@" >)" + pipe.string(),
                                    ProgramBeside("TVKClientService")};
  for (const std::string& argument : folder.Arguments())
    words.push_back(argument);
  ChildProcess service("/bin/sh", words);
  const auto logged = [&](const char* text) {
    return service.WaitFor([&] { return folder.CountInLog("EventManager.log", text) == 1; }, kPatience);
  };
  ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry"));
  folder.WritePolicy(CpuPolicy("none"));
  EXPECT_TRUE(logged("StopAndRemoveFromList"));
  EXPECT_EQ(folder.CountInLog("EventManager.log", "SetEvent"), 0u) << "no user agent is there to be told";
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
}

TEST(Service, WhatAnotherAccountPlantedIsNotTakenForItsOwn) {
  if (::geteuid() != 0) return;  // only the administrator can give files away
  const ServiceFolder folder;
  folder.WritePolicy("{");
  std::filesystem::create_directories(folder.data());
  const std::filesystem::path copy = folder.data() / "policy.last-good.json";
  std::ofstream(copy) << CpuPolicy("full");
  ASSERT_EQ(::chown(copy.c_str(), 65534, 65534), 0);
  ConsoleService service(folder);
  EXPECT_EQ(service.WaitForEnd(kPatience), 2);
  EXPECT_EQ(CountLines(service.Lines(), "policy.last-good.json was made by another account"), 1u);
  EXPECT_FALSE(std::filesystem::exists(folder.data() / "records.db"));
}

TEST(Service, ItsFilesArePrivateWhateverItFinds) {
  namespace fs = std::filesystem;
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const fs::path log = folder.data() / "log";
  const fs::path outside = folder.policy().parent_path() / "outside";
  fs::create_directories(log);
  std::ofstream(outside) << "theirs";
  std::ofstream(log / "EventManager.log") << "";
  const fs::path leftover = folder.policy().parent_path() / ".policy.json.a1B2c3";
  std::ofstream(leftover) << "{";
  fs::create_symlink(outside, log / "ConfigPolicyAgent.log");
  ASSERT_EQ(::mkfifo((log / "PolicyWatch.log").c_str(), 0666), 0);
  for (const fs::path& open : {folder.data(), log, outside, log / "EventManager.log"})
    fs::permissions(open, fs::perms::all);
  const mode_t mask = ::umask(0);
  ConsoleService service(folder);
  ::umask(mask);
  ASSERT_TRUE(service.WaitForLine("DeviceInit", kPatience));
  EXPECT_EQ(CountLines(service.Lines(), "was open to other accounts (mode 0777); it is closed now"), 2u);
  EXPECT_EQ(CountLines(service.Lines(), "ConfigPolicyAgent.log: it is a symbolic link"), 1u);
  std::size_t files = 0;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder.data())) {
    if (entry.is_symlink()) continue;
    if (entry.is_fifo() && entry.path().parent_path() != log) {
      EXPECT_EQ(entry.status().permissions() & fs::perms(0077), fs::perms()) << entry.path();
    }
    if (!entry.is_regular_file()) continue;
    ++files;
    EXPECT_EQ(entry.status().permissions(), fs::perms(0600)) << entry.path();
  }
  EXPECT_GE(files, 7u) << "the store with what stands beside it, the copy of the policy, the logs";
  EXPECT_EQ(fs::file_size(outside), 6u);
  EXPECT_FALSE(exists(leftover)) << "what a kill left of a policy that was being written";
}

/// The service as `surroundings`, a shell's text in which "$@" is its command line and "$data" its folder, starts it.
/// Any account may read it and what it needs: some limits do not count for the administrator.
struct ConfinedService {
  explicit ConfinedService(const std::string& surroundings) {
    namespace fs = std::filesystem;
    folder.WritePolicy(CpuPolicy("full"));
    fs::create_directory(folder.data());
    const fs::path home = folder.policy().parent_path();
    for (const char* const name : {"TVKClientService", "libtvkeventmanager.so.0"})
      fs::copy_file(ProgramBeside(name), home / name);
    for (const fs::path& path : {home, folder.data(), folder.policy()})
      fs::permissions(path, fs::perms(0755) | fs::perms::others_write);
    std::vector<std::string> words = {"-c", "data=$0; " + surroundings, folder.data().string(),
                                      (home / "TVKClientService").string(), "--console"};
    for (const std::string& argument : folder.Arguments({"--for", "1s"}))
      words.push_back(argument);
    service.emplace("/bin/sh", words);
  }

  const ServiceFolder folder;
  std::optional<ChildProcess> service;
};

TEST(Service, SaysWhatIsMissingWhenTheSystemGivesTooLittle) {
  struct Row {
    std::string surroundings;
    std::string named;
  };
  std::vector<Row> rows = {
      {R"(ulimit -f 1; exec "$@")", "cannot be opened: disk I/O error: File too large"},
      {R"(ulimit -f 20; exec "$@")", "cannot be opened: disk I/O error: File too large"},
#ifndef __SANITIZE_ADDRESS__
      // The sanitiser that comes with it looks a class up through a pipe, for which it has no descriptor then.
      {R"(ulimit -n 5; exec "$@")", "Too many open files"},
      {R"(ulimit -n 12; exec "$@")", "Too many open files"},
#endif
#ifndef TVK_SANITIZED
      {R"(ulimit -s 8192; ulimit -v 40000; exec "$@")", "no thread"},
#endif
  };
  // Where containers may not mount, the limit of files stands for it.
  if (std::system("unshare -rm mount -t tmpfs none /mnt 2>/dev/null") == 0) {
    const std::string disk =
        R"(exec unshare -rm sh -c 'mount -t tmpfs -o size=SIZE none "$0" && exec "$@"' "$data" "$@")";
    const std::size_t size = disk.find("SIZE");
    rows.push_back({std::string(disk).replace(size, 4, "4k"), "cannot be opened: database or disk is full"});
    rows.push_back({std::string(disk).replace(size, 4, "16k"), "cannot be opened: disk I/O error: No space left"});
  }
  for (const Row& row : rows) {
    SCOPED_TRACE(row.surroundings);
    ConfinedService confined(row.surroundings);
    EXPECT_EQ(confined.service->WaitForEnd(kPatience), 3);
    const auto says_so = [&](const std::string& line) {
      return line.starts_with("TVKClientService: ") && line.find(row.named) != line.npos;
    };
    EXPECT_TRUE(std::ranges::any_of(confined.service->Lines(), says_so)) << row.named;
  }
}

#ifndef TVK_SANITIZED
/// Of a user that has no other process: the administrator's processes are not counted.
std::string WithThreads(int count) {
  const std::string limit = "prlimit --nproc=" + std::to_string(count) + ' ';
  return "exec " + (::geteuid() == 0 ? "setpriv --reuid=61357 --regid=61357 --clear-groups " + limit : limit) +
         R"("$@")";
}

TEST(Service, SaysSoWhereTheSystemGivesTooFewThreads) {
  // Of another user the test's own processes count, too: no thread is too few for any service then.
  const bool counted_alone = ::geteuid() == 0;
  const int most = counted_alone ? 20 : 2;
  int threads = 1;
  for (; threads < most; ++threads) {
    SCOPED_TRACE(threads);
    ConfinedService confined(WithThreads(threads));
    const std::optional<int> code = confined.service->WaitForEnd(kPatience);
    if (code == 0) break;
    EXPECT_EQ(code, 3);
    EXPECT_GE(CountLines(confined.service->Lines(), "Resource temporarily unavailable"), 1u);
  }
  if (!counted_alone) return;
  EXPECT_GE(threads, 8) << "less than what the service cannot do without";
  EXPECT_LT(threads, most);
}
#endif

TEST(Service, RegionThatChangesGivesOneNewDeviceContext) {
  const ServiceFolder folder;
  folder.WritePolicy(CpuPolicy("full"));
  const platform::RecordedTree tree{{"/etc/default/locale", "LANG=de_DE.UTF-8\n"},
                                    {"/proc/stat", "cpu 1 0 0 9\n"},
                                    {"/proc/cpuinfo", "processor : 0\nmodel name : Recorded\n"},
                                    {"/sys/devices/system/cpu/online", "0\n"}};
  ConsoleService service(folder, {"--sysroot", tree.root().string()});
  const auto logged = [&](const std::string& text) {
    return service.WaitFor([&] { return folder.CountInLog("EventManager.log", text) == 1; }, kPatience);
  };
  ASSERT_TRUE(service.WaitForLine(CpuLine("DeviceInit"), kPatience));
  ASSERT_TRUE(logged("EventManager::NotificationProcessorThread Entry")) << "the first context is there by then";
  tree.Write("/etc/default/locale", "LANG=de_AT.UTF-8\n");
  ASSERT_TRUE(logged("EventManager::OnDeviceContextChanges Exit")) << "the monitors hear of the second one";
  service.Ask(ChildRequest::kTerminate);
  EXPECT_EQ(service.WaitForEnd(kStopLimit), 0);
  ExpectOneNewDeviceContext(folder, L"DE", L"AT");
}

}  // namespace
