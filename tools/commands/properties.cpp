// qxnego properties FILE: the records of a saved user-properties buffer.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/show/user_properties.h"

namespace tools {

namespace {

void show_properties(const std::string &file) {
    const Bytes buffer = read_file(file);
    const UserProperties properties = read_properties(buffer);
    if (!properties.records.empty())
        print_properties(std::cout, properties);
    if (properties.records.empty() || properties.end != buffer.size())
        throw Failure(file + ": no record begins at byte " + std::to_string(properties.end), kExitUsage);
}

} // namespace

void add_properties(CLI::App &program) {
    CLI::App *command = program.add_subcommand("properties", "Show the records of a saved user-properties buffer");
    auto file = std::make_shared<std::string>();
    command->add_option("FILE", *file, "The buffer, as inquire_properties_for_user gave it; - for standard input")
        ->required();
    command->callback([file] { show_properties(*file); });
}

} // namespace tools
