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
#include "tests/faults/Injection.h"
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

void textsAreRightOrRefused() {
    using namespace toolsmisc;
    must(intToString(-255, 16, true) == "-FF", "intToString");
    must(doubleToString(3.14159, 2, 30) == std::string(26, ' ') + "3.14", "doubleToString");
    must(formatString("%s and %060d", "seven", 7).size() == 70, "formatString");
    must(subString("the quick brown fox jumps over the dog", 4, 30).size() == 27, "subString");
    const auto parts = splitString("one rather long part of a text|another rather long part", "|");
    must(parts.size() == 2, "splitString");
    must(joinStrings(parts, " / ").size() == 57, "joinStrings");
    const std::string path = joinPath("/usr/local/share/of/the/tool", "below", "and/deeper", "file.hex");
    must(path == "/usr/local/share/of/the/tool/below/and/deeper/file.hex", "joinPath");
    must(getDirectoryName(path) == "/usr/local/share/of/the/tool/below/and/deeper", "getDirectoryName");
    must(getFileName(path, true) == "file", "getFileName");
    must(getBackupName(path) == path + "~", "getBackupName");
}

namespace {

void writeAndReadBack(const Folder& folder, int fd) {
    using namespace toolsmisc;
    const bool first = tried(writeLine(fd, "first line"), "writeLine");
    const bool second = tried(writeFile(fd, "0123456789", 10) == 10, "writeFile");
    if (!first || !second || !done(flushFile(fd) == 0, "flushFile")) return;
    must(folder.read("deep/er/file") == "first line\r\n0123456789", "written is not there");
    if (const std::int64_t size = getOpenFileSize(fd); done(size != -1, "getOpenFileSize"))
        must(size == 22, "the size");
    std::array<char, 16> text{};
    if (tried(readAt(fd, 12, text.data(), 4) == 4, "readAt"))
        must(std::memcmp(text.data(), "0123", 4) == 0, "read at a place");
    if (done(seekFile(fd, 6, SEEK_SET) == 6, "seekFile") && tried(readFile(fd, text.data(), 4) == 4, "readFile"))
        must(std::memcmp(text.data(), "line", 4) == 0, "read");
    if (done(truncateFile(fd, 20) == 0, "truncateFile")) must(folder.read("deep/er/file").size() == 20, "cut");
}

}  // namespace

void filesKeepWhatWasWritten() {
    using namespace toolsmisc;
    const Folder folder;
    const std::string name = folder / "deep/er/file";
    const std::string copy = folder / "copy/of/it";
    const std::string moved = folder / "moved";
    if (const int fd = createFile(name); done(fd >= 0, "createFile")) {
        writeAndReadBack(folder, fd);
        done(closeFile(fd) == 0, "closeFile");
    }
    const std::string content = folder.read("deep/er/file");
    if (tried(copyFile(name, copy), "copyFile")) must(folder.read("copy/of/it") == content, "a copy that is none");
    must(folder.read("deep/er/file") == content, "copying harmed the source");
    done(setReadOnly(name), "setReadOnly");
    done(setWritable(name), "setWritable");
    must(folder.read("deep/er/file") == content, "rights harmed the file");
    const bool isMoved = done(moveFile(name, moved) == 0, "moveFile");
    must(folder.read(isMoved ? "moved" : "deep/er/file") == content, "moving lost the content");
    if (done(deleteFile(moved) == 0, "deleteFile")) must(!folder.has("moved"), "deleted is still there");
    if (const int fd = openForRead(copy); done(fd >= 0, "openForRead")) closeFile(fd);
    if (const int fd = openForWrite(copy); done(fd >= 0, "openForWrite")) closeFile(fd);
    std::uint64_t freeBytes = 0;
    std::uint64_t totalBytes = 0;
    if (!done(getDiskSpace('C', &freeBytes, &totalBytes), "getDiskSpace"))
        must(freeBytes == 0 && totalBytes == 0, "figures of a disk that nobody knows");
    const std::string here = getCurrentDirectory();
    done(!here.empty(), "getCurrentDirectory");
    if (done(changeDirectory(folder / "") == 0, "changeDirectory")) changeDirectory(here);
}

