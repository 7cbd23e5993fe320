// qxnego connect HOST:PORT: logs on to a qxnego serve, sends messages and shows the echo. Its exit status tells the
// class of a failure.
#include <algorithm>
#include <iostream>

#include <poll.h>
#include <unistd.h>

#include "tools/commands/commands.h"
#include "tools/connection/conversation.h"
#include "tools/connection/logon_string.h"
#include "tools/connection/secret.h"
#include "tools/files.h"
#include "tools/show/story.h"

namespace tools {

namespace {

class Client {
  public:
    Client(const ConnectOptions &options, std::vector<std::string> required, Secret &logon, const Descriptor &input)
        : options_(options), required_(std::move(required)), logon_(logon), input_(input) {}

    // Throws Failure; the story is told either way.
    void run();
    const Story &story() const { return story_; }

  private:
    void log_on(Conversation &conversation);
    void exchange_messages(Conversation &conversation);
    void send_input(Conversation &conversation);
    void send_for_echo(Conversation &conversation, std::string_view text);
    std::string read_message(std::size_t largest) const;

    const ConnectOptions &options_;
    std::vector<std::string> required_;
    Secret &logon_;
    const Descriptor &input_;
    Story story_;
};

void Client::log_on(Conversation &conversation) {
    const OM_uint32 flags = GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_CONF_FLAG |
                            GSS_C_INTEG_FLAG | (options_.delegate ? GSS_C_DELEG_FLAG : 0U);
    const std::string target =
        options_.target.empty() ? "host@" + parse_address(options_.address).host : options_.target;
    conversation.log_on(logon_.text(), target, flags, options_.session);
    logon_.clear();
}

// What is there to read, at most so much; empty at the end.
std::string Client::read_message(std::size_t largest) const {
    std::string text(largest, '\0');
    wait_for(input_, POLLIN, Clock::time_point::max());
    const ssize_t got = read(input_.get(), text.data(), text.size());
    if (got < 0)
        throw system_failure("reading the messages", kExitUsage);
    text.resize(static_cast<std::size_t>(got));
    return text;
}

void Client::send_for_echo(Conversation &conversation, std::string_view text) {
    conversation.send(text);
    if (conversation.receive() != text)
        throw Failure("the echo differs from the message", kExitProtection);
    ++story_.messages;
    story_.bytes += text.size();
}

void Client::send_input(Conversation &conversation) {
    const std::size_t largest = std::min<std::size_t>(kLargestMessage, options_.session.MaxMessage / 2);
    for (std::string text; !(text = read_message(largest)).empty();) {
        send_for_echo(conversation, text);
        if (!options_.json)
            std::cout.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
    }
}

void Client::exchange_messages(Conversation &conversation) {
    if (options_.no_messages)
        return;
    if (!conversation.is_protecting())
        throw Failure(shortened(story_.mechanism) +
                          " has no protection for messages: none is sent (--no-messages only logs on)",
                      kExitProtection);
    const Clock::time_point start = Clock::now();
    const std::string text(options_.size, 'x');
    for (std::uint64_t i = 0; i != options_.bench; ++i)
        send_for_echo(conversation, text);
    if (options_.bench == 0)
        send_input(conversation);
    story_.message_seconds = seconds_since(start);
}

void Client::run() {
    story_.is_client = true;
    story_.peer = options_.address;
    const Clock::time_point start = Clock::now();
    const auto deadline = start + std::chrono::milliseconds(options_.session.LogonTime);
    std::unique_ptr<Conversation> conversation;
    try {
        conversation = std::make_unique<Conversation>(
            Stream(connect_to(parse_address(options_.address), deadline), options_.session.MaxMessage),
            options_.silence, false);
        conversation->require(required_);
        log_on(*conversation);
        story_.seconds = seconds_since(start);
        conversation->tell(story_, nullptr);
        if (!options_.json)
            print(std::cerr, story_, options_);
        exchange_messages(*conversation);
        conversation->end();
    } catch (const Failure &failure) {
        story_.failure = printable(failure.what(), common::kMostOfLine);
        story_.status = failure.status();
        if (conversation != nullptr)
            conversation->tell(story_, &failure);
        throw;
    }
}

void print_rate(const Story &story) {
    const double seconds = std::max(story.message_seconds, 1e-9);
    std::cerr << story.messages << " messages of " << story.bytes / story.messages << " bytes in " << seconds
              << " s: " << static_cast<std::uint64_t>(static_cast<double>(story.messages) / seconds)
              << " a second, there and back\n";
}

} // namespace

// A failure is told by the caller, once; the table and the JSON line come before it.
void run_connect(const ConnectOptions &options, Secret &logon) {
    const Descriptor input = open_input(options.file);
    if (!options.logon_file.empty())
        logon.take_line(options.logon_file);
    if (options.ask)
        logon.ask("logon string: ");
    check_logon_string(logon.text());
    const std::unique_ptr<Registry> registry = configure(QXGSS_CLIENT, options);
    Client client(options, required_mechanisms(*registry, options), logon, input);
    try {
        client.run();
    } catch (const Failure &) {
        const Story &story = client.story();
        if (options.json)
            print_json(std::cout, story);
        else if (options.why && story.seconds == 0 && !story.verdicts.empty())
            print_verdicts(std::cerr, story.verdicts);
        throw;
    }
    if (options.json)
        print_json(std::cout, client.story());
    else if (options.bench != 0)
        print_rate(client.story());
}

} // namespace tools
