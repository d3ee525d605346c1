#pragma once
/// The client side of the upload: asks the CAN server application to program a hex file into a device, and follows it.

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "Hardware/UploadPackets.h"
#include "Hardware/UploadTypes.h"
#include "platform/linux/base/ProprietarySocketClient.h"
#include "sw_drv/RTkernel/linux/threadfunc.h"

namespace CANFlasher {

// What `upload` answers.
inline constexpr std::uint32_t kUploadRequested = 0;           ///< on its way, or a path that is no regular file
inline constexpr std::uint32_t kUploadFileNotFound = 1;        ///< the path leads nowhere
inline constexpr std::uint32_t kUploadInvalidAddress = 2;      ///< above 253
inline constexpr std::uint32_t kUploadServerNotReachable = 3;  ///< no connection to the server

/// One upload at a time over one connection, which is dropped when the server's work on the device ends.
///
///     thread     started by         ends when               joined by
///     caller     -                  -                       -               upload, server control, end of life
///     worker     constructor        it takes UpdQuit        shutDown        step, poll, disconnect
///     dispatch   each connection    the connection ends     closeSocket     status reports, the two hooks
///     timers     first timer        never                   -               put UpdStep and UpdPoll
///
/// UpdQuit, the worker's end mark, is put by `shutDown` alone. Locks of this class are held for a few lines, never
/// while a hook runs or a packet is sent, and none is taken under another.
class CANFlasherClient : public ProprietarySocketClient {
public:
    using TUpdCmd = CANFlasher::TUpdCmd;  ///< command of the worker thread
    using TMode = CANFlasher::TMode;      ///< how the server reaches the device
    using TState = CANFlasher::TState;    ///< where the upload stands
    using TStatus = CANFlasher::TStatus;  ///< the server's view of the upload

    // Their values, and the commands of UploadTypes.h, under the name of the class too.
    using enum CANFlasher::TUpdCmd;
    using enum CANFlasher::TMode;
    using enum CANFlasher::TState;
    static constexpr std::uint16_t CmdStatus = CANFlasher::CmdStatus;                ///< from the server
    static constexpr std::uint16_t CmdStatusRequest = CANFlasher::CmdStatusRequest;  ///< to the server
    static constexpr std::uint16_t CmdStatusReset = CANFlasher::CmdStatusReset;      ///< to the server
    static constexpr std::uint16_t CmdByte = CANFlasher::CmdByte;                    ///< to the server
    static constexpr std::uint16_t CmdUpload = CANFlasher::CmdUpload;                ///< to the server

    /// A client of the server at `host` (null: "127.0.0.1") and TCP port `port`. Starts the worker thread, connects
    /// nothing.
    CANFlasherClient(int port, const char* host);

    /// Runs `shutDown`. A class that overrides a hook calls that itself, first in its own destructor.
    ~CANFlasherClient() override;

    /// Connects when possible, in at most 6 attempts with 50 ms behind each failed one. Returns whether there is a
    /// connection. A connection that the server has closed is not opened again by this. False at once when the client
    /// was shut down. Waits; any thread.
    bool connectToServer() override;

    /// Requests the upload of `hexFile` to the device at `address` (at most 253; negative values pass) with `serial`.
    /// Returns a kUpload... value. The request goes out from the worker, two 50 ms timer steps later, when the path is
    /// still a regular file; then the server's status is asked for once a second. For a path that exists and is not a
    /// regular file it returns kUploadRequested and does nothing. A second call replaces a request that has not gone
    /// out. Waits for the connection; called by one thread at a time.
    std::uint32_t upload(TMode mode, std::int32_t address, std::uint32_t serial, const std::string& hexFile);

    /// Asks the server to forget the last upload; without a server the default status is applied here as if it had
    /// been received, its hooks on the calling thread. Waits for the connection; any thread.
    void sendStatusReset();

    /// Sends the low byte of `value`. Returns 1, or 0 when there is no connection. Waits for the connection.
    std::uint32_t sendCommandByte(std::int32_t value);

    /// Starts the server application for the CAN interface `interface` and this client's port, and connects to it.
    /// Returns non-zero when that connection stands; 0 when the server could not be started, does not listen within
    /// about 400 ms, or when a server could be reached already (that connection is left open). Complaints of the
    /// start tool, and one line of ours, go to standard error. Waits for the tool, for `sync` and for the connection.
    std::uint32_t startServer(std::int32_t interface);

    /// Starts or stops the server application without connecting. Returns 1 when the tool succeeded, else 0. Waits.
    std::uint32_t controlServer(bool start, std::int32_t interface);

    /// On the dispatch thread: applies a CmdStatus, reports any other command on standard output. A CmdStatus that is
    /// too short is dropped. Leaves `packet` to the caller.
    void handleRxPacket(TPacket*& packet) override;

    /// Hook: called with each status that differs from the one before, after `busyChanged`. On the dispatch thread, one
    /// at a time (but see `sendStatusReset`). Must not close the connection or destroy the client. Does nothing here.
    virtual void statusChanged(const TStatus& status);

    /// Hook: called when the status enters or leaves the busy range, as `statusChanged` is. Does nothing here.
    virtual void busyChanged(bool busyNow);

    /// Path of the server's program, fixed at construction.
    const std::string& serverPath() const { return serverProgram; }

    /// The status as last received. Any thread.
    TStatus currentStatus() const;

    /// The same as `busy`, in step with `currentStatus`. Any thread.
    bool isBusy() const;

    /// Whether the last status received was a busy one, for whoever looks without waiting. Written by the client alone,
    /// together with the status and before the hooks are called.
    std::atomic<bool> busy{false};
    /// Set by whoever owns the client: no status requests are sent, and a poll that comes due is the last one.
    std::atomic<bool> suppressPolling{false};
    /// Set by whoever owns the client: the connection stays when the server's work ends.
    std::atomic<bool> keepConnection{false};

protected:
    /// Ends the worker, the connection and both timers for good, and waits for that. When it returns no hook runs or
    /// will. May be called again; not from a hook.
    void shutDown();

    // In this order, so that the queue dies after the timers that fill it. A derived class may put commands of its own
    // (only `tryPut` is sure to return at once) and change the intervals.
    threadfunc::queue_template<TUpdCmd> updateQueue;  ///< for the worker, at most 100 commands
    threadfunc::timer_template<TUpdCmd> stepTimer;    ///< UpdStep after 50 ms
    threadfunc::timer_template<TUpdCmd> pollTimer;    ///< UpdPoll after 1000 ms

private:
    /// Whether a disconnect waits for the worker.
    enum class Disconnect { none, queued, overdue };

    static std::uint32_t runWorker(void* client);
    void updateLoop();
    void handleCommand(TUpdCmd command);
    void uploadStep();
    void poll();
    void dropConnection();
    void requestDisconnect();
    void applyStatus(const TStatus& received);
    bool send(PacketPtr packet);
    void storeRequest(UploadRequest newRequest);
    std::optional<UploadRequest> dueRequest();

    mutable threadfunc::mutex statusMutex;
    TStatus lastStatus GUARDED_BY(statusMutex);  // `busy` is written under it too

    threadfunc::mutex requestMutex;
    UploadRequest request GUARDED_BY(requestMutex);
    bool uploadArmed GUARDED_BY(requestMutex) = false;  // the first step of the upload has come

    const std::string serverProgram;

    std::atomic<Disconnect> disconnect{Disconnect::none};  // asked for by the dispatch thread, taken by the worker
    std::atomic<bool> ending{false};                       // written by shutDown
    pthread_t updateThread;
};

}  // namespace CANFlasher
