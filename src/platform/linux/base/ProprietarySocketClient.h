#pragma once
/// The client end of a packet connection over TCP.

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/linux/base/LinkStatus.h"
#include "platform/linux/base/PacketQueue.h"
#include "platform/linux/base/ProprietarySocketCommon.h"
#include "platform/linux/base/Resolver.h"
#include "platform/linux/base/ServerConnectionList.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

class OwnedSocket;

/// Connects to a server, sends what is queued, and hands each packet that comes to a hook of the derived class.
///
/// | thread            | started by        | ends when                                     | joined by     |
/// |-------------------|-------------------|-----------------------------------------------|---------------|
/// | receive, transmit | `connectToServer` | the connection ends (ProprietarySocketCommon) | `closeSocket` |
/// | dispatch          | `connectToServer` | it takes the end mark from `rxQueue`          | `closeSocket` |
/// | ping              | the owner, if any | the connection ends                           | the owner     |
///
/// Idle, connected, link ended (the peer closed, a read failed) and idle again by `closeSocket(true)`, or closed for
/// good by `closeSocket(false)`. A link that ended by itself is not opened again before `closeSocket(true)`.
///
/// All members may be called by any thread, the hooks included, except where they say otherwise. The owner calls
/// `closeSocket` while the derived object is still whole, and joins the ping thread before the object dies.
class ProprietarySocketClient : public ProprietarySocketCommon {
public:
    /// Called with the client; what it returns is not looked at.
    using DisconnectHook = ProprietarySocketClient* (*)(ProprietarySocketClient*);

    /// Called on the dispatch thread, once each time a link ends. Null: nobody is told. Set it before connecting.
    std::atomic<DisconnectHook> onDisconnect{nullptr};

    /// For the server at TCP `port` of `host`, a name or an address; null stands for "127.0.0.1". Connects nothing.
    ProprietarySocketClient(int port, const char* host);
    /// Warns on standard error when the client was not closed; the link's threads are ended then all the same.
    ~ProprietarySocketClient() override;

    /// Connects when the client is idle. Returns whether the link is up; false at once while it is being closed, after
    /// the link ended by itself, and when closed for good. Waits for the name service and the network; `closeSocket`
    /// on another thread ends a wait for the network. **Ends the process** with status 1, after a line on standard
    /// error, when the host's name has no address.
    virtual bool connectToServer();

    /// Called on the dispatch thread with each packet that is not the socket layer's own, one at a time, in the order
    /// in which they came. An override that keeps the packet sets `packet` to null; else it is deleted after the call.
    virtual void handleRxPacket(TPacket*& packet);

    /// Ends the link: waits for its threads, which hand all packets that arrived before to the hook first, and deletes
    /// what was not sent. With `reopen` the client may connect again, without it never. Does nothing when there is no
    /// link and nobody is just connecting. A second caller waits for the first; closing for good wins over reopening.
    /// Called by a hook, on the dispatch thread itself, it ends the link and returns at once; the client then stays
    /// disconnected until another thread calls `closeSocket`.
    void closeSocket(bool reopen);

    /// Takes `packet`, which is null then in any case, and queues it for sending. Returns true when it was queued.
    /// Waits while the transmit buffer of 100 packets is full; with `dropIfFull`, or when no link is up that could
    /// make room, the packet is deleted instead and false comes back. One line on standard error tells the first
    /// packet dropped by `dropIfFull`, one on standard output that less than half of the buffer is in use again.
    bool sendPacket(TPacket*& packet, bool dropIfFull);

    /// Handles the socket layer's own commands. Returns true when `packet` was one of them; it is still the caller's
    /// to delete. For the dispatch thread.
    bool handleBuiltinPacket(TPacket*& packet);

    /// Body of the ping thread: once a second it sends `CmdPing` and reports a missing answer, until the link ends.
    /// `client` is a ProprietarySocketClient, borrowed. An owner that wants supervision starts it by `ThreadCreate`
    /// after each successful connect, one thread at a time, and joins it. Returns 0.
    static std::uint32_t pingSupervision(void* client);

    /// Copies the state to `out`, and with `reset` zeroes the figures in the same step; nothing when `out` is null.
    /// Waits while another thread is connecting.
    void getLinkStatus(LinkStatus* out, bool reset);
    /// Pings in a row that had no answer when the next one was due.
    std::int32_t missingPingCount() const { return missingPings; }

    /// The version that the server said it has; empty until it did. A copy; returns at once.
    std::string getServerVersion() const;
    /// The name of that version, likewise.
    std::string getServerVersionLabel() const;

    /// Replaces `out` by a copy of the process-wide list of servers (ServerConnectionList.h).
    static void getServerConnectionList(std::vector<ServerConnectionEntry>& out);
    /// Prints that list as a table to standard output.
    static void printServerConnectionList();

