#include "tests/sim/ProgramRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/Process.h"

namespace simtest {

namespace {

std::vector<char*> pointers(std::vector<std::string>& words) {
    std::vector<char*> list;
    for (std::string& word : words) list.push_back(word.data());
    list.push_back(nullptr);
    return list;
}

/// What a child does between fork and exec.
class FileActions {
public:
    FileActions(const std::string& out, const std::string& err, const Surroundings& surroundings) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addchdir_np(&actions, surroundings.folder.c_str());
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        for (int standard = 0; standard <= STDERR_FILENO && !surroundings.standardDescriptors; ++standard)
            posix_spawn_file_actions_addclose(&actions, standard);
    }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;

    posix_spawn_file_actions_t actions;
};

}  // namespace

ProgramRun::ProgramRun(const std::vector<std::string>& arguments, const Surroundings& surroundings) {
    std::vector<std::string> words = arguments, variables = surroundings.environment;
    words.insert(words.begin(), CORVANE_PROGRAM);
    const FileActions files(folder / "out", folder / "err", surroundings);
    if (posix_spawn(&child, CORVANE_PROGRAM, &files.actions, nullptr, pointers(words).data(),
                    pointers(variables).data()) != 0)
        child = -1;
}

ProgramRun::~ProgramRun() {
    if (child <= 0) return;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

void ProgramRun::signal(int number) const { kill(child, number); }

std::optional<int> ProgramRun::wait() {
    const std::optional<int> status = waitForProcess(child);
    if (status) child = -1;
    return status;
}

std::optional<int> waitForProcess(pid_t process) {
    int status = 0;
    if (process <= 0 || !testsupport::waitFor([&] { return waitpid(process, &status, WNOHANG) == process; }))
        return std::nullopt;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool ProgramRun::possible() { return ProgramRun({"-h"}).wait() == 0; }

}  // namespace simtest
