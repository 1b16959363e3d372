// Command lines as Windows passes them: one text, which the started program takes apart again.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform::windows {

/// `argument` in quotes, so that CommandLineToArgvW and the C library give it back as it is.
std::wstring Quoted(std::wstring_view argument);

/// A program and its arguments as one command line.
std::wstring CommandLine(std::wstring_view program, const std::vector<std::wstring>& arguments);

}  // namespace platform::windows
