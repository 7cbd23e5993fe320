// A text that may hold a password.
#ifndef QXNEGO_TOOLS_CONNECTION_SECRET_H
#define QXNEGO_TOOLS_CONNECTION_SECRET_H

#include <string>
#include <string_view>

#include "tools/descriptor.h"

namespace tools {

// It has a largest length, so that it lies in one place, which is wiped when it goes or is cleared.
class Secret {
  public:
    static constexpr std::size_t kLongest = std::size_t{64} * 1024;

    Secret() { text_.reserve(kLongest); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret() { clear(); }

    std::string_view text() const { return text_; }
    void clear();

    // False when it would become too long.
    bool append(std::string_view more);

    // Takes the value of an option of the command line, "NAME TEXT" or "NAME=TEXT", and overwrites it there, where
    // everybody on the machine can read it. Throws Failure (usage) for one that is too long.
    void take_argument(int argc, char **argv, std::string_view name);

    // Takes the first line of a file, "-" being the standard input, octet by octet: no buffer keeps a copy, and the
    // rest of the standard input is left to others. Throws Failure (usage).
    void take_line(const std::string &file);

    // Asks for it on the terminal, which does not show it. Throws Failure: usage without a terminal, and when a signal
    // ends the command.
    void ask(std::string_view prompt);

  private:
    void take_line(const Descriptor &input, const std::string &name);

    std::string text_;
};

} // namespace tools

#endif
