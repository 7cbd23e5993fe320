// Files and folders. Every failure is one line with the file's name and the system's reason.
#include "tools/files.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/failure.h"

namespace tools {

namespace fs = std::filesystem;

namespace {

constexpr char kMechanismLibrary[] = "libgssp2qxnego.so";

// The folder of this executable.
fs::path here() {
    return fs::read_symlink("/proc/self/exe").parent_path();
}

// Where the configuration is, of a command that is installed here: that of one under /usr is in /etc.
fs::path installed_configuration() {
    const std::string file = fs::weakly_canonical(here() / QXNEGO_INSTALLED_CONFIGURATION);
    return file.starts_with("/usr/etc/") ? file.substr(std::strlen("/usr")) : file;
}

Bytes read_stream(std::istream &in) {
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

Bytes read_file(const std::string &path) {
    if (path == "-")
        return read_stream(std::cin);
    if (fs::is_directory(path))
        throw Failure(path + ": is a directory", kExitUsage);
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw system_failure(path, kExitUsage);
    return read_stream(in);
}

void write_file(const fs::path &path, std::string_view text) {
    const Descriptor out(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR));
    ssize_t written = out.get() < 0 ? -1 : 0;
    while (written >= 0 && !text.empty()) {
        written = write(out.get(), text.data(), text.size());
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    if (written < 0)
        throw system_failure(path.string());
}

Descriptor open_input(const std::string &path) {
    Descriptor input(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (input.get() < 0)
        throw system_failure(path, kExitUsage);
    return input;
}

TemporaryFolder::TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "qxnego-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw system_failure(name);
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

fs::path library_folder(const std::string &given) {
    if (!given.empty()) {
        if (!fs::exists(fs::path(given) / kMechanismLibrary))
            throw Failure(given + ": has no " + kMechanismLibrary, kExitUsage);
        return fs::absolute(given);
    }
    for (const char *relative : {"../lib", QXNEGO_INSTALLED_LIBRARIES})
        if (fs::exists(here() / relative / kMechanismLibrary))
            return fs::weakly_canonical(here() / relative);
    throw Failure(std::string(kMechanismLibrary) + " is not where it belongs; name its folder with --library-path");
}

fs::path configuration_file(const std::string &given) {
    fs::path file = given.empty() ? installed_configuration() : fs::path(given);
    if (!fs::exists(file))
        throw Failure(file.string() + ": there is no such file" + (given.empty() ? "; name one with --config" : ""),
                      kExitUsage);
    return file;
}

} // namespace tools
