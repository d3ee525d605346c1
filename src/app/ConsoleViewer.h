#pragma once
/// The client that the program creates: shows each status on the terminal and ends the process when the upload ends.

#include <atomic>
#include <cstdint>

#include "Hardware/CANFlasherClient.h"

namespace CANFlasher {

/// Paints on standard output, on the dispatch thread, from the first status change on. When a status ends the run it
/// ends the process with status 0 from there, through `threadfunc::exitProcess`: the status says that the upload came
/// to an end, the painted state says which.
class consoleViewer : public CANFlasherClient {
public:
    /// A client of the server at `host` and `port`. With `followUpload` it waits for a final state, without it the
    /// first painted status ends the process.
    consoleViewer(bool followUpload, int port, const char* host);
    ~consoleViewer() override;

    /// Paints `status`; does not return when it ends the run. Called on the dispatch thread, at each change of the
    /// status. One thread at a time.
    void statusChanged(const TStatus& status) override;
    /// Paints the block on standard output, over the one painted before, and clears `firstDraw`. One thread at a time.
    void drawStatus(const TStatus& status);
    /// For who does not know yet whose server answers: a report waits, on the dispatch thread, until `showReports` or
    /// `giveUp` is called, or the destructor. Before the first connection; main thread.
    void holdReports();
    /// Lets the reports go on. Any thread.
    void showReports();
    /// For who is about to say that the run has failed: from now on nothing is painted and no status ends the process.
    /// Waits for ever when a status has ended it already: the screen shows how the run ended then, with its exit
    /// status. A block that is being painted meanwhile is finished. Main thread.
    void giveUp();

protected:
    std::int32_t exitAfterFirstDraw;  ///< 1: the first painted status ends the process; 0: only one that is final
    bool firstDraw = true;            ///< nothing has been painted yet

private:
    /// What the run came to; settled once.
    enum class Outcome { open, ended, failed };
    bool settle(Outcome reached);
    void finish();

    std::atomic<Outcome> outcome{Outcome::open};  // written by `settle`
    std::atomic<bool> held{false};
};

}  // namespace CANFlasher
