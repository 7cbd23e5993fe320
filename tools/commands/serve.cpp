// qxnego serve: accepts connections, each in a process of its own, and prints what becomes of them. No client ends it,
// nor an output that nobody reads, and a signal ends it within a moment: one loop waits for everything at once.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>
#include <list>
#include <new>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/commands/commands.h"
#include "tools/connection/conversation.h"
#include "tools/connection/interrupt.h"
#include "tools/connection/output.h"
#include "tools/connection/story_folder.h"
#include "tools/connection/worker.h"
#include "tools/show/story.h"

namespace tools {

namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenCounts = 10s; // of what was refused or dropped
constexpr auto kToHang = 5s;         // of a mechanism's library, beyond what a logon may take
constexpr auto kToEnd = 1s;          // for the connections that a signal ends, and again for the output

// ---- One connection, in its process --------------------------------------------------------------------------------

void echo(Conversation &conversation, Story &story) {
    const Clock::time_point start = Clock::now();
    while (const std::optional<std::string> text = conversation.receive()) {
        conversation.send(*text);
        ++story.messages;
        story.bytes += text->size();
        story.message_seconds = seconds_since(start);
    }
}

Story hold(Descriptor socket, const ServeOptions &options, const std::vector<std::string> &required,
           Clock::duration pause, const Worker::Lift &lift_limit) {
    Story story;
    story.peer = peer_address(socket);
    const Clock::time_point start = Clock::now();
    Conversation conversation(Stream(std::move(socket), options.session.MaxMessage), options.silence,
                              !options.story.empty());
    conversation.require(required);
    try {
        wait_until(start + pause);
        conversation.admit(options.session);
        lift_limit();
        story.seconds = seconds_since(start);
        echo(conversation, story);
        conversation.tell(story, nullptr);
    } catch (const Failure &failure) {
        story.seconds = story.seconds == 0 ? seconds_since(start) : story.seconds;
        conversation.tell(story, &failure);
    }
    return story;
}

// Its result begins with an octet that says whether somebody has tried to log on; then comes what is to be printed.
std::string result_of(const Story &story, const ServeOptions &options) {
    std::ostringstream out;
    print(out, story, options);
    return (story.is_attempt ? '1' : '0') + out.str();
}

// ---- All of them ---------------------------------------------------------------------------------------------------

class Server {
  public:
    Server(const ServeOptions &options, std::vector<std::string> required, std::vector<Descriptor> sockets)
        : options_(options), required_(std::move(required)), sockets_(std::move(sockets)), admission_(options.limits) {
        if (!options.story.empty())
            stories_.emplace(options.story, options.story_files);
    }

    // What the framework had to say.
    void announce(const std::vector<std::string> &notices);

    // Until a signal ends it. Throws Failure when lines were lost because the output cannot be written.
    void run();

  private:
    struct Client {
        std::string peer, network;
        Worker worker;
    };

    void announce_addresses();
    void wait(Clock::time_point deadline);
    void poll_all(Clock::time_point deadline);
    void leave_page(const std::string &name, const Story &story) const;
    Worker start(Descriptor &socket, Clock::duration pause);
    void accept_from(const Descriptor &listener);
    void add_client(Descriptor socket);
    void collect(const std::vector<pollfd> &places);
    void finish(Client &client);
    std::string lines_of(Client &client) const;
    void count();
    void drain(Clock::time_point deadline);
    void end();
    void say(const Json &event, const std::string &line);
    void tell_failure();

