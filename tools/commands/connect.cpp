// qxnego connect HOST:PORT: logs on to a qxnego serve, sends messages and shows the echo. Its exit status tells the
// class of a failure.
#include <iostream>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include "tools/commands.h"
#include "tools/connection_options.h"

namespace tools {

namespace {

constexpr std::size_t kMessageSize = std::size_t{16} * 1024;
constexpr std::size_t kLongestLogon = std::size_t{64} * 1024;

struct Options : ConnectionOptions {
    std::string address;
    std::string logon;
    std::string logon_file;
    std::string target;
    std::string file = "-";
    std::uint64_t bench = 0;
    std::size_t size = 1024;
    bool delegate = false;
    bool no_messages = false;
};

// A secret text of some length at most, which it never exceeds: so it lies in one place, which is wiped when it goes.
class Secret {
  public:
    Secret() { text_.reserve(kLongestLogon); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret() { explicit_bzero(text_.data(), text_.capacity()); }
    std::string &text() { return text_; }

  private:
    std::string text_;
};

Descriptor open_input(const std::string &file) {
    Descriptor input(file == "-" ? dup(STDIN_FILENO) : open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (input.get() < 0)
        throw Failure(file + ": " + strerror(errno), kExitUsage);
    return input;
}

// The file's first line. It is read octet by octet: no buffer keeps a copy of it, and the rest of the standard input
// is left to the messages.
void read_line(const std::string &file, std::string &line) {
    const Descriptor input = open_input(file);
    char octet = 0;
    ssize_t got = 0;
    while ((got = read(input.get(), &octet, 1)) == 1 && octet != '\n') {
        if (line.size() == kLongestLogon)
            throw Failure(file + ": its first line is too long for a logon string", kExitUsage);
        line += octet;
    }
    if (got < 0)
        throw Failure(file + ": " + strerror(errno), kExitUsage);
}

// What is there to read, at most a message; empty at the end.
Bytes read_message(const Descriptor &input, std::size_t largest) {
    Bytes text(largest);
    wait_for(input, POLLIN, Clock::time_point::max());
    const ssize_t got = read(input.get(), text.data(), text.size());
    if (got < 0)
        throw Failure(std::string("reading the messages: ") + strerror(errno), kExitUsage);
    text.resize(static_cast<std::size_t>(got));
    return text;
}

void send_input(Session &session, const Descriptor &input, const Options &options) {
    const std::size_t largest = std::min<std::size_t>(kMessageSize, options.session.limits.frame / 2);
    for (Bytes text; !(text = read_message(input, largest)).empty();) {
        session.send_for_echo(text);
        if (!options.json)
            std::cout.write(as_text(text).data(), static_cast<std::streamsize>(text.size())).flush();
    }
}

void run_bench(Session &session, const Options &options) {
    const Bytes text(options.size, 'x');
    for (std::uint64_t i = 0; i != options.bench; ++i)
        session.send_for_echo(text);
}

void print_rate(const Connection &connection) {
    const double seconds = std::max(connection.message_seconds, 1e-9);
    std::cerr << connection.messages << " messages of " << connection.bytes / connection.messages << " bytes in "
              << seconds << " s: " << static_cast<std::uint64_t>(static_cast<double>(connection.messages) / seconds)
              << " a second, there and back\n";
}

void exchange_messages(Session &session, const Descriptor &input, const Options &options, Connection &connection) {
    if (options.no_messages)
        return;
    if (!session.is_protecting())
        throw Failure(connection.report.mechanism + " has no protection for messages: none is sent", kExitProtection);
    const Clock::time_point start = Clock::now();
    options.bench != 0 ? run_bench(session, options) : send_input(session, input, options);
    connection.message_seconds = std::chrono::duration<double>(Clock::now() - start).count();
}

void log_on_and_talk(const Framework &framework, const Options &options, const Descriptor &input,
                     Connection &connection) {
    const Address address = parse_address(options.address);
    Secret logon; // empty for single sign-on
    if (options.logon_file.empty())
        logon.text() = options.logon;
    else
        read_line(options.logon_file, logon.text());
    const Clock::time_point start = Clock::now();
    Stream stream(connect_to(address, start + options.session.limits.logon), options.session.limits);
    Session session(framework, stream, options.session, connection);
    const OM_uint32 flags = GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_CONF_FLAG |
                            GSS_C_INTEG_FLAG | (options.delegate ? GSS_C_DELEG_FLAG : 0U);
    const std::string target = options.target.empty() ? "host@" + address.host : options.target;
    session.log_on({logon.text(), target, flags});
    connection.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!options.json)
        print(std::cerr, options, connection);
    exchange_messages(session, input, options, connection);
    stream.send_end(EndReason::kDone);
}

// A failure is told by the caller, once; the table and the JSON line come before it.
void run_connect(const Options &options) {
    const Descriptor input = open_input(options.file);
    const std::unique_ptr<Framework> framework = configure(QXGSS_CLIENT, options);
    Connection connection;
    connection.is_client = true;
    connection.peer = options.address;
    try {
        log_on_and_talk(*framework, options, input, connection);
    } catch (const Failure &failure) {
        connection.failure = failure.what();
        connection.status = failure.status();
        if (options.json)
            print_json(std::cout, connection);
        else if (options.why && connection.seconds == 0 && !connection.own.empty())
            print_verdicts(std::cerr, verdicts_of(connection));
        throw;
    }
    if (options.json)
        print_json(std::cout, connection);
    else if (options.bench != 0)
        print_rate(connection);
}

} // namespace

void add_connect(CLI::App &program) {
    CLI::App *command = program.add_subcommand("connect", "Log on to a qxnego serve and send it messages");
    auto options = std::make_shared<Options>();
    command->add_option("ADDRESS", options->address, "Where it listens")->type_name("HOST:PORT")->required();
    auto *logon = command->add_option("--logon", options->logon,
                                      "Logon string; without one the credentials that are there are used");
    command->add_option("--logon-file", options->logon_file, "File whose first line is the logon string")
        ->type_name("FILE")
        ->excludes(logon);
    command->add_option("--target", options->target, "The service (default: host@HOST)")->type_name("SERVICE@HOST");
    command->add_flag("--delegate", options->delegate, "Delegate the credential to the server");
    auto *file =
        command->add_option("--file", options->file, "What to send (default: the standard input)")->type_name("FILE");
    auto *bench = command->add_option("--bench", options->bench, "Send this many messages and report the rate")
                      ->type_name("N")
                      ->check(CLI::PositiveNumber)
                      ->excludes(file);
    command->add_option("--size", options->size, "Size of such a message")
        ->type_name("BYTES")
        ->needs(bench)
        ->check(CLI::Range(std::size_t{1}, kMessageSize));
    command->add_flag("--no-messages", options->no_messages, "Only log on")->excludes(bench)->excludes(file);
    add_connection_options(*command, *options);
    command->callback([options] { run_connect(*options); });
}

} // namespace tools
