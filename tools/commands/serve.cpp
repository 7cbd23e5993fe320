// qxnego serve: accepts connections, a thread each, and prints what becomes of them. No client ends it, and a signal
// ends it cleanly: every wait of every thread ends, and the threads are joined.
#include <atomic>
#include <iostream>
#include <list>
#include <mutex>
#include <thread>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <sys/socket.h>

#include "tools/commands.h"
#include "tools/connection_options.h"
#include "tools/interrupt.h"

namespace tools {

namespace {

struct Options : ConnectionOptions {
    std::vector<std::string> addresses{"localhost:10442"};
    unsigned clients = 64;
};

class Server {
  public:
    Server(const Framework &framework, const Options &options) : framework_(framework), options_(options) {}
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    ~Server() { join_all(); }

    void add_client(Descriptor socket);

  private:
    struct Worker {
        std::thread thread;
        std::atomic<bool> is_done = false;
    };

    void serve(Descriptor socket);
    void join_done();
    void join_all();

    const Framework &framework_;
    const Options &options_;
    std::mutex output_;
    std::list<Worker> workers_;
};

void converse(const Framework &framework, Stream &stream, const SessionOptions &options, Clock::time_point start,
              Connection &connection) {
    const auto seconds_since = [](Clock::time_point moment) {
        return std::chrono::duration<double>(Clock::now() - moment).count();
    };
    Session session(framework, stream, options, connection);
    try {
        session.admit();
        connection.seconds = seconds_since(start);
        const Clock::time_point first_message = Clock::now();
        session.echo();
        connection.message_seconds = seconds_since(first_message);
    } catch (const Failure &failure) {
        connection.seconds = connection.seconds == 0 ? seconds_since(start) : connection.seconds;
        connection.failure = failure.what();
        connection.status = failure.status();
    }
}

void Server::serve(Descriptor socket) {
    Connection connection;
    try {
        connection.peer = peer_address(socket);
        Stream stream(std::move(socket), options_.session.limits);
        converse(framework_, stream, options_.session, Clock::now(), connection);
    } catch (const std::exception &error) { // memory, above all: of this client only
        connection.failure = error.what();
        connection.status = kExitFailure;
    }
    const std::lock_guard lock(output_);
    print(std::cout, options_, connection);
}

void Server::add_client(Descriptor socket) {
    join_done();
    if (workers_.size() >= options_.clients)
        return; // the connection is closed at once
    Worker &worker = workers_.emplace_back();
    try {
        worker.thread = std::thread([this, &worker, own = std::move(socket)]() mutable {
            serve(std::move(own));
            worker.is_done = true;
        });
    } catch (const std::system_error &) { // no thread: the connection is closed at once
        workers_.pop_back();
    }
}

void Server::join_done() {
    workers_.remove_if([](Worker &worker) {
        if (worker.is_done)
            worker.thread.join();
        return worker.is_done.load();
    });
}

void Server::join_all() {
    for (Worker &worker : workers_)
        worker.thread.join();
}

// The sockets of all addresses; each is announced, so that whoever starts this with port 0 learns the port.
std::vector<Descriptor> listen_at_all(const Options &options) {
    std::vector<Descriptor> sockets;
    for (const std::string &address : options.addresses)
        for (Descriptor &socket : listen_at(parse_address(address)))
            sockets.push_back(std::move(socket));
    for (const Descriptor &socket : sockets)
        if (options.json)
            std::cout << nlohmann::ordered_json{{"event", "listening"}, {"address", local_address(socket)}} << '\n';
        else
            std::cout << "listening at " << local_address(socket) << '\n';
    std::cout.flush();
    return sockets;
}

[[noreturn]] void accept_forever(const std::vector<Descriptor> &sockets, Server &server) {
    std::vector<pollfd> places = {{interrupt_descriptor(), POLLIN, 0}};
    for (const Descriptor &socket : sockets)
        places.push_back({socket.get(), POLLIN, 0});
    while (true) {
        poll(places.data(), places.size(), -1);
        throw_if_interrupted();
        for (std::size_t i = 1; i < places.size(); ++i) {
            const int number =
                places[i].revents == 0 ? -1 : accept4(places[i].fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
            if (number >= 0)
                server.add_client(Descriptor(number));
            else if (places[i].revents != 0)
                wait_until(Clock::now() + std::chrono::milliseconds(10)); // no descriptors left, above all
        }
    }
}

void run_serve(const Options &options) {
    const std::unique_ptr<Framework> framework = configure(QXGSS_SERVER, options);
    const std::vector<Descriptor> sockets = listen_at_all(options);
    Server server(*framework, options);
    try {
        accept_forever(sockets, server);
    } catch (const Failure &failure) {
        if (failure.status() != kExitInterrupted)
            throw;
    }
}

} // namespace

void add_serve(CLI::App &program) {
    CLI::App *command = program.add_subcommand("serve", "Accept clients over TCP and send their messages back");
    auto options = std::make_shared<Options>();
    command->add_option("--listen", options->addresses, "Where to listen; port 0 for a free one (can be repeated)")
        ->type_name("HOST:PORT")
        ->capture_default_str();
    command->add_option("--max-clients", options->clients, "Most clients at a time")
        ->check(CLI::Range(1U, 10'000U))
        ->capture_default_str();
    add_connection_options(*command, *options);
    command
        ->add_option_function<unsigned>(
            "--refusal-time",
            [options](unsigned given) { options->session.refusal = std::chrono::milliseconds(given); },
            "How long after a client's last token a refusal is sent")
        ->type_name("MILLISECONDS")
        ->check(CLI::Range(0U, 60'000U))
        ->default_str("1000");
    command->callback([options] { run_serve(*options); });
}

} // namespace tools