    const ServeOptions &options_;
    std::vector<std::string> required_; // OIDs of mechanisms
    std::vector<Descriptor> sockets_;
    std::list<Client> clients_;
    Admission admission_;
    std::optional<StoryFolder> stories_;
    Output output_{STDOUT_FILENO};
    Clock::time_point counted_ = Clock::now();
    bool is_ending_ = false;
    bool is_failure_told_ = false;
};

void Server::say(const Json &event, const std::string &line) {
    Json timed = event;
    timed["time"] = time_text();
    output_.add(options_.json ? line_of(timed) : time_text() + "  " + line + '\n');
}

void Server::announce(const std::vector<std::string> &notices) {
    for (const std::string &text : notices)
        if (options_.json)
            say({{"event", "notice"}, {"text", text}}, text);
}

// Whoever starts this with port 0 learns the port.
void Server::announce_addresses() {
    for (const Descriptor &socket : sockets_) {
        const std::string address = local_address(socket);
        say({{"event", "listening"}, {"address", address}}, "listening at " + address);
    }
}

// A page that cannot be made is missing, and nothing else; it is made when the client has gone, whom its time tells
// nothing.
void Server::leave_page(const std::string &name, const Story &story) const {
    try {
        stories_->write(name, page_of(story));
    } catch (const std::exception &) {
    }
}

Worker Server::start(Descriptor &socket, Clock::duration pause) {
    const auto logon = std::chrono::milliseconds(options_.session.LogonTime + options_.session.RefusalTime);
    const std::optional<std::string> page = stories_ ? stories_->next_name() : std::nullopt;
    return Worker(
        [&](const Worker::Lift &lift_limit) {
            for (Descriptor &listener : sockets_)
                listener.close();
            for (Client &other : clients_)
                other.worker.forget();
            const Story story = hold(std::move(socket), options_, required_, pause, lift_limit);
            if (page)
                leave_page(*page, story);
            return result_of(story, options_);
        },
        std::chrono::ceil<std::chrono::seconds>(pause + logon + kToHang));
}

void Server::add_client(Descriptor socket) {
    const std::string peer = peer_address(socket), network = peer_network(socket);
    const auto pause = admission_.admit(network, Clock::now());
    if (!pause)
        return; // the connection is closed at once
    try {
        clients_.push_back({peer, network, start(socket, *pause)});
    } catch (const std::exception &) {
        admission_.leave(network, false, Clock::now());
        admission_.count_refused();
    }
}

void Server::accept_from(const Descriptor &listener) {
    const int number = accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (number >= 0)
        return add_client(Descriptor(number));
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED)
        return; // it has gone again
    admission_.count_refused();
    wait_until(Clock::now() + 10ms); // no descriptors left, above all
}

std::string Server::lines_of(Client &client) const {
    std::string result = client.worker.take_result();
    if (!client.worker.has_crashed() && !result.empty())
        return std::move(result.erase(0, 1));
    Story story;
    story.peer = client.peer;
    story.status = kExitFailure;
    story.failure = result.empty() ? "its process ended without a word" : result;
    std::ostringstream out;
    print(out, story, options_);
    return out.str();
}

// A connection that was open has logged on, whatever became of it; one that crashed before may have tried.
void Server::finish(Client &client) {
    const bool is_attempt = client.worker.has_crashed() || !client.worker.result().starts_with('0');
    admission_.leave(client.network, is_attempt && !client.worker.is_lifted(), Clock::now());
    try {
        output_.add(lines_of(client));
    } catch (const std::bad_alloc &) {
        output_.count_dropped();
    }
}

// Lack of memory costs those whom it meets their place or their line.
void Server::wait(Clock::time_point deadline) {
    try {
        poll_all(deadline);
    } catch (const std::bad_alloc &) {
        admission_.count_refused();
        std::this_thread::sleep_for(10ms);
    }
    tell_failure();
}

