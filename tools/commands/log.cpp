// qxnego log FILE: the negotiation log of a saved user-properties buffer, and what became of each mechanism.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/show/log.h"
#include "tools/show/user_properties.h"

namespace tools {

namespace {

// The log itself, or the one inside a user-properties buffer.
std::string read_log_file(const std::string &file) {
    const Bytes content = read_file(file);
    if (is_negotiation_log(as_text(content)))
        return std::string(as_text(content));
    std::string log = read_properties(content).log;
    if (log.empty())
        throw Failure(file + ": holds no negotiation log", kExitUsage);
    return log;
}

void show_log(const std::string &file) {
    const std::string log = read_log_file(file);
    print_log(std::cout, log);
    print_views(std::cout, views_of(read_log(log)));
}

} // namespace

void add_log(CLI::App &program) {
    CLI::App *command = program.add_subcommand("log", "Show a saved negotiation log");
    auto file = std::make_shared<std::string>();
    command->add_option("FILE", *file, "A user-properties buffer or the text of a log; - for standard input")
        ->required();
    command->callback([file] { show_log(*file); });
}

} // namespace tools
