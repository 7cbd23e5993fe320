// The order of tokens. Behind those of the negotiation come, between sides that both offer it, two more: the side that
// is the last to be established, which has no token of the negotiation left to send, confirms first, and the other
// answers with its own confirmation.
//
//     client                                server
//     step ── token, offer ────────────▶    step
//     step ◀──────────── token, offer ──    step   established (Kerberos)
//          ── confirmation ────────────▶    step   open
//     step ◀──────────── confirmation ──           open
#include "bridge/gssapi/context.h"

#include "bridge/gssapi/framing.h"
#include "common/text.h"

namespace bridge {

namespace {

// All others would promise what the module does not have: contexts are not exported, and a datagram or DCE style of
// tokens is none of QXNEGO's.
constexpr OM_uint32 kFlags = GSS_C_DELEG_FLAG | GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG |
                             GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG | GSS_C_ANON_FLAG | GSS_C_PROT_READY_FLAG |
                             GSS_C_DELEG_POLICY_FLAG | GSS_C_CHANNEL_BOUND_FLAG;

[[noreturn]] void refuse_token(const char *line) {
    throw Failure(QXGSS_SESSION_FAILURE_PROTOCOL, line, GSS_S_DEFECTIVE_TOKEN);
}

std::string_view confirmation_of(const Credential *credential) {
    return credential == nullptr ? std::string_view() : std::string_view(credential->confirmation);
}

std::string text_of(common::Buffer buffer) {
    return std::string(buffer.bytes());
}

} // namespace

const qxgss_session_options_desc Context::kBounds = QXGSS_SESSION_DEFAULTS;

Context::Context(const Credential *credential)
    : negotiation_(kBounds), wanted_(wanted_confirmation(confirmation_of(credential))) {
    negotiation_.set_up_server(credential == nullptr ? nullptr : credential->acceptor.get());
}

// The MICs of the confirmation need the mechanism's integrity, whatever the application wants.
Context::Context(const Credential *credential, const Wish &wish)
    : negotiation_(kBounds), wanted_(wanted_confirmation(confirmation_of(credential))), target_(*wish.target) {
    negotiation_.set_up_client(credential == nullptr ? nullptr : credential->initiator.get(), target_->as_target(),
                               (wish.flags & kFlags) | GSS_C_INTEG_FLAG, wish.lifetime);
}

// ---- Steps ---------------------------------------------------------------------------------------------------------

std::string Context::step(std::string_view token, qxgss_channel_bindings_t bindings) {
    if (stage_ == Stage::kOpen || stage_ == Stage::kFailed)
        refuse(GSS_S_NO_CONTEXT, "the context is not one that is being established");
    try {
        return handle(token, bindings);
    } catch (const session::PeerEnded &end) {
        fail(end.kind, end.what());
        parting_.reset();
        if (is_client())
            failure_line_ = negotiation_.causes() + failure_line_;
        throw Failure(end.kind, failure_line_,
                      end.kind == QXGSS_SESSION_FAILURE_POLICY ? GSS_S_UNAUTHORIZED : end.major, end.minor);
    } catch (const Failure &failure) {
        fail(failure.kind, failure.what());
        throw;
    } catch (...) {
        fail(QXGSS_SESSION_FAILURE_RESOURCES, "there is not enough memory");
        throw;
    }
}

void Context::fail(qxgss_session_failure_et kind, const char *line) noexcept {
    if (is_offered_ && is_awaited())
        parting_ =
            negotiation_.is_established() ? session::reason_of(kind, confirmation_) : session::EndReason::kRefused;
    stage_ = Stage::kFailed;
    failure_ = kind;
    negotiation_.close();
    try {
        failure_line_ = line;
    } catch (const std::bad_alloc &) { // the class has to do
    }
}

// Whether the peer waits for a token of this side: to one that is done, it would be a message.
bool Context::is_awaited() const {
    return stage_ == Stage::kHearing || (stage_ == Stage::kNegotiating && !negotiation_.is_peer_done());
}

std::string Context::parting() const {
    return parting_ ? own_token(OwnToken::kEnd, {reinterpret_cast<const char *>(&*parting_), 1}) : std::string();
}

std::string Context::handle(std::string_view token, qxgss_channel_bindings_t bindings) {
    if (std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - created_).count() > kBounds.LogonTime)
        throw Failure(QXGSS_SESSION_FAILURE_TIME, "the peer took too long to log on");
    if (token.size() > kBounds.MaxMessage)
        refuse_token("the peer sent more than a token may have");
    if (const auto reason = contents_of(OwnToken::kEnd, token))
        session::throw_end(*reason, is_client());
    if (stage_ == Stage::kNegotiating)
        return negotiate(std::string(token), bindings);
    check_confirmation(token);
    const std::string answer = stage_ == Stage::kHearing ? confirmation() : std::string();
    stage_ = Stage::kOpen;
    return answer;
}

