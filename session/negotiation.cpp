#include "session/negotiation.h"

#include <algorithm>
#include <span>

#include "common/codes.h"
#include "common/text.h"
#include "gssp2qxnego/words.h"
#include "session/failure.h"
#include "session/guard.h"

namespace session {

namespace {

using common::failed;

const char *role_of(bool is_client) {
    return is_client ? "client" : "server";
}

std::string statuses(OM_uint32 major, OM_uint32 minor, const MechInfo_t &mechanism) {
    return "major status " + common::code_text(major) + ", " + common::minor_text(minor, &mechanism);
}

bool is_usable(const qxgss_ftn_table_desc &table) {
    return table.ftn_gssp_acquire_cred != nullptr && table.ftn_gssp_release_cred != nullptr &&
           table.ftn_gssp_init_sec_context != nullptr && table.ftn_gssp_accept_sec_context != nullptr &&
           table.ftn_gssp_delete_sec_context != nullptr && table.ftn_gssp_inquire_negotiation != nullptr &&
           table.ftn_gssp_inquire_negotiated_mech != nullptr;
}

Failure forbidden(const std::string &why) {
    return {QXGSS_SESSION_FAILURE_POLICY, why, GSS_S_UNAUTHORIZED, GSSP_E_NOT_PERMITTED};
}

} // namespace

// ---- QXNEGO --------------------------------------------------------------------------------------------------------

Negotiator find_negotiator() {
    for (OM_uint32 i = 0; i != MechCount; ++i) {
        const MechInfo_t &entry = pMechInfo[i];
        if (entry.pszMechName != std::string_view("QXNEGO"))
            continue;
        if (entry.fUseMech != GSSP_MECH_UNUSED && is_usable(entry.MechFtnTable))
            return {entry.pMechOid, &entry.MechFtnTable};
    }
    throw Failure(QXGSS_SESSION_FAILURE_RESOURCES, "QXNEGO is not in use", GSS_S_FAILURE, GSSP_E_NO_PROPERTY);
}

common::Name imported(std::string_view text, qxgss_OID type, const char *what) {
    OM_uint32 minor = 0;
    common::Name name;
    qxgss_buffer_desc bytes = common::view(text);
    const OM_uint32 major = qxgss_import_name(&minor, &bytes, type, name.out());
    if (failed(major))
        throw Failure(QXGSS_SESSION_FAILURE_USAGE, std::string(what) + " could not be imported", GSS_S_BAD_NAME, minor);
    return name;
}

// ---- Beginning and end ---------------------------------------------------------------------------------------------

Negotiation::Negotiation(const qxgss_session_options_desc &options)
    : options_(options), negotiator_(find_negotiator()), credential_(*negotiator_.table), context_(*negotiator_.table) {
}

Negotiation::~Negotiation() {
    close();
    if (delegated_ == nullptr || mechanism_ < 0)
        return;
    OM_uint32 ignored = 0;
    const auto release = pMechInfo[mechanism_].MechFtnTable.ftn_gssp_release_cred;
    if (release != nullptr)
        release(&ignored, &delegated_);
}

void Negotiation::observe(const char *call, OM_uint32 major, OM_uint32 minor, const qxgss_buffer_desc *token) const {
    if (options_.pfnObserve != nullptr)
        options_.pfnObserve(options_.pObserveContext, call, major, minor,
                            common::bytes_of(token).empty() ? nullptr : token);
}

void Negotiation::set_up_client(qxgss_name_t credential, common::Name target, OM_uint32 flags, OM_uint32 lifetime) {
    is_client_ = true;
    wanted_flags_ = flags;
    wanted_lifetime_ = lifetime;
    target_ = std::move(target);
    if (credential != nullptr)
        acquire(credential, GSS_C_INITIATE, QXGSS_SESSION_FAILURE_USAGE, "there is no credential for the logon string");
}

// With a credential each entry of the negotiation is bound to its own mechanism.
void Negotiation::set_up_server(qxgss_name_t credential) {
    acquire(credential, GSS_C_ACCEPT, QXGSS_SESSION_FAILURE_RESOURCES, "QXNEGO has no credential to accept with");
}

void Negotiation::acquire(qxgss_name_t name, qxgss_cred_usage_t usage, qxgss_session_failure_et failure,
                          const char *line) {
    OM_uint32 minor = 0;
    const OM_uint32 major = negotiator_.table->ftn_gssp_acquire_cred(&minor, name, GSS_C_INDEFINITE, nullptr, usage,
                                                                     credential_.out(), nullptr, nullptr);
    observe("acquire_cred", major, minor);
    if (failed(major))
        throw Failure(failure, line, GSS_S_NO_CRED, minor);
}

void Negotiation::close() noexcept {
    try {
        views();
        properties();
    } catch (...) { // the story is lost; what is to be released is released
    }
    context_.reset();
    credential_.reset();
}

// ---- Establishment -------------------------------------------------------------------------------------------------

OM_uint32 Negotiation::call(std::string_view token, qxgss_channel_bindings_t bindings, OM_uint32 &minor,
                            common::Buffer &output) {
    const qxgss_ftn_table_desc &table = *negotiator_.table;
    qxgss_buffer_desc input = common::view(token);
    ++rounds_;
    OM_uint32 major;
    if (is_client_)
        major = table.ftn_gssp_init_sec_context(&minor, credential_.get(), context_.out(), target_.get(),
                                                negotiator_.oid, wanted_flags_, wanted_lifetime_, bindings, &input,
                                                &actual_mechanism_, output.out(), &flags_, &lifetime_);
    else
        major = table.ftn_gssp_accept_sec_context(&minor, context_.out(), credential_.get(), &input, bindings,
                                                  source_.out(), &actual_mechanism_, output.out(), &flags_, &lifetime_,
                                                  &delegated_);
    observe(is_client_ ? "init_sec_context" : "accept_sec_context", major, minor, output.out());
    return major;
}

common::Buffer Negotiation::step(std::string_view token, qxgss_channel_bindings_t bindings) {
    OM_uint32 minor = 0;
    common::Buffer output;
    transcript_.add(token);
    OM_uint32 major = call(token, bindings, minor, output);
    read_negotiation();
    if (failed(major) && is_claim_restricted()) {
        forget_claim(minor);
        major = call(nameless(token), bindings, minor, output);
        read_negotiation();
    }
    if (major != GSS_S_COMPLETE && major != GSS_S_CONTINUE_NEEDED)
        throw refusal(minor);
    if (major == GSS_S_COMPLETE)
        check_selection();
    if (is_client_ || major == GSS_S_COMPLETE)
        credential_.reset(); // each mechanism has its own by now, and the logon string is needed no more
    transcript_.add(output.bytes());
    return output;
}

bool Negotiation::is_peer_done() const {
    constexpr OM_uint32 kCompleted = 1;
    qxgss_negotiation_desc negotiation{};
    return context_.get() != nullptr &&
           !failed(negotiator_.table->ftn_gssp_inquire_negotiation(nullptr, context_.get(), &negotiation)) &&
           negotiation.NegStateFromPeer == kCompleted;
}

void Negotiation::read_negotiation() {
    qxgss_negotiation_desc negotiation{};
    if (is_client_ || context_.get() == nullptr ||
        failed(negotiator_.table->ftn_gssp_inquire_negotiation(nullptr, context_.get(), &negotiation)))
        return;
    is_attempt_ = is_attempt_ || negotiation.IsOffered != 0;
    if (rounds_ == 1)
        claimed_ = common::bytes_of(&negotiation.PolicyName);
}

// Whether the first call has failed, and the policy for the claimed name leaves out a mechanism that is negotiated
// here.
bool Negotiation::is_claim_restricted() {
    if (is_client_ || rounds_ != 1 || claimed_.empty())
        return false;
    const Policy policy(claimed_);
    return std::ranges::any_of(
        views(), [&](const MechanismView &mechanism) { return mechanism.index >= 0 && !policy.allows(mechanism.oid); });
}

// Who claims a name that the policy restricts hears what somebody unknown hears: the negotiation begins again without
// names, and whatever it proves is refused in the end. The story and the cause stay those of the claim.
void Negotiation::forget_claim(OM_uint32 minor) {
    views();
    properties();
    if (is_claim_forbidden())
        refused_ = QXGSS_SESSION_CLAIMED_REFUSED;
    forgotten_ = refusal(minor);
    context_.reset();
}

// Whether the policy leaves the claimed name none of the mechanisms that the client offers and this side has.
bool Negotiation::is_claim_forbidden() {
    const Policy policy(claimed_);
    bool is_any_offered = false;
    for (const MechanismView &mechanism : views()) {
        if (mechanism.index < 0 || !mechanism.is_offered)
            continue;
        if (policy.allows(mechanism.oid))
            return false;
        is_any_offered = true;
    }
    return is_any_offered;
}

// The mechanism that has run is the one whose entry was selected, and it is established.
void Negotiation::check_selection() {
    qxgss_negotiation_desc negotiation{};
    qxgss_negotiated_mech_desc mechanism{};
    const qxgss_ftn_table_desc &table = *negotiator_.table;
    const bool is_found = !failed(table.ftn_gssp_inquire_negotiation(nullptr, context_.get(), &negotiation)) &&
                          negotiation.SelectedNumber >= 0 &&
                          !failed(table.ftn_gssp_inquire_negotiated_mech(
                              nullptr, context_.get(), static_cast<OM_uint32>(negotiation.SelectedNumber), &mechanism));
    mechanism_ = is_found ? mechanism.MechIndex : -1; // also of a delegated credential that is to be given back
    is_established_ = mechanism_ >= 0 && mechanism.IsCtxEstablished != 0 &&
                      !common::bytes_of(actual_mechanism_).empty() &&
                      common::bytes_of(mechanism.pMechOid) == common::bytes_of(actual_mechanism_);
    if (!is_established_)
        throw Failure(QXGSS_SESSION_FAILURE_NEGOTIATION, "the mechanism that has run is not the one that was selected",
                      GSS_S_BAD_MECH);
}

// The cause that came first is told first: the policy, then what this side lost and why, then the call as a whole.
Failure Negotiation::refusal(OM_uint32 minor) {
    if (forgotten_)
        return *forgotten_;
    if (refused_ == QXGSS_SESSION_CLAIMED_REFUSED)
        return forbidden("the policy lets the claimed name " + common::quoted(claimed_) + " log on with none of these");
    return {QXGSS_SESSION_FAILURE_NEGOTIATION, causes() + outcome(minor), GSS_S_FAILURE, minor};
}

// A mechanism whose client finishes first settles the negotiation before the other side has judged it; then the call
// as a whole says no more than that something is wrong.
std::string Negotiation::outcome(OM_uint32 minor) const {
    qxgss_negotiation_desc negotiation{};
    qxgss_negotiated_mech_desc mechanism{};
    const qxgss_ftn_table_desc &table = *negotiator_.table;
    const bool is_settled =
        minor == common::QXNEGO_E_INTERNAL && is_peer_done() &&
        !failed(table.ftn_gssp_inquire_negotiation(nullptr, context_.get(), &negotiation)) &&
        negotiation.SelectedNumber >= 0 &&
        !failed(table.ftn_gssp_inquire_negotiated_mech(
            nullptr, context_.get(), static_cast<OM_uint32>(negotiation.SelectedNumber), &mechanism)) &&
        mechanism.MechIndex >= 0 && mechanism.MechState == QXGSS_MECH_STATE_REJECTED;
    if (!is_settled)
        return common::minor_text(minor);
    return std::string(is_client_ ? "the server" : "the client") + " had already settled on " +
           common::printable(pMechInfo[mechanism.MechIndex].pszMechName) + ", which failed here";
}

std::string Negotiation::causes() {
    std::string out;
    for (const MechanismView &mechanism : views()) {
        const View &view = mechanism.view;
        if (mechanism.index < 0 || view.state != QXGSS_MECH_STATE_REJECTED ||
            view.reason == QXGSS_MECH_REASON_DUE_TO_RANK)
            continue;
        const char *const teller = !view.is_adopted ? ": " : is_client_ ? ": the server says " : ": the client says ";
        out += common::printable(pMechInfo[mechanism.index].pszMechName) + teller +
               (view.status_text.empty() ? std::string(qxnego::reason_word(view.reason))
                                         : common::quoted(view.status_text)) +
               "; ";
    }
    return out;
}

// ---- The server's policy -------------------------------------------------------------------------------------------

void Negotiation::check_policy() {
    if (forgotten_)
        throw Failure(*forgotten_);
    const std::string name = common::printable(mechanism().pszMechName);
    const std::string user(common::text_of(source_.get()));
    refused_ = QXGSS_SESSION_PROVED_REFUSED;
    if (user.empty() || user.find('\0') != std::string::npos)
        throw forbidden("the mechanism " + name + " has proved no name that the policy could be looked up for");
    const Policy policy(user);
    if (!policy.is_known())
        throw forbidden("the policy cannot be looked up for the proved name " + common::quoted(user));
    if (!policy.allows(common::bytes_of(actual_mechanism_)))
        throw forbidden("the policy does not let the proved name " + common::quoted(user) + " log on with " + name);
    refused_ = QXGSS_SESSION_NONE_REFUSED;
}

// ---- The confirmation of the offer ---------------------------------------------------------------------------------

bool Negotiation::has_mics() const {
    return pMechInfo[mechanism_].MechFtnTable.ftn_gssp_get_mic != nullptr;
}

std::string Negotiation::own_mic() {
    const auto refuse = [&](const std::string &why) {
        throw Failure(QXGSS_SESSION_FAILURE_CONFIRMATION, common::printable(pMechInfo[mechanism_].pszMechName) + why);
    };
    if (!has_mics()) {
        if (options_.RequireConfirmation != 0)
            refuse(" has no MICs to confirm the negotiation with");
        return {};
    }
    // Someone in between could have struck it from the mechanism's own negotiation.
    if ((flags_ & GSS_C_INTEG_FLAG) == 0)
        refuse(" can make MICs, and the peer has not negotiated them");
    OM_uint32 minor = 0;
    common::Buffer mic;
    const std::string statement = transcript_.statement(role_of(is_client_));
    qxgss_buffer_desc text = common::view(statement);
    const OM_uint32 major = negotiator_.table->ftn_gssp_get_mic(&minor, context_.get(), 0, &text, mic.out());
    if (failed(major) || mic.empty())
        refuse(" gives no MIC: " + statuses(major, minor, mechanism()));
    return std::string(mic.bytes());
}

void Negotiation::check_mic(std::string_view mic) {
    if (!has_mics() && mic.empty())
        return;
    OM_uint32 minor = 0;
    const std::string statement = transcript_.statement(role_of(!is_client_));
    qxgss_buffer_desc text = common::view(statement), token = common::view(mic);
    if (mic.empty() || !has_mics() ||
        negotiator_.table->ftn_gssp_verify_mic(&minor, context_.get(), &text, &token, nullptr) != GSS_S_COMPLETE)
        throw Failure(QXGSS_SESSION_FAILURE_CONFIRMATION,
                      "the peer saw other tokens: someone in between has changed the negotiation", GSS_S_BAD_MIC);
}

// ---- Messages ------------------------------------------------------------------------------------------------------

bool Negotiation::is_protecting() const {
    return is_established_ && (flags_ & GSS_C_INTEG_FLAG) != 0;
}

common::Buffer Negotiation::wrap(std::string_view text) {
    OM_uint32 minor = 0;
    common::Buffer message;
    qxgss_buffer_desc input = common::view(text);
    const int wanted = (flags_ & GSS_C_CONF_FLAG) != 0 ? 1 : 0;
    int granted = 0;
    const OM_uint32 major =
        negotiator_.table->ftn_gssp_wrap(&minor, context_.get(), wanted, 0, &input, &granted, message.out());
    if (failed(major) || (wanted != 0 && granted == 0))
        throw Failure(QXGSS_SESSION_FAILURE_PROTECTION,
                      "a message could not be protected: " + statuses(major, minor, mechanism()), GSS_S_FAILURE, minor);
    return message;
}

// A message that comes twice or in another order is refused like one that was changed.
common::Buffer Negotiation::unwrap(std::string_view message) {
    OM_uint32 minor = 0;
    common::Buffer text;
    qxgss_buffer_desc input = common::view(message);
    int is_confidential = 0;
    const OM_uint32 major =
        negotiator_.table->ftn_gssp_unwrap(&minor, context_.get(), &input, text.out(), &is_confidential, nullptr);
    if (major != GSS_S_COMPLETE || ((flags_ & GSS_C_CONF_FLAG) != 0 && is_confidential == 0))
        throw Failure(QXGSS_SESSION_FAILURE_PROTECTION,
                      "a message is not protected as it should be: " + statuses(major, minor, mechanism()),
                      failed(major) ? major : GSS_S_FAILURE, minor);
    return text;
}

// ---- What is known -------------------------------------------------------------------------------------------------

const Views &Negotiation::views() {
    if (!views_ || (context_.get() != nullptr && !forgotten_))
        read_views();
    return *views_;
}

void Negotiation::read_views() {
    Views views;
    qxgss_negotiated_mech_desc mechanism{};
    for (OM_uint32 i = 0; context_.get() != nullptr && negotiator_.table->ftn_gssp_inquire_negotiated_mech(
                                                           nullptr, context_.get(), i, &mechanism) == GSS_S_COMPLETE;
         ++i)
        views.push_back({std::string(common::bytes_of(mechanism.pMechOid)),
                         mechanism.MechIndex,
                         {mechanism.MechState, mechanism.MechReason, mechanism.GssMajorStatus, mechanism.GssMinorStatus,
                          std::string(common::bytes_of(&mechanism.GssMinorStatusText)), mechanism.IsStateFromPeer != 0},
                         mechanism.IsOffered != 0});
    views_ = std::move(views);
}

// The log is rendered once, when it is asked for or the context goes.
std::string_view Negotiation::properties() {
    const auto inquire = negotiator_.table->ftn_gssp_inquire_properties_for_user;
    if (!properties_ && context_.get() != nullptr && inquire != nullptr) {
        OM_uint32 minor = 0;
        common::Buffer properties;
        const OM_uint32 major = inquire(&minor, context_.get(), properties.out());
        observe("inquire_properties_for_user", major, minor);
        properties_ = properties.bytes();
    }
    return properties_ ? std::string_view(*properties_) : std::string_view();
}

void Negotiation::describe(qxgss_session_facts_desc &facts) const {
    facts.IsEstablished = is_established_ ? 1 : 0;
    facts.pMech = is_established_ ? mechanism().pMechOid : nullptr;
    facts.pszMech = is_established_ ? mechanism().pszMechName : "";
    if (is_established_)
        facts.User = common::view(common::text_of(source_.get()));
    facts.Claimed = common::view(claimed_);
    facts.Refused = refused_;
    facts.Flags = is_established_ ? flags_ : 0;
    facts.IsProtecting = is_protecting() ? 1 : 0;
    facts.IsAttempt = is_attempt_ ? 1 : 0;
    facts.Rounds = rounds_;
    facts.pDelegatedCred = is_established_ ? delegated_ : nullptr;
}

} // namespace session
