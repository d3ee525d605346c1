#pragma once
/// Lines for standard error, from threads with small stacks.

#include <cstdio>
#include <string>

/// Prints `line`, which ends with a newline, in one piece. In place of fprintf, which borrows 8 KB of the caller's
/// stack for the buffer that standard error does not have: half of what a thread of the kit has. Any thread.
inline void printErrorLine(const std::string& line) { std::fputs(line.c_str(), stderr); }
