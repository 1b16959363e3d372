#include "platform/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

#include "platform/append_file.h"
#include "platform/hash.h"
#include "platform/linux/unique_fd.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

unsigned ModeOf(const fs::path& path) {
  return static_cast<unsigned>(fs::status(path).permissions());
}

TEST(Files, APrivateFolderIsForItsAccountAndKeepsWhatItHas) {
  const TempFolder temp;
  const fs::path folder = temp.path() / "a" / "b";
  const mode_t mask = ::umask(077);
  EXPECT_EQ(MakePrivateFolder(folder), "");
  ::umask(mask);
  EXPECT_EQ(ModeOf(folder), 0750u);
  fs::permissions(folder, fs::perms(0700));
  EXPECT_EQ(MakePrivateFolder(folder), "");
  EXPECT_EQ(ModeOf(folder), 0700u);

  fs::permissions(temp.path(), fs::perms(0755));
  fs::permissions(folder.parent_path(), fs::perms(0755));
  fs::permissions(folder, fs::perms(0555));
  const uid_t own = ::getuid();
  // The administrator may write everywhere; what may be done is asked for the real account.
  const uid_t asked = own == 0 ? 65534 : own;
  ASSERT_EQ(::setreuid(asked, ::geteuid()), 0);
  EXPECT_EQ(MakePrivateFolder(folder), "cannot write in the folder " + folder.string() + ": Permission denied");
  ASSERT_EQ(::setreuid(own, ::geteuid()), 0);

  std::ofstream(temp.path() / "file") << "x";
  EXPECT_NE(MakePrivateFolder(temp.path() / "file").find("file"), std::string::npos);
  EXPECT_NE(MakePrivateFolder(temp.path() / "file" / "below"), "");
}

TEST(Files, AFolderThatIsTooOpenIsClosedWhereItIsOursAlone) {
  const TempFolder temp;
  const fs::path folder = temp.path() / "data";
  fs::create_directory(folder);
  std::ofstream(folder / "ours") << "x";
  const auto is_ours = [](const std::string& name) { return name == "ours"; };
  struct Row {
    unsigned mode;
    bool closed_by_us;
  };
  for (const Row& row : {Row{0750, false}, Row{0700, false}, Row{0755, true}, Row{0770, true}, Row{01777, false}}) {
    ASSERT_EQ(::chmod(folder.c_str(), row.mode), 0);
    const std::string remark = CloseFolder(folder, is_ours);
    EXPECT_EQ(remark.ends_with("it is closed now"), row.closed_by_us) << remark;
    EXPECT_EQ(ModeOf(folder), row.closed_by_us ? 0750u : row.mode);
  }
  std::ofstream(folder / "theirs") << "x";
  fs::permissions(folder, fs::perms(0777));
  EXPECT_NE(WarnOfWriters(folder), "");
  fs::permissions(folder, fs::perms(0775));
  EXPECT_EQ(WarnOfWriters(folder), "");
  fs::permissions(folder, fs::perms(0755));
  EXPECT_NE(CloseFolder(folder, is_ours).find("(mode 0755); it stays so"), std::string::npos);
  EXPECT_EQ(ModeOf(folder), 0755u);
}

TEST(Files, WhatAnotherAccountPlantedIsFound) {
  const TempFolder temp;
  const auto is_ours = [](const std::string& name) { return name != "theirs"; };
  std::ofstream(temp.path() / "ours") << "x";
  std::ofstream(temp.path() / "theirs") << "x";
  fs::create_symlink("nowhere", temp.path() / "link");
  EXPECT_EQ(FindForeignFile(temp.path(), is_ours), fs::path());
  EXPECT_EQ(FindForeignFile(temp.path() / "none", is_ours), fs::path());
  if (::geteuid() != 0) return;  // only the administrator can give files away
  const auto give = [&](const char* name, uid_t account) {
    ASSERT_EQ(::lchown((temp.path() / name).c_str(), account, account), 0);
  };
  give("theirs", 65534);
  EXPECT_EQ(FindForeignFile(temp.path(), is_ours), fs::path());
  for (const char* const name : {"ours", "link"}) {
    give(name, 65534);
    EXPECT_EQ(FindForeignFile(temp.path(), is_ours), temp.path() / name);
    give("", 65534);
    EXPECT_EQ(FindForeignFile(temp.path(), is_ours), fs::path()) << "the folder's owner may do so anyway";
    give("", 0);
    give(name, 0);
  }
}

