// Keeps a stranger from learning by a refusal which users the policy knows: a client that claims a user whom it forbids
// all that is offered is answered as if it had claimed nobody, from the first call on, and refused in the end.
#ifndef QXGSS_SESSION_GUARD_H
#define QXGSS_SESSION_GUARD_H

#include <string>
#include <string_view>
#include <vector>

#include "qxgss/gssp.h"

namespace session {

// What of a client's first token the policy is about.
struct Claim {
    std::string name;               // whom the policy is looked up for; empty for nobody
    std::vector<std::string> offer; // DER contents of the mechanisms' OIDs that the client has not rejected itself
};

// As the negotiating mechanism with that table reads the token; nothing of a token that it refuses to read. Throws
// std::bad_alloc.
Claim claim_of(std::string_view token, const qxgss_ftn_table_desc &negotiator);

// Whether the policy leaves the name none of the offered mechanisms that are negotiated here; also when it cannot be
// looked up. An offer that has none of them is nothing that the policy decides about.
bool is_forbidden(const std::string &name, const std::vector<std::string> &offer,
                  const qxgss_ftn_table_desc &negotiator);

// The token with every element that could be taken for a name, wherever it stands, overwritten by as many bytes that
// are nobody's name. A token that cannot be read comes back as it is. Throws std::bad_alloc.
std::string nameless(std::string_view token);

// A set of the policy: what it allows. A null or empty one allows everything.
bool allows(qxgss_OID_set allowed, std::string_view oid);

} // namespace session

#endif
