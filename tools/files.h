// Files and folders: whole-file reading and writing, a folder that lives as long as its object.
#ifndef QXNEGO_TOOLS_FILES_H
#define QXNEGO_TOOLS_FILES_H

#include <filesystem>

#include "tools/bytes.h"
#include "tools/descriptor.h"

namespace tools {

// The file as messages name it: its path, or "standard input" for "-".
inline std::string shown_name(const std::string &path) {
    return path == "-" ? "standard input" : path;
}

// The whole file, "-" being the standard input. Throws Failure (usage) when it cannot be read.
Bytes read_file(const std::string &path);

// The file, or the standard input for "-", to read from. Throws Failure (usage).
Descriptor open_input(const std::string &path);

// Makes or replaces the file, which only this user can read. Throws Failure.
void write_file(const std::filesystem::path &path, std::string_view text);

// A new folder that only this user can enter; removed with everything in it when the object goes.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    ~TemporaryFolder();

    const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// The folder of the framework's and the mechanisms' libraries: the given one, or else the one that belongs to this
// executable, in the build tree or installed. Throws Failure when QXNEGO's library is in neither.
std::filesystem::path library_folder(const std::string &given);

// The framework's configuration file: the given one, or else the one that belongs to this executable when installed.
// Throws Failure (usage) when there is no such file.
std::filesystem::path configuration_file(const std::string &given);

} // namespace tools

#endif
