#pragma once
/// Keeps the old content of a file while it is rewritten.

#include <string>

namespace toolsmisc {

/// Moves a file out of the way (to `getBackupName(path)`) at construction, and at the end either removes that backup or
/// puts it back. Between the two the caller writes the new file under the same path. One thread at a time; the fields
/// are there to be read.
///
/// Without a file there is no new backup; one that an interrupted run left behind is then the one that is removed or
/// put back. Failures of the file system show in the files only.
class FileBackup {
public:
    /// Moves `file` to its backup name, replacing an older backup.
    explicit FileBackup(const std::string& file);
    /// Keeps the new file and removes the backup unless the guard is finished.
    ~FileBackup();
    FileBackup(const FileBackup&) = delete;
    FileBackup& operator=(const FileBackup&) = delete;

    /// With `success` keeps the new file and removes the backup; else removes the new file and puts the backup back.
    /// Only regular files are removed. On a finished guard it does nothing.
    void finish(bool success);

    std::string path;       ///< the file being replaced
    bool active = true;     ///< until the guard is finished
    bool restored = false;  ///< the backup has been put back
};

}  // namespace toolsmisc
