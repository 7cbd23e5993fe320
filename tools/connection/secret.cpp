#include "tools/connection/secret.h"

#include <unistd.h>

#include "tools/connection/sockets.h"
#include "tools/failure.h"
#include "tools/files.h"

namespace tools {

void Secret::clear() {
    explicit_bzero(text_.data(), text_.capacity());
    text_.clear();
}

bool Secret::append(std::string_view more) {
    if (more.size() > kLongest - text_.size())
        return false;
    text_ += more;
    return true;
}

void Secret::take_argument(int argc, char **argv, std::string_view name) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        char *value = nullptr;
        if (argument == name && i + 1 < argc)
            value = argv[++i];
        else if (argument.starts_with(name) && argument.substr(name.size()).starts_with('='))
            value = argv[i] + name.size() + 1;
        if (value == nullptr)
            continue;
        clear();
        if (!append(value))
            throw Failure(std::string(name) + ": the text is too long", kExitUsage);
        std::memset(value, '*', std::strlen(value));
    }
}

void Secret::take_line(const std::string &file) {
    const Descriptor input = open_input(file);
    char octet = 0;
    ssize_t got = 0;
    while ((got = read(input.get(), &octet, 1)) == 1 && octet != '\n')
        if (!append({&octet, 1}))
            throw Failure(file + ": its first line is too long", kExitUsage);
    if (got < 0)
        throw system_failure(file, kExitUsage);
}

} // namespace tools
