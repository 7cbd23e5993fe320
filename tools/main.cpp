// The qxnego command: its subcommands, and the one place where errors become a line and an exit status.
#include <iostream>

#include <CLI/CLI.hpp>

#include "tools/commands/commands.h"
#include "tools/connection/interrupt.h"
#include "tools/connection/secret.h"
#include "tools/failure.h"

namespace {

int fail(const std::string &line, int status) {
    std::cout.flush();
    std::cerr << "qxnego: " << line << '\n';
    return status;
}

int run(int argc, char **argv) {
    tools::Secret logon;
    logon.take_argument(argc, argv, tools::kLogonOption);
    CLI::App program("QXNEGO: client and server agree on a security mechanism that both have.", "qxnego");
    program.set_version_flag("--version", "qxnego " QXNEGO_VERSION);
    program.require_subcommand(1);
    tools::add_demo(program);
    tools::add_serve(program);
    tools::add_connect(program, logon);
    tools::add_properties(program);
    tools::add_log(program);
    tools::add_dump(program);
    tools::add_mechs(program);
    tools::add_status(program);
    tools::add_try(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == tools::kExitSuccess)
            return program.exit(error); // help was asked for
        return fail(std::string(error.what()) + " (see qxnego --help)", tools::kExitUsage);
    }
    std::cout.flush();
    return std::cout ? tools::kExitSuccess : fail("the output cannot be written", tools::kExitFailure);
}

} // namespace

int main(int argc, char **argv) {
    tools::interrupt_on_signals();
    try {
        return run(argc, argv);
    } catch (const tools::Failure &failure) {
        return fail(failure.what(), failure.status());
    } catch (const std::exception &error) {
        return fail(error.what(), tools::kExitFailure);
    }
}
