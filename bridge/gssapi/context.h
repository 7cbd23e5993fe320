// A context: a negotiation with what belongs to it, and behind it the confirmation of the offer.
#ifndef BRIDGE_GSSAPI_CONTEXT_H
#define BRIDGE_GSSAPI_CONTEXT_H

#include <chrono>
#include <optional>
#include <string>

#include "bridge/gssapi/credential.h"
#include "session/ending.h"
#include "session/negotiation.h"

namespace bridge {

// What an initiator wants.
struct Wish {
    const Name *target;
    OM_uint32 flags;
    OM_uint32 lifetime; // seconds
};

class Context {
  public:
    // The credential is null for what the mechanisms have by themselves, and read in the first step at the latest.
    explicit Context(const Credential *credential); // of an acceptor
    Context(const Credential *credential, const Wish &wish);

    // Takes the peer's token, none for an initiator's first call, and gives this side's, which may be empty. Throws
    // Failure; the context can only be asked then what became of it.
    std::string step(std::string_view token, qxgss_channel_bindings_t bindings);

    // What is left to tell the peer of a failure; empty: nothing.
    std::string parting() const;

    bool is_open() const { return stage_ == Stage::kOpen; }
    bool is_client() const { return negotiation_.is_client(); }
    const std::optional<Name> &target() const { return target_; } // an initiator's
    session::Negotiation &negotiation() { return negotiation_; }
    const session::Negotiation &negotiation() const { return negotiation_; }

    OM_uint32 flags() const { return flags_; } // once it is open: what the mechanism gives and the module can keep

    // In the forms of qxnego_gssapi.h.
    std::string log();
    std::string story();
    std::string selected() const;

  private:
    using Clock = std::chrono::steady_clock;
    enum class Stage {
        kNegotiating,
        kHearing, // established here: the peer is, too, once it has this side's last token, and confirms first
        kWaiting, // this side has confirmed; the peer answers with its own confirmation
        kOpen,
        kFailed
    };

    std::string handle(std::string_view token, qxgss_channel_bindings_t bindings);
    std::string negotiate(std::string token, qxgss_channel_bindings_t bindings);
    std::string established(std::string output);
    OM_uint32 true_flags() const;
    bool is_awaited() const;
    bool is_to_be_confirmed() const;
    std::string confirmation();
    void check_confirmation(std::string_view token);
    void fail(qxgss_session_failure_et kind, const char *line) noexcept;

    static const qxgss_session_options_desc kBounds;

    session::Negotiation negotiation_;
    const Confirmation wanted_;
    std::optional<Name> target_;
    Stage stage_ = Stage::kNegotiating;
    bool is_begun_ = false;
    OM_uint32 tokens_ = 0; // of the peer
    OM_uint32 flags_ = 0;
    const Clock::time_point created_ = Clock::now();
    bool is_offered_ = false; // by the peer
    qxgss_session_confirmation_et confirmation_ = QXGSS_SESSION_NOT_CONFIRMED;
    qxgss_session_failure_et failure_ = QXGSS_SESSION_NO_FAILURE;
    std::string failure_line_;
    std::optional<session::EndReason> parting_;
};

inline Context *context_of(gss_ctx_id_t handle) {
    return reinterpret_cast<Context *>(handle);
}
inline gss_ctx_id_t handle_of(Context *context) {
    return reinterpret_cast<gss_ctx_id_t>(context);
}

// One that is open. Throws Failure (GSS_S_NO_CONTEXT).
Context &open_context(gss_ctx_id_t handle);

} // namespace bridge

#endif
