#include "tests/toolsmisc/ChildProcess.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <set>

#include "tests/support/Process.h"

namespace testsupport {

namespace {

constexpr unsigned kMostSeconds = 120;
constexpr char kImpossible[] = "impossible";

void sendAndLeave(int pipeEnd, const std::string& text) {
    std::size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t more = write(pipeEnd, text.data() + sent, text.size() - sent);
        if (more <= 0) break;
        sent += static_cast<std::size_t>(more);
    }
    leave(0);
}

std::string receive(int pipeEnd) {
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t got; (got = read(pipeEnd, part.data(), part.size())) > 0;) {
        text.append(part.data(), static_cast<std::size_t>(got));
    }
    return text;
}

bool writeTo(const char* file, const std::string& text) {
    std::ofstream out(file);
    out << text << std::flush;
    return out.good();
}

/// Rights of root over a namespace of its own, for those who are not root.
bool enterUserNamespace(int further) {
    const std::string uid = std::to_string(getuid());
    const std::string gid = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | further) != 0) return false;
    return writeTo("/proc/self/setgroups", "deny") && writeTo("/proc/self/uid_map", "0 " + uid + " 1") &&
           writeTo("/proc/self/gid_map", "0 " + gid + " 1");
}

bool enterNamespace(int further) {
    if (geteuid() != 0) return enterUserNamespace(further);
    return further == 0 || unshare(further) == 0;
}

/// Runs `work` on a thread that has a root of its own: the process can still write its counters where they belong.
std::string withRoot(const std::string& root, const std::function<std::string()>& work) {
    const auto confined = [&]() -> std::string {
        const bool changed = unshare(CLONE_FS) == 0 && chroot(root.c_str()) == 0 && chdir("/") == 0;
        return changed ? work() : kImpossible;
    };
    return std::async(std::launch::async, confined).get();
}

std::optional<std::string> possible(std::string text) {
    if (text == kImpossible) return std::nullopt;
    return text;
}

}  // namespace

std::string inChild(const std::function<std::string()>& work) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return "no pipe";
    std::fflush(nullptr);  // or the child would print once more what waits in our buffers
    const pid_t child = fork();
    if (child == 0) {
        alarm(kMostSeconds);
        close(ends[0]);
        try {
            sendAndLeave(ends[1], work());
        } catch (const std::exception& problem) {
            sendAndLeave(ends[1], problem.what());
        }
    }
    close(ends[1]);
    std::string text = receive(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status)) : text;
}

std::optional<std::string> inConfinedChild(const std::string& root, const std::function<std::string()>& work) {
    return possible(inChild([&] { return enterNamespace(0) ? withRoot(root, work) : kImpossible; }));
}

std::optional<std::string> inMountNamespace(const std::string& root, const std::function<bool()>& prepare,
                                            const std::function<std::string()>& work) {
    return possible(inChild([&]() -> std::string {
        if (!enterNamespace(CLONE_NEWNS)) return kImpossible;
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return kImpossible;
        return prepare() ? withRoot(root, work) : kImpossible;
    }));
}

std::string listing(const std::string& folder) {
    namespace fs = std::filesystem;
    std::set<std::string> paths;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        const std::string path = entry.path().lexically_relative(folder).string();
        const char* const mark = entry.is_symlink() ? "@" : entry.is_directory() ? "/" : "";
        paths.insert(path + mark);
    }
    std::string all;
    for (const std::string& path : paths) all += (all.empty() ? "" : " ") + path;
    return all;
}

bool loseRootsRights() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const std::array<__user_cap_data_struct, 2> none{};
    return syscall(SYS_capset, &header, none.data()) == 0;
}

}  // namespace testsupport
