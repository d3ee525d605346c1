#include "sim/HexFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "sim/Descriptor.h"
#include "sim/Status.h"

namespace sim {

namespace {

Failure systemFailure(const char* what) {
    const int code = errno;
    return {code, std::string(what) + ": " + std::generic_category().message(code)};
}

bool readSome(int descriptor, std::string& content, std::size_t limitBytes, ssize_t& got) {
    const std::size_t before = content.size();
    content.resize(std::min(before + 65536, limitBytes + 1));
    do {
        got = read(descriptor, content.data() + before, content.size() - before);
    } while (got < 0 && errno == EINTR);
    content.resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
    return got > 0 && content.size() <= limitBytes;
}

Failure tooLarge(std::size_t limitBytes) { return {0, "it is larger than " + std::to_string(limitBytes) + " bytes"}; }

}  // namespace

Result<std::string> readRegularFile(const std::string& path, std::size_t limitBytes) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.valid()) return systemFailure("open()");
    struct stat facts {};
    if (fstat(file.get(), &facts) != 0) return systemFailure("fstat()");
    if (!S_ISREG(facts.st_mode)) return Failure{0, "it is not a regular file"};
    if (facts.st_size > static_cast<off_t>(limitBytes)) return tooLarge(limitBytes);
    std::string content;
    ssize_t got = 0;
    while (readSome(file.get(), content, limitBytes, got)) {
    }
    if (got < 0) return systemFailure("read()");
    if (content.size() > limitBytes) return tooLarge(limitBytes);
    return content;
}

std::variant<HexImage, HexFileProblem> loadHexFile(const std::string& path, AddressRange allowed) {
    const Result<std::string> text = readRegularFile(path, kLargestFileBytes);
    if (!text) {
        const int code = text.failure().status;
        const bool missing = code == ENOENT || code == ENOTDIR || code == ENAMETOOLONG;
        return HexFileProblem{missing ? kErrHexFileNotFound : kErrHexFileOpen, path + ": " + text.failure().text};
    }
    auto read = readHex(*text, allowed);
    if (const auto* wrong = std::get_if<HexProblem>(&read))
        return HexFileProblem{kErrHexFileFormat, path + ":" + std::to_string(wrong->line) + ":" +
                                                     std::to_string(wrong->column) + ": expected " + wrong->expected +
                                                     ", got " + wrong->got};
    return std::get<HexImage>(std::move(read));
}

}  // namespace sim
