// Benchmarks whose figure is the time of one iteration.
#pragma once

#include <map>
#include <string>

/// Of each benchmark.
inline constexpr int kRepetitions = 9;

/// Runs the program's benchmarks, which measure in microseconds, by its command line, and prints the heading of the
/// targets. The median of the repetitions in microseconds by name, of the processor's time (the thread's, the process's
/// with MeasureProcessCPUTime), or of the clock's for a benchmark with UseRealTime, and of its counters by
/// "NAME/COUNTER"; those that failed or were filtered out are absent. Ends the program when the command line is wrong.
std::map<std::string, double> RunTimed(int argc, char** argv);
