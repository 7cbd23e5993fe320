// Only the establishment of the mechanisms underneath is replaced. Their configuration and the acquisition of their
// credentials are real, so that a missing key table or file of verifiers shows here too.
#include "tools/rehearsal.h"

#include <algorithm>

#include "gssp2qxnego/gssp2qxnegoutil/words.h"
#include "qxgss/gsspasn.h"
#include "tools/codes.h"
#include "tools/failure.h"
#include "tools/handles.h"
#include "tools/oids.h"
#include "tools/user_properties.h"

namespace tools {

namespace {

// ---- The client's token --------------------------------------------------------------------------------------------

class TokenWriter {
  public:
    TokenWriter() {
        run(gsspasn_open_encode_handle(&handle_));
        run(gsspasn_set_encode_tagging(handle_, GSSP_TAGGING_IMPLICIT));
    }
    TokenWriter(const TokenWriter &) = delete;
    TokenWriter &operator=(const TokenWriter &) = delete;
    ~TokenWriter() { gsspasn_close_encode_handle(&handle_, nullptr); }

    void start(OM_uint32 tag) { run(gsspasn_start_encode_sequence(handle_, tag)); }
    void stop(OM_uint32 tag) { run(gsspasn_stop_encode_sequence(handle_, tag)); }
    void integer(OM_uint32 tag, OM_uint32 value) {
        run(gsspasn_put_encode_item(handle_, tag, GSSPASN_INTEGER, &value));
    }
    void oid(OM_uint32 tag, qxgss_OID value) {
        run(gsspasn_put_encode_item(handle_, tag, GSSPASN_OBJECT_IDENTIFIER, value));
    }
    void text(OM_uint32 tag, const std::string &value) {
        const qxgss_buffer_desc octets = {value.size(), const_cast<char *>(value.data())};
        if (!value.empty())
            run(gsspasn_put_encode_item(handle_, tag, GSSPASN_OCTET_STRING, &octets));
    }
    void finish(OwnedBuffer &token) { run(gsspasn_close_encode_handle(&handle_, token.get())); }

  private:
    static void run(OM_uint32 status) {
        if (status != GSSPASN_E_SUCCESS)
            throw Failure(minor_text({}, nullptr, status));
    }

