#include "apps/program_help.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

TEST(WrapHelp, BreaksLinesAtBlanksAndLosesNoWord) {
  const std::string text =
      "Says what there is to say of a machine, of its parts and of what they are made of.\n"
      "\n"
      "  --option VALUE              What it is for, in more words than a narrow terminal has room for in one line\n"
      "  --a-name-that-takes-all-of-the-line-and-more-than-a-narrow-terminal-has\n";
  for (const std::size_t width : {50, 60, 80, 200}) {
    const std::string wrapped = WrapHelp(text, width);
    std::istringstream lines(wrapped);
    for (std::string line; std::getline(lines, line);)
      EXPECT_TRUE(line.size() <= width || line.find("--a-name") == 2) << line;
    const auto words = [](const std::string& of) {
      std::istringstream in(of);
      return std::vector<std::string>(std::istream_iterator<std::string>(in), {});
    };
    EXPECT_EQ(words(wrapped), words(text));
    EXPECT_EQ(wrapped == text, width == 200);
    EXPECT_EQ(wrapped.find("\n" + std::string(30, ' ') + "than") != wrapped.npos, width == 60) << wrapped;
  }
}

}  // namespace
