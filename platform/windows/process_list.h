// The processes of this machine by the names of their programs.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace platform::windows {

/// The ids of the processes that run a program of this file name, whatever its case and folder; none when the system
/// does not list its processes. Any thread.
std::vector<std::uint32_t> ProcessesOf(std::wstring_view program);

}  // namespace platform::windows
