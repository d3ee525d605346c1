#include "tests/support/TempFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace testsupport {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "dunmallow-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot create " + pattern);
    path_ = fs::canonical(pattern).string();
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempFolder::write(const std::string& name, const std::string& content) const {
    const fs::path file = fs::path(path_) / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

ScopedEnvironment::ScopedEnvironment(const char* variable, const char* value)
    : name(variable), wasSet(std::getenv(variable) != nullptr) {
    if (wasSet) previous = std::getenv(variable);
    if (value == nullptr) {
        unsetenv(variable);
    } else {
        setenv(variable, value, 1);
    }
}

ScopedEnvironment::~ScopedEnvironment() {
    if (wasSet) {
        setenv(name.c_str(), previous.c_str(), 1);
    } else {
        unsetenv(name.c_str());
    }
}

}  // namespace testsupport
