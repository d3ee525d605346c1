#include "tests/app/ForkedRun.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "sw_drv/RTkernel/linux/threadfunc.h"

// ThreadSanitizer waits a second at each exit, for races of threads that outlive it; the hundred forked processes of a
// test program wait less. Unused in other builds.
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=50";
}  // NOLINT(bugprone-reserved-identifier)

namespace testsupport {

namespace {

int unnamedFile() {
    std::string pattern = (std::filesystem::temp_directory_path() / "dunmallow-output-XXXXXX").string();
    const int descriptor = mkostemp(pattern.data(), O_CLOEXEC | O_APPEND);
    if (descriptor < 0) throw std::runtime_error("cannot create " + pattern);
    unlink(pattern.c_str());
    return descriptor;
}

std::string contentOf(int file) {
    struct stat status {};
    fstat(file, &status);
    std::string content(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t got = pread(file, content.data(), content.size(), 0);
    content.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return content;
}

}  // namespace

ForkedRun::ForkedRun(const std::function<int()>& body) : outputFile(unnamedFile()), errorFile(unnamedFile()) {
    std::cout.flush();
    std::fflush(nullptr);
    process = fork();
    if (process < 0) throw std::runtime_error("cannot fork");
    if (process != 0) return;
    dup2(outputFile, STDOUT_FILENO);
    dup2(errorFile, STDERR_FILENO);
    threadfunc::exitProcess(body());
}

ForkedRun::~ForkedRun() {
    if (!ended) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    close(outputFile);
    close(errorFile);
}

void ForkedRun::send(int signal) const { kill(process, signal); }

bool ForkedRun::isRunning() {
    int status = 0;
    if (!ended && waitpid(process, &status, WNOHANG) == process) {
        ended = true;
        result = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return !ended;
}

int ForkedRun::wait(std::chrono::milliseconds limit) {
    return waitFor([this] { return !isRunning(); }, limit) ? result : -SIGKILL;
}

std::string ForkedRun::standardOutput() const { return contentOf(outputFile); }

std::string ForkedRun::standardError() const { return contentOf(errorFile); }

}  // namespace testsupport
