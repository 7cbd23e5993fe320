// The negotiation token as rows: tag, name and type of each element, for whoever writes, reads or shows one.
//
//     INIT [0]  client's first token          RESP [1]  every later token, of both sides
//       [0] mechanisms                          [0] mechanisms
//             [0] mechanism ...                       [0] mechanism ...
//       [1] negotiation state                   [1] negotiation state
//       [2] who logs on                         [2] selected mechanism
//       [3] single sign-on                      [3] policy applied
//       [4] user, [5] profile asked for
//
// Tagging is implicit; all tags are context-specific (X.690 8.14).
#ifndef QXNEGO_TOKEN_FORMAT_H
#define QXNEGO_TOKEN_FORMAT_H

#include "qxgss/gsspasn.h"

namespace qxnego::token {

inline constexpr OM_uint32 kConstructed = 0; // no item type is 0

struct Element {
    OM_uint32 tag;
    const char *name;
    OM_uint32 type; // an item type of the codec, or kConstructed
};

inline constexpr Element kInit{0, "INIT", kConstructed};
inline constexpr Element kResp{1, "RESP", kConstructed};

// Of both.
inline constexpr Element kMechanisms{0, "mechanism list", kConstructed};
inline constexpr Element kNegState{1, "negotiation state", GSSPASN_INTEGER};

namespace init {
inline constexpr Element kAuthenticationId{2, "authentication ID", GSSPASN_OCTET_STRING};
inline constexpr Element kIsSso{3, "single sign-on", GSSPASN_INTEGER};
inline constexpr Element kUserName{4, "user name", GSSPASN_OCTET_STRING};
inline constexpr Element kProfileName{5, "profile name", GSSPASN_OCTET_STRING};
} // namespace init

namespace resp {
inline constexpr Element kSelected{2, "selected mechanism", GSSPASN_OBJECT_IDENTIFIER};
inline constexpr Element kIsPolicyApplied{3, "policy applied", GSSPASN_INTEGER};
} // namespace resp

inline constexpr Element kMechanism{0, "mechanism", kConstructed};

namespace mech {
inline constexpr Element kOid{0, "OID", GSSPASN_OBJECT_IDENTIFIER};
inline constexpr Element kState{1, "state", GSSPASN_INTEGER};
inline constexpr Element kReason{2, "reason", GSSPASN_INTEGER};
inline constexpr Element kMajorStatus{3, "major status", GSSPASN_INTEGER};
inline constexpr Element kMinorStatus{4, "minor status", GSSPASN_INTEGER};
inline constexpr Element kStatusText{5, "status text", GSSPASN_OCTET_STRING};
inline constexpr Element kInnerToken{6, "inner token", GSSPASN_OCTET_STRING};
inline constexpr Element kSsoAuthenticationId{7, "SSO authentication ID", GSSPASN_OCTET_STRING};
} // namespace mech

} // namespace qxnego::token

#endif
