#include "toolsmisc/Path.h"

#include <cstdlib>
#include <memory>

#include "toolsmisc/Text.h"

namespace toolsmisc {

namespace {

constexpr unsigned kLongestExtension = 1'000'000;

const char* separatorBehind(const std::string& path) {
    // No separator behind two characters, as behind a drive letter and colon: installed trees have such names.
    const bool none = path.empty() || path.ends_with(kPathSeparator) || path.size() == 2;
    return none ? "" : kPathSeparator;
}

/// Position for `subString`. "Nowhere" and its neighbours become small negative numbers on 32 and on 64 bits alike.
int position(std::size_t index) { return static_cast<int>(index); }

}  // namespace

std::string joinPath(const std::string& a, const std::string& b) {
    if (b.empty()) return a;
    if (isAbsolutePath(b)) return b;
    return a + separatorBehind(a) + b;
}

std::string joinPath(const std::string& a, const std::string& b, const std::string& c) {
    return joinPath(joinPath(a, b), c);
}

std::string joinPath(const std::string& a, const std::string& b, const std::string& c, const std::string& d) {
    return joinPath(joinPath(a, b, c), d);
}

std::string joinPath(const std::string& a, const std::string& b, const std::string& c, const std::string& d,
                     const std::string& e) {
    return joinPath(joinPath(a, b, c, d), e);
}

bool isAbsolutePath(const std::string& path) { return path.starts_with(kPathSeparator); }

std::string getRealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(realpath(path.c_str(), nullptr), &std::free);
    return makeString(resolved.get(), kWholeText);
}

std::string getFileName(const std::string& path, bool stripExtension) {
    // The end without any "." is -2, which counts from the end: scripts know the names that come out of it.
    const std::size_t begin = path.rfind(kPathSeparator) + 1;
    const std::size_t end = stripExtension ? path.rfind('.') - 1 : path.size();
    return subString(path, static_cast<unsigned>(begin), position(end));
}

std::string getDirectoryName(const std::string& path) {
    const std::size_t separator = path.rfind(kPathSeparator);
    if (separator == std::string::npos) return {};
    // For a separator at the start the end is -1, which counts from the end as in `getFileName`.
    return subString(path, 0, position(separator - 1));
}

std::string getExtension(const std::string& path) {
    const std::size_t name = path.rfind(kPathSeparator) + 1;
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || dot < name) return {};
    return path.substr(dot + 1, kLongestExtension);
}

std::string getBackupName(const std::string& path) { return path + "~"; }

}  // namespace toolsmisc
