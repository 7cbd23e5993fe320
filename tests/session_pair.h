// A client and a server of a session under a configuration of the test's own.
#ifndef QXNEGO_SESSION_PAIR_H
#define QXNEGO_SESSION_PAIR_H

#include "testkit/conversation.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace session_pair {

using namespace support;
using namespace testkit;

// Refusals need not be waited for.
inline constexpr qxgss_session_options_desc kAtOnce = {
    sizeof kAtOnce, QXGSS_SESSION_MAX_MESSAGE, 16, 30'000, 0, 0, QXGSS_SESSION_UNPROTECTED, nullptr, nullptr, nullptr};

struct Pair {
    explicit Pair(const std::string &logon, const qxgss_session_options_desc &of_server = kAtOnce,
                  const qxgss_session_options_desc &of_client = kAtOnce) {
        client.initiate(logon, &of_client);
        server.accept(&of_server);
    }
    void open(const Between &between = {}) { converse(client, server, between); }
    bool both_open() const { return client.is_open() && server.is_open(); }
    std::string failure() const { return server.facts().pszFailure; } // of the server
    SessionEnd client, server;
};

// Configured with one mechanism; everything of a test is gone when the framework is.
struct Configured : testing::Test {
    static void configure(const RealMechanism &of, const std::string &policy = "") { configure({&of, 1}, policy); }
    static void configure(std::span<const RealMechanism> offer, const std::string &policy = "") {
        const Folder folder;
        const std::string file = folder.file("qxgss.conf", configuration_of(offer, policy));
        qxgss_buffer_desc message{};
        ASSERT_EQ(qxgss_configure(nullptr, QXGSS_SERVER, file.c_str(), &message), GSS_S_COMPLETE) << taken(message);
        gssp_release_buffer(nullptr, &message);
    }
    void TearDown() override { qxgss_shutdown(nullptr); }
};

} // namespace session_pair

#endif
