#include "AgApp/VersionFacts.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <vector>

#include "toolsmisc/Text.h"

namespace AgApp {

using toolsmisc::splitString;

namespace {

using Fields = std::vector<std::string>;

// First and last character of the date inside the marker.
constexpr unsigned kDateFirst = 13;
constexpr int kDateLast = 35;

// Unsigned, because `char` is signed on one platform and unsigned on the other.
int digitAt(const std::string& text, std::size_t position) {
    return position < text.size() ? static_cast<unsigned char>(text[position]) - '0' : 0;
}

int digitsAt(const std::string& text, std::size_t position, std::size_t count) {
    int value = 0;
    for (std::size_t i = position; i < position + count; ++i) value = value * 10 + digitAt(text, i);
    return value;
}

bool isRepositoryAt(const Fields& fields, std::size_t i) {
    return fields[i] == "usr" && fields[i + 1] == "local" && fields[i + 2] == "Repository";
}

// `strtol` has 32 or 64 bits; the answer is the same on both.
std::int32_t leadingNumber(const std::string& text) {
    using Limits = std::numeric_limits<std::int32_t>;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<std::int32_t>(std::clamp<long>(value, Limits::min(), Limits::max()));
}

// The code name of a tag: all before the first "Ver" that has a part before and after it. Empty when there is none.
std::string codeName(const std::string& tag) {
    const Fields parts = splitString(tag, "-");
    for (std::size_t i = 1; i + 1 < parts.size(); ++i)
        if (parts[i] == "Ver") {
            return toolsmisc::joinStrings(Fields(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(i)), "-");
        }
    return {};
}

std::string tagLabel(const std::string& tag, const std::string& version) {
    const std::string name = codeName(tag);
    return name.empty() ? name : name + " " + version;
}

}  // namespace

std::string buildDateFrom(const std::string& marker) { return toolsmisc::subString(marker, kDateFirst, kDateLast); }

std::uint64_t buildTimeFrom(const std::string& buildDate) {
    std::tm broken{};
    broken.tm_year = digitsAt(buildDate, 0, 4) - 1900;
    broken.tm_mon = digitsAt(buildDate, 5, 2) - 1;
    broken.tm_mday = digitsAt(buildDate, 8, 2);
    broken.tm_hour = digitsAt(buildDate, 11, 2);
    broken.tm_min = digitsAt(buildDate, 14, 2);
    broken.tm_sec = digitsAt(buildDate, 17, 2);
    return static_cast<std::uint32_t>(timegm(&broken));
}

std::string repositoryPathFrom(const std::string& keyword) {
    const Fields fields = splitString(keyword, "/");
    for (std::size_t i = 0; i + 5 < fields.size(); ++i) {
        if (!isRepositoryAt(fields, i)) continue;
        const std::string& kind = fields[i + 3];
        return kind == "branches" || kind == "tags" ? kind + "/" + fields[i + 4] : std::string();
    }
    return {};
}

bool isTaggedPath(const std::string& repositoryPath) { return toolsmisc::startsWith(repositoryPath, "tags/"); }

std::string versionStringFrom(const std::string& repositoryPath) {
    if (!isTaggedPath(repositoryPath)) return {};
    const Fields parts = splitString(repositoryPath, "-");
    if (parts.size() <= 2) return {};
    std::string version = parts.back();
    std::replace(version.begin(), version.end(), '_', '.');
    return version;
}

std::int32_t majorVersionFrom(const std::string& repositoryPath) {
    const std::string version = versionStringFrom(repositoryPath);
    const std::size_t point = version.find('.');
    return point == std::string::npos ? 0 : leadingNumber(version.substr(0, point));
}

std::int32_t minorVersionFrom(const std::string& repositoryPath) {
    const std::string version = versionStringFrom(repositoryPath);
    const std::size_t point = version.find('.');
    return point == std::string::npos ? 0 : leadingNumber(version.substr(point + 1));
}

char versionLetterFrom(const std::string& repositoryPath) {
    const std::string version = versionStringFrom(repositoryPath);
    if (version.empty() || version.back() < 'a' || version.back() > 'z') return 0;
    return version.back();
}

std::string versionLabelFrom(const std::string& repositoryPath, const std::string& buildDate) {
    if (repositoryPath.empty()) return "Dev-trunk " + buildDate;
    std::string label;
    const Fields fields = splitString(repositoryPath, "/");
    if (fields.size() >= 2 && fields[0] == "branches") label = "Dev-" + fields[1] + " " + buildDate;
    if (fields.size() >= 2 && fields[0] == "tags") label = tagLabel(fields[1], versionStringFrom(repositoryPath));
    return label.empty() ? "Dev-unknown TAG " + buildDate : label;
}

}  // namespace AgApp
