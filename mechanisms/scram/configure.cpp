// Configuration: GNU SASL's one context, the server's verifiers, and what the mechanism says of itself. Nothing here is
// written once configure has returned.
#include "mechanisms/exposure.h"
#include "mechanisms/scram/scram.h"

namespace scram {
namespace {

// Never given back: sessions may be alive for as long as the process is.
Gsasl *shared_library = nullptr;

// What is wrong, or empty.
std::string start_library() {
    if (shared_library != nullptr)
        return {};
    const int rc = gsasl_init(&shared_library);
    if (rc != GSASL_OK)
        return gsasl_strerror(rc);
    gsasl_callback_set(shared_library, give_verifier);
    return {};
}

// What is wrong, or empty; what is to be said although nothing is goes to `warning`.
std::string read_verifiers(Mechanism &mechanism, std::string &warning) {
    const char *file = nullptr;
    if (GSS_ERROR(gssp_inquire_mech_setting(nullptr, configured_name(mechanism), "verifiers_file", &file)))
        return "verifiers_file is not set";
    auto verifiers = std::make_unique<Verifiers>();
    std::string wrong = verifiers->read(file, mechanism.name);
    if (!wrong.empty())
        return wrong;
    if (const char *const exposed = exposure(file); exposed != nullptr)
        warning = std::string(file) + exposed;
    mechanism.verifiers = verifiers.release();
    return {};
}

// A set of copies of the OIDs; null when memory is lacking.
OidSet make_set(std::initializer_list<qxgss_OID> oids) {
    OidSet set;
    OM_uint32 major = gssp_create_empty_oid_set(nullptr, set.out());
    for (const qxgss_OID oid : oids) {
        if (!GSS_ERROR(major))
            major = gssp_add_oid_set_member(nullptr, oid, set.out());
    }
    return GSS_ERROR(major) ? OidSet() : std::move(set);
}

OM_uint32 hand_out(OM_uint32 *pMinorStatus, OidSet set, qxgss_OID_set *ppSet) {
    if (set == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    *ppSet = set.release();
    return succeed(pMinorStatus);
}

} // namespace

Gsasl *library() {
    return shared_library;
}

const char *configured_name(Mechanism &mechanism) {
    const char *name = nullptr;
    if (GSS_ERROR(gssp_oid_to_mechstr(nullptr, &mechanism.oid, &name)))
        return mechanism.name;
    return name;
}

bool is_for(const Mechanism &mechanism, qxgss_OID pOid) {
    return pOid == nullptr || common::bytes_of(pOid) == common::bytes_of(&mechanism.oid);
}

OidSet set_of(Mechanism &mechanism) {
    return make_set({&mechanism.oid});
}

OM_uint32 configure(Mechanism &mechanism, OM_uint32 *pMinorStatus, OM_uint32 ClientServer,
                    qxgss_buffer_t pConfigInfoBuf) {
    delete mechanism.verifiers;
    mechanism.verifiers = nullptr;
    std::string warning;
    std::string wrong = start_library();
    if (wrong.empty() && ClientServer == QXGSS_SERVER)
        wrong = read_verifiers(mechanism, warning);
    if (pConfigInfoBuf != nullptr)
        common::append(*pConfigInfoBuf, wrong.empty() ? warning : wrong); // without memory the status has to do
    if (wrong.empty())
        return succeed(pMinorStatus);
    return report(pMinorStatus, GSS_S_FAILURE, E_NOT_CONFIGURED);
}

OM_uint32 indicate_mechs(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_OID_set *ppMechSet) {
    if (ppMechSet == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *ppMechSet = nullptr;
    return hand_out(pMinorStatus, set_of(mechanism), ppMechSet);
}

OM_uint32 inquire_names_for_mech(Mechanism &mechanism, OM_uint32 *pMinorStatus, qxgss_OID pMechanism,
                                 qxgss_OID_set *ppNameTypes) {
    if (ppNameTypes == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *ppNameTypes = nullptr;
    if (!is_for(mechanism, pMechanism))
        return report(pMinorStatus, GSS_S_BAD_MECH, E_OTHER_MECHANISM);
    return hand_out(pMinorStatus,
                    make_set({GSS_C_NT_QXAT_MECHDATA, GSS_C_NT_QXAT_MECHDATA_UTF8, GSS_C_NT_QXAT_MECHDATA_UTF16,
                              GSS_C_NT_QXAT_MECHDATA_UTF32}),
                    ppNameTypes);
}

} // namespace scram
