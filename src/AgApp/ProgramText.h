#pragma once
/// Reading the constants that people and tools look for in the finished program file.

#include <array>
#include <cstddef>
#include <cstring>
#include <string>

namespace AgApp {

/// The text of a constant, up to its zero. Any thread; returns at once.
///
/// The constant must stand in the file once and whole. `gnu::used` keeps the compiler from leaving it out, a section of
/// its own the linker from merging it with other texts, and `volatile` the compiler from copying it in pieces and debug
/// information from repeating it. `volatile` also makes the program read what the file holds when it runs, not what the
/// compiler saw.
template <std::size_t size>
std::string textInProgram(const volatile char (&constant)[size]) {
    std::array<char, size> local{};
    for (std::size_t i = 0; i < size; ++i) local[i] = constant[i];
    return {local.data(), strnlen(local.data(), size)};
}

}  // namespace AgApp
