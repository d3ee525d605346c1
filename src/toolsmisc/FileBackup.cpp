#include "toolsmisc/FileBackup.h"

#include "toolsmisc/FileSystem.h"
#include "toolsmisc/Path.h"

namespace toolsmisc {

FileBackup::FileBackup(const std::string& file) : path(file) { renameFile(path, getBackupName(path)); }

FileBackup::~FileBackup() { finish(true); }

void FileBackup::finish(bool success) {
    // Once finished the backup is gone: removing the file once more would lose its content.
    if (!active) return;
    active = false;
    if (success) {
        removeFile(getBackupName(path));
        return;
    }
    restored = true;
    removeFile(path);
    renameFile(getBackupName(path), path);
}

}  // namespace toolsmisc
