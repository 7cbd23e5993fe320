#include "tools/connection/conversation.h"

#include <algorithm>
#include <iostream>

#include "common/owned.h"
#include "tools/files.h"
#include "tools/show/codes.h"

namespace tools {

namespace {

using common::bytes_of;

constexpr std::size_t kMostCalls = 100; // that are kept
constexpr char kPeerClosed[] = "the peer closed the connection";

ExitStatus status_of(qxgss_session_failure_et failure) {
    constexpr ExitStatus kStatuses[] = {kExitSuccess,    kExitFailure,     kExitUsage,        kExitNetwork,
                                        kExitProtocol,   kExitNegotiation, kExitConfirmation, kExitPolicy,
                                        kExitProtection, kExitPeer};
    return kStatuses[failure];
}

std::uint64_t now() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count());
}

std::string name_of_delegated(const qxgss_session_facts_desc &facts) {
    OM_sint32 index = -1;
    if (facts.pDelegatedCred == nullptr || common::failed(gssp_oid_to_mechindex(nullptr, facts.pMech, &index)) ||
        index < 0)
        return {};
    const auto inquire = pMechInfo[index].MechFtnTable.ftn_gssp_inquire_cred;
    OM_uint32 minor = 0;
    common::Name name;
    if (inquire == nullptr ||
        common::failed(inquire(&minor, facts.pDelegatedCred, name.out(), nullptr, nullptr, nullptr)))
        return {};
    return std::string(common::text_of(name.get()));
}

Clock::time_point after(OM_uint32 milliseconds) {
    return milliseconds == GSS_C_INDEFINITE ? Clock::time_point::max()
                                            : Clock::now() + std::chrono::milliseconds(milliseconds);
}

} // namespace

std::unique_ptr<Registry> configure(OM_uint32 role, const ConnectionOptions &options) {
    auto registry = std::make_unique<Registry>(role, configuration_file(options.configuration));
    registry->require_qxnego();
    for (const std::string &line : registry->messages())
        if (!options.json)
            std::cerr << "qxnego: " << line << '\n';
    return registry;
}

std::vector<std::string> required_mechanisms(const Registry &registry, const ConnectionOptions &options) {
    std::vector<std::string> oids;
    for (const std::string &name : options.require) {
        const MechInfo_t *const mechanism = registry.find(name);
        const std::string why_not =
            mechanism == nullptr ? "the configuration does not define it" : registry.why_not_negotiable(*mechanism);
        if (mechanism == nullptr || !why_not.empty())
            throw Failure("--require " + name + ": " + why_not, kExitUsage);
        oids.emplace_back(bytes_of(mechanism->pMechOid));
    }
    return oids;
}

Conversation::Conversation(Stream stream, std::chrono::milliseconds silence, bool keeps_calls)
    : stream_(std::move(stream)), silence_(silence), keeps_calls_(keeps_calls) {}

void Conversation::observe(void *conversation, const char *call, OM_uint32 major, OM_uint32 minor,
                           const qxgss_buffer_desc *token) {
    const std::string_view bytes = bytes_of(token);
    std::vector<Call> &calls = static_cast<Conversation *>(conversation)->calls_;
    if (calls.size() < kMostCalls)
        calls.push_back({now(), call, major, minor, minor_text(minor), Bytes(bytes.begin(), bytes.end())});
}

// Nothing is sent without protection here: who has none has logged on, and that is all.
qxgss_session_options_desc Conversation::observed(qxgss_session_options_desc options) {
    options.Protection = QXGSS_SESSION_UNPROTECTED;
    options.pfnObserve = keeps_calls_ ? observe : nullptr;
    options.pObserveContext = this;
    return options;
}

// ---- Until it is open ----------------------------------------------------------------------------------------------

void Conversation::start(OM_uint32 major, OM_uint32 minor) {
    if (major != GSS_S_COMPLETE)
        throw Failure("the session cannot begin: " + major_name(major) + ", " + minor_text(minor),
                      (major & GSS_S_BAD_NAME) == GSS_S_BAD_NAME || major == GSS_S_NO_CRED ? kExitUsage : kExitFailure);
}

void Conversation::log_on(std::string_view logon, const std::string &service, OM_uint32 flags,
                          qxgss_session_options_desc options) {
    OM_uint32 minor = 0;
    is_client_ = true;
    const qxgss_buffer_desc text = common::view(logon);
    const qxgss_session_options_desc wanted = observed(options);
    start(qxgss_session_initiate(&minor, &text, service.c_str(), flags, &wanted, &session_), minor);
    run(true);
}

void Conversation::admit(qxgss_session_options_desc options) {
    OM_uint32 minor = 0;
    const qxgss_session_options_desc wanted = observed(options);
    start(qxgss_session_accept(&minor, &wanted, &session_), minor);
    run(false);
}

