// Two sessions in one process, and whoever is in between.
#ifndef QXNEGO_TESTKIT_CONVERSATION_H
#define QXNEGO_TESTKIT_CONVERSATION_H

#include <functional>
#include <string>
#include <vector>

#include "common/owned.h"
#include "session/qxgss_session.h"

namespace testkit {

// One end. `major` is the status of its last call.
class SessionEnd {
  public:
    SessionEnd() = default;
    SessionEnd(const SessionEnd &) = delete;
    SessionEnd &operator=(const SessionEnd &) = delete;
    ~SessionEnd() { qxgss_session_delete(nullptr, &handle); }

    void initiate(const std::string &logon, const qxgss_session_options_desc *options = nullptr) {
        const qxgss_buffer_desc text = common::view(logon);
        major = qxgss_session_initiate(&minor_, &text, "host@localhost", 0, options, &handle);
    }
    void accept(const qxgss_session_options_desc *options = nullptr) {
        major = qxgss_session_accept(&minor_, options, &handle);
    }

    std::string step(std::string_view input) { return filled(qxgss_session_step, input); }
    std::string wrap(std::string_view text) { return filled(qxgss_session_wrap, text); }
    std::string unwrap(std::string_view message) { return filled(qxgss_session_unwrap, message); }
    std::string end() {
        common::Buffer output;
        major = qxgss_session_end(&minor_, handle, output.out());
        return std::string(output.bytes());
    }

    qxgss_session_facts_desc facts() const {
        qxgss_session_facts_desc facts{};
        qxgss_session_inquire(nullptr, handle, &facts);
        return facts;
    }
    bool is_open() const { return facts().State == QXGSS_SESSION_OPEN; }
    std::string user() const {
        const qxgss_session_facts_desc known = facts();
        return std::string(common::bytes_of(&known.User));
    }

    qxgss_session_t handle = nullptr;
    OM_uint32 major = 0;

  private:
    template <typename Call> std::string filled(Call call, std::string_view input) {
        common::Buffer output;
        const qxgss_buffer_desc bytes = common::view(input);
        major = call(&minor_, handle, &bytes, output.out());
        return std::string(output.bytes());
    }

    OM_uint32 minor_ = 0;
};

// What someone in between does to the message with that number, the client's first being 1. An empty one is withheld.
using Between = std::function<void(std::size_t number, std::string &message)>;

// From the first token until both are open, or until one has nothing to say. An end steps as a session's does.
template <typename End> void converse(End &client, End &server, const Between &between = {}) {
    std::string message = client.step({});
    for (std::size_t number = 1; !message.empty() && number < 50; ++number) {
        if (between)
            between(number, message);
        End &reader = number % 2 == 1 ? server : client;
        message = message.empty() ? "" : reader.step(message);
    }
}

} // namespace testkit

#endif
