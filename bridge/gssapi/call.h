// How an operation of the module is run: nothing but a status leaves it, and what a failure said is kept for the thread
// that asks.
#ifndef BRIDGE_GSSAPI_CALL_H
#define BRIDGE_GSSAPI_CALL_H

#include <string>
#include <string_view>
#include <type_traits>

#include "bridge/gssapi/entry_points.h"
#include "common/owned.h"
#include "session/failure.h"

namespace bridge {

using session::Failure;

// What a negotiation leaves to be told, in the forms of qxnego_gssapi.h.
struct Story {
    std::string log, json, selected;
};

// The calling thread's last failed call, and the story of its last failed negotiation.
struct LastFailure {
    OM_uint32 minor = 0;
    std::string text;
    Story story;
};
LastFailure &last_failure();

// Keeps a failure's text; without memory the status has to do.
OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor, const char *text) noexcept;

// A refusal of what the caller asks.
[[noreturn]] void refuse(OM_uint32 major, const std::string &line);

// Runs an operation that gives a major status.
template <typename Operation> OM_uint32 guarded(OM_uint32 *pMinorStatus, Operation operation) {
    try {
        const OM_uint32 major = operation();
        if (pMinorStatus != nullptr)
            *pMinorStatus = 0;
        return major;
    } catch (const Failure &failure) {
        return report(pMinorStatus, failure.major, failure.minor, failure.what());
    } catch (const std::exception &) {
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_NO_MEMORY, "there is not enough memory");
    }
}

template <typename T> void set(T *pOutput, std::type_identity_t<T> value) {
    if (pOutput != nullptr)
        *pOutput = value;
}

template <typename T> T &required(T *pointer) {
    if (pointer == nullptr)
        refuse(GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE, "there is no room for a result");
    return *pointer;
}

// ---- Between the host's records and the framework's
// ------------------------------------------------------------------

inline std::string_view bytes_of(const gss_buffer_desc *pBuffer) {
    return pBuffer == nullptr || pBuffer->value == nullptr
               ? std::string_view()
               : std::string_view(static_cast<const char *>(pBuffer->value), pBuffer->length);
}

inline std::string_view bytes_of(gss_const_OID pOid) {
    return pOid == nullptr || pOid->elements == nullptr
               ? std::string_view()
               : std::string_view(static_cast<const char *>(pOid->elements), pOid->length);
}

// A copy for the caller, who releases it; a NUL stands behind it, since programs print texts as if one did. Throws
// std::bad_alloc.
gss_buffer_desc copy_of(std::string_view bytes);

// The framework's block itself: both heaps are C's.
inline gss_buffer_desc handed_over(common::Buffer &buffer) {
    const qxgss_buffer_desc taken = buffer.release();
    return {taken.length, taken.value};
}

// QXNEGO's own OID, and a set of OIDs for the caller. Throws std::bad_alloc.
gss_OID mechanism_oid();
gss_OID_set set_of(std::initializer_list<gss_const_OID> oids);

} // namespace bridge

#endif
