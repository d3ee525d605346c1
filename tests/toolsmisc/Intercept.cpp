#include "tests/toolsmisc/Intercept.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

using namespace intercept;

namespace {

int formatted(int length, std::size_t limit) {
    FormattedLengths* const script = FormattedLengths::current;
    if (script == nullptr) return length;
    script->limits.push_back(limit);
    if (script->results.empty()) return length;
    const int scripted = script->results.front();
    script->results.pop_front();
    return scripted;
}

void unlinked(When moment, const char* name, int flags) {
    UnlinkAction* const script = UnlinkAction::current;
    if (script == nullptr || script->when != moment || flags != 0) return;
    if (!script->name.empty() && script->name != name) return;
    ++script->calls;
    script->action();
}

void record(const std::string& call) {
    if (CloseJournal::current != nullptr) CloseJournal::current->calls.push_back(call);
}

void countMove() {
    if (CurrentDirectoryMoves::current != nullptr) ++CurrentDirectoryMoves::current->calls;
}

/// How many bytes the call may do, -1 for a failing one.
ssize_t allowed(const char* call, std::size_t count) {
    ShortTransfer* const script = ShortTransfer::current;
    const auto all = static_cast<ssize_t>(count);
    if (script == nullptr || script->call != call) return all;
    script->counts.push_back(count);
    if (static_cast<int>(script->counts.size()) != script->nth) return all;
    errno = EIO;
    return std::min(script->result, all);
}

int answerUser(const UserDatabase& script, passwd* entry, char* buffer, std::size_t size, passwd** result) {
    *result = nullptr;
    if (size < script.leastBuffer) return ERANGE;
    if (!script.home) return 0;
    script.home->copy(buffer, size);
    buffer[script.home->size()] = '\0';
    entry->pw_dir = buffer;
    *result = entry;
    return 0;
}

}  // namespace

// The system's name of an `fstat` with 64-bit sizes and times.
#if __WORDSIZE == 64
#define FSTAT(prefix) prefix##fstat64
#else
#define FSTAT(prefix) prefix##__fstat64_time64
#endif

// NOLINTBEGIN(bugprone-reserved-identifier): the linker prescribes these names.
extern "C" {

int __real_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments);
int __wrap_vsnprintf(char* buffer, std::size_t size, const char* format, va_list arguments) {
    return formatted(__real_vsnprintf(buffer, size, format, arguments), size);
}

int __real___vsnprintf_chk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                           va_list arguments);
int __wrap___vsnprintf_chk(char* buffer, std::size_t size, int flag, std::size_t room, const char* format,
                           va_list arguments) {
    return formatted(__real___vsnprintf_chk(buffer, size, flag, room, format, arguments), size);
}

int __real_unlinkat(int folder, const char* name, int flags);
int __wrap_unlinkat(int folder, const char* name, int flags) {
    unlinked(When::before, name, flags);
    const int result = __real_unlinkat(folder, name, flags);
    const int reason = errno;
    unlinked(When::after, name, flags);
    errno = reason;
    return result;
}

void __wrap_sync() { record("sync"); }

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    record("fsync " + std::to_string(fd));
    return __real_fsync(fd);
}

int __real_close(int fd);
int __wrap_close(int fd) {
    record("close " + std::to_string(fd));
    const int result = __real_close(fd);
    if (CloseJournal::current == nullptr || --CloseJournal::current->untilFailure != 0) return result;
    errno = EIO;
    return -1;
}

int __real_chdir(const char* path);
int __wrap_chdir(const char* path) {
    countMove();
    return __real_chdir(path);
}

int __real_fchdir(int fd);
int __wrap_fchdir(int fd) {
    countMove();
    return __real_fchdir(fd);
}

ssize_t __real_read(int fd, void* buffer, std::size_t count);
ssize_t __wrap_read(int fd, void* buffer, std::size_t count) {
    const ssize_t most = allowed("read", count);
    return most < 0 ? -1 : __real_read(fd, buffer, static_cast<std::size_t>(most));
}

ssize_t __wrap___read_chk(int fd, void* buffer, std::size_t count, std::size_t) {
    return __wrap_read(fd, buffer, count);
}

ssize_t __real_write(int fd, const void* buffer, std::size_t count);
ssize_t __wrap_write(int fd, const void* buffer, std::size_t count) {
    const ssize_t most = allowed("write", count);
    return most < 0 ? -1 : __real_write(fd, buffer, static_cast<std::size_t>(most));
}

int __real_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** result);
int __wrap_getpwuid_r(uid_t user, passwd* entry, char* buffer, std::size_t size, passwd** result) {
    UserDatabase* const script = UserDatabase::current;
    if (script == nullptr) return __real_getpwuid_r(user, entry, buffer, size, result);
    script->asked.push_back(user);
    return answerUser(*script, entry, buffer, size, result);
}

int FSTAT(__real_)(int fd, struct stat* status);
int FSTAT(__wrap_)(int fd, struct stat* status) {
    FailingStatus* const script = FailingStatus::current;
    if (script == nullptr) return FSTAT(__real_)(fd, status);
    ++script->calls;
    errno = EIO;
    return -1;
}

int __real_statvfs64(const char* path, struct statvfs* figures);
int __wrap_statvfs64(const char* path, struct statvfs* figures) {
    FileSystemFigures* const script = FileSystemFigures::current;
    if (script == nullptr) return __real_statvfs64(path, figures);
    script->asked.emplace_back(path);
    if (script->figures) *figures = *script->figures;
    errno = EIO;
    return script->figures ? 0 : -1;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