void aBackupLosesNothing() {
    const Folder folder;
    for (const bool success : {true, false}) {
        const std::string name = folder.write("settings", "old");
        {
            toolsmisc::FileBackup guard(name);
            const bool renamed = done(folder.has("settings~"), "FileBackup");
            if (renamed) folder.write("settings", "new");
            guard.finish(success || !renamed);  // without a backup there is nothing to go back to
        }
        const std::string content = folder.read("settings");
        done(content == (success ? "new" : "old"), "finish");
        const bool there = content == "old" || content == "new" || folder.read("settings~") == "old";
        must(there, "neither the old nor the new content is left");
    }
}

namespace {

void askAboutFiles(const Folder& folder) {
    using namespace toolsmisc;
    const std::string tree = folder / "a/b/c";
    const std::string file = folder / "a/b/one";
    if (const auto size = getFileSize(folder / "a/b/c/two"); done(size != -1, "getFileSize"))
        must(size == 2, "the size");
    must(!isDirectory(file, true), "a file is no directory");
    done(isDirectory(tree, false), "isDirectory");
    must(!isRegularFile(tree), "a directory is no file");
    done(isRegularFile(file), "isRegularFile");
    must(!isMountPoint(folder / "a"), "no mount point");
    if (const auto time = getModificationTime(file); done(time != 0, "getModificationTime"))
        must(time > 1000000000 && time < 4102444800, "the time");
    if (const auto found = findFiles(folder / "a/b/*", true); done(!found.empty(), "findFiles"))
        must(found.size() == 2, "findFiles");
    FileInfo info;
    int entries = 0;
    for (bool more = findFirst(info, folder / "a/b/*"); more; more = findNext(info), ++entries)
        must(!formatFileInfo(info).empty(), "formatFileInfo");
    done(entries == 2, "findNext");
}

}  // namespace

void foldersAreMadeAndRemoved() {
    using namespace toolsmisc;
    const Folder folder;
    const std::string outside = folder.write("outside/kept", "x");
    if (done(makeDirectories(folder / "a/b/c"), "makeDirectories")) must(folder.has("a/b/c"), "made is not there");
    folder.write("a/b/one", "1");
    folder.write("a/b/c/two", "22");
    askAboutFiles(folder);
    if (done(removeDirectory(folder / "a/b/c", true) == kRemoved, "removeDirectory"))
        must(!folder.has("a/b/c"), "removed is there");
    if (done(removeDirectoryTree(folder / "a") == kRemoved, "removeDirectoryTree"))
        must(!folder.has("a"), "removed tree is there");
    must(folder.has("outside/kept"), "removed too much");
    std::string temporary;
    if (done(makeTempDirectory(temporary), "makeTempDirectory")) {
        const Pause own;
        must(rmdir(temporary.c_str()) == 0, "the temporary directory is not there");
    }
    if (const std::string real = getRealPath(outside); done(!real.empty(), "getRealPath"))
        must(real == outside, "real");
}

void placesAndVersionsAreRight() {
    using namespace AgApp;
    must(getBinDirectory().ends_with("/bin"), "getBinDirectory");
    for (const auto place : {getConfigDirectory, getDataDirectory, getHexFileDirectory, getStorageDirectory,
                             getAppStorageDataDirectory, getGpsTypeFile, getLastRunFile, getApplicationName})
        must(!place().empty(), "an empty place");
    must(!getVersionLabel().empty(), "an empty version label");
    must(!getBuildDate().empty(), "an empty build date");
}

void processesAreListed() {
    const Folder table;
    table.write("1/status", "Name:\tinit\nPid:\t1\nPPid:\t0\nUid:\t0\t0\t0\t0\n");
    table.write("2/status", "Name:\tkthreadd\nPid:\t2\nPPid:\t0\nUid:\t0\t0\t0\t0\n");
    table.write("7/status", "Name:\tcorvane\nPid:\t7\nPPid:\t1\nUid:\t1000\t1000\t0\t0\n");
    const std::string place = table / "";
    const auto processes = AgApp::listProcessesIn(place);
    done(processes.size() == 3, "listProcesses");
    for (const AgApp::ProcessRecord& process : processes)
        must(process.pid == 1 || process.pid == 2 || process.pid == 7, "a process that is not there");
    must(!AgApp::isProcessRunningIn(place, "no process of this name"), "a process that does not run");
    done(AgApp::isProcessRunningIn(place, "corvane"), "isProcessRunning");
    const int parent = AgApp::getParentPidIn(place, 7);
    if (done(parent != 0, "getParentPid")) must(parent == 1, "the parent");
    must(!AgApp::isKernelThreadIn(place, 7), "isKernelThread");
}

}  // namespace faults
