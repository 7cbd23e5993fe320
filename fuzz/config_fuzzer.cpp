// The configuration file, and the registry that comes of it.
#include <string>

#include "fuzz/configured.h"

using fuzz::require;

namespace {

void look_up(const MechInfo_t &mechanism) {
    OM_sint32 index = -1, rank = 0;
    OM_uint32 value = 0;
    const char *text = nullptr;
    require(mechanism.pszMechName != nullptr && mechanism.pMechOid != nullptr, "every mechanism has a name and an OID");
    gssp_oid_to_mechindex(nullptr, mechanism.pMechOid, &index);
    require(index >= 0 && &pMechInfo[index] == &mechanism, "a mechanism's OID leads to it");
    require(gssp_mechstr_to_oidstr(nullptr, mechanism.pszMechName, &text) == GSS_S_COMPLETE, "its OID has a text");
    OM_uint32 length = 0;
    unsigned char *der = nullptr;
    require(gssp_oidstr_to_oidder(nullptr, 0, 0, text, &length, &der) == GSS_S_COMPLETE, "which is an OID's");
    std::free(der);
    gssp_inquire_one_mech_property_boolean(nullptr, mechanism.pMechOid, GSSP_PROPERTY_SINGLE_SIGN_ON, &value);
    gssp_inquire_one_mech_property_int(nullptr, mechanism.pMechOid, GSSP_PROPERTY_RANK, &rank);
    gssp_inquire_mech_setting(nullptr, mechanism.pszMechName, "file", &text);
}

void look_up_policy(const char *user) {
    qxgss_OID_set mechanisms = nullptr;
    gssp_inquire_mech_policy_for_user(nullptr, user, &mechanisms);
    for (std::size_t i = 0; mechanisms != nullptr && i < mechanisms->count; ++i) {
        OM_sint32 index = -1;
        gssp_oid_to_mechindex(nullptr, &mechanisms->elements[i], &index);
        require(index >= 0 || mechanisms->count == 1, "a policy names mechanisms that are registered, or none");
    }
    require(mechanisms == nullptr || mechanisms->count != 0, "an empty set would allow all");
    gssp_release_oid_set(nullptr, &mechanisms);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Configured configured({reinterpret_cast<const char *>(data), size});
    if (GSS_ERROR(configured.major)) {
        require(configured.minor == 0xE10000A8U || configured.minor == 0xE1000096U,
                "the file is wrong or names nothing");
        require(configured.message.starts_with(configured.path), "the message begins with the file");
        require(configured.message.find('\n') == std::string::npos, "the message is one line");
        require(MechCount == 0, "a wrong file registers nothing");
        return 0;
    }
    for (OM_uint32 i = 0; i < MechCount; ++i)
        look_up(pMechInfo[i]);
    for (const char *user : {"alice", "anybody", "alice@REALM", "DOMAIN\\Alice", "\u00c4\\@"})
        look_up_policy(user);
    return 0;
}
