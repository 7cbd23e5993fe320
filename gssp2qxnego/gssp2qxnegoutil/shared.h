// What every file of the mechanism uses: its statuses, owners, and the list of a negotiation.
#ifndef QXNEGO_SHARED_H
#define QXNEGO_SHARED_H

#include <span>

#include "common/heap.h"
#include "common/owned.h"
#include "common/status.h"
#include "gssp2qxnego/gssp2qxnegoint.h"

namespace qxnego {

using common::failed;
using common::Heap;
using common::kInaccessibleRead;
using common::kInaccessibleWrite;
using common::LastFailure;
using common::present;
using common::report;
using common::SecretText;
using common::set_if_given;
using common::Status;
using common::usable;
using common::zeroed;

inline constexpr OM_uint32 kNoContextToRead = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT;
inline constexpr OM_uint32 kNoContextToWrite = GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_NO_CONTEXT;

inline constexpr Status kSuccess{GSS_S_COMPLETE, QXNEGO_E_SUCCESSFUL};

inline OM_uint32 succeed(OM_uint32 *pMinorStatus) {
    return report(pMinorStatus, kSuccess);
}

// What an operation gives; its minor status is Successful until it says otherwise.
template <typename Operation, typename... Arguments> Status ask(Operation operation, Arguments &&...arguments) {
    return common::ask<QXNEGO_E_SUCCESSFUL>(operation, static_cast<Arguments &&>(arguments)...);
}

// The candidates of a list; none without an array.
inline std::span<NegMechEntry_desc> entries(const NegMechList_desc &list) {
    return {list.pNegMech, list.pNegMech != nullptr ? list.Count : 0};
}

inline NegContext_desc &negotiation_of(qxgss_ctx_id_t handle) {
    return static_cast<QxnegoSecCtx_int_t>(handle)->NegCtx;
}

// Releases a field's contents. Most fields are empty most of the time: nobody is called for those.
inline void discard(qxgss_buffer_desc &buffer) {
    if (buffer.value != nullptr)
        gssp_release_buffer(nullptr, &buffer);
    buffer = {};
}
inline void discard(qxgss_OID_desc &oid) {
    if (oid.elements != nullptr)
        std::free(oid.elements);
    oid = {};
}

inline qxgss_buffer_desc moved(qxgss_buffer_desc &from) {
    return std::exchange(from, {});
}

} // namespace qxnego

#endif
