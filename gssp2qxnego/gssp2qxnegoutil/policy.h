// For whom the policy is looked up.
#ifndef QXNEGO_POLICY_H
#define QXNEGO_POLICY_H

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {

// The requested user, else who authenticates. Not proved: a claim of the client.
const qxgss_buffer_desc &policy_name(const NegContext_desc &negotiation);

} // namespace qxnego

#endif
