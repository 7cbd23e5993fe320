#include "tools/connection/secret.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "tools/connection/interrupt.h"
#include "tools/failure.h"
#include "tools/files.h"

namespace tools {

namespace {

// For as long as it lives the terminal shows nothing of what is typed, but for the end of the line.
class NoEcho {
  public:
    explicit NoEcho(const Descriptor &terminal) : terminal_(terminal) {
        tcgetattr(terminal_.get(), &before_);
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL;
        if (tcsetattr(terminal_.get(), TCSAFLUSH, &quiet) != 0)
            throw system_failure("hiding what is typed", kExitUsage);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;
    ~NoEcho() { tcsetattr(terminal_.get(), TCSAFLUSH, &before_); }

  private:
    const Descriptor &terminal_;
    termios before_{};
};

} // namespace

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
    take_line(open_input(file), file);
}

void Secret::take_line(const Descriptor &input, const std::string &name) {
    char octet = 0;
    ssize_t got = 0;
    while ((got = read(input.get(), &octet, 1)) == 1 && octet != '\n')
        if (!append({&octet, 1}))
            throw Failure(name + ": its first line is too long", kExitUsage);
    throw_if_interrupted();
    if (got < 0)
        throw system_failure(name, kExitUsage);
}

void Secret::ask(std::string_view prompt) {
    constexpr char kTerminal[] = "/dev/tty";
    const Descriptor terminal(open(kTerminal, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (terminal.get() < 0)
        throw system_failure("the terminal to ask at", kExitUsage);
    const NoEcho quiet(terminal);
    [[maybe_unused]] const ssize_t written = write(terminal.get(), prompt.data(), prompt.size());
    take_line(terminal, kTerminal);
}

} // namespace tools
