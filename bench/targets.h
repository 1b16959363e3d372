// The lines that set a figure beside its target; bench/idle prints the same.
#pragma once

#include <vector>

/// The middle one of `values`, which must not be empty.
double Median(std::vector<double> values);

/// Prints the figure, its target and whether it is met. `relation`: "<" or ">=".
void PrintTarget(const char* what, double value, const char* relation, double target);

/// Prints a figure that has no target.
void PrintFigure(const char* what, double value);

/// Whether every target that was printed so far was met.
bool AllTargetsMet();

/// Ends the program with a message when `ok` is false: a figure of work that failed would mean nothing.
void Check(bool ok, const char* what);
