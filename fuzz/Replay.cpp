// In place of the fuzzer: runs a target once for each file of a folder.
//     fuzz_NAME FOLDER [REPORT.xml]
// Prints the name of each file before its run, so that the last one printed is the one that failed. The report counts
// each file as a test.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

using Content = std::vector<std::uint8_t>;

/// What a target prints on standard output is of no interest.
void dropStandardOutput() {
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (sink >= 0) dup2(sink, STDOUT_FILENO);
}

std::vector<std::filesystem::path> filesOf(const char* folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

void run(const std::filesystem::path& file) {
    std::cerr << file.filename().string() << std::endl;
    std::ifstream stream(file, std::ios::binary);
    const Content content{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(content.data(), content.size());
}

void report(const char* path, const std::string& program, const std::vector<std::filesystem::path>& files) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream out(path);
    out << "<testsuite name=\"" << program << "\">\n";
    for (const auto& file : files)
        out << "  <testcase classname=\"" << program << "\" name=\"" << file.filename().string() << "\"/>\n";
    out << "</testsuite>\n";
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 2 || argc > 3) {
        std::cerr << "usage: " << argv[0] << " FOLDER [REPORT.xml]" << std::endl;
        return 2;
    }
    const auto files = filesOf(argv[1]);
    if (files.empty()) return 1;
    dropStandardOutput();
    for (const auto& file : files) run(file);
    if (argc == 3) report(argv[2], std::filesystem::path(argv[0]).filename().string(), files);
    return 0;
}
