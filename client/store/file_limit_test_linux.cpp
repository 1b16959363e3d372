// The store in a process whose files the system keeps short.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "client/store/store_test_records.h"

namespace TVK {
namespace {

class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  FileLimit(const FileLimit&) = delete;
  FileLimit& operator=(const FileLimit&) = delete;

 private:
  rlimit before_{};
  const sighandler_t handler_;
};

TEST_F(StoreTest, AFileThatMayNotGrowIsNamed) {
  {
    const FileLimit limit(1024);
    const EventDataLogging store(options(), clock());
    EXPECT_EQ(store.opening_problem(), "disk I/O error: File too large");
  }
  EventDataLogging store(options(), clock());
  const ItemEvent long_item = MakeItem(kCpu, L"I1", std::wstring(50'000, L'x'));
  EXPECT_EQ(store.LogItemEvent(long_item), 0);
  {
    const FileLimit limit(80'000);
    EXPECT_NE(store.LogItemEvent(long_item), 0);
    EXPECT_EQ(log_.Count(L"is lost, error 10 (disk I/O error: File too large)"), 1u);
  }
  EXPECT_EQ(store.LogItemEvent(long_item), 0);
}

}  // namespace
}  // namespace TVK
