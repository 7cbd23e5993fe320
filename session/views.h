// What a side knows of each mechanism of a negotiation, as data: its own view, the peer's on its way here, and the
// verdict that both make.
#ifndef QXGSS_SESSION_VIEWS_H
#define QXGSS_SESSION_VIEWS_H

#include <string>
#include <vector>

#include "session/qxgss_session.h"

namespace session {

struct View {
    OM_uint32 state = 0; // 0: that side never heard of the mechanism, or did not tell
    OM_uint32 reason = 0;
    OM_uint32 major = 0;
    OM_uint32 minor = 0;
    std::string status_text;
    bool is_adopted = false; // it is what the other side said
};

struct MechanismView {
    std::string oid; // DER contents octets
    OM_sint32 index; // in the registry; -1 for one that only the peer has
    View view;
    bool is_offered = false; // here: the peer has sent an inner token for it
};
using Views = std::vector<MechanismView>;

// On their way to the peer: a list of mechanisms as in a negotiation token, at most kMaxViews of them, with at most
// kMaxStatusText bytes of each text. Both throw Failure (resources, protocol).
inline constexpr std::size_t kMaxViews = 64;
inline constexpr std::size_t kMaxStatusText = 256;
std::string encode_views(const Views &views);
Views decode_views(std::string_view bytes);

// A mechanism as both sides see it. The record's pointers are into the views.
struct Verdict {
    std::string oid;
    OM_sint32 index;
    View client, server;
};
qxgss_session_view_desc described(const View &view);

// Row by row: this side's mechanisms in its order, then those that only the other has.
std::vector<Verdict> join(const Views &own, const Views &other, bool own_is_client);

} // namespace session

#endif
