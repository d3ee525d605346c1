#include "AgApp/Directories.h"

#include <unistd.h>

#include <cstdlib>

#include "toolsmisc/Path.h"
#include "toolsmisc/Text.h"

namespace AgApp {

using toolsmisc::joinPath;

namespace {

constexpr uid_t kSuperUser = 0;
constexpr const char* kSystemRoot = "/usr/local/varnex";

std::string dataFile(const char* name) { return joinPath(getDataDirectory(), name); }

std::string gpsFile(const char* name) { return joinPath(getGpsInfoDirectory(), name); }

// The character after the root is taken for the separator, whatever it is.
std::string partBelow(const std::string& root, const std::string& folder) {
    return folder.size() > root.size() ? folder.substr(root.size() + 1) : std::string();
}

}  // namespace

std::string rootDirectory(uid_t uid, const char* home) {
    if (uid == kSuperUser || home == nullptr) return kSystemRoot;
    return joinPath(home, ".varnex");
}

std::string applicationName(const std::string& root, const std::string& applicationDirectory) {
    std::string name = applicationDirectory;
    if (applicationDirectory.starts_with(root)) {
        name = partBelow(root, applicationDirectory);
    } else if (applicationDirectory.starts_with('/')) {
        name.erase(0, 1);
    }
    return name.empty() ? "app" : name;
}

std::string gpsInfoDirectory(const char* environmentValue, const std::string& dataDirectory) {
    return environmentValue != nullptr ? environmentValue : joinPath(dataDirectory, "zkgps");
}

std::string getRootDirectory() { return rootDirectory(getuid(), std::getenv("HOME")); }

std::string getApplicationDirectory() { return joinPath(getRootDirectory(), "common"); }

std::string getApplicationName() {
    // Never destroyed: threads may still ask while another one runs `exit`.
    static const std::string& name = *new std::string(applicationName(getRootDirectory(), getApplicationDirectory()));
    return name;
}

std::string getBinDirectory() { return joinPath(getRootDirectory(), "bin"); }
std::string getSystemDirectory() { return joinPath(getRootDirectory(), "system"); }
std::string getShareDirectory() { return joinPath(getRootDirectory(), "share"); }

std::string getConfigDirectory() { return joinPath(getApplicationDirectory(), "config"); }
std::string getDataDirectory() { return joinPath(getApplicationDirectory(), "data"); }
std::string getWifiDirectory() { return joinPath(getApplicationDirectory(), "wifi"); }
std::string getTransferDirectory() { return joinPath(getApplicationDirectory(), "transfer"); }
std::string getHexFileDirectory() { return joinPath(getApplicationDirectory(), "hexfile"); }
std::string getAuxDataDirectory() { return joinPath(getDataDirectory(), "aux"); }

std::string getStorageDirectory() { return joinPath(getRootDirectory(), "storage"); }
std::string getAppStorageDirectory() { return joinPath(getStorageDirectory(), getApplicationName()); }
std::string getSharedStorageDirectory() { return joinPath(getStorageDirectory(), "share"); }
std::string getAppStorageConfigDirectory() { return joinPath(getAppStorageDirectory(), "config"); }
std::string getAppStorageDataDirectory() { return joinPath(getAppStorageDirectory(), "data"); }

std::string getNumberedConfigDirectory(int n) {
    return toolsmisc::formatString("%s/S%04d", getConfigDirectory().c_str(), n);
}

std::string getGuideLinesFile() { return dataFile("guidelines.gln"); }
std::string getGuideCirclesFile() { return dataFile("guidecircles.gln"); }
std::string getGuidePolygonsFile() { return dataFile("guidepolygons.gln"); }
std::string getBoundariesFile() { return dataFile("boundaries.bnd"); }
std::string getAppliedFile() { return dataFile("applied.rcd"); }
std::string getQuadTreeFile() { return dataFile("quadtree.dat"); }
std::string getLastRunFile() { return dataFile("lastrun.txt"); }

std::string getGpsInfoDirectory() {
    return gpsInfoDirectory(std::getenv("GPS_INFO_FILES_DIRECTORY"), getDataDirectory());
}
std::string getGpsModelFile() { return gpsFile("model.inf"); }
std::string getGpsTypeFile() { return gpsFile("type.inf"); }
std::string getGpsFirmwareFile() { return gpsFile("firmware.inf"); }

}  // namespace AgApp
