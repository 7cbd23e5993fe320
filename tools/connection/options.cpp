#include "tools/connection/options.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/files.h"
#include "tools/show/story.h"

namespace tools {

namespace {

// An option that is given in seconds.
template <typename Set>
void add_seconds(CLI::App &command, const char *name, const char *text, const char *usual, Set set) {
    command.add_option_function<unsigned>(name, set, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, 86'400U))
        ->default_str(usual);
}

} // namespace

void add_connection_options(CLI::App &command, ConnectionOptions &options) {
    add_configuration_option(command, options.configuration);
    command.add_flag("--require-confirmation", options.session.RequireConfirmation,
                     "Refuse a mechanism that cannot confirm the negotiation");
    command.add_flag("--why", options.why, "Show what became of each mechanism, and why");
    command.add_flag("--json", options.json, "Print JSON lines");
    add_seconds(command, "--logon-time", "From the connection until the first message", "30",
                [&](unsigned seconds) { options.session.LogonTime = seconds * 1000; });
    add_seconds(command, "--silence", "How long the peer may be silent between messages", "300",
                [&](unsigned seconds) { options.silence = std::chrono::seconds(seconds); });
    command.add_option("--max-frame", options.session.MaxMessage, "Largest message of the peer")
        ->type_name("BYTES")
        ->check(CLI::Range(1024U, 1U << 24))
        ->capture_default_str();
    command.add_option("--max-rounds", options.session.MaxRounds, "Most tokens of the peer in a negotiation")
        ->check(CLI::Range(1U, 1000U))
        ->capture_default_str();
}

void print(std::ostream &out, const ConnectionOptions &options, const Story &story) {
    if (options.json)
        return print_json(out, story);
    print_line(out, story);
    if (options.why && !story.verdicts.empty())
        print_verdicts(out, story.verdicts);
}

std::unique_ptr<Registry> configure(OM_uint32 role, const ConnectionOptions &options) {
    auto registry = std::make_unique<Registry>(role, configuration_file(options.configuration));
    registry->require_qxnego();
    for (const std::string &line : registry->messages())
        if (!options.json)
            std::cerr << "qxnego: " << line << '\n';
    return registry;
}

} // namespace tools
