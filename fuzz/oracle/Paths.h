#pragma once
/// What the path functions have to answer, computed the slow way.

#include <pwd.h>
#include <unistd.h>

#include <string>

#include "fuzz/oracle/Texts.h"

namespace fuzz {

inline std::string below(const std::string& a, const std::string& b) {
    if (b.empty()) return a;
    if (b[0] == '/') return b;
    if (a.empty() || a.size() == 2 || a[a.size() - 1] == '/') return a + b;
    return a + '/' + b;
}

/// Position of the last `letter`, -1 without one.
inline std::int64_t lastOf(const std::string& text, char letter) {
    std::int64_t last = -1;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == letter) last = static_cast<std::int64_t>(i);
    return last;
}

inline std::string fileName(const std::string& path, bool stripExtension) {
    const std::int64_t end = stripExtension ? lastOf(path, '.') - 1 : static_cast<std::int64_t>(path.size());
    return cut(path, lastOf(path, '/') + 1, end);
}

inline std::string directoryName(const std::string& path) {
    const std::int64_t separator = lastOf(path, '/');
    return separator < 0 ? std::string() : cut(path, 0, separator - 1);
}

inline std::string extension(const std::string& path) {
    const std::int64_t dot = lastOf(path, '.');
    return dot <= lastOf(path, '/') ? std::string() : path.substr(static_cast<std::size_t>(dot) + 1);
}

inline std::string normal(const std::string& path) {
    const passwd* const user = path.starts_with('~') ? getpwuid(getuid()) : nullptr;
    std::string result = user == nullptr ? std::string() : user->pw_dir;
    for (std::size_t i = user == nullptr ? 0 : 1; i < path.size(); ++i) result += path[i];
    for (char& letter : result)
        if (letter == '\\') letter = '/';
    return result;
}

}  // namespace fuzz
