// Framework, registry and both roles of a negotiation in one process, over the scripted mechanisms.
//
// Registry and template list exist once in a process. So that the two sides can differ, each side has a template list
// and function tables of its own, built from its mechanisms and its script; they are installed before each of its
// calls.
#ifndef QXNEGO_NEGOTIATION_HARNESS_H
#define QXNEGO_NEGOTIATION_HARNESS_H

#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "tests/scripted_mechanism.h"

namespace harness {

using scripted::kClient;
using scripted::kServer;
using scripted::Side;

// A configured mechanism.
struct Mechanism {
    char letter;
    bool authentication;
    bool authorization;
    bool single_sign_on;
    int rank;
};

// A can everything, B cannot authorize, C has no single sign-on, D does not authenticate.
inline const std::vector<Mechanism> kStandard{{'A', true, true, true, 10},
                                              {'B', true, false, true, 20},
                                              {'C', true, true, false, 30},
                                              {'D', false, false, true, 1}};

// A configuration in which QXNEGO negotiates these, in this order. User "onlya" may use A alone, and so on; the policy
// of user "free" is empty, and there is none for others.
std::string configuration(const std::vector<Mechanism> &mechanisms = kStandard);

// Configures the framework anew; returns the message it gave.
std::string configure(OM_uint32 *pMajor, const std::string &configuration);

// Releases what QXNEGO_configure made, which nothing does otherwise, so that it can run again.
void release_module_state();

// The mechanism of that letter or name.
qxgss_OID_desc oid_of(char mechanism);
MechInfo_t &registered(std::string_view name);

std::string hex(OM_uint32 value);
std::string hex(std::string_view bytes);
// The statuses of a call, as "MAJOR/MINOR".
template <typename... Parameters>
std::string outcome(OM_uint32 (*call)(OM_uint32 *, Parameters...), std::type_identity_t<Parameters>... arguments) {
    OM_uint32 minor = 0;
    const OM_uint32 major = call(&minor, arguments...);
    return hex(major) + "/" + hex(minor);
}

std::string_view text_of(const qxgss_buffer_desc &buffer);

enum class Output { kKept, kEmpty, kToken };

struct Outcome {
    OM_uint32 major;
    OM_uint32 minor;
    Output output; // what the call did to the caller's output token
    std::string token;
};

// One side of a negotiation.
class Peer {
  public:
    Peer(Side side, std::string_view mechanisms);
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer();

    // A credential for that logon string; without one the side calls with none.
    void log_on(const char *logon);

    // Makes this side's template list and tables the process's.
    void act();

    // One establishment call with that token.
    Outcome call(std::string_view token);

    // Deletes the context.
    Outcome end();

    NegContext_desc &negotiation() const { return static_cast<QxnegoSecCtx_int_t>(context)->NegCtx; }

    // Each entry in list order: letter, state and reason as on the wire, "+" when established, and its statuses.
    std::string entries() const;

    // Each record in order: a word for its text and the entry as above, "[n]" where token number n begins, "[np]" once
    // the policy is applied.
    std::string log() const;

    qxgss_ctx_id_t context = nullptr;
    qxgss_cred_id_t credential = nullptr;
    bool ask = true; // for every result
    qxgss_name_t target = nullptr;
    qxgss_name_t source = nullptr;
    qxgss_OID mech_type = nullptr;
    OM_uint32 flags = 0;
    OM_uint32 lifetime = 0;
    qxgss_cred_id_t delegated = nullptr;

  private:
    Side side_;
    NegMechList_desc template_{};
    std::vector<qxgss_ftn_table_desc> tables_;
};

// A client and a server, and what went to and fro.
struct Session {
    Session(std::string_view client_mechanisms, std::string_view server_mechanisms)
        : client(kClient, client_mechanisms), server(kServer, server_mechanisms) {}

    // Calls in turn, the client first, until both are complete, one fails, or no token is left to give; returns each
    // call as "C cont token", "S done empty" or "S MAJOR/MINOR kept".
    std::string run();

    Peer &side(Side which) { return which == kClient ? client : server; }

    Peer client;
    Peer server;
    std::vector<std::string> tokens;
};

} // namespace harness

#endif