    gsspasn_encoding_t handle_ = nullptr;
};

void write_init(const Request &request, const std::vector<qxgss_OID> &offer, OwnedBuffer &token) {
    TokenWriter writer;
    writer.start(0);
    writer.start(0);
    for (qxgss_OID oid : offer) {
        writer.start(0);
        writer.oid(0, oid);
        writer.integer(1, NEG_MECH_STATE_AVAILABLE);
        writer.integer(2, NEG_MECH_REASON_AVAILABLE);
        writer.text(6, "rehearsal");
        writer.stop(0);
    }
    writer.stop(0);
    writer.integer(1, NEG_STATE_INCOMPLETE);
    writer.text(2, request.user);
    writer.text(4, request.as);
    writer.text(5, request.profile);
    writer.stop(0);
    writer.finish(token);
}

// ---- The server ----------------------------------------------------------------------------------------------------

// Stands for a mechanism's accept operation: with a token of the client it is established, and holds nothing.
OM_uint32 accept_at_once(OM_uint32 *pMinorStatus, qxgss_ctx_id_t *, qxgss_cred_id_t, qxgss_buffer_t pInputToken,
                         qxgss_channel_bindings_t, qxgss_name_t *, qxgss_OID *, qxgss_buffer_t, OM_uint32 *,
                         OM_uint32 *, qxgss_cred_id_t *) {
    *pMinorStatus = GSSP_E_SUCCESS;
    return pInputToken->length == 0 ? GSS_S_DEFECTIVE_TOKEN : GSS_S_COMPLETE;
}

const MechInfo_t &usable_qxnego(const Registry &registry) {
    const MechInfo_t *qxnego = registry.qxnego();
    if (qxnego == nullptr)
        throw Failure("the configuration has no mechanism QXNEGO", kExitConfiguration);
    if (qxnego->fUseMech == GSSP_MECH_UNUSED)
        throw Failure(std::string("QXNEGO is not in use (qxnego mechs tells more): ") + qxnego->pszMessage,
                      kExitConfiguration);
    const qxgss_ftn_table_desc &table = qxnego->MechFtnTable;
    if (table.ftn_gssp_acquire_cred == nullptr || table.ftn_gssp_release_cred == nullptr ||
        table.ftn_gssp_accept_sec_context == nullptr || table.ftn_gssp_delete_sec_context == nullptr ||
        table.ftn_gssp_inquire_properties_for_user == nullptr)
        throw Failure("QXNEGO's library lacks operations that a server needs", kExitConfiguration);
    return *qxnego;
}

struct Outcome {
    std::string failure; // empty when a mechanism was selected
    std::vector<View> views;
};

Outcome accept(const MechInfo_t &qxnego, OwnedBuffer &token) {
    const qxgss_ftn_table_desc &table = qxnego.MechFtnTable;
    Credential credential(table);
    Context context(table);
    OwnedBuffer answer, properties;
    OM_uint32 minor = 0;
    OM_uint32 major = table.ftn_gssp_acquire_cred(&minor, nullptr, GSS_C_INDEFINITE, nullptr, GSS_C_ACCEPT,
                                                  credential.out(), nullptr, nullptr);
    if (GSS_ERROR(major) == 0)
        major = table.ftn_gssp_accept_sec_context(&minor, context.out(), credential.get(), token.get(),
                                                  QXGSS_C_NO_CHANNEL_BINDINGS, nullptr, nullptr, answer.get(), nullptr,
                                                  nullptr, nullptr);
    Outcome outcome;
    if (major != GSS_S_COMPLETE)
        outcome.failure = minor_text(table, qxnego.pMechOid, minor);
    if (context.get() != nullptr)
        table.ftn_gssp_inquire_properties_for_user(&minor, context.get(), properties.get());
    outcome.views = views_of(read_log(read_properties(properties.bytes()).log));
    return outcome;
}

// ---- The rules -----------------------------------------------------------------------------------------------------

class Explainer {
  public:
    Explainer(const Registry &registry, const Request &request) : registry_(registry), request_(request) {
        read_policy();
    }

    const std::string &policy() const { return policy_; }

    std::string rule(const Verdict &verdict, const std::string &selected) const {
        const MechInfo_t *mechanism = registry_.find(verdict.mechanism);
        if (is(verdict, NEG_MECH_REASON_NOT_AVAIL_AT_SERVER))
            return mechanism == nullptr ? "the configuration does not define it"
                                        : registry_.why_not_negotiable(*mechanism).value_or("");
        if (is(verdict, NEG_MECH_REASON_NOT_AVAIL_AT_CLIENT))
            return "it is not in the offer";
        if (is(verdict, NEG_MECH_REASON_DUE_TO_POLICY))
            return policy_;
        if (is(verdict, NEG_MECH_REASON_AUTHORIZATION_REQUIRED))
            return "a user or profile is asked for, and its property authorization is false";
        if (is(verdict, NEG_MECH_REASON_GSSAPI_ERROR))
            return "its credential could not be acquired: " + verdict.status_text;
        if (is(verdict, NEG_MECH_REASON_DUE_TO_RANK))
            return verdict.mechanism == selected ? "the first that is left, with " + rank(verdict.mechanism)
                                                 : selected + " comes before it, with " + rank(selected);
        return "";
    }

  private:
    static bool is(const Verdict &verdict, NegMechReason_et reason) { return verdict.reason == qxnego::word(reason); }

    std::string rank(const std::string &name) const {
        const MechInfo_t *mechanism = registry_.find(name);
        const std::optional<int> value =
            mechanism == nullptr ? std::nullopt : integer_property(*mechanism, GSSP_PROPERTY_RANK);
        return "rank " + (value ? std::to_string(*value) : "unknown");
    }

