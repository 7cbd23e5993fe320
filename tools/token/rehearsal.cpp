// QXNEGO reaches the mechanisms underneath through the registry's function tables and in no other way, so that is where
// their establishment is replaced: no mechanism would accept a token that nobody's credential has made, and one made
// for rehearsals would have to stand in the configuration, which is to be seen as it is. Their configuration and the
// acquisition of their credentials are real: a missing key table or file of verifiers shows here too.
#include "tools/token/rehearsal.h"

#include <algorithm>

#include "common/asn.h"
#include "gssp2qxnego/token_format.h"
#include "tools/failure.h"
#include "tools/show/codes.h"
#include "tools/show/oids.h"

namespace tools {

namespace {

// ---- The client's token --------------------------------------------------------------------------------------------

namespace token = qxnego::token;

void put_text(common::Encoding &writer, const token::Element &element, const std::string &value) {
    const qxgss_buffer_desc octets = common::view(value);
    if (!value.empty())
        writer.put(element, &octets);
}

void write_init(const Request &request, const std::vector<qxgss_OID> &offer, common::Buffer &token) {
    constexpr OM_uint32 kState = QXGSS_MECH_STATE_AVAILABLE, kReason = QXGSS_MECH_REASON_AVAILABLE;
    constexpr OM_uint32 kIncomplete = QXGSS_NEG_STATE_INCOMPLETE;
    common::Encoding writer;
    writer.start(token::kInit);
    writer.start(token::kMechanisms);
    for (qxgss_OID oid : offer) {
        writer.start(token::kMechanism);
        writer.put(token::mech::kOid, oid);
        writer.put(token::mech::kState, &kState);
        writer.put(token::mech::kReason, &kReason);
        put_text(writer, token::mech::kInnerToken, "rehearsal");
        writer.stop(token::kMechanism);
    }
    writer.stop(token::kMechanisms);
    writer.put(token::kNegState, &kIncomplete);
    put_text(writer, token::init::kAuthenticationId, request.user);
    put_text(writer, token::init::kUserName, request.as);
    put_text(writer, token::init::kProfileName, request.profile);
    writer.stop(token::kInit);
    if (const OM_uint32 status = writer.close_into(token); status != GSSPASN_E_SUCCESS)
        throw Failure(minor_text(status));
}

// ---- The server ----------------------------------------------------------------------------------------------------

// Stands for a mechanism's accept operation: with a token of the client it is established, and holds nothing.
OM_uint32 accept_at_once(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *, qxgss_cred_id_t, qxgss_buffer_t pInputToken,
                         qxgss_channel_bindings_t, qxgss_name_t *, qxgss_OID *, qxgss_buffer_t, OM_uint32 *,
                         OM_uint32 *, qxgss_cred_id_t *) {
    *pMinorStatus = GSSP_E_SUCCESS;
    return pInputToken->length == 0 ? GSS_S_DEFECTIVE_TOKEN : GSS_S_COMPLETE;
}

struct Outcome {
    std::string failure; // empty when a mechanism was selected
    std::string policy_user;
    std::vector<Verdict> views; // the server's
};

void ask(const qxgss_ftn_table_desc &table, qxgss_ctx_id_t context, Outcome &outcome) {
    OM_uint32 minor = 0;
    qxgss_negotiation_desc negotiation{};
    if (table.ftn_gssp_inquire_negotiation(&minor, context, &negotiation) != GSS_S_COMPLETE)
        return;
    outcome.policy_user = common::bytes_of(&negotiation.PolicyName);
    qxgss_negotiated_mech_desc mechanism{};
    for (OM_uint32 i = 0; table.ftn_gssp_inquire_negotiated_mech(&minor, context, i, &mechanism) == GSS_S_COMPLETE; ++i)
        outcome.views.push_back({.mechanism = name_of(*mechanism.pMechOid),
                                 .server = {mechanism.MechState, mechanism.MechReason,
                                            std::string(common::bytes_of(&mechanism.GssMinorStatusText))}});
}

Outcome accept(const MechInfo_t &qxnego, common::Buffer &token) {
    const qxgss_ftn_table_desc &table = qxnego.MechFtnTable;
    common::MechanismOwned<qxgss_cred_id_t, &qxgss_ftn_table_desc::ftn_gssp_release_cred> credential(table);
    common::MechanismOwned<qxgss_ctx_id_t, &qxgss_ftn_table_desc::ftn_gssp_delete_sec_context> context(table);
    common::Buffer answer;
    OM_uint32 minor = 0;
    OM_uint32 major = table.ftn_gssp_acquire_cred(&minor, nullptr, GSS_C_INDEFINITE, nullptr, GSS_C_ACCEPT,
                                                  credential.out(), nullptr, nullptr);
    if (!common::failed(major))
        major = table.ftn_gssp_accept_sec_context(&minor, context.out(), credential.get(), token.out(),
                                                  QXGSS_C_NO_CHANNEL_BINDINGS, nullptr, nullptr, answer.out(), nullptr,
                                                  nullptr, nullptr);
    Outcome outcome;
    if (major != GSS_S_COMPLETE)
        outcome.failure = minor_text(minor, &qxnego);
    if (context.get() != nullptr)
        ask(table, context.get(), outcome);
    return outcome;
}

// ---- The rules -----------------------------------------------------------------------------------------------------

std::string policy_for(const std::string &user) {
    common::OidSet allowed;
    OM_uint32 minor = 0;
    if (common::failed(gssp_inquire_mech_policy_for_user(&minor, user.c_str(), allowed.out())))
        throw Failure("the policy cannot be looked up: " + minor_text(minor));
    std::string names;
    for (std::size_t i = 0; allowed.get() != nullptr && i != allowed.get()->count; ++i) {
        const char *name = nullptr;
        gssp_oid_to_mechstr(nullptr, &allowed.get()->elements[i], &name);
        names += (names.empty() ? "" : ", ") + std::string(name != nullptr ? name : "none");
    }
    return names.empty() ? "no policy restricts " + user : "the policy allows " + user + " only " + names;
}

std::string rank_of(const MechInfo_t *mechanism) {
    const std::optional<int> value =
        mechanism == nullptr ? std::nullopt : integer_property(*mechanism, GSSP_PROPERTY_RANK);
    return "rank " + (value ? std::to_string(*value) : "unknown");
}

std::string rule(const Registry &registry, const Verdict &verdict, const Decision &decision) {
    const MechInfo_t *mechanism = registry.find(verdict.mechanism);
    switch (verdict.reason) {
    case QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER:
        return mechanism == nullptr ? "the configuration does not define it" : registry.why_not_negotiable(*mechanism);
    case QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT:
        return "it is not in the offer";
    case QXGSS_MECH_REASON_DUE_TO_POLICY:
        return decision.policy;
    case QXGSS_MECH_REASON_AUTHORIZATION_REQUIRED:
        return "a user or profile is asked for, and its property authorization is false";
    case QXGSS_MECH_REASON_GSSAPI_ERROR:
        return "its credential could not be acquired: " + verdict.status_text;
    case QXGSS_MECH_REASON_DUE_TO_RANK:
        return (verdict.mechanism == decision.selected ? "the first that is left, with "
                                                       : decision.selected + " comes before it, with ") +
               rank_of(registry.find(decision.selected));
    default:
        return "";
    }
}

// ---- The offer -----------------------------------------------------------------------------------------------------

// The framework keeps the OID until it is shut down.
qxgss_OID oid_of(const Registry &registry, const std::string &name) {
    if (const MechInfo_t *mechanism = registry.find(name); mechanism != nullptr)
        return mechanism->pMechOid;
    const std::string dotted = well_known_oid(name);
    qxgss_OID oid = nullptr;
    if (common::failed(gssp_mechoidstr_to_oid(nullptr, (dotted.empty() ? name : dotted).c_str(), &oid)))
        throw Failure(name + ": is neither a mechanism of the configuration, nor a well-known one, nor an OID",
                      kExitUsage);
    return oid;
}

// The client as the server's answer leaves it: a server that fails sends none.
std::vector<Verdict> client_views(const std::vector<qxgss_OID> &offer, const Outcome &outcome) {
    std::vector<Verdict> views;
    views.reserve(offer.size());
    for (qxgss_OID oid : offer)
        views.push_back({.mechanism = name_of(*oid), .client = {QXGSS_MECH_STATE_AVAILABLE, 0, ""}});
    for (const Verdict &row : outcome.views) {
        const auto offered = std::ranges::find(views, row.mechanism, &Verdict::mechanism);
        if (offered == views.end())
            views.push_back({.mechanism = row.mechanism,
                             .client = {QXGSS_MECH_STATE_REJECTED, QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT, ""}});
        else if (outcome.failure.empty())
            offered->client = row.server;
    }
    return views;
}

} // namespace

Decision rehearse(const Registry &registry, const Request &request) {
    const MechInfo_t &qxnego = registry.require_qxnego();
    std::vector<qxgss_OID> offer;
    for (const std::string &name : request.offer) {
        const qxgss_OID oid = oid_of(registry, name);
        const auto is_same = [&](qxgss_OID other) { return common::bytes_of(other) == common::bytes_of(oid); };
        if (std::ranges::none_of(offer, is_same))
            offer.push_back(oid);
    }
    for (MechInfo_t &mechanism : registry.mechanisms()) {
        if (&mechanism == &qxnego)
            continue;
        mechanism.MechFtnTable.ftn_gssp_accept_sec_context = accept_at_once;
        mechanism.MechFtnTable.ftn_gssp_inquire_properties_for_user = nullptr;
    }
    common::Buffer token;
    write_init(request, offer, token);
    const Outcome outcome = accept(qxnego, token);

    Decision decision{outcome.policy_user.empty() ? "none is looked up" : policy_for(outcome.policy_user),
                      {},
                      outcome.failure,
                      join(client_views(offer, outcome), outcome.views)};
    for (const Verdict &verdict : decision.verdicts)
        if (verdict.verdict == QXGSS_SESSION_VERDICT_SELECTED)
            decision.selected = verdict.mechanism;
    for (Verdict &verdict : decision.verdicts)
        verdict.rule = rule(registry, verdict, decision);
    return decision;
}

} // namespace tools