    /// The server's TCP port, as given to the constructor.
    int port() const { return port_; }
    /// The server's name or address, as given to the constructor.
    const std::string& host() const { return host_; }
    /// The socket's descriptor, -1 while there is none; to be shown, not to be used.
    std::int32_t descriptor() const { return fd; }

protected:
    /// Milliseconds between two pings.
    static constexpr int kPingIntervalMs = 1000;
    /// The same for this client; changed, if at all, before the ping thread starts.
    int pingIntervalMs = kPingIntervalMs;
    /// One tick of the supervision: counts and reports a missing answer, and sends the next `CmdPing`. For the ping
    /// thread; waits as `sendPacket` does.
    void handlePingTick();
    /// `closeSocket(false)` for the end of a derived class: it also keeps an idle client from connecting ever again.
    void closeForGood();

private:
    static constexpr unsigned kPacketCapacity = 100;
    static constexpr unsigned kPingCapacity = 10;

    bool beginAttempt(std::uint32_t& ticket) EXCLUDES(linkMutex);
    void endAttempt() EXCLUDES(linkMutex);
    void connectToAny(const AddressList& addresses, std::uint32_t ticket) EXCLUDES(linkMutex);
    bool registerSocket(int socket, std::uint32_t ticket) EXCLUDES(linkMutex);
    bool isWanted(std::uint32_t ticket) EXCLUDES(linkMutex);
    void forgetSocket() EXCLUDES(linkMutex);
    void goOnline(OwnedSocket& socket, std::uint32_t ticket) EXCLUDES(linkMutex);
    bool publishLink(const LinkRecord& started, std::uint32_t ticket) EXCLUDES(linkMutex);
    void discardLink(LinkRecord& started);

    bool announceClose(bool reopen, std::uint32_t& number) EXCLUDES(linkMutex);
    void finishClose(std::uint32_t number) REQUIRES(closeMutex) EXCLUDES(linkMutex);

    static std::uint32_t runDispatch(void* client);
    bool onDispatchThread() const;
    void dispatchPackets();
    bool offerPacket(PacketPtr& packet);
    void reportRecovery();

    void handlePingAnswer();
    void handleConnectionInfo(const TPacket& packet);
    void supervisePings();

    const std::string host_;
    const std::int32_t port_;
    bool attempting GUARDED_BY(linkMutex) = false;  // a connect is under way
    bool closedForGood GUARDED_BY(linkMutex) = false;
    std::uint32_t closeCount GUARDED_BY(linkMutex) = 0;  // an attempt that sees it change comes to nothing
    std::atomic<std::uint32_t> linkNumber{0};            // written under linkMutex: tells a link from the next one

protected:
    // The state, for derived classes to look at: under the lock that stands with it, else at any time. This class alone
    // changes it. A derived class that takes one of the locks holds it for a few lines and calls nothing meanwhile.

    PacketQueue rxQueue{kPacketCapacity};                      ///< packets read, for the dispatch thread
    PacketQueue txQueue{kPacketCapacity};                      ///< the transmit buffer
    threadfunc::queue_template<int> pingQueue{kPingCapacity};  ///< 0 for each tick and for the end of a link

    // Locks, outermost first: closeMutex or statsMutex, never both; linkMutex; the queues' own. None is held while a
    // hook runs. Only closeMutex is held while a thread is waited for that may run one, and no hook ever waits for it.
    threadfunc::mutex closeMutex;               ///< one thread at a time closes
    mutable threadfunc::mutex statsMutex;       ///< one thread at a time connects; the figures of the pings
    mutable threadfunc::mutex linkMutex;        ///< the link and its way up and down
    mutable threadfunc::mutex serverInfoMutex;  ///< the server's identity

    std::atomic<std::int32_t> fd{-1};                    ///< the socket, -1: none; written under linkMutex
    LinkRecord link GUARDED_BY(linkMutex);               ///< the link's threads and their socket
    pthread_t dispatchThread GUARDED_BY(linkMutex) = 0;  ///< 0: none

    std::atomic<bool> connected{false};        ///< the link is up; set under linkMutex, cleared by the dispatch thread
    std::atomic<bool> closing{false};          ///< being closed, or closed for good; written under linkMutex
    std::atomic<bool> dispatchRunning{false};  ///< written by the dispatch thread
    std::atomic<bool> pingRunning{false};      ///< written by the ping thread
    std::atomic<bool> txOverrun{false};        ///< an overrun was reported and the buffer is still half full

    double maxRoundTrip GUARDED_BY(statsMutex) = 0;                     ///< seconds
    double totalRoundTrip GUARDED_BY(statsMutex) = 0;                   ///< seconds
    std::uint32_t responseCount GUARDED_BY(statsMutex) = 0;             ///< answers to pings
    threadfunc::Stopwatch pingStopwatch GUARDED_BY(statsMutex){false};  ///< runs since the last request
    std::atomic<bool> pingPending{false};       ///< set by the ping thread, cleared by the dispatch thread
    std::atomic<std::int32_t> missingPings{0};  ///< written by the ping thread

    ServerConnectionEntry serverInfo GUARDED_BY(serverInfoMutex);  ///< as the server told it last
};
