// Packets through the flasher client's handler: the hooks are called exactly for what changed, in their order.
// Input: over and over a number of bytes, a kind (odd: a status; the rest times 2 is the payload offset), the bytes.
#include "fuzz/oracle/StatusModel.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static auto& client = *new fuzz::RecordingClient;  // never destroyed: its worker is a thread for all inputs
    fuzz::StatusModel model;
    fuzz::handle(client, 1000, 8, fuzz::kDefaultStatusPacket);
    client.calls.clear();
    for (fuzz::Input input(data, size); !input.empty();) {
        const std::size_t count = input.byte();
        const std::uint8_t kind = input.byte();
        const fuzz::Bytes bytes = input.bytes(count);
        const std::uint16_t command = (kind & 1) != 0 ? 1000 : 1001;
        const auto offset = static_cast<std::uint16_t>(kind / 2);
        fuzz::handle(client, command, offset, bytes);
        if (command == 1000 && offset <= bytes.size()) model.receive(bytes.subspan(offset));
    }
    fuzz::check(client.calls == model.calls);
    fuzz::check(client.currentStatus() == model.status && client.isBusy() == model.busy);
    const auto lines = CANFlasher::statusLines(model.status);
    for (std::size_t line = 0; line < lines.size(); ++line) fuzz::check(lines[line] == model.line(line));
    return 0;
}