std::string Context::negotiate(std::string token, qxgss_channel_bindings_t bindings) {
    const bool is_first = is_client() && !std::exchange(is_begun_, true);
    if (!is_first && ++tokens_ > kBounds.MaxRounds)
        refuse_token("the negotiation takes more rounds than it may");
    if (!is_client() && tokens_ == 1)
        token = unframed(token);
    if (tokens_ == 1)
        is_offered_ = take_offer(token);
    std::string output = text_of(negotiation_.step(is_first ? std::string() : token, bindings));
    if (is_first)
        return framed(with_offer(output));
    if (negotiation_.is_established())
        return established(std::move(output));
    return is_offered_ && !is_client() && tokens_ == 1 ? with_offer(output) : output;
}

// A side without a token to send is the last to be established.
std::string Context::established(std::string output) {
    if (!is_client())
        negotiation_.check_policy();
    flags_ = true_flags();
    const bool is_last = output.empty();
    const bool is_first_answer = !is_client() && tokens_ == 1;
    if (is_offered_ && is_first_answer)
        output = with_offer(output);
    if (!is_to_be_confirmed()) {
        confirmation_ = QXGSS_SESSION_UNCONFIRMED;
        stage_ = Stage::kOpen;
        return output;
    }
    stage_ = is_last ? Stage::kWaiting : Stage::kHearing;
    return is_last ? confirmation() : output;
}

OM_uint32 Context::true_flags() const {
    qxgss_session_facts_desc facts{};
    negotiation_.describe(facts);
    const bool is_without = !is_client() && facts.pDelegatedCred == nullptr;
    return facts.Flags & kFlags & ~(is_without ? OM_uint32{GSS_C_DELEG_FLAG} : 0U);
}

// ---- The confirmation of the offer ---------------------------------------------------------------------------------

bool Context::is_to_be_confirmed() const {
    const bool has_mics = negotiation_.has_mics();
    if (has_mics && is_offered_)
        return true;
    if (wanted_ == Confirmation::kRequired || (wanted_ == Confirmation::kIfPossible && has_mics))
        throw Failure(QXGSS_SESSION_FAILURE_CONFIRMATION,
                      has_mics ? "the peer does not offer to confirm the negotiation"
                               : common::printable(negotiation_.mechanism().pszMechName) +
                                     " has no MICs to confirm the negotiation with");
    return false;
}

std::string Context::confirmation() {
    return own_token(OwnToken::kConfirmation, negotiation_.own_mic());
}

void Context::check_confirmation(std::string_view token) {
    const auto mic = contents_of(OwnToken::kConfirmation, token);
    if (!mic)
        refuse_token("the peer sent something else than its confirmation");
    confirmation_ = QXGSS_SESSION_MISMATCH;
    negotiation_.check_mic(*mic);
    confirmation_ = QXGSS_SESSION_CONFIRMED;
}

Context &open_context(gss_ctx_id_t handle) {
    Context *const context = context_of(handle);
    if (context == nullptr || !context->is_open())
        refuse(GSS_S_NO_CONTEXT, "the context is not established");
    return *context;
}

} // namespace bridge
