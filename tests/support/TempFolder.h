#pragma once
/// A private folder for one test.

#include <string>

namespace testsupport {

/// A new folder below the system's folder for temporary files; it and all that is in it goes with the object.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// Absolute path without a trailing "/" and without symbolic links in it.
    const std::string& path() const { return path_; }
    /// Path of `name` inside the folder.
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    /// Writes `content` to `name`, which may hold folders that do not exist yet. Returns the file's path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    std::string path_;
};

/// The whole content of a file, empty when it cannot be read.
std::string readFile(const std::string& path);

/// Sets an environment variable for the life of the object (null: unsets it), then restores what was there.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string name;
    std::string previous;
    bool wasSet;
};

}  // namespace testsupport
