// How every entry point reports: through these, so that the text of a failure can be told afterwards.
#ifndef HOSTGSS_STATUS_H
#define HOSTGSS_STATUS_H

#include "common/bytes.h"
#include "common/status.h"
#include "mechanisms/hostgss/host.h"
#include "qxgss/gssp.h"

namespace hostgss {

using common::bytes_of;
using common::kInaccessibleRead;
using common::kInaccessibleWrite;
using common::set_if_given;

// A failure of our own.
constexpr Status refusal(OM_uint32 major, const char *text) {
    return {major, GSSP_E_INVALID_ARGUMENT, text};
}

// The outcome of a call; a failure is remembered for display_status.
OM_uint32 finish(OM_uint32 *pMinorStatus, Status status);

inline OM_uint32 refuse(OM_uint32 *pMinorStatus, OM_uint32 major, const char *text) {
    return finish(pMinorStatus, refusal(major, text));
}

inline OM_uint32 no_memory(OM_uint32 *pMinorStatus) {
    return finish(pMinorStatus, kOutOfMemory);
}

// Hands a block to the caller, who frees it.
inline void give(Block &block, qxgss_buffer_t pOutput) {
    pOutput->length = block.length();
    pOutput->value = block.release();
}

} // namespace hostgss

#endif
