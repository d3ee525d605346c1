// Connecting and closing of the client.
#include <sys/socket.h>

#include <utility>

#include "platform/linux/base/ErrorLine.h"
#include "platform/linux/base/ProprietarySocketClient.h"
#include "platform/linux/base/TcpSocket.h"

using threadfunc::MutexLock;

namespace {

constexpr int kDispatchPriority = 20;
constexpr const char* kOriginFile = "platform/linux/base/src/ProprietarySocketClient";
constexpr int kDispatchOrigin = 230;

/// The process does not survive a host without address: nothing it could do later would help. One that ends already
/// says nothing more: the last line would stand below the result of an upload.
void endUnresolvable(const std::string& host, int error) {
    threadfunc::holdWhileProcessEnds();
    printErrorLine("getaddrinfo(" + host + "): " + gai_strerror(error) + "\n");
    threadfunc::exitProcess(1);
}

}  // namespace

bool ProprietarySocketClient::connectToServer() {
    const MutexLock oneAtATime(statsMutex);
    std::uint32_t ticket = 0;
    if (beginAttempt(ticket)) {
        const Resolution resolution = resolveHost(host_, port_);
        if (resolution.error != 0) endUnresolvable(host_, resolution.error);
        connectToAny(resolution.addresses, ticket);
        endAttempt();
    }
    return connected && !closing;
}

// A link whose threads could not all be started is taken down at once, so an idle client never has one left.
bool ProprietarySocketClient::beginAttempt(std::uint32_t& ticket) {
    const MutexLock lock(linkMutex);
    if (closing || connected || dispatchThread != 0) return false;
    attempting = true;
    ticket = closeCount;
    return true;
}

void ProprietarySocketClient::endAttempt() {
    const MutexLock lock(linkMutex);
    attempting = false;
}

void ProprietarySocketClient::connectToAny(const AddressList& addresses, std::uint32_t ticket) {
    for (const addrinfo* address = addresses.get(); address != nullptr; address = address->ai_next) {
        OwnedSocket socket(openSocket(*address));
        if (socket.get() < 0) continue;
        if (!registerSocket(socket.get(), ticket)) return;
        // A close that comes after this look finds a socket whose wait a shutdown ends.
        if (beginConnect(socket.get(), *address) && isWanted(ticket) && awaitConnect(socket.get()))
            return goOnline(socket, ticket);
        forgetSocket();
    }
}

bool ProprietarySocketClient::registerSocket(int socket, std::uint32_t ticket) {
    const MutexLock lock(linkMutex);
    if (closeCount != ticket) return false;
    fd = socket;
    return true;
}

bool ProprietarySocketClient::isWanted(std::uint32_t ticket) {
    const MutexLock lock(linkMutex);
    return closeCount == ticket;
}

void ProprietarySocketClient::forgetSocket() {
    const MutexLock lock(linkMutex);
    fd = -1;  // before the descriptor is closed: its number may be somebody else's a moment later
}

void ProprietarySocketClient::goOnline(OwnedSocket& socket, std::uint32_t ticket) {
    rxQueue.open();
    txQueue.open();
    LinkRecord started = startLink(this, socket.get(), txQueue, rxQueue);
    if (started.linkFd < 0) {
        txQueue.close();  // nobody will make room for a sender
        return forgetSocket();
    }
    static_cast<void>(socket.release());
    if (publishLink(started, ticket)) return;
    forgetSocket();
    discardLink(started);
}

bool ProprietarySocketClient::publishLink(const LinkRecord& started, std::uint32_t ticket) {
    const MutexLock lock(linkMutex);
    if (closeCount != ticket) return false;
    connected = true;
    ++linkNumber;  // before the hooks can start a ping thread
    dispatchThread = threadfunc::ThreadCreate(kDispatchPriority, runDispatch, this, 0, kOriginFile, kDispatchOrigin);
    if (dispatchThread == 0) {
        connected = false;
        return false;
    }
    link = started;
    attempting = false;
    return true;
}

void ProprietarySocketClient::discardLink(LinkRecord& started) {
    shutdown(started.linkFd, SHUT_RDWR);
    while (rxQueue.take()) {
        // In place of the dispatch thread: the receive thread may need room for its end mark.
    }
    stopLink(started);
    txQueue.drain();
}

void ProprietarySocketClient::closeSocket(bool reopen) {
    std::uint32_t number = 0;
    if (!announceClose(reopen, number)) return;
    const MutexLock oneAtATime(closeMutex);
    finishClose(number);
}

void ProprietarySocketClient::closeForGood() {
    {
        const MutexLock lock(linkMutex);
        closedForGood = true;
        closing = true;
    }
    closeSocket(false);
}

// Returns true when the caller has a link to take down.
bool ProprietarySocketClient::announceClose(bool reopen, std::uint32_t& number) {
    const MutexLock lock(linkMutex);
    if (!attempting && dispatchThread == 0) return false;  // idle
    ++closeCount;
    closedForGood = closedForGood || !reopen;
    closing = closedForGood || !attempting;
    if (attempting) {
        if (fd >= 0) shutdown(fd, SHUT_RDWR);  // the connecting thread does the rest
        return false;
    }
    txQueue.close();
    number = linkNumber;
    if (!onDispatchThread()) return true;
    connected = false;
    if (link.linkFd >= 0) shutdown(link.linkFd, SHUT_RDWR);
    return false;
}

// A caller that waited for another one finds its link gone.
void ProprietarySocketClient::finishClose(std::uint32_t number) {
    LinkRecord old;
    pthread_t dispatcher = 0;
    {
        const MutexLock lock(linkMutex);
        if (dispatchThread == 0 || linkNumber != number) return;
        old = std::exchange(link, LinkRecord{});
        dispatcher = dispatchThread;
    }
    stopLink(old);
    if (dispatchRunning) rxQueue.end();
    forgetSocket();
    threadfunc::threadJoin(dispatcher);
    rxQueue.drain();
    txQueue.drain();
    const MutexLock lock(linkMutex);
    dispatchThread = 0;
    closing = closedForGood;
}