    void read_policy() {
        const std::string &user = request_.policy_user();
        qxgss_OID_set allowed = nullptr;
        OM_uint32 minor = 0;
        if (GSS_ERROR(gssp_inquire_mech_policy_for_user(&minor, user.c_str(), &allowed)) != 0)
            throw Failure("the policy cannot be looked up: " + minor_text({}, nullptr, minor));
        std::string names;
        for (std::size_t i = 0; allowed != nullptr && i != allowed->count; ++i) {
            const char *name = "";
            gssp_oid_to_mechstr(nullptr, &allowed->elements[i], &name);
            names += (names.empty() ? "" : ", ") + std::string(name != nullptr ? name : "none");
        }
        policy_ = names.empty() ? "no policy restricts " + user : "the policy allows " + user + " only " + names;
        gssp_release_oid_set(nullptr, &allowed);
    }

    const Registry &registry_;
    const Request &request_;
    std::string policy_;
};

// ---- The offer -----------------------------------------------------------------------------------------------------

// The framework keeps the OID until it is shut down.
qxgss_OID oid_of(const Registry &registry, const std::string &name) {
    if (const MechInfo_t *mechanism = registry.find(name); mechanism != nullptr)
        return mechanism->pMechOid;
    const std::string dotted = well_known_oid(name);
    qxgss_OID oid = nullptr;
    if (GSS_ERROR(gssp_mechoidstr_to_oid(nullptr, (dotted.empty() ? name : dotted).c_str(), &oid)) != 0)
        throw Failure(name + ": is neither a mechanism of the configuration, nor a well-known one, nor an OID",
                      kExitUsage);
    return oid;
}

std::string name_of(qxgss_OID oid) {
    const char *name = nullptr;
    return GSS_ERROR(gssp_oid_to_mechstr(nullptr, oid, &name)) == 0
               ? name
               : mechanism_name({static_cast<const unsigned char *>(oid->elements), oid->length});
}

// The client as the server's answer leaves it: a server that fails sends none.
std::vector<View> client_views(const std::vector<qxgss_OID> &offer, const Outcome &outcome) {
    std::vector<View> views;
    views.reserve(offer.size());
    for (qxgss_OID oid : offer)
        views.push_back({name_of(oid), std::string(qxnego::word(NEG_MECH_STATE_AVAILABLE)), "", ""});
    for (const View &server : outcome.views) {
        const auto offered = std::find_if(views.begin(), views.end(),
                                          [&](const View &view) { return view.mechanism == server.mechanism; });
        if (offered == views.end())
            views.push_back({server.mechanism, std::string(qxnego::word(NEG_MECH_STATE_REJECTED)),
                             std::string(qxnego::word(NEG_MECH_REASON_NOT_AVAIL_AT_CLIENT)), ""});
        else if (outcome.failure.empty())
            *offered = server;
    }
    return views;
}

} // namespace

Decision rehearse(const Registry &registry, const Request &request) {
    const MechInfo_t &qxnego = usable_qxnego(registry);
    std::vector<qxgss_OID> offer;
    for (const std::string &name : request.offer)
        offer.push_back(oid_of(registry, name));
    const Explainer explainer(registry, request);
    for (MechInfo_t &mechanism : registry.mechanisms()) {
        if (&mechanism == &qxnego)
            continue;
        mechanism.MechFtnTable.ftn_gssp_accept_sec_context = accept_at_once;
        mechanism.MechFtnTable.ftn_gssp_inquire_properties_for_user = nullptr;
    }
    OwnedBuffer token;
    write_init(request, offer, token);
    const Outcome outcome = accept(qxnego, token);

    Decision decision{explainer.policy(), {}, outcome.failure, {}};
    const std::vector<Verdict> verdicts = join(client_views(offer, outcome), outcome.views);
    for (const Verdict &verdict : verdicts)
        if (verdict.verdict == "selected")
            decision.selected = verdict.mechanism;
    for (const Verdict &verdict : verdicts)
        decision.rulings.push_back({verdict, explainer.rule(verdict, decision.selected)});
    return decision;
}

} // namespace tools
