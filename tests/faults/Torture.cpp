#include "tests/faults/Torture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>
#include <sstream>
#include <vector>

#include "sw_drv/RTkernel/linux/threadfunc.h"
#include "tests/support/Process.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__has_feature)
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define FAULTS_LEAKS() __lsan_do_recoverable_leak_check()
#endif
#endif
#ifndef FAULTS_LEAKS
#define FAULTS_LEAKS() 0
#endif

// The runs check for leaks themselves. The check at the end of a process stops all its threads by ptrace, and a signal
// that comes meanwhile stops it for ever. Unused in other builds.
extern "C" const char* __lsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_options() {
    return "leak_check_at_exit=0";
}  // NOLINT(bugprone-reserved-identifier)

namespace faults {

namespace {

constexpr int kWorkers = 4;  // most runs wait more than they work
constexpr std::chrono::seconds kLimit{20};
constexpr int kWrong = 90;  // exit status of a run that found something wrong

/// Memory that forked processes share.
template <typename T>
T& shared() {
    void* const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    return *new (memory) T;
}

template <typename T>
void unshare(T& object) {
    munmap(&object, sizeof(T));
}

pid_t inAProcess(const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t process = fork();
    if (process < 0) std::abort();
    if (process != 0) return process;
    work();
    _exit(0);
}

thread_local bool isBodyThread = false;

/// The operations of the body throw when there is no memory; a thread of the libraries has nobody to throw to, so a
/// program that links them ends there, as ours does.
void refuseMemory() {
    if (isBodyThread) throw std::bad_alloc();
    _exit(1);
}

void runBody(const Scenario& scenario, const Plan& plan, Tally& tally, int report) {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nothing, STDOUT_FILENO);
    dup2(report, STDERR_FILENO);
    close(nothing);
    const std::size_t before = testsupport::openDescriptors();
    isBodyThread = true;
    std::set_new_handler(refuseMemory);
    bool right = true;
    arm(plan, tally);
    try {
        right = scenario.body();
    } catch (const std::bad_alloc&) {
        if (!tally.outOfMemory) right = wrong("out of memory without reason");
    }
    disarm();
    // The timer thread stays, with its pipe.
    const auto timersAreOn = [] { return testsupport::runningThreads() <= 2; };
    if (!testsupport::waitFor(timersAreOn, std::chrono::seconds(2))) right = wrong("a thread is left");
    if (testsupport::openDescriptors() > before + 2) right = wrong("a descriptor is left");
    if (FAULTS_LEAKS() != 0) right = wrong("memory is left");
    testsupport::leave(right ? 0 : kWrong);
}

/// Status as waitpid gives it; -1: it did not end in time.
int awaitEnd(pid_t process, int patienceMs) {
    int status = -1;
    const auto ended = [&] { return waitpid(process, &status, WNOHANG) == process; };
    if (patienceMs != 0) {
        if (testsupport::waitFor(ended, std::chrono::milliseconds(patienceMs))) return status;
        kill(process, SIGTERM);
    }
    if (testsupport::waitFor(ended, kLimit)) return status;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    return -1;
}

void endPeer(pid_t process) {
    if (process <= 0) return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

std::string contentOf(int file) {
    std::array<char, 4000> text{};
    const ssize_t got = pread(file, text.data(), text.size(), 0);
    return {text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

std::string described(const Plan& plan, const Tally& tally) {
    constexpr std::array kKinds{"error", "short", "interrupted", "delay"};
    std::ostringstream text;
    text << kKinds[static_cast<std::size_t>(plan.kind)] << " at call " << plan.first;
    if (plan.second != 0) text << " and " << plan.second;
    text << (plan.forever ? " and all after it" : "") << ", last at " << tally.lastStruck;
    return text.str();
}

/// One run. Adds what is wrong with it to `failures`; returns how many faults it had.
long run(const Scenario& scenario, const Plan& plan, Tally& tally, std::string& failures) {
    if (scenario.prepare != nullptr) scenario.prepare();
    const int report = memfd_create("report", MFD_CLOEXEC);
    const pid_t peer = scenario.peer == nullptr ? 0 : inAProcess(scenario.peer);
    const pid_t process = inAProcess([&] { runBody(scenario, plan, tally, report); });
    const int status = awaitEnd(process, scenario.patienceMs);
    endPeer(peer);
    const bool fine = status >= 0 && WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 1);
    if (!fine) {
        const std::string how = status < 0          ? "hangs"
                                : WIFEXITED(status) ? "ends with " + std::to_string(WEXITSTATUS(status))
                                                    : "dies of signal " + std::to_string(WTERMSIG(status));
        failures +=
            std::string(scenario.name) + ": " + described(plan, tally) + ": " + how + ": " + contentOf(report) + "\n";
    }
    close(report);
    return tally.struck;
}

struct Shared {
    std::atomic<long> runs{0};
    std::atomic<long> unreached{0};
};

/// Runs each plan in one of the workers. Threads make the number of calls differ from run to run: a plan whose call
/// was not reached is tried again.
Outcome runAll(const Scenario& scenario, const std::vector<Plan>& plans) {
    Shared& counts = shared<Shared>();
    const int report = memfd_create("failures", MFD_CLOEXEC);
    const auto work = [&](std::size_t worker) {
        Tally& tally = shared<Tally>();
        for (std::size_t i = worker; i < plans.size(); i += kWorkers) {
            std::string failures;
            long struck = 0;
            for (int attempt = 0; attempt < 3 && struck == 0; ++attempt) {
                new (&tally) Tally;
                struck = run(scenario, plans[i], tally, failures);
            }
            ++(struck != 0 ? counts.runs : counts.unreached);
            if (!failures.empty() && write(report, failures.data(), failures.size()) < 0) std::abort();
        }
    };
    std::array<pid_t, kWorkers> workers{};
    for (std::size_t i = 0; i < workers.size(); ++i) workers[i] = inAProcess([&] { work(i); });
    Outcome outcome;
    for (const pid_t worker : workers) {
        int status = 0;
        waitpid(worker, &status, 0);
        if (status != 0) outcome.failures += "a worker failed\n";
    }
    outcome.runs = counts.runs;
    outcome.failures += contentOf(report);
    close(report);
    unshare(counts);
    return outcome;
}

/// The number of calls in a run without faults.
long callsOf(const Scenario& scenario, Kind kind, std::string& failures) {
    Tally& tally = shared<Tally>();
    run(scenario, {.kind = kind}, tally, failures);
    const long calls = tally.calls;
    unshare(tally);
    return calls;
}

}  // namespace

bool wrong(const char* what) {
    const Pause own;
    std::fprintf(stderr, "[wrong: %s]\n", what);
    return false;
}

Outcome tortureWithErrors(const Scenario& scenario) {
    std::string failures;
    const long calls = callsOf(scenario, Kind::error, failures);
    std::vector<Plan> plans;
    for (long n = 1; n <= calls; ++n) {
        plans.push_back({.first = n});
        plans.push_back({.first = n, .forever = true});
    }
    Outcome outcome = runAll(scenario, plans);
    outcome.calls = calls;
    outcome.failures = failures + outcome.failures;
    return outcome;
}

Outcome runOne(const Scenario& scenario, const Plan& plan) { return runAll(scenario, {plan}); }

Outcome tortureAtRandom(const Scenario& scenario, long runs, unsigned seed) {
    std::string failures;
    std::mt19937 random(seed);
    std::array<long, 4> calls{};
    for (std::size_t kind = 0; kind < calls.size(); ++kind)
        calls[kind] = callsOf(scenario, static_cast<Kind>(kind), failures);
    std::vector<Plan> plans;
    while (static_cast<long>(plans.size()) < runs) {
        const std::size_t kind = random() % calls.size();
        if (calls[kind] == 0) continue;  // never for errors: that would be no scenario
        std::uniform_int_distribution<long> any(1, calls[kind]);
        plans.push_back({.kind = static_cast<Kind>(kind), .first = any(random), .second = any(random)});
    }
    Outcome outcome = runAll(scenario, plans);
    outcome.calls = calls[0];
    outcome.failures = failures + outcome.failures;
    return outcome;
}

}  // namespace faults
