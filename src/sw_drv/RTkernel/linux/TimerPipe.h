#pragma once
/// The pipe that wakes the timer thread when a timer is armed to expire earlier than all others.

namespace threadfunc {

/// Never blocks a writer. Both ends are closed in programs that this one starts.
class TimerPipe {
public:
    /// Opens a pipe. When the system refuses, prints one line on standard error; sleeping then lasts its full time,
    /// and waking prints a line.
    TimerPipe();
    /// Takes two descriptors, -1 for an end that is missing.
    TimerPipe(int readDescriptor, int writeDescriptor);
    ~TimerPipe();
    TimerPipe(const TimerPipe&) = delete;
    TimerPipe& operator=(const TimerPipe&) = delete;

    /// Makes the current or next `_threadTimerSleep` return. Any thread; returns at once. One line on standard error
    /// when it fails: the timer thread then looks again after its sleep.
    void _threadTimerWakeup() const;

    /// Waits for a wake-up, `timeoutMs` at most, and takes it; wake-ups beyond the first end later calls at once. One
    /// line on standard error when it cannot be read. Where the system refuses to wait for it, sleeps the whole time.
    void _threadTimerSleep(int timeoutMs) const;

private:
    int readEnd;
    int writeEnd;
};

}  // namespace threadfunc
