// Framework, registry and both roles of a negotiation in one process, over the scripted mechanisms. So that the sides
// can differ, each has a template list and function tables of its own, which are installed before each of its calls.
#ifndef QXNEGO_NEGOTIATION_HARNESS_H
#define QXNEGO_NEGOTIATION_HARNESS_H

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "tests/scripted_mechanism.h"
#include "tests/support.h"

namespace harness {

using scripted::kClient;
using scripted::kServer;
using scripted::Side;
using support::outcome;
using support::registered;
using support::text_of;

inline constexpr const char *kDone = "00000000/230003E8", *kGoesOn = "00000001/230003E9";
inline constexpr const char *kReject = "000D0000/E3000406"; // no mechanism is left

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

// A configuration in which QXNEGO negotiates these, in this order. User "onlya" may use A alone, and so on, user
// "nobody" none; the policy of user "free" is empty, and there is none for others.
std::string configuration(const std::vector<Mechanism> &mechanisms = kStandard);

// Configures the framework anew; returns the message it gave.
std::string configure(OM_uint32 *pMajor, const std::string &configuration);

// Releases what QXNEGO_configure made and otherwise keeps until it runs again.
void release_module_state();

qxgss_OID_desc oid_of(char mechanism);
char letter_of(const qxgss_OID_desc &oid);

// Whether a failure may have that minor status: one of the tables, or of the scripted mechanisms.
bool is_known(OM_uint32 minor);

std::string hex(OM_uint32 value);
std::string hex(std::string_view bytes);

enum class Output { kKept, kEmpty, kToken };

struct Outcome {
    OM_uint32 major;
    OM_uint32 minor;
    Output output; // what the call did to the caller's output token
    std::string token;

    std::string statuses() const { return hex(major) + "/" + hex(minor); }
};

using Lines = std::vector<std::string>;

// What each message and inquiry gives for a context in whatever state, with a place for every output or for none: its
// statuses and what became of the outputs. Places hold sevens before, and buffers another text.
Lines use(qxgss_ctx_id_t context, bool given = true);

// One side of a negotiation.
class Peer {
  public:
    explicit Peer(Side side) : side_(side) {} // over the registry as it is, which it leaves alone
    Peer(Side side, std::string_view mechanisms);
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer();

    // A credential for that logon string, and the statuses; without one the side calls with none.
    std::string log_on(const char *logon);

    // Makes this side's template list and tables the process's.
    void act();

    // One establishment call with that token, of this side's role or of that one.
    Outcome call(std::string_view token) { return call(token, side_); }
    Outcome call(std::string_view token, Side role);

    // Deletes the context, if there is one; the statuses.
    std::string end();

    NegContext_desc &negotiation() const { return static_cast<QxnegoSecCtx_int_t>(context)->NegCtx; }

    // Each entry in list order, as QXNEGO_inquire_negotiated_mech tells of it: letter, state and reason as on the wire,
    // "+" when established, "<" when the state is the peer's, and its statuses, which are "!" where a scripted failure
    // has its default ones. Of a text alone "!" stands for that failure's, "-" for the one in a missing one's place.
    std::string entries() const;

    // Each record in order: a word for its text and the entry as above, a comma when the word stays the same, "[n]"
    // where token number n begins, "[np]" once the policy is applied; "=" when the peer's view is adopted as it is.
    // "end" when the negotiation's state is now Reject.
    std::string log() const;

    qxgss_ctx_id_t context = nullptr;
    qxgss_cred_id_t credential = nullptr;
    bool ask = true; // for every result
    qxgss_name_t target = nullptr;
    qxgss_channel_bindings_t bindings = nullptr;
    qxgss_name_t source = nullptr;
    qxgss_OID mech_type = nullptr;
    OM_uint32 flags = 0;
    OM_uint32 lifetime = 0;
    qxgss_cred_id_t delegated = nullptr;

  private:
    std::string word_for(const NegLogRecord &record) const;

    Side side_;
    NegMechList_desc template_{};
    std::vector<qxgss_ftn_table_desc> tables_;
};

// A client and a server, and what went to and fro.
struct Session {
    Session() : client(kClient), server(kServer) {}
    Session(std::string_view client_mechanisms, std::string_view server_mechanisms, const char *logon = nullptr)
        : client(kClient, client_mechanisms), server(kServer, server_mechanisms) {
        if (logon != nullptr)
            client.log_on(logon);
    }

    // Calls in turn, the client first, until both are complete, one fails, or no token is left to give; returns each
    // call as "C cont token", "S done empty" or "S MAJOR/MINOR kept".
    std::string run();

    Peer &side(Side which) { return which == kClient ? client : server; }

    Peer client;
    Peer server;
    std::vector<std::string> tokens;
};

// Each test begins with the standard configuration and the default script, and must leave no object behind.
class NegotiationTest : public testing::Test {
  protected:
    void SetUp() override {
        OM_uint32 major = 0;
        EXPECT_EQ(configure(&major, configuration()), "");
        EXPECT_EQ(major, GSS_S_COMPLETE);
        scripted::reset();
    }
    void TearDown() override { EXPECT_EQ(scripted::live_objects(), 0); }
};

// Whole negotiations as data, so that any loop can run them: what each side has, how its mechanisms behave, and what
// must come of it.
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
