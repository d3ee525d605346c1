#pragma once
/// Measures how long something takes.

namespace threadfunc {

/// On the clock of `secondsSinceStart`. Not for several threads at once.
class Stopwatch {
public:
    /// Runs from now on when `start` is true; else stands at 0.
    explicit Stopwatch(bool start);

    /// Starts, or starts over, at 0.
    void start();
    /// Stops; `elapsed` stands still. Stopping a stopwatch that does not run measures up to now all the same.
    void stop();
    /// Seconds from the start until now while running, else until the stop.
    double elapsed() const;
    /// `elapsed` in whole milliseconds, cut towards zero and to the range of int.
    int elapsedMs() const;

private:
    bool running = false;
    double startTime = 0;
    double stopTime = 0;
};

}  // namespace threadfunc
