#pragma once
/// Where the tools of the family keep their programs, settings and data files.
///
/// Every function only composes a path text: nothing is created, checked or opened, and nothing fails. A missing folder
/// is found out by whoever uses the path. All functions return at once and may be called by any thread, as long as
/// no other thread changes the environment meanwhile.

#include <sys/types.h>

#include <string>

namespace AgApp {

/// Installation root: "/usr/local/varnex" for the super-user or without `HOME`, else `$HOME` joined with ".varnex".
/// Read from user id and environment on every call, so that a change of `HOME` takes effect at once.
std::string getRootDirectory();
/// Folder of the running application's own files: root + "common".
std::string getApplicationDirectory();
/// Application folder relative to the root, "common" here. Computed on the first call and kept to the end of the
/// process.
std::string getApplicationName();

/// Programs: root + "bin".
std::string getBinDirectory();
/// System files: root + "system".
std::string getSystemDirectory();
/// Files that all applications read: root + "share".
std::string getShareDirectory();

/// Settings of the application: application folder + "config".
std::string getConfigDirectory();
/// Data of the application: application folder + "data".
std::string getDataDirectory();
/// Wireless settings: application folder + "wifi".
std::string getWifiDirectory();
/// Files on their way in or out: application folder + "transfer".
std::string getTransferDirectory();
/// Hex files to upload: application folder + "hexfile".
std::string getHexFileDirectory();
/// Auxiliary data: application folder + "data" + "aux".
std::string getAuxDataDirectory();

/// Files that outlive an update: root + "storage".
std::string getStorageDirectory();
/// Stored files of this application: root + "storage" + application name.
std::string getAppStorageDirectory();
/// Stored files of all applications: root + "storage" + "share".
std::string getSharedStorageDirectory();
/// Stored settings of this application: root + "storage" + application name + "config".
std::string getAppStorageConfigDirectory();
/// Stored data of this application: root + "storage" + application name + "data".
std::string getAppStorageDataDirectory();

/// Settings set `n`, any number: config folder + "S" and at least four digits, e.g. ".../config/S0007".
/// Made by `toolsmisc::formatString`, so a path of exactly 128 characters loses its last one.
std::string getNumberedConfigDirectory(int n);

/// Data file "guidelines.gln".
std::string getGuideLinesFile();
/// Data file "guidecircles.gln".
std::string getGuideCirclesFile();
/// Data file "guidepolygons.gln".
std::string getGuidePolygonsFile();
/// Data file "boundaries.bnd".
std::string getBoundariesFile();
/// Data file "applied.rcd".
std::string getAppliedFile();
/// Data file "quadtree.dat".
std::string getQuadTreeFile();
/// Data file "lastrun.txt".
std::string getLastRunFile();

/// The value of `GPS_INFO_FILES_DIRECTORY` when it is set, even if empty; else data folder + "zkgps".
std::string getGpsInfoDirectory();
/// GPS information file "model.inf"; a relative path when the GPS folder is empty.
std::string getGpsModelFile();
/// GPS information file "type.inf".
std::string getGpsTypeFile();
/// GPS information file "firmware.inf".
std::string getGpsFirmwareFile();

/// The root for real user id `uid` and a value of `HOME` (null: not set).
std::string rootDirectory(uid_t uid, const char* home);
/// The application's name for an application folder and a root: the folder relative to the root, or without its leading
/// "/" when it lies elsewhere, or "app" when that leaves nothing.
std::string applicationName(const std::string& root, const std::string& applicationDirectory);
/// The GPS folder for a value of `GPS_INFO_FILES_DIRECTORY` (null: not set) and the application's data folder.
std::string gpsInfoDirectory(const char* environmentValue, const std::string& dataDirectory);

}  // namespace AgApp
