// Whole negotiations as data, so that any loop can run them: what each side has, how its mechanisms behave, and what
// must come of it. Notations: tests/negotiation_harness.h.
#ifndef QXNEGO_SCENARIOS_H
#define QXNEGO_SCENARIOS_H

#include <span>

#include "tests/negotiation_harness.h"

namespace harness {

struct Scenario {
    const char *name;
    const char *client; // letters of its mechanisms
    const char *server;
    const char *logon;                         // the client's; null: no credential
    void (*prepare)(scripted::Script &script); // may be null
    const char *calls;
    const char *client_log;           // after the mechanisms that are available
    const char *server_log = nullptr; // when the server is never called
    const char *server_logon = nullptr;
};

std::span<const Scenario> scenarios();

// Sets the script of that scenario; to be called before its session is made.
void prepare(const Scenario &scenario);

// Gives both sides the credentials of that scenario.
void log_on(const Scenario &scenario, Session &session);

} // namespace harness

#endif
