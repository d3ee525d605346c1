#include "tests/faults/Run.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <sstream>

#include "tests/faults/Verdict.h"
#include "tests/support/Process.h"

namespace faults {

namespace {

constexpr std::chrono::seconds kLimit{20};

/// A file in memory.
class Capture {
public:
    Capture() : file(memfd_create("capture", MFD_CLOEXEC)) {}
    ~Capture() { close(file); }
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    int get() const { return file; }
    std::string content() const { return contentOf(file); }

private:
    int file;
};

thread_local bool isBodyThread = false;  // in the process that is the run

/// The operations of the body throw when there is no memory; a thread of the libraries has nobody to throw to, so a
/// program that links them says so and ends there, as ours does.
void refuseMemory() {
    const Pause own;
    if (isBodyThread) throw std::bad_alloc();
    std::fputs("out of memory\n", stderr);
    _exit(EXIT_FAILURE);
}

void prepareProcess(const Scenario& scenario, const Capture& shown, const Capture& said) {
    dup2(shown.get(), STDOUT_FILENO);
    dup2(said.get(), STDERR_FILENO);
    allowLeftovers(scenario.timers);
    isBodyThread = true;
    std::set_new_handler(refuseMemory);
}

void runBody(const Scenario& scenario, const Plan& plan, Tally& tally) {
    arm(plan, tally);
    try {
        scenario.body();
    } catch (const std::bad_alloc&) {
        if (!tally.outOfMemory) wrong("out of memory without reason");
    }
    lookForLeftovers();
    testsupport::leave(isWrong() ? kWrong : EXIT_SUCCESS);
}

Ending awaitEnd(pid_t process, int patienceMs, const Tally& tally) {
    Ending ending;
    const auto ended = [&] { return waitpid(process, &ending.status, WNOHANG) == process; };
    if (patienceMs != 0 && testsupport::waitFor(ended, std::chrono::milliseconds(patienceMs))) return ending;
    if (patienceMs != 0 && tally.failed) {
        ending.terminated = true;
        kill(process, SIGTERM);
    }
    if (testsupport::waitFor(ended, kLimit)) return ending;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    ending.status = -1;
    return ending;
}

void endPeer(pid_t process) {
    if (process <= 0) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

std::string described(const Plan& plan, const Tally& tally) {
    constexpr std::array kKinds{"error", "short", "interrupted", "delay"};
    std::ostringstream text;
    text << kKinds[static_cast<std::size_t>(plan.kind)] << " at call " << plan.first;
    if (plan.second != 0) text << " and " << plan.second;
    text << (plan.forever ? " and all after it" : "") << ", last at " << tally.lastStruck;
    return text.str();
}

}  // namespace

pid_t inAProcess(const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t process = fork();
    if (process < 0) std::abort();
    if (process != 0) return process;
    work();
    _exit(EXIT_SUCCESS);
}

std::string contentOf(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0) std::abort();
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t got = pread(file, text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text;
}

std::string run(const Scenario& scenario, const Plan& plan, Tally& tally) {
    if (scenario.prepare != nullptr) scenario.prepare();
    const Capture shown;
    const Capture said;
    const pid_t peer = scenario.peer == nullptr ? 0 : inAProcess(scenario.peer);
    const pid_t process = inAProcess([&] {
        prepareProcess(scenario, shown, said);
        runBody(scenario, plan, tally);
    });
    Ending ending = awaitEnd(process, scenario.patienceMs, tally);
    endPeer(peer);
    ending.said = said.content();
    ending.shown = shown.content();
    const std::string judged = verdict(scenario, plan, tally, ending);
    if (judged.empty()) return "";
    return std::string(scenario.name) + ": " + described(plan, tally) + ": " + judged + ": " + ending.said + "\n";
}

}  // namespace faults
