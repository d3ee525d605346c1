// The identity of a server: read as the offsets of the protocol's page have it, taken over by the client and its list
// of servers, and read back the same after the simulated server wrote it. Input: the payload.
#include <vector>

#include "fuzz/oracle/Identity.h"
#include "platform/linux/base/ConnectionInfo.h"
#include "platform/linux/base/ProprietarySocketClient.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ProprietarySocketClient client(2000, nullptr);
    const auto wanted = fuzz::identityOf({data, size});
    const auto read = parseConnectionInfo({data, size});
    fuzz::check(read == wanted);
    if (!wanted) return 0;
    fuzz::check(parseConnectionInfo(fuzz::writtenBySimulator(*wanted)) == wanted);

    ServerConnectionEntry entry = *wanted;
    entry.processId &= 7;  // the list of the process must not grow without end
    const fuzz::ReceivedPacket packet(2, {data, size}, entry.processId);
    fuzz::check(client.handleBuiltinPacket(packet.handed()));
    fuzz::check(client.getServerVersion() == entry.version && client.getServerVersionLabel() == entry.versionLabel);
    std::vector<ServerConnectionEntry> list;
    client.getServerConnectionList(list);
    fuzz::check(list.size() <= 8 && std::count(list.begin(), list.end(), entry) == 1);
    return 0;
}
