// The framework's configuration, which is the process's: read at the first call that needs it, never when the module is
// loaded or asked what it is, since the host's library holds a lock then.
#ifndef BRIDGE_GSSAPI_CONFIGURATION_H
#define BRIDGE_GSSAPI_CONFIGURATION_H

#include <string>
#include <string_view>
#include <vector>

#include "bridge/gssapi/call.h"

namespace bridge {

// Configures, unless that has been done: by the program itself, or here, with the file that is named, or else
// QXGSS_CONF (but for set-uid programs), or else the installed one. Throws Failure; the next call tries again.
//
// A server's configuration serves both roles where all its mechanisms come into use. Where one does not (a client
// cannot read the verifiers), and the call is an initiator's, a client's is taken if it has more of them.
void configure(bool accepts, std::string_view file = {});
bool is_configured();

// What the framework had to say of the configuration: a line each.
std::string_view notices();

// The mechanisms that QXNEGO may negotiate here.
std::vector<const MechInfo_t *> negotiable_mechanisms();

// When a negotiation has to be confirmed: if the peer offers it; if the mechanism can; always, so that a mechanism that
// cannot is refused.
enum class Confirmation { kIfOffered, kIfPossible, kRequired };

// The strictest of what the application (may be empty), QXNEGO_CONFIRMATION and QXNEGO's setting "confirmation" say;
// without that setting no less than kIfPossible. Throws Failure for a word that is none.
Confirmation wanted_confirmation(std::string_view application);

} // namespace bridge

#endif
