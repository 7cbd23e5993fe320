// The options of every subcommand in one place: the library that reads them takes long to compile.
#include "tools/commands/commands.h"

#include <CLI/CLI.hpp>

#include "common/text.h"
#include "tools/connection/secret.h"
#include "tools/failure.h"

namespace tools {

namespace {

// What this option holds is taken out of the process's arguments before they are read.
constexpr char kLogonOption[] = "--logon";

struct AllOptions {
    ConnectOptions connect;
    DemoOptions demo;
    DumpOptions dump;
    MechsOptions mechs;
    ServeOptions serve;
    StatusOptions status;
    TryOptions rehearsal;
    DumpOptions shown; // by the older names
};

template <typename Options>
CLI::App &add(CLI::App &program, const char *name, const char *what, Options &options, void (*run)(const Options &)) {
    CLI::App *command = program.add_subcommand(name, what);
    command->callback([&options, run] { run(options); });
    return *command;
}

void add_configuration(CLI::App &command, std::string &file) {
    command.add_option("--config", file, "The framework's configuration file (default: the installed one)")
        ->type_name("FILE")
        ->envname("QXGSS_CONF");
}

// ---- Connections ---------------------------------------------------------------------------------------------------

template <typename Set>
void add_seconds(CLI::App &command, const char *name, const char *text, const char *usual, Set set) {
    command.add_option_function<unsigned>(name, set, text)
        ->type_name("SECONDS")
        ->check(CLI::Range(1U, 86'400U))
        ->default_str(usual);
}

void add_connection(CLI::App &command, ConnectionOptions &options) {
    add_configuration(command, options.configuration);
    command.add_flag("--require-confirmation", options.session.RequireConfirmation,
                     "Refuse a mechanism that cannot confirm the negotiation");
    command.add_option("--require", options.require, "Refuse every mechanism but these, whatever was negotiated")
        ->type_name("A,B,...")
        ->delimiter(',');
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

void add_serve(CLI::App &program, ServeOptions &options) {
    CLI::App &command =
        add(program, "serve", "Accept clients over TCP and send their messages back", options, run_serve);
    command.add_option("--listen", options.addresses, "Where to listen; port 0 for a free one (can be repeated)")
        ->type_name("HOST:PORT")
        ->capture_default_str();
    const auto add_limit = [&](const char *name, unsigned &limit, const char *text) {
        command.add_option(name, limit, text)->check(CLI::Range(1U, 10'000U))->capture_default_str();
    };
    add_limit("--max-clients", options.limits.clients, "Most clients at a time");
    add_limit("--max-address", options.limits.clients_of_address, "Most clients of one address at a time");
    add_limit("--max-failures", options.limits.failures_a_minute,
              "Failed logons a minute after which an address is served more slowly");
    command
        .add_option("--story", options.story, "Leave the story of each connection in this folder, as a page of HTML")
        ->type_name("DIR");
    command.add_option("--story-files", options.story_files, "Most files in that folder; what comes after leaves none")
        ->check(CLI::Range(1U, 1'000'000U))
        ->capture_default_str();
    add_connection(command, options);
    command
        .add_option("--refusal-time", options.session.RefusalTime,
                    "How long after a client's last token a refusal is sent")
        ->type_name("MILLISECONDS")
        ->check(CLI::Range(0U, 60'000U))
        ->capture_default_str();
}

void add_connect(CLI::App &program, ConnectOptions &options, Secret &logon) {
    CLI::App &command = *program.add_subcommand("connect", "Log on to a qxnego serve and send it messages");
    command.callback([&] { run_connect(options, logon); });
    command.add_option("ADDRESS", options.address, "Where it listens")->type_name("HOST:PORT")->required();
    auto *text = command.add_option(kLogonOption, options.overwritten,
                                    "Logon string; WARNING: others on this machine may see it before it is "
                                    "overwritten, and the shell may keep it. Better in a file, or asked for. Without "
                                    "one the credentials that are there are used");
    auto *file_of_logon =
        command.add_option("--logon-file", options.logon_file, "File whose first line is the logon string")
            ->type_name("FILE")
            ->excludes(text);
    command.add_flag("--ask", options.ask, "Ask for the logon string at the terminal, without showing it")
        ->excludes(text)
        ->excludes(file_of_logon);
    command.add_option("--target", options.target, "The service (default: host@HOST)")->type_name("SERVICE@HOST");
    command.add_flag("--delegate", options.delegate, "Delegate the credential to the server");
    auto *file =
        command.add_option("--file", options.file, "What to send (default: the standard input)")->type_name("FILE");
    auto *bench = command.add_option("--bench", options.bench, "Send this many messages and report the rate")
                      ->type_name("N")
                      ->check(CLI::PositiveNumber)
                      ->excludes(file);
    command.add_option("--size", options.size, "Size of such a message")
        ->type_name("BYTES")
        ->needs(bench)
        ->check(CLI::Range(std::size_t{1}, kLargestMessage));
    command.add_flag("--no-messages", options.no_messages, "Only log on")->excludes(bench)->excludes(file);
    add_connection(command, options);
}

// ---- Without a network ---------------------------------------------------------------------------------------------

void add_demo(CLI::App &program, DemoOptions &options) {
    CLI::App &command =
        add(program, "demo", "Watch a client and a server negotiate, in several scenarios", options, run_demo);
    command.add_option("SCENARIO", options.scenario, "The one to run; all of them without it")
        ->check(CLI::IsMember(scenario_names()));
    auto *list = command.add_flag("--list", options.list, "List the scenarios");
    auto *full =
        command.add_flag("--full", options.full, "Show the calls, the negotiation logs and the properties too");
    command.add_flag("--brief")->description("Leave them out, as it does anyway")->excludes(full);
    command.add_flag("--json", options.json, "As JSON")->excludes(full)->excludes(list);
    command.add_option("--save", options.save, "Write tokens, logs and user properties into this folder")
        ->type_name("DIR");
    command.add_option("--library-path", options.library_path, "Folder of the mechanisms' libraries")
        ->type_name("DIR")
        ->envname("QXNEGO_LIBRARY_PATH");
}

void add_dump(CLI::App &program, DumpOptions &options) {
    CLI::App &command = add(program, "dump", "Show a negotiation token and what is wrong in it, a log, user properties",
                            options, run_dump);
    command.add_option("FILE", options.file,
                       "The token, the log or the user properties: binary, hexadecimal or base64; without it, or as -, "
                       "standard input");
    auto *inner =
        command.add_flag("--inner", options.inner, "Show the contents of inner tokens too, which may be secret");
    auto *json = command.add_flag("--json", options.json, "As JSON");
    command.add_flag("--html", options.html, "A log or user properties as a page of HTML")
        ->excludes(inner)
        ->excludes(json);
}

// Not in the help: what dump shows, or a part of it.
void add_older_names(CLI::App &program, DumpOptions &options) {
    const auto add_name = [&](const char *name, const char *what, const char *file, void (*run)(const DumpOptions &)) {
        CLI::App &command = add(program, name, what, options, run);
        command.group("");
        command.add_option("FILE", options.file, file)->required();
        command.add_flag("--json", options.json, "As JSON");
    };
    add_name("log", "Show a saved negotiation log",
             "A user-properties buffer or the text of a log; - for standard input", run_log);
    add_name("properties", "Show the records of a saved user-properties buffer",
             "The buffer, as inquire_properties_for_user gave it; - for standard input", run_properties);
}

void add_mechs(CLI::App &program, MechsOptions &options) {
    CLI::App &command =
        add(program, "mechs", "Show the configured mechanisms, and why one is not in use", options, run_mechs);
    add_configuration(command, options.configuration);
    command.add_flag("--client", options.client, "Configure them as for a client, not a server");
    command.add_flag("--json", options.json, "As JSON");
}

void add_status(CLI::App &program, StatusOptions &options) {
    CLI::App &command = add(program, "status", "Explain major and minor statuses", options, run_status);
    command.add_option("CODE", options.codes, "Hexadecimal (0xE3000406, or E3000406 as in a log) or decimal")
        ->required();
    command.add_option("--mechanism", options.mechanism, "They are this mechanism's own minor statuses: ask it")
        ->type_name("NAME");
    add_configuration(command, options.configuration);
    command.add_flag("--json", options.json, "As JSON");
}

void add_try(CLI::App &program, TryOptions &options) {
    CLI::App &command =
        add(program, "try", "Show what a server would decide for a user and an offer", options, run_try);
    Request &request = options.request;
    const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "must not be empty" : ""; }, "");
    command.add_option("--user", request.user, "Who authenticates")->required()->check(not_empty);
    command.add_option("--offer", request.offer, "The client's mechanisms: names or OIDs")
        ->required()
        ->delimiter(',')
        ->type_name("A,B,...");
    command.add_option("--as", request.as, "The user that the client asks to act as")->type_name("USER");
    command.add_option("--profile", request.profile, "The profile that the client asks for");
    add_configuration(command, options.configuration);
    command.add_flag("--json", options.json, "As JSON");
}

// Which help knows what would be right.
std::string help_of(const CLI::App &program) {
    const auto chosen = program.get_subcommands();
    return std::string(" (see qxnego ") + (chosen.empty() ? "" : chosen.front()->get_name() + ' ') + "--help)";
}

std::string mistake(const CLI::App &program, const CLI::ParseError &error) {
    const std::vector<std::string> words = program.remaining();
    if (!program.get_subcommands().empty() || words.empty())
        return error.what();
    return "there is no subcommand or option " + common::quoted(words.front());
}

} // namespace

void run(int argc, char **argv) {
    Secret logon;
    logon.take_argument(argc, argv, kLogonOption);
    AllOptions options;
    CLI::App program("QXNEGO: client and server agree on a security mechanism that both have.", "qxnego");
    program.set_version_flag("--version", "qxnego " QXNEGO_VERSION);
    program.require_subcommand(1);
    add_demo(program, options.demo);
    add_serve(program, options.serve);
    add_connect(program, options.connect, logon);
    add_dump(program, options.dump);
    add_mechs(program, options.mechs);
    add_status(program, options.status);
    add_try(program, options.rehearsal);
    add_older_names(program, options.shown);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() != kExitSuccess)
            throw Failure(mistake(program, error) + help_of(program), kExitUsage);
        program.exit(error); // help was asked for
    }
}

} // namespace tools