void Conversation::run(bool is_client) {
    OM_uint32 major = GSS_S_CONTINUE_NEEDED;
    for (bool has_input = !is_client; major == GSS_S_CONTINUE_NEEDED; has_input = true) {
        deadline_ = after(qxgss_session_time_left(session_));
        const std::string message = has_input ? receive_message() : "";
        const qxgss_buffer_desc input = common::view(message);
        common::Buffer output;
        major = qxgss_session_step(nullptr, session_, &input, output.out());
        check_mechanism();
        wait_until(after(qxgss_session_delay(session_)));
        deadline_ = std::max(deadline_, Clock::now() + std::chrono::seconds(1)); // of a refusal that had to wait
        if (!output.empty())
            send_message(output.bytes());
    }
    check(major);
}

void Conversation::check(OM_uint32 major) {
    if (common::failed(major))
        throw Failure(printable(facts().pszFailure, common::kMostOfLine), status_of(facts().Failure));
}

void Conversation::check_mechanism() {
    const qxgss_session_facts_desc known = facts();
    if (known.IsEstablished == 0 || known.State == QXGSS_SESSION_FAILED || required_.empty() ||
        std::ranges::find(required_, bytes_of(known.pMech)) != required_.end())
        return;
    const std::string line = shortened(known.pszMech) + " is not a mechanism that --require allows";
    if (is_client_)
        fail(line, kExitNegotiation, QXGSS_SESSION_FAILURE_NEGOTIATION);
    fail(line, kExitPolicy, QXGSS_SESSION_FAILURE_POLICY);
}

void Conversation::fail(const std::string &line, ExitStatus status, qxgss_session_failure_et failure) {
    qxgss_session_abandon(nullptr, session_, failure, line.c_str());
    throw Failure(line, status);
}

// A peer that has gone may have said why before it went.
void Conversation::send_message(std::string_view message) {
    const bool is_over = facts().State == QXGSS_SESSION_FAILED;
    if (!stream_.send(message, deadline_) && !is_over)
        fail(kPeerClosed, kExitNetwork);
}

std::string Conversation::receive_message() {
    std::optional<std::string> message = stream_.receive(deadline_);
    if (!message)
        fail(kPeerClosed, kExitNetwork);
    return std::move(*message);
}

// ---- Messages ------------------------------------------------------------------------------------------------------

void Conversation::send(std::string_view text) {
    const qxgss_buffer_desc input = common::view(text);
    common::Buffer message;
    check(qxgss_session_wrap(nullptr, session_, &input, message.out()));
    deadline_ = Clock::now() + silence_;
    send_message(message.bytes());
}

std::optional<std::string> Conversation::receive() {
    deadline_ = Clock::now() + silence_;
    const std::string message = receive_message();
    const qxgss_buffer_desc input = common::view(message);
    common::Buffer text;
    const OM_uint32 major = qxgss_session_unwrap(nullptr, session_, &input, text.out());
    if (GSS_ERROR(major) != 0)
        end();
    check(major);
    return text.empty() ? std::nullopt : std::optional(std::string(text.bytes()));
}

// The connection ends anyway: that the peer does not hear it is no failure.
void Conversation::end() {
    common::Buffer message;
    const bool was_open = facts().State == QXGSS_SESSION_OPEN;
    const OM_uint32 major = qxgss_session_end(nullptr, session_, message.out());
    if (was_open) // that it could not be said is
        check(major);
    deadline_ = Clock::now() + silence_;
    if (!message.empty())
        stream_.send(message.bytes(), deadline_);
}

// ---- What is known -------------------------------------------------------------------------------------------------

qxgss_session_facts_desc Conversation::facts() const {
    qxgss_session_facts_desc facts{};
    qxgss_session_inquire(nullptr, session_, &facts);
    return facts;
}

void Conversation::tell(Story &story, const Failure *failure) {
    constexpr const char *kConfirmations[] = {"none", "unconfirmed", "confirmed", "mismatch"};
    constexpr const char *kRefused[] = {"", "claimed", "proved"};
    if (failure != nullptr) {
        story.failure = printable(failure->what(), common::kMostOfLine);
        story.status = failure->status();
    }
    story.is_client = is_client_;
    if (session_ == nullptr)
        return;
    const qxgss_session_facts_desc known = facts();
    story.is_established = known.IsEstablished != 0;
    story.mechanism = known.pszMech;
    story.user = bytes_of(&known.User);
    story.claimed = bytes_of(&known.Claimed);
    story.refused = kRefused[known.Refused];
    story.delegated = name_of_delegated(known);
    story.flags = known.Flags;
    story.confirmation = kConfirmations[known.Confirmation];
    story.rounds = known.Rounds;
    story.is_attempt = known.IsAttempt != 0;
    story.verdicts = verdicts_of(session_);
    story.calls = calls_;
    if (keeps_calls_) {
        common::Buffer properties;
        qxgss_session_properties(nullptr, session_, properties.out());
        story.properties.assign(properties.bytes().begin(), properties.bytes().end());
    }
}

} // namespace tools
