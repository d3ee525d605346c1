// Text, files, folders, places and the process table with failing calls.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "AgApp/Directories.h"
#include "AgApp/ProcessTable.h"
#include "AgApp/SuiteVersions.h"
#include "tests/faults/Scenarios.h"
#include "tests/support/TempFolder.h"
#include "toolsmisc/DurableFile.h"
#include "toolsmisc/FileBackup.h"
#include "toolsmisc/FileInfo.h"
#include "toolsmisc/FileSystem.h"
#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace faults {

namespace {

/// A folder of the run, made and removed without faults.
class Folder {
public:
    Folder() {
        const Pause own;
        folder = new testsupport::TempFolder;
    }
    ~Folder() {
        const Pause own;
        delete folder;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string operator/(const char* name) const {
        const Pause own;
        return *folder / name;
    }
    std::string write(const char* name, const char* content) const {
        const Pause own;
        return folder->write(name, content);
    }
    std::string read(const char* name) const {
        const Pause own;
        return testsupport::readFile(*folder / name);
    }
    bool has(const char* name) const {
        const Pause own;
        struct stat status {};
        return lstat((*folder / name).c_str(), &status) == 0;
    }

private:
    testsupport::TempFolder* folder;
};

}  // namespace

bool textsAreRightOrRefused() {
    using namespace toolsmisc;
    bool right = intToString(-255, 16, true) == "-FF" || wrong("intToString");
    right = (doubleToString(3.14159, 2, 30) == std::string(26, ' ') + "3.14" || wrong("doubleToString")) && right;
    right = (formatString("%s and %060d", "seven", 7).size() == 70 || wrong("formatString")) && right;
    right = (subString("the quick brown fox jumps over the dog", 4, 30).size() == 27 || wrong("subString")) && right;
    const auto parts = splitString("one rather long part of a text|another rather long part", "|");
    right = (parts.size() == 2 || wrong("splitString")) && right;
    right = (joinStrings(parts, " / ").size() == 57 || wrong("joinStrings")) && right;
    const std::string path = joinPath("/usr/local/share/of/the/tool", "below", "and/deeper", "file.hex");
    right = (path == "/usr/local/share/of/the/tool/below/and/deeper/file.hex" || wrong("joinPath")) && right;
    right = (getDirectoryName(path) == "/usr/local/share/of/the/tool/below/and/deeper" || wrong("directory")) && right;
    right = (getFileName(path, true) == "file" || wrong("getFileName")) && right;
    return (getBackupName(path) == path + "~" || wrong("getBackupName")) && right;
}

bool filesKeepWhatWasWritten() {
    using namespace toolsmisc;
    const Folder folder;
    const std::string name = folder / "deep/er/file";
    const std::string copy = folder / "copy/of/it";
    const std::string moved = folder / "moved";
    bool right = true;
    std::array<char, 16> text{};
    if (const int fd = createFile(name); fd >= 0) {
        const bool first = writeLine(fd, "first line");
        const bool second = writeFile(fd, "0123456789", 10) == 10;
        if (first && second && flushFile(fd) == 0) {
            if (folder.read("deep/er/file") != "first line\r\n0123456789") right = wrong("written is not there");
            const std::int64_t size = getOpenFileSize(fd);
            if (size != 22 && size != -1) right = wrong("getOpenFileSize");
            const ssize_t got = readAt(fd, 12, text.data(), 4);
            if (got == 4 && std::memcmp(text.data(), "0123", 4) != 0) right = wrong("readAt");
            if (seekFile(fd, 6, SEEK_SET) == 6 && readFile(fd, text.data(), 4) == 4 &&
                std::memcmp(text.data(), "line", 4) != 0)
                right = wrong("readFile");
            if (truncateFile(fd, 20) == 0 && folder.read("deep/er/file").size() != 20) right = wrong("truncateFile");
        }
        closeFile(fd);
    }
    const std::string content = folder.read("deep/er/file");
    if (copyFile(name, copy) && folder.read("copy/of/it") != content) right = wrong("a copy that is none");
    if (folder.read("deep/er/file") != content) right = wrong("copying harmed the source");
    if (setReadOnly(name) && !setWritable(name) && !folder.has("deep/er/file")) right = wrong("rights harmed the file");
    if (moveFile(name, moved) == 0 ? folder.read("moved") != content : folder.read("deep/er/file") != content)
        right = wrong("moving lost the content");
    if (deleteFile(moved) == 0 && folder.has("moved")) right = wrong("deleted is still there");
    if (const int fd = openForRead(copy); fd >= 0) closeFile(fd);
    if (const int fd = openForWrite(copy); fd >= 0) closeFile(fd);
    std::uint64_t freeBytes = 0;
    std::uint64_t totalBytes = 0;
    if (!getDiskSpace('C', &freeBytes, &totalBytes) && (freeBytes != 0 || totalBytes != 0)) right = wrong("space");
    const std::string here = getCurrentDirectory();
    if (changeDirectory(folder / "") == 0 && !here.empty() && changeDirectory(here) == 0) return right;
    return right;
}

bool aBackupLosesNothing() {
    const Folder folder;
    bool right = true;
    for (const bool success : {true, false}) {
        const std::string name = folder.write("settings", "old");
        {
            toolsmisc::FileBackup guard(name);
            const bool renamed = folder.has("settings~");
            if (renamed) folder.write("settings", "new");
            guard.finish(success || !renamed);  // without a backup there is nothing to go back to
        }
        const std::string content = folder.read("settings");
        const bool there = content == "old" || content == "new" || folder.read("settings~") == "old";
        if (!there) right = wrong("neither the old nor the new content is left");
    }
    return right;
}

bool foldersAreMadeAndRemoved() {
    using namespace toolsmisc;
    const Folder folder;
    const std::string outside = folder.write("outside/kept", "x");
    const std::string tree = folder / "a/b/c";
    bool right = true;
    if (makeDirectories(tree) && !folder.has("a/b/c")) right = wrong("made is not there");
    folder.write("a/b/one", "1");
    folder.write("a/b/c/two", "22");
    if (getFileSize(folder / "a/b/c/two") > 2) right = wrong("getFileSize");
    if (isDirectory(folder / "a/b/one", true)) right = wrong("a file is no directory");
    if (isRegularFile(tree)) right = wrong("a directory is no file");
    if (isMountPoint((folder / "a").c_str())) right = wrong("no mount point");
    if (getModificationTime(folder / "a/b/one") > 4102444800) right = wrong("getModificationTime");
    if (findFiles(folder / "a/b/*", true).size() > 2) right = wrong("findFiles");
    FileInfo info;
    for (bool more = findFirst(info, folder / "a/b/*"); more; more = findNext(info))
        if (formatFileInfo(info).empty()) right = wrong("formatFileInfo");
    if (removeDirectory((folder / "a").c_str(), true) == kRemoved && folder.has("a")) right = wrong("removed is there");
    if (removeDirectoryTree(folder / "a/b") == kRemoved && folder.has("a/b")) right = wrong("removed tree is there");
    if (!folder.has("outside/kept")) right = wrong("removed too much");
    std::string temporary;
    if (makeTempDirectory(temporary)) {
        const Pause own;
        if (rmdir(temporary.c_str()) != 0) right = wrong("the temporary directory is not there");
    }
    const std::string real = getRealPath(outside);
    if (!real.empty() && real != outside) right = wrong("getRealPath");
    return right;
}

bool placesAndVersionsAreRight() {
    using namespace AgApp;
    const std::string bin = getBinDirectory();
    bool right = bin.size() >= 4 && bin.compare(bin.size() - 4, 4, "/bin") == 0;
    if (!right) wrong("getBinDirectory");
    for (const auto place : {getConfigDirectory, getDataDirectory, getHexFileDirectory, getStorageDirectory,
                             getAppStorageDataDirectory, getGpsTypeFile, getLastRunFile, getApplicationName})
        if (place().empty()) right = wrong("an empty place");
    if (getVersionLabel().empty()) right = wrong("an empty version label");
    return (getBuildDate().size() == 23 || getBuildDate().size() == 19 || !getBuildDate().empty()) && right;
}

bool processesAreListed() {
    const Folder table;
    table.write("1/status", "Name:\tinit\nPid:\t1\nPPid:\t0\nUid:\t0\t0\t0\t0\n");
    table.write("2/status", "Name:\tkthreadd\nPid:\t2\nPPid:\t0\nUid:\t0\t0\t0\t0\n");
    table.write("7/status", "Name:\tcorvane\nPid:\t7\nPPid:\t1\nUid:\t1000\t1000\t0\t0\n");
    const std::string place = table / "";
    bool right = true;
    for (const AgApp::ProcessRecord& process : AgApp::listProcesses(place))
        if (process.pid != 1 && process.pid != 2 && process.pid != 7) right = wrong("a process that is not there");
    if (AgApp::isProcessRunning("no process of this name", place)) right = wrong("a process that does not run");
    if (AgApp::getParentPid(7, place) > 1) right = wrong("getParentPid");
    if (AgApp::isKernelThread(7, place)) right = wrong("isKernelThread");
    return right;
}

}  // namespace faults
