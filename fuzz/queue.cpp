// Sequences of operations on a bounded queue and on a queue of packets, against plain lists.
// Input: the capacity, then one operation a byte.
#include "fuzz/oracle/QueueModels.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned capacity = input.byte() % 12;
    fuzz::CheckedQueue values(capacity);
    fuzz::CheckedPacketQueue packets(capacity);
    for (int rounds = 0; rounds < 100 && !input.empty(); ++rounds) {
        const std::uint8_t operation = input.byte();
        values.apply(operation % 4, operation / 4);
        packets.apply(operation % 8, operation);
    }
    return 0;
}
