// The whole client against a server that says anything and hangs up at any moment, while the client is used in any way.
// A faithful run leaves the connection to the server: then all reports that stand whole in what it wrote are told, once
// and in order. In any other run some may be lost, and none is told twice or before another; what the server receives
// is well-formed in each. Input: odd for a faithful run, then over and over an operation and what belongs to it
// (HostileRun.h).
#include "fuzz/oracle/HostileRun.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::HostileRun run(input.byte() % 2 == 1);
    for (int rounds = 0; rounds < 32 && !input.empty(); ++rounds) run.step(input);
    run.finish();
    return 0;
}
