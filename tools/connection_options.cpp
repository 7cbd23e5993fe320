// Options of both ends of a connection.
#include "tools/connection_options.h"

#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/files.h"
#include "tools/registry.h"

namespace tools {

namespace {

template <typename Rep, typename Period>
void add_time(CLI::App &command, const char *name, std::chrono::duration<Rep, Period> &value, const char *text,
              const char *unit) {
    command
        .add_option_function<unsigned>(
            name, [&value](unsigned given) { value = std::chrono::duration<Rep, Period>(given); }, text)
        ->type_name(unit)
        ->check(CLI::Range(1U, 86'400U))
        ->default_str(std::to_string(value.count()));
}

} // namespace

void add_connection_options(CLI::App &command, ConnectionOptions &options) {
    Limits &limits = options.session.limits;
    add_configuration_option(command, options.configuration);
    command.add_flag("--require-confirmation", options.session.require_confirmation,
                     "Refuse a mechanism that cannot confirm the negotiation");
    command.add_flag("--why", options.why, "Show what became of each mechanism, and why");
    command.add_flag("--json", options.json, "Print JSON lines");
    add_time(command, "--logon-time", limits.logon, "From the connection until the first message", "SECONDS");
    add_time(command, "--silence", limits.silence, "How long the peer may be silent between messages", "SECONDS");
    command.add_option("--max-frame", limits.frame, "Largest frame of the peer")
        ->type_name("BYTES")
        ->check(CLI::Range(1024U, 1U << 24))
        ->capture_default_str();
    command.add_option("--max-rounds", limits.rounds, "Most tokens of the peer in a negotiation")
        ->check(CLI::Range(1U, 1000U))
        ->capture_default_str();
}

void print(std::ostream &out, const ConnectionOptions &options, const Connection &connection) {
    if (options.json)
        return print_json(out, connection);
    print_line(out, connection);
    const std::vector<Verdict> verdicts = verdicts_of(connection);
    if (options.why && !verdicts.empty())
        print_verdicts(out, verdicts);
    out.flush();
}

std::unique_ptr<Framework> configure(OM_uint32 role, const ConnectionOptions &options) {
    Report report;
    auto framework = std::make_unique<Framework>(role, configuration_file(options.configuration), report);
    for (OM_uint32 i = 0; i != MechCount && !options.json; ++i)
        if (pMechInfo[i].fUseMech == GSSP_MECH_UNUSED && pMechInfo[i].pszMessage != nullptr)
            std::cerr << "qxnego: " << printable(pMechInfo[i].pszMechName)
                      << " is not in use: " << printable(pMechInfo[i].pszMessage) << '\n';
    return framework;
}

} // namespace tools
