// A thread for which there is no memory. Programs that link this have operator new and delete of its own.
#pragma once

#include <cstddef>

/// From now on the calling thread is given memory by operator new `granted` times; the `refused` times behind them it
/// throws std::bad_alloc.
void BeginMemoryShortage(std::size_t granted, std::size_t refused);

/// Ends that; whether anything was refused.
bool EndMemoryShortage();