// Waits for whatever comes first: a client, a connection's end, room in the output, a signal.
void Server::poll_all(Clock::time_point deadline) {
    for (const Client &client : clients_)
        deadline = std::min(deadline, client.worker.deadline());
    std::vector<pollfd> places = {{is_ending_ ? -1 : interrupt_descriptor(), POLLIN, 0},
                                  {output_.is_waiting() ? output_.descriptor() : -1, POLLOUT, 0}};
    for (const Descriptor &socket : sockets_)
        places.push_back({socket.get(), POLLIN, 0});
    for (const Client &client : clients_)
        places.push_back({client.worker.descriptor(), POLLIN, 0});
    poll(places.data(), places.size(), milliseconds_until(deadline));
    if (places[1].revents != 0)
        output_.write_some();
    collect(places);
    for (std::size_t i = 0; i != sockets_.size(); ++i)
        if (places[2 + i].revents != 0)
            accept_from(sockets_[i]);
}

void Server::collect(const std::vector<pollfd> &places) {
    std::size_t place = 2 + sockets_.size();
    for (auto client = clients_.begin(); client != clients_.end(); ++place) {
        const bool is_due = places[place].revents != 0 || Clock::now() >= client->worker.deadline();
        if (!is_due || client->worker.read_some()) {
            ++client;
            continue;
        }
        finish(*client);
        client = clients_.erase(client);
    }
}

// Whoever reads the other output learns at once that there is nothing more to read here.
void Server::tell_failure() {
    if (output_.failure() != 0 && !std::exchange(is_failure_told_, true))
        std::cerr << "qxnego: the output cannot be written: " << std::strerror(output_.failure())
                  << "; clients are served, and nothing is told of them" << std::endl;
}

// What was refused or lost, from time to time: a line each would be one more thing to fill the output with. It is told
// when there is room, and not forgotten before.
void Server::count() {
    counted_ = Clock::now();
    if (output_.is_waiting() || output_.failure() != 0)
        return;
    if (const Admission::Refused &refused = admission_.refused(); refused.any()) {
        say({{"event", "refused"},
             {"by_clients", refused.by_clients},
             {"by_address", refused.by_address},
             {"by_machine", refused.by_machine}},
            "refused: " + std::to_string(refused.by_clients) + " above --max-clients, " +
                std::to_string(refused.by_address) + " above --max-address, " + std::to_string(refused.by_machine) +
                " for want of memory, processes or descriptors");
        admission_.forget_refused();
    }
    if (const unsigned long dropped = output_.take_dropped(); dropped != 0)
        say({{"event", "dropped"}, {"connections", dropped}},
            "dropped: the lines of " + std::to_string(dropped) + " connections, since nobody read them");
}

void Server::drain(Clock::time_point deadline) {
    while (output_.is_waiting() && Clock::now() < deadline)
        wait(deadline);
}

void Server::end() {
    is_ending_ = true;
    for (Descriptor &socket : sockets_)
        socket.close();
    sockets_.clear();
    for (const Client &client : clients_)
        client.worker.signal(SIGTERM);
    for (const auto deadline = Clock::now() + kToEnd; !clients_.empty() && Clock::now() < deadline;)
        wait(deadline);
    clients_.clear();
    const auto deadline = Clock::now() + kToEnd;
    drain(deadline);
    count();
    drain(deadline);
}

void Server::run() {
    announce_addresses();
    try {
        while (true) {
            throw_if_interrupted();
            wait(counted_ + kBetweenCounts);
            if (Clock::now() >= counted_ + kBetweenCounts)
                count();
        }
    } catch (const Failure &failure) {
        if (failure.status() != kExitInterrupted)
            throw;
    }
    end();
    if (output_.is_waiting() || output_.failure() != 0)
        throw Failure("the output cannot be written");
}

} // namespace

void run_serve(const ServeOptions &options) {
    const std::unique_ptr<Registry> registry = configure(QXGSS_SERVER, options);
    std::vector<std::string> required = required_mechanisms(*registry, options);
    std::vector<Descriptor> sockets;
    for (const std::string &address : options.addresses)
        for (Descriptor &socket : listen_at(parse_address(address)))
            sockets.push_back(std::move(socket));
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN); // a limit on files costs a page, and not its connection's line
    Server server(options, std::move(required), std::move(sockets));
    server.announce(registry->messages());
    server.run();
}

} // namespace tools
