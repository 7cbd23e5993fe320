// Keeps a stranger from learning by a refusal which users the policy knows: a client that claims one whom the policy
// refuses is answered as if it had claimed nobody, and refused in the end.
#ifndef QXGSS_SESSION_GUARD_H
#define QXGSS_SESSION_GUARD_H

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

#include "common/owned.h"

namespace session {

// What the policy says of a name; it ends at a NUL, as where the mechanism looks it up.
class Policy {
  public:
    explicit Policy(const std::string &user)
        : is_known_(!common::failed(gssp_inquire_mech_policy_for_user(nullptr, user.c_str(), allowed_.out()))) {}

    bool is_known() const { return is_known_; }
    bool is_restricted() const { return allowed_ != nullptr && allowed_->count != 0; }
    bool allows(std::string_view mechanism) const {
        return is_known_ && (!is_restricted() || std::ranges::any_of(std::span(allowed_->elements, allowed_->count),
                                                                     [&](const qxgss_OID_desc &member) {
                                                                         return common::bytes_of(&member) == mechanism;
                                                                     }));
    }

  private:
    common::OidSet allowed_;
    bool is_known_;
};

// The token with every element that could be taken for a name, wherever it stands, overwritten by as many bytes that
// are nobody's name. A token that cannot be read comes back as it is. Throws std::bad_alloc.
std::string nameless(std::string_view token);

} // namespace session

#endif
