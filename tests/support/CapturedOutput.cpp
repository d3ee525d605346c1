#include "tests/support/CapturedOutput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace testsupport {

namespace {

void flushAll() {
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
}

int unnamedFile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "dunmallow-capture-XXXXXX").string();
    const int descriptor = mkostemp(pattern.data(), O_CLOEXEC | O_APPEND);
    if (descriptor < 0) throw std::runtime_error("cannot create " + pattern);
    unlink(pattern.c_str());
    return descriptor;
}

}  // namespace

CapturedOutput::CapturedOutput(int standardDescriptor)
    : descriptor(standardDescriptor), saved(-1), file(unnamedFile()) {
    flushAll();
    saved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    dup2(file, descriptor);
}

CapturedOutput::~CapturedOutput() {
    flushAll();
    dup2(saved, descriptor);
    close(saved);
    close(file);
}

std::string CapturedOutput::text() const {
    flushAll();
    return written();
}

std::string CapturedOutput::written() const {
    struct stat status {};
    fstat(file, &status);
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t got = pread(file, content.data(), content.size(), 0);
    content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return content;
}

}  // namespace testsupport
