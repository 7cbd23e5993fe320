// A context that has failed once is deleted and never given another token: a peer could then have it skip what its
// first call did not get to, the policy above all.
#include "tools/session.h"

#include <algorithm>

#include "tools/codes.h"
#include "tools/handles.h"

namespace tools {

namespace {

constexpr char kDueToPolicy[] = "Due to Policy";
constexpr char kPeerClosed[] = "the peer closed the connection";

// Every token of the server leaves this long after the client's, so that the time of one says nothing about the user.
constexpr std::chrono::milliseconds kPace{20};

constexpr char kNoMics[] = "the mechanism has no MICs to confirm the negotiation with";

std::string on_one_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// The mechanisms that this side lost, with the reasons: what comes first when the negotiation as a whole fails.
std::string causes(const std::vector<View> &views) {
    std::string out;
    for (const View &view : views)
        if (view.state == "Rejected" && view.reason != "Due to Rank")
            out +=
                view.mechanism + ": " + (view.status_text.empty() ? view.reason : on_one_line(view.status_text)) + "; ";
    return out;
}

std::string in_quotes(const std::string &name) {
    return '"' + name + '"';
}

std::string status_name(OM_uint32 major, OM_uint32 minor) {
    return major_name(major) + ' ' + code_text(minor);
}

// Why the policy refuses the name that the mechanism has proved; empty when it does not.
std::string why_forbidden(const Report &report, qxgss_OID mechanism) {
    const std::string &user = report.user;
    if (user.empty() || user.find('\0') != std::string::npos)
        return "the mechanism has proved no name that the policy could be looked up for";
    OwnedOidSet allowed;
    if (GSS_ERROR(gssp_inquire_mech_policy_for_user(nullptr, user.c_str(), allowed.out())) != 0)
        return "the policy cannot be looked up for the proved name " + in_quotes(user);
    int is_member = 0;
    if (allowed.is_empty() ||
        (GSS_ERROR(gssp_test_oid_set_member(nullptr, mechanism, allowed.get(), &is_member)) == 0 && is_member != 0))
        return {};
    return "the policy does not let the proved name " + in_quotes(user) + " log on with " + report.mechanism;
}

} // namespace

Session::Session(const Framework &framework, Stream &stream, const SessionOptions &options, Connection &connection)
    : framework_(framework), stream_(stream), options_(options), connection_(connection) {
    stream_.set_deadline(Clock::now() + options.limits.logon);
}

// ---- Negotiating ---------------------------------------------------------------------------------------------------

bool Session::send_token(ByteView token) {
    if (!connection_.is_client)
        wait_until(stream_.received() + kPace);
    transcript_.add(token);
    if (!stream_.send(FrameType::kToken, token))
        throw Failure(kPeerClosed, kExitNetwork);
    return true;
}

std::optional<Bytes> Session::receive_token() {
    std::optional<Bytes> token = stream_.receive(FrameType::kToken);
    if (!token)
        throw Failure(kPeerClosed, kExitNetwork);
    if (++received_tokens_ > options_.limits.rounds)
        throw Failure("the negotiation takes more than " + std::to_string(options_.limits.rounds) + " rounds",
                      kExitProtocol);
    transcript_.add(*token);
    if (!connection_.is_client && received_tokens_ == 1)
        claims_ = read_claims(*token);
    return token;
}

TokenExchange Session::exchange() {
    return {[this](ByteView token) { return send_token(token); }, [this] { return receive_token(); }};
}

void Session::keep_views() {
    negotiation_->inquire_properties();
    connection_.own = views_in(connection_.report);
    if (!connection_.report.established)
        negotiation_->close();
}

template <typename Run> void Session::negotiate(const Run &run) {
    connection_.report = {};
    negotiation_ = std::make_unique<Negotiation>(framework_, connection_.report);
    try {
        run(*negotiation_);
    } catch (const Failure &) {
        keep_views();
        negotiation_->close();
        throw;
    }
    keep_views();
}

void Session::end(EndReason reason, const std::string &why, ExitStatus status) {
    negotiation_->close();
    stream_.send_end(reason);
    throw Failure(why, status);
}

// The client's statement is awaited behind this side's own, so that both sides find out by themselves.
void Session::confirm_tokens(const char *own_role, const char *peer_role) {
    const Bytes own = confirm(*negotiation_, connection_.report, transcript_.statement(own_role));
    connection_.confirmation = Confirmation::kUnconfirmed;
    if (own.empty() && options_.require_confirmation)
        end(EndReason::kConfirmationRequired, connection_.report.mechanism + ": " + kNoMics, kExitConfirmation);
    const bool is_sent = stream_.send(FrameType::kConfirmation, own);
    const std::optional<Bytes> peers = is_sent ? stream_.receive(FrameType::kConfirmation) : std::nullopt;
    if (!peers)
        throw Failure(kPeerClosed, kExitNetwork);
    if (own.empty() && peers->empty())
        return;
    const bool is_same = is_confirmed(*negotiation_, transcript_.statement(peer_role), *peers);
    connection_.confirmation = is_same ? Confirmation::kConfirmed : Confirmation::kMismatch;
    if (!is_same)
        end(EndReason::kNotTheSameTokens, "the peer saw other tokens: someone in between has changed the negotiation",
            kExitConfirmation);
}

void Session::send_views() {
    if (!stream_.send(FrameType::kViews, encode_views(connection_.own)))
        throw Failure(kPeerClosed, kExitNetwork);
}

void Session::receive_views() {
    const std::optional<Bytes> views = stream_.receive(FrameType::kViews);
    if (!views)
        throw Failure(kPeerClosed, kExitNetwork);
    connection_.other = decode_views(*views);
}

void Session::log_on_and_confirm(const Logon &logon) {
    negotiate([&](Negotiation &negotiation) {
        negotiation.run_as_client(exchange(), logon.text, logon.target, logon.flags);
    });
    if (!connection_.report.established)
        throw Failure(connection_.report.failure, kExitNegotiation);
    confirm_tokens("client", "server");
}

// A server may refuse after this side is complete, so the causes are told for both.
void Session::log_on(const Logon &logon) {
    try {
        log_on_and_confirm(logon);
    } catch (const Failure &failure) {
        if (failure.status() != kExitNegotiation)
            throw;
        throw Failure(causes(connection_.own) + failure.what(), kExitNegotiation);
    }
    send_views();
    receive_views();
}

// ---- The server's rules --------------------------------------------------------------------------------------------

bool Session::is_claim_refused() const {
    const auto by_policy = [](const View &view) { return view.reason == kDueToPolicy; };
    return !connection_.report.established && received_tokens_ == 1 &&
           std::any_of(connection_.own.begin(), connection_.own.end(), by_policy);
}

// A user whom the policy forbids every mechanism hears what an unknown one hears: the negotiation goes on with a name
// that the policy does not list, and whatever it proves is refused in the end.
void Session::negotiate_nameless() {
    const std::vector<View> views = connection_.own;
    const TokenExchange peer = exchange();
    bool is_first = true;
    const TokenExchange nameless = {peer.send,
                                    [&] { return std::exchange(is_first, false) ? claims_.nameless : peer.receive(); }};
    try {
        negotiate([&](Negotiation &negotiation) { negotiation.run_as_server(nameless); });
    } catch (const Failure &failure) {
        connection_.own = views;
        throw Failure(claim_refusal_ + "; " + failure.what(), kExitPolicy);
    }
    connection_.own = views;
}

void Session::refuse(const std::string &why, ExitStatus status) {
    wait_until(stream_.received() + options_.refusal);
    end(EndReason::kRefused, why, status);
}

void Session::admit() {
    negotiate([&](Negotiation &negotiation) { negotiation.run_as_server(exchange()); });
    connection_.claimed = claims_.name;
    if (is_claim_refused()) {
        connection_.refused = "claimed";
        claim_refusal_ = "the policy lets the claimed name " + in_quotes(claims_.name) + " log on with none of these";
        negotiate_nameless();
    }
    if (!connection_.report.established && !claim_refusal_.empty())
        refuse(claim_refusal_, kExitPolicy);
    if (!connection_.report.established)
        refuse(causes(connection_.own) + connection_.report.failure, kExitNegotiation);
    connection_.delegated = negotiation_->delegated_name();
    confirm_tokens("server", "client");
    receive_views();
    check_policy();
    send_views();
}

// The policy was looked up for a name that the client claimed, if it claimed one; the proved name decides.
void Session::check_policy() {
    if (!claim_refusal_.empty())
        end(EndReason::kForbidden, claim_refusal_, kExitPolicy);
    const std::string why = why_forbidden(connection_.report, negotiation_->selected());
    if (why.empty())
        return;
    connection_.refused = "proved";
    end(EndReason::kForbidden, why, kExitPolicy);
}

// ---- Messages ------------------------------------------------------------------------------------------------------

Bytes Session::protect(ByteView text) {
    OM_uint32 minor = 0;
    OwnedBuffer message;
    qxgss_buffer_desc input = view(as_text(text));
    const int wanted = (connection_.report.flags & GSS_C_CONF_FLAG) != 0 ? 1 : 0;
    int granted = 0;
    const OM_uint32 major = negotiation_->table().ftn_gssp_wrap(&minor, negotiation_->context(), wanted, 0, &input,
                                                                &granted, message.get());
    if (GSS_ERROR(major) != 0 || (wanted != 0 && granted == 0))
        end(EndReason::kProtectionFailed, "a message could not be protected: " + status_name(major, minor),
            kExitProtection);
    return Bytes(message.bytes().begin(), message.bytes().end());
}

// A message that comes twice or in another order (RFC 2743 1.2.3) is refused like one that was changed.
Bytes Session::unprotect(const Bytes &message) {
    OM_uint32 minor = 0;
    OwnedBuffer text;
    qxgss_buffer_desc input = view(as_text(message));
    int is_confidential = 0;
    const OM_uint32 major = negotiation_->table().ftn_gssp_unwrap(&minor, negotiation_->context(), &input, text.get(),
                                                                  &is_confidential, nullptr);
    const bool is_wanted = (connection_.report.flags & GSS_C_CONF_FLAG) != 0;
    if (major != GSS_S_COMPLETE || (is_wanted && is_confidential == 0))
        end(EndReason::kProtectionFailed, "a message is not protected as it should be: " + status_name(major, minor),
            kExitProtection);
    return Bytes(text.bytes().begin(), text.bytes().end());
}

void Session::send_for_echo(ByteView text) {
    stream_.set_deadline(Clock::now() + options_.limits.silence);
    const bool is_sent = stream_.send(FrameType::kMessage, protect(text));
    const std::optional<Bytes> answer = is_sent ? stream_.receive(FrameType::kMessage) : std::nullopt;
    if (!answer)
        throw Failure(kPeerClosed, kExitNetwork);
    if (!std::ranges::equal(unprotect(*answer), text))
        end(EndReason::kProtectionFailed, "the echo differs from the message", kExitProtection);
    ++connection_.messages;
    connection_.bytes += text.size();
}

void Session::echo() {
    while (true) {
        stream_.set_deadline(Clock::now() + options_.limits.silence);
        const std::optional<Bytes> message = stream_.receive(FrameType::kMessage);
        if (!message)
            return;
        const Bytes text = unprotect(*message);
        if (!stream_.send(FrameType::kMessage, protect(text)))
            return;
        ++connection_.messages;
        connection_.bytes += text.size();
    }
}

} // namespace tools
