#pragma once
/// Calls of this test program that go through a script (linker option --wrap, listed in CMakeLists.txt). Without a
/// script each does what it always does, except for `sync`, which never happens: it would wait for the whole machine.
/// One script a kind at a time, for one thread; it ends with its object.

#include <sys/statvfs.h>
#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace intercept {

/// The one script of its kind that is alive.
template <typename Script>
class Scripted {
public:
    Scripted() { current = static_cast<Script*>(this); }
    ~Scripted() { current = nullptr; }
    Scripted(const Scripted&) = delete;
    Scripted& operator=(const Scripted&) = delete;

    static inline Script* current = nullptr;
};

/// `vsnprintf` prints as ever but returns the given results, one a call, as long as there are any.
struct FormattedLengths : Scripted<FormattedLengths> {
    explicit FormattedLengths(std::deque<int> lengths) : results(std::move(lengths)) {}

    std::deque<int> results;
    std::vector<std::size_t> limits;  // what each call was told about the buffer's size
};

enum class When { before, after };

/// `action` runs before or after each attempt of `unlinkat` to remove an entry of this name ("" for any) as a file.
struct UnlinkAction : Scripted<UnlinkAction> {
    UnlinkAction(When moment, std::string entry, std::function<void()> work)
        : when(moment), name(std::move(entry)), action(std::move(work)) {}

    When when;
    std::string name;
    std::function<void()> action;
    int calls = 0;
};

/// Records "fsync 5", "close 5" and "sync" in the order of the calls. The `failing`-th close (from 1) closes, but says
/// that it failed with EIO.
struct CloseJournal : Scripted<CloseJournal> {
    explicit CloseJournal(int failing = 0) : untilFailure(failing) {}

    std::vector<std::string> calls;
    int untilFailure;
};

/// Counts the attempts to move the current directory.
struct CurrentDirectoryMoves : Scripted<CurrentDirectoryMoves> {
    int calls = 0;
};

/// The `nth` call (from 1) of `read` or `write` does at most `result` bytes, or fails with EIO when `result` is -1.
struct ShortTransfer : Scripted<ShortTransfer> {
    ShortTransfer(std::string name, int number, ssize_t outcome)
        : call(std::move(name)), nth(number), result(outcome) {}

    std::string call;
    int nth;
    ssize_t result;
    std::vector<std::size_t> counts;  // what each call was asked for
};

/// What `getpwuid_r` knows: a home folder, or no such user. Says ERANGE for buffers smaller than `leastBuffer`.
struct UserDatabase : Scripted<UserDatabase> {
    explicit UserDatabase(std::optional<std::string> folder, std::size_t least = 0)
        : home(std::move(folder)), leastBuffer(least) {}

    std::optional<std::string> home;
    std::size_t leastBuffer;
    std::vector<uid_t> asked;
};

/// `fstat` fails with EIO.
struct FailingStatus : Scripted<FailingStatus> {
    int calls = 0;
};

/// What `statvfs` says, or fails with EIO when there is nothing to say.
struct FileSystemFigures : Scripted<FileSystemFigures> {
    explicit FileSystemFigures(std::optional<struct statvfs> said) : figures(said) {}

    std::optional<struct statvfs> figures;
    std::vector<std::string> asked;
};

}  // namespace intercept
