#include "tests/faults/Torture.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <new>
#include <random>
#include <vector>

#include "tests/faults/Run.h"

namespace faults {

namespace {

constexpr int kWorkers = 4;  // most runs wait more than they work

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

struct Counts {
    std::atomic<long> runs{0};
    std::atomic<long> faults{0};
};

/// A plan whose call was not reached is tried again.
void runUntilStruck(const Scenario& scenario, const Plan& plan, Tally& tally, Counts& counts, std::string& failures) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        new (&tally) Tally;
        failures += run(scenario, plan, tally);
        if (tally.struck == 0) continue;
        ++counts.runs;
        counts.faults += tally.struck;
        return;
    }
}

/// Runs each plan in one of the workers.
Outcome runAll(const Scenario& scenario, const std::vector<Plan>& plans) {
    Counts& counts = shared<Counts>();
    const int report = memfd_create("failures", MFD_CLOEXEC);
    const auto work = [&](std::size_t worker) {
        Tally& tally = shared<Tally>();
        for (std::size_t i = worker; i < plans.size(); i += kWorkers) {
            std::string failures;
            runUntilStruck(scenario, plans[i], tally, counts, failures);
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
    outcome.planned = static_cast<long>(plans.size());
    outcome.runs = counts.runs;
    outcome.faults = counts.faults;
    outcome.failures += contentOf(report);
    close(report);
    unshare(counts);
    return outcome;
}

/// The number of calls in a run without faults; the smallest of three, for threads that wait make more calls the slower
/// the machine is.
long callsOf(const Scenario& scenario, Kind kind, std::string& failures) {
    Tally& tally = shared<Tally>();
    long calls = std::numeric_limits<long>::max();
    for (int i = 0; i < 3; ++i) {
        new (&tally) Tally;
        failures += run(scenario, {.kind = kind}, tally);
        calls = std::min<long>(calls, tally.calls);
    }
    unshare(tally);
    return calls;
}

}  // namespace

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
    while (static_cast<long>(plans.size()) < runs && calls[0] != 0) {  // 0: it failed already
        const std::size_t kind = random() % calls.size();
        if (calls[kind] == 0) continue;
        std::uniform_int_distribution<long> any(1, calls[kind]);
        plans.push_back({.kind = static_cast<Kind>(kind), .first = any(random), .second = any(random)});
    }
    Outcome outcome = runAll(scenario, plans);
    outcome.calls = calls[0];
    outcome.failures = failures + outcome.failures;
    return outcome;
}

}  // namespace faults
