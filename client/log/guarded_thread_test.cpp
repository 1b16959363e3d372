#include "client/log/guarded_thread.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace TVK {
namespace {

TEST(GuardedThreadTest, WhatABodyThrowsEndsInTheLogWithTheThreadAlone) {
  const LogCapture logs;
  platform::VirtualRuntime runtime;
  Log log;
  utility::InitLog(log, L"Guarded.log", 1);
  for (const std::function<void()>& body :
       {std::function<void()>([] { throw std::runtime_error("no luck"); }), std::function<void()>([] { throw 7; })}) {
    std::thread thread = StartGuardedThread(runtime, log, "tvk-test", body);
    runtime.Join(thread);
  }
  EXPECT_EQ(logs.Lines(),
            (std::vector<std::wstring>{L"tvk-test failed: no luck", L"tvk-test failed: unknown exception"}));
}

}  // namespace
}  // namespace TVK
