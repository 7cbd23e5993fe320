// One side's negotiation: QXNEGO's context and the rules around its establishment calls. It ends with the first call
// that fails: the context is deleted then, once its story has been read.
#ifndef QXGSS_SESSION_NEGOTIATION_H
#define QXGSS_SESSION_NEGOTIATION_H

#include <optional>
#include <string>
#include <utility>

#include "common/owned.h"
#include "session/failure.h"
#include "session/transcript.h"
#include "session/views.h"

namespace session {

// QXNEGO as the registry has it.
struct Negotiator {
    qxgss_OID oid;
    const qxgss_ftn_table_desc *table;
};

// Throws Failure (resources) when QXNEGO is not in use.
Negotiator find_negotiator();

// A framework name. Throws Failure (usage), which says what could not be imported.
common::Name imported(std::string_view text, qxgss_OID type, const char *what);

class Negotiation {
  public:
    explicit Negotiation(const qxgss_session_options_desc &options);
    Negotiation(const Negotiation &) = delete;
    Negotiation &operator=(const Negotiation &) = delete;
    ~Negotiation();

    // What a client asks for; a server has a credential to accept with instead. The name is the credential's and only
    // read: a logon string, or of a server the service; null: what is there. They throw Failure (usage, resources).
    void set_up_client(qxgss_name_t credential, common::Name target, OM_uint32 flags,
                       OM_uint32 lifetime = GSS_C_INDEFINITE);
    void set_up_server(qxgss_name_t credential = nullptr);

    // Runs an establishment call with the peer's token, none for a client's first. The token for the peer may be empty.
    // Throws Failure; nothing is called after that.
    common::Buffer step(std::string_view token, qxgss_channel_bindings_t bindings = QXGSS_C_NO_CHANNEL_BINDINGS);

    bool is_established() const { return is_established_; }
    bool is_client() const { return is_client_; }
    bool is_peer_done() const; // it is established, and expects no more tokens of QXNEGO

    // For calls that are not made here, once it is established: QXNEGO, its context, and the mechanism underneath.
    const Negotiator &negotiator() const { return negotiator_; }
    qxgss_ctx_id_t context() const { return context_.get(); }
    const MechInfo_t &mechanism() const { return pMechInfo[mechanism_]; }
    OM_uint32 lifetime() const { return lifetime_; } // seconds, when it was established

    // The credential that the client has delegated, of that mechanism; the caller's from here on. Null for none.
    qxgss_cred_id_t take_delegated() { return std::exchange(delegated_, nullptr); }

    // Whether mechanisms have been run for the peer, so that it may have learnt something about a user.
    bool is_attempt() const { return is_attempt_; }

    // The server's look-up for the name that the mechanism has proved. Throws Failure (policy).
    void check_policy();

    // MICs of the selected mechanism over what this side and the other have seen; an empty one when the mechanism has
    // none. They throw Failure (confirmation).
    std::string own_mic();
    void check_mic(std::string_view mic);
    bool has_mics() const;

    // Messages; `is_protecting` says whether the mechanism has them. They throw Failure (protection).
    bool is_protecting() const;
    common::Buffer wrap(std::string_view text);
    common::Buffer unwrap(std::string_view message);

    // Reads what is to be known of the context and deletes it, with everything that was acquired.
    void close() noexcept;

    const Views &views();

    // What this side lost and why, as the beginning of a line; empty when it has lost nothing.
    std::string causes();
    std::string outcome(OM_uint32 minor) const;
    std::string_view properties();
    void describe(qxgss_session_facts_desc &facts) const;

  private:
    void acquire(qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_session_failure_et failure, const char *line);
    OM_uint32 call(std::string_view token, qxgss_channel_bindings_t bindings, OM_uint32 &minor, common::Buffer &output);
    void read_negotiation();
    bool is_claim_restricted();
    bool is_claim_forbidden();
    void forget_claim(OM_uint32 minor);
    void check_selection();
    void read_views();
    Failure refusal(OM_uint32 minor);
    void observe(const char *call, OM_uint32 major, OM_uint32 minor, const qxgss_buffer_desc *token = nullptr) const;

    using Context = common::MechanismOwned<qxgss_ctx_id_t, &qxgss_ftn_table_desc::ftn_gssp_delete_sec_context>;
    using Credential = common::MechanismOwned<qxgss_cred_id_t, &qxgss_ftn_table_desc::ftn_gssp_release_cred>;

    const qxgss_session_options_desc options_;
    const Negotiator negotiator_;
    bool is_client_ = false;
    bool is_established_ = false;
    bool is_attempt_ = false;
    Credential credential_;
    Context context_;
    common::Name target_, source_;
    qxgss_cred_id_t delegated_ = nullptr; // the selected mechanism's own
    qxgss_OID actual_mechanism_ = nullptr;
    OM_sint32 mechanism_ = -1; // the selected one's place in the registry, once the calls are complete
    OM_uint32 wanted_flags_ = 0, flags_ = 0;
    OM_uint32 wanted_lifetime_ = GSS_C_INDEFINITE, lifetime_ = 0;
    OM_uint32 rounds_ = 0;
    Transcript transcript_;
    qxgss_session_refused_et refused_ = QXGSS_SESSION_NONE_REFUSED;
    std::string claimed_;
    std::optional<Failure>
        forgotten_; // why the negotiation that began with the claim failed; story and cause stay its own
    std::optional<Views> views_;
    std::optional<std::string> properties_;
};

} // namespace session

#endif