TEST(Files, ReadsUpToALimit) {
  const TempFolder temp;
  const fs::path file = temp.path() / "f";
  const std::string content(20000, 'x');
  std::ofstream(file) << content;
  EXPECT_EQ(ReadWholeFile(file, content.size()), content);

  const fs::path pipe = temp.path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  struct Row {
    fs::path file;
    FileFault fault;
    std::string text;
  };
  for (const Row& row : {
           Row{file, FileFault::kUnsuitable, file.string() + " is longer than 19999 bytes"},
           Row{temp.path(), FileFault::kUnsuitable, "Is a directory"},
           Row{temp.path() / "none", FileFault::kAbsent, "none: No such file"},
           Row{file / "below", FileFault::kAbsent, "Not a directory"},
           Row{"/proc/self/mem", FileFault::kUnreadable, "Input/output error"},
           // What would make the reader wait, or read for ever.
           Row{pipe, FileFault::kUnsuitable, pipe.string() + " is a pipe, a socket or a missing device, no file"},
           Row{"/dev/zero", FileFault::kUnsuitable, "/dev/zero is longer than 19999 bytes"},
       }) {
    FileProblem problem;
    EXPECT_FALSE(ReadWholeFile(row.file, content.size() - 1, &problem)) << row.file;
    EXPECT_EQ(problem.fault, row.fault) << row.file;
    EXPECT_NE(problem.text.find(row.text), std::string::npos) << problem.text;
  }
}

TEST(Files, ReplacesAFileAndLeavesNothingBeside) {
  const TempFolder temp;
  const fs::path file = temp.path() / "policy.json";
  EXPECT_EQ(ReplaceFile(file, "old"), "");
  EXPECT_EQ(ModeOf(file), 0640u);
  fs::permissions(file, fs::perms(0604));
  EXPECT_EQ(ReplaceFile(file, std::string("new\0er", 6)), "");
  EXPECT_EQ(ReadWholeFile(file, 100), std::string("new\0er", 6));
  EXPECT_EQ(ModeOf(file), 0604u) << "permissions are kept";
  EXPECT_EQ(ReplaceFile(file, "private", FileAccess::kPrivate), "");
  EXPECT_EQ(ModeOf(file), 0600u);

  // What a kill leaves of one that was being written, and two files that only look like it.
  for (const char* const name : {".policy.json.a1B2c3", ".policy.json.backup1", ".policy.jsonx.a1B2c3"})
    std::ofstream(temp.path() / name) << "x";
  {
    const fs::path held = temp.path() / ".policy.json.d4E5f6";
    const UniqueFd writer(::open(held.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(writer.get(), LOCK_EX), 0);
    RemoveLeftovers(file);
    EXPECT_TRUE(fs::remove(held)) << "somebody writes it";
  }
  EXPECT_FALSE(exists(temp.path() / ".policy.json.a1B2c3"));
  EXPECT_EQ(fs::remove(temp.path() / ".policy.json.backup1") + fs::remove(temp.path() / ".policy.jsonx.a1B2c3"), 2);

  EXPECT_NE(ReplaceFile(temp.path() / "none" / "f", "x"), "");
  fs::create_directory(temp.path() / "folder");
  std::ofstream(temp.path() / "folder" / "keep") << "x";
  EXPECT_NE(ReplaceFile(temp.path() / "folder", "x").find("folder"), std::string::npos);
  EXPECT_EQ(std::distance(fs::directory_iterator(temp.path()), {}), 2) << "no temporary file stays";
}

TEST(AppendFile, TakesALineAsAWholeOrNotAtAll) {
  const TempFolder temp;
  const fs::path file = temp.path() / "x.log";
  std::string problem;
  const auto log = AppendFile::Open(file, problem);
  ASSERT_NE(log, nullptr) << problem;
  EXPECT_EQ(log->Append(std::string(990, 'x') + "\n"), "");
  // Of a longer line the system takes 9 bytes and refuses the rest.
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{.rlim_cur = 1000, .rlim_max = before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(log->Append("a longer line\n"), "File too large");
  EXPECT_EQ(log->Size(), 991u);
  EXPECT_EQ(log->Append("a line\n"), "");
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(ReadWholeFile(file, 2000), std::string(990, 'x') + "\na line\n");
}

TEST(Hash, GivesSha256) {
  const Sha256Digest digest = Sha256("abc");  // FIPS 180-4, example.
  EXPECT_EQ(digest.front(), 0xBA);
  EXPECT_EQ(digest[1], 0x78);
  EXPECT_EQ(digest.back(), 0xAD);
}

TEST(Hash, RandomBytesDiffer) {
  std::array<std::uint8_t, 400> a{};
  std::array<std::uint8_t, 400> b{};
  FillRandom(a);
  FillRandom(b);
  EXPECT_NE(a, b);
}

}  // namespace
}  // namespace platform
