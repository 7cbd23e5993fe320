#include "bridge/gssapi/call.h"

#include <cstdlib>
#include <new>

#include "bridge/gssapi/qxnego_gssapi.h"
#include "common/text.h"

namespace bridge {

LastFailure &last_failure() {
    static thread_local LastFailure last;
    return last;
}

OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor, const char *text) noexcept {
    LastFailure &last = last_failure();
    last.minor = minor;
    try {
        last.text = text;
    } catch (const std::bad_alloc &) {
        last.text.clear();
    }
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return major;
}

void refuse(OM_uint32 major, const std::string &line) {
    throw Failure(QXGSS_SESSION_FAILURE_USAGE, line, major);
}

gss_buffer_desc copy_of(std::string_view bytes) {
    if (bytes.empty())
        return GSS_C_EMPTY_BUFFER;
    auto *const block = static_cast<char *>(std::malloc(bytes.size() + 1));
    if (block == nullptr)
        throw std::bad_alloc();
    block[bytes.copy(block, bytes.size())] = '\0';
    return {bytes.size(), block};
}

gss_OID mechanism_oid() {
    static gss_OID_desc oid = QXNEGO_GSS_OID(QXNEGO_GSS_MECH);
    return &oid;
}

gss_OID_set set_of(std::initializer_list<gss_const_OID> oids) {
    OM_uint32 minor = 0;
    gss_OID_set set = GSS_C_NO_OID_SET;
    OM_uint32 major = gss_create_empty_oid_set(&minor, &set);
    for (const gss_const_OID oid : oids)
        if (major == GSS_S_COMPLETE)
            major = gss_add_oid_set_member(&minor, const_cast<gss_OID>(oid), &set);
    if (major == GSS_S_COMPLETE)
        return set;
    gss_release_oid_set(&minor, &set);
    throw std::bad_alloc();
}

} // namespace bridge
