#include "apps/service/console_output.h"

#include <gtest/gtest.h>

#include "platform/local.h"

namespace {

TEST(ConsoleOutputTest, WhatTheTerminalDoesNotTakeIsCountedAndTheRestKeepsItsOrder) {
  const auto runtime = platform::MakeRealRuntime({});
  const auto flows = runtime->MakeEvent(platform::EventReset::kManual);
  std::string seen;
  ConsoleOutput output([&](std::FILE* stream, const std::string& text) {
    runtime->Wait(*flows, platform::kForever);
    seen += (stream == stdout ? "out " : "error ") + text.substr(0, text.find('\n')) + ";";
  });
  const auto block = [](const std::string& begin) {
    return begin + "\n" + std::string(ConsoleOutput::kMostBytes, 'x');
  };
  output.Show("first\n");
  output.Complain("second");
  output.Show("");
  output.Show(block("third"));  // the last one that finds room, whether the first is waiting or being written
  output.Show("two\nlines\n");
  output.Complain("and a third");
  flows->Set();
  EXPECT_TRUE(output.Finish());
  EXPECT_EQ(seen, "out first;error second;out third;error (3 lines are missing here: the output was not taken);");
}

TEST(ConsoleOutputTest, EndsInTheMiddleOfATextThatIsNotTaken) {
  // What the stuck text uses belongs to the sink.
  struct Terminal {
    const std::unique_ptr<platform::Runtime> runtime = platform::MakeRealRuntime({});
    const std::unique_ptr<platform::Event> flows = runtime->MakeEvent(platform::EventReset::kManual);
    const std::unique_ptr<platform::Event> done = runtime->MakeEvent(platform::EventReset::kManual);
  };
  const auto terminal = std::make_shared<Terminal>();
  {
    ConsoleOutput output([terminal](std::FILE*, const std::string& text) {
      terminal->runtime->Wait(*terminal->flows, platform::kForever);
      if (text == "last\n") terminal->done->Set();
    });
    output.Show("stuck\n");
    output.Show("last\n");
    EXPECT_FALSE(output.Finish());
  }
  terminal->flows->Set();
  EXPECT_EQ(terminal->runtime->Wait(*terminal->done, std::chrono::seconds(20)), 0u) << "it goes on without the object";
}

TEST(ConsoleOutputTest, AnExceptionDoesNotHoldUpTheEnd) {
  ConsoleOutput output([](std::FILE*, const std::string&) { throw std::runtime_error("no terminal"); });
  output.Show("lost\n");
  EXPECT_TRUE(output.Finish());
}

}  // namespace
