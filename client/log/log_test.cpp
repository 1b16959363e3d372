#include "client/log/log.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "client/log/loss_counting_sink.h"
#include "client/log/rotating_file.h"
#include "testing/temp_folder.h"

using TVK::Log;

namespace {

std::string Content(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

class FileLogTest : public testing::Test {
 protected:
  FileLogTest() { TVK::SetLogBackend(TVK::MakeFileLogBackend(folder_.path())); }
  ~FileLogTest() override { TVK::SetLogBackend(nullptr); }
  TempFolder folder_;
};

}  // namespace

TEST_F(FileLogTest, LevelArgumentDecidesWhatIsWritten) {
  struct Row {
    int level;
    bool error, info, debug;
  };
  for (const Row& row :
       {Row{0, false, false, false}, Row{1, true, false, false}, Row{3, true, true, false}, Row{4, true, true, true}}) {
    Log log;
    const std::wstring name = L"level" + std::to_wstring(row.level) + L".log";
    ASSERT_TRUE(TVK::utility::InitLog(log, name, row.level));
    log.e(L"an error");
    log.i(L"a word");
    log.d(L"Größe %d", 7);
    const std::string text = Content(folder_.path() / ("level" + std::to_string(row.level) + ".log"));
    EXPECT_EQ(text.find("an error") != std::string::npos, row.error) << row.level;
    EXPECT_EQ(text.find("a word") != std::string::npos, row.info) << row.level;
    EXPECT_EQ(text.find("Größe 7") != std::string::npos, row.debug) << row.level;
  }
}

TEST_F(FileLogTest, FileRotatesAtFiveMebibytesAndFourOlderOnesAreKept) {
  Log log;
  ASSERT_TRUE(TVK::utility::InitLog(log, L"big.log", 4));
  const std::wstring line(100'000, L'x');
  for (int i = 0; i < 320; ++i)
    log.d(L"%s", line);
  std::uintmax_t bytes = 0;
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
    EXPECT_LE(entry.file_size(), (5u << 20) + 200'000) << entry.path();
    bytes += entry.file_size();
    ++files;
  }
  EXPECT_EQ(files, 5);
  EXPECT_GT(bytes, 4u * (5u << 20));
}

TEST_F(FileLogTest, OlderFilesMoveOnByOneNumber) {
  {
    TVK::RotatingFile file(folder_.path() / "small.log", 10, 2);
    for (const char* const line : {"one\n", "two\n", "three\n", "four\n", "longer than the limit\n", "six\n"})
      file.Write(line);
  }
  TVK::RotatingFile(folder_.path() / "small.log", 10, 2).Write("7\n");
  EXPECT_EQ(Content(folder_.path() / "small.log"), "six\n7\n");
  EXPECT_EQ(Content(folder_.path() / "small.1.log"), "longer than the limit\n");
  EXPECT_EQ(Content(folder_.path() / "small.2.log"), "four\n");
  EXPECT_FALSE(exists(folder_.path() / "small.3.log"));
}

TEST(LogTest, LinesThatAreRefusedAreCountedAndErrorsTakeTheWayOut) {
  bool full = false;
  std::vector<std::string> written;
  std::vector<std::string> way_out;
  TVK::LossCountingSink sink(
      [&](TVK::LogSeverity, const std::string& line) {
        if (full) throw std::runtime_error("the disk is full");
        written.push_back(line);
      },
      [&](const std::string& line) { way_out.push_back(line); });
  sink.Write(TVK::LogSeverity::kInfo, L"before");
  full = true;
  sink.Write(TVK::LogSeverity::kInfo, L"a word");
  sink.Write(TVK::LogSeverity::kError, L"an error");
  full = false;
  sink.Write(TVK::LogSeverity::kInfo, L"after");
  sink.Write(TVK::LogSeverity::kInfo, L"later");
  EXPECT_EQ(written,
            (std::vector<std::string>{"before", "2 lines before this one could not be written", "after", "later"}));
  EXPECT_EQ(way_out, std::vector<std::string>{"an error"});
}
