#pragma once
/// Null as a C string: a bare `nullptr` would fit the functions' other forms, too.

inline constexpr const char* kNoPath = nullptr;
