// A session over a stream: waits as long as either allows, and carries messages between them.
#ifndef QXNEGO_TOOLS_CONNECTION_CONVERSATION_H
#define QXNEGO_TOOLS_CONNECTION_CONVERSATION_H

#include <memory>

#include "tools/connection/story.h"
#include "tools/connection/stream.h"
#include "tools/registry.h"

namespace tools {

// What serve and connect have in common.
struct ConnectionOptions {
    qxgss_session_options_desc session = QXGSS_SESSION_DEFAULTS;
    std::chrono::seconds silence{300}; // between messages
    std::string configuration;
    std::vector<std::string> require; // names or OIDs of mechanisms
    bool why = false;
    bool json = false;
};

// Configures the framework; what it has to say goes to the standard error, a line each, but for JSON. Throws Failure
// (configuration) when QXNEGO is not in use.
std::unique_ptr<Registry> configure(OM_uint32 role, const ConnectionOptions &options);

// The OIDs of the mechanisms that are required. Throws Failure (usage) for one that QXNEGO does not negotiate here.
std::vector<std::string> required_mechanisms(const Registry &registry, const ConnectionOptions &options);

class Conversation {
  public:
    // The stream may be silent for as long as `silence` between messages. Calls of the mechanism go into the story when
    // `keeps_calls` is set.
    Conversation(Stream stream, std::chrono::milliseconds silence, bool keeps_calls);
    Conversation(const Conversation &) = delete;
    Conversation &operator=(const Conversation &) = delete;
    ~Conversation() { qxgss_session_delete(nullptr, &session_); }

    // With another mechanism than these the session ends before it is open, and before the last token of this side is
    // sent; with none any will do.
    void require(std::vector<std::string> oids) { required_ = std::move(oids); }

    // Each runs until the session is open. They throw Failure with the class of what went wrong.
    void log_on(std::string_view logon, const std::string &service, OM_uint32 flags,
                qxgss_session_options_desc options);
    void admit(qxgss_session_options_desc options);

    // Whether the mechanism protects messages.
    bool is_protecting() const { return facts().IsProtecting != 0; }

    // Sends a text that is not empty, and awaits the next one: nothing once the peer has ended.
    void send(std::string_view text);
    std::optional<std::string> receive();
    void end();

    // What is known now. `failure` is the one that ended it, null when it went well.
    void tell(Story &story, const Failure *failure);

  private:
    void start(OM_uint32 major, OM_uint32 minor);
    void run(bool is_client);
    void send_message(std::string_view message);
    std::string receive_message();
    void check_mechanism();
    [[noreturn]] void fail(const std::string &line, ExitStatus status,
                           qxgss_session_failure_et failure = QXGSS_SESSION_FAILURE_PROTOCOL);
    void check(OM_uint32 major);
    qxgss_session_facts_desc facts() const;
    qxgss_session_options_desc observed(qxgss_session_options_desc options);
    static void observe(void *conversation, const char *call, OM_uint32 major, OM_uint32 minor,
                        const qxgss_buffer_desc *token);

    Stream stream_;
    std::chrono::milliseconds silence_;
    bool keeps_calls_;
    std::vector<std::string> required_; // OIDs
    bool is_client_ = false;
    Clock::time_point deadline_ = Clock::time_point::max();
    qxgss_session_t session_ = nullptr;
    std::vector<Call> calls_;
};

} // namespace tools

#endif
