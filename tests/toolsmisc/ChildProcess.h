#pragma once
/// Work in a child process, confined where it removes things: a fault there must never reach the machine's files.

#include <functional>
#include <optional>
#include <string>

namespace testsupport {

/// Runs `work` in a child process and gives its text, or "killed by signal N" ("signal 14": it did not end in time).
/// Descriptors, current directory, limits and user of the test stay as they are.
std::string inChild(const std::function<std::string()>& work);

/// As `inChild`, on a thread with `root` as root of the file system and current directory: nothing outside can be
/// reached, by threads that `work` starts neither. Empty when neither being root nor a user namespace allows that; the
/// test then skips.
std::optional<std::string> inConfinedChild(const std::string& root, const std::function<std::string()>& work);

/// As `inConfinedChild`, in a mount namespace of its own; `prepare` runs before the root is changed, and its mounts end
/// with the child. Empty also when `prepare` returns false.
std::optional<std::string> inMountNamespace(const std::string& root, const std::function<bool()>& prepare,
                                            const std::function<std::string()>& work);

/// Why a test skips.
inline constexpr char kNotConfined[] = "needs root or user namespaces";

/// Every path below `folder` without its leading "/", sorted, a blank between them: "dir/" for a directory, "link@" for
/// a link.
std::string listing(const std::string& folder);

/// Gives up root's rights on this thread for good, so that permissions count also for root. For use in a child.
bool loseRootsRights();

}  // namespace testsupport
