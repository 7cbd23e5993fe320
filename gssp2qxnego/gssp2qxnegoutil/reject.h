// Rejecting a mechanism for a call of its own that failed, with the status text that it gives.
#ifndef QXNEGO_REJECT_H
#define QXNEGO_REJECT_H

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

namespace qxnego {

// Rejects the entry for GSSAPI_ERROR with the call's statuses and the mechanism's text for them. The message context
// runs on through a whole pass over the entries. Without memory for the stand-in text the entry is rejected without a
// text. The failure returned is that of the state change.
OM_uint32 reject_with_status(OM_uint32 *pMinorStatus, NegMechEntry_desc &entry, OM_uint32 major, OM_uint32 minor,
                             OM_uint32 &messageContext);

// Whether a context with a list of mechanisms is there: GSS_S_FAILURE with NEG_CONTEXT, EMPTY_LIST or NO_MECHANISM.
OM_uint32 require_mechanisms(OM_uint32 *pMinorStatus, const NegContext_desc *pNegContext);

} // namespace qxnego

#endif
