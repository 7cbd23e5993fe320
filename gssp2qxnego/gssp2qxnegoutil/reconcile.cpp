// Merging what the peer says of a mechanism into the local list. Whatever is taken from the peer's entry or released
// is cleared in it at that moment, so that its reader releases exactly what it still holds.
#include <algorithm>
#include <bit>
#include <string_view>

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

void move_buffer(qxgss_buffer_desc &from, qxgss_buffer_desc &to) {
    to = from;
    from = {};
}

// A buffer with a length or a value; its release may fail, which the caller reports.
OM_uint32 release_if_any(OM_uint32 *pMinorStatus, qxgss_buffer_desc &buffer) {
    if (buffer.length == 0 && buffer.value == nullptr)
        return GSS_S_COMPLETE;
    return gssp_release_buffer(pMinorStatus, &buffer);
}

// Only a mechanism that is still available here follows the peer, and the change is not sent back to it.
OM_uint32 adopt_peer_state(OM_uint32 *pMinorStatus, NegMechEntry_desc &local, NegMechEntry_desc &peer,
                           NegContext_t context) {
    if (local.MechState != NEG_MECH_STATE_AVAILABLE || peer.MechState == NEG_MECH_STATE_AVAILABLE)
        return GSS_S_COMPLETE;
    const OM_uint32 major =
        QXNEGO_INT_NegMechStateChange(pMinorStatus, peer.MechState, peer.MechReason, peer.GssMajorStatus,
                                      peer.GssMinorStatus, &peer.GssMinorStatusText, &local);
    if (failed(major))
        return major;
    local.IsMechStateChanged = 0;
    QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_ProcessNegMech: Local Mech state changing due to Peer Mech state",
                           &local, context);
    return GSS_S_COMPLETE;
}

OM_uint32 merge_known(OM_uint32 *pMinorStatus, NegMechEntry_desc &local, NegMechEntry_desc &peer,
                      NegContext_t context) {
    std::free(peer.MechOidFromPeer.elements);
    peer.MechOidFromPeer = {};
    peer.pMechOid = local.pMechOid;
    peer.MechIndex = local.MechIndex;
    peer.IsCtxEstablished = local.IsCtxEstablished;
    if (peer.MechReason == NEG_MECH_REASON_INVALID)
        peer.MechReason = local.MechReason;
    QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_ProcessNegMech: Peer reporting Mech state", &peer, context);

    OM_uint32 minor = GSSP_E_SUCCESS;
    if (failed(adopt_peer_state(&minor, local, peer, context)) ||
        failed(release_if_any(&minor, peer.GssMinorStatusText)))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    if (peer.InputToken.length != 0) {
        if (failed(gssp_release_buffer(&minor, &local.InputToken)))
            return report(pMinorStatus, GSS_S_FAILURE, minor);
        move_buffer(peer.InputToken, local.InputToken);
    }
    if (peer.SsoAuthenticationIdBuf.length != 0) {
        discard(local.SsoAuthenticationIdBuf);
        move_buffer(peer.SsoAuthenticationIdBuf, local.SsoAuthenticationIdBuf);
    }
    // What was not moved is empty, but may still have a value.
    discard(peer.InputToken);
    discard(peer.SsoAuthenticationIdBuf);
    return succeed(pMinorStatus);
}

// ---- Looking a mechanism up ----------------------------------------------------------------------------------------

// So many entries are looked through one by one. A peer can name thousands, and each is looked for among all before it:
// those beyond are found by their order, so that a token costs what its length says.
constexpr OM_uint32 kUsualLength = 32;

std::string_view octets(const qxgss_OID_desc &oid) {
    return {static_cast<const char *>(oid.elements), oid.length};
}

// The first place in the order whose entry does not come before that OID.
OM_uint32 *place_of(const NegContext_desc &context, std::string_view oid) {
    const NegMechOrder_desc &order = context.MechOrder;
    const auto before = [&](OM_uint32 entry, std::string_view wanted) {
        return octets(*context.NegMechList.pNegMech[entry].pMechOid) < wanted;
    };
    return std::lower_bound(order.pPlaces, order.pPlaces + order.Count, oid, before);
}

// Whether an array with the next power of two as its room is full.
bool is_full(OM_uint32 count) {
    return count == 0 || std::has_single_bit(count);
}

template <typename T> bool make_room(T *&array, OM_uint32 count) {
    auto *grown = static_cast<T *>(std::realloc(array, std::bit_ceil(std::size_t{count} + 1) * sizeof(T)));
    if (grown == nullptr)
        return false;
    array = grown;
    return true;
}

// Takes the entries that the list has grown by into the order.
bool complete_order(NegContext_desc &context) {
    NegMechOrder_desc &order = context.MechOrder;
    for (OM_uint32 entry; (entry = kUsualLength + order.Count) < context.NegMechList.Count; ++order.Count) {
        if (is_full(order.Count) && !make_room(order.pPlaces, order.Count))
            return false;
        OM_uint32 *const at = place_of(context, octets(*context.NegMechList.pNegMech[entry].pMechOid));
        std::copy_backward(at, order.pPlaces + order.Count, order.pPlaces + order.Count + 1);
        *at = entry;
    }
    return true;
}

// The entry with that OID, or -1 in `found`.
OM_uint32 find_entry(OM_uint32 *pMinorStatus, NegContext_desc &context, qxgss_OID_desc &oid, OM_sint32 &found) {
    const NegMechList_desc &list = context.NegMechList;
    const OM_uint32 major =
        find_mechanism(pMinorStatus, {std::min(list.Count, kUsualLength), list.pNegMech}, oid, found);
    if (failed(major) || found >= 0 || list.Count <= kUsualLength)
        return major;
    if (!complete_order(context))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    const OM_uint32 *const at = place_of(context, octets(oid));
    if (at != context.MechOrder.pPlaces + context.MechOrder.Count &&
        octets(*list.pNegMech[*at].pMechOid) == octets(oid))
        found = static_cast<OM_sint32>(*at);
    return GSS_S_COMPLETE;
}

// ---- Merging -------------------------------------------------------------------------------------------------------

// Makes room for one more entry: up to the next power of two, as a peer's list may be long. The template's copy has an
// array that just fits; a long list whose last entry was made for the peer has come through here.
bool reserve_one(NegMechList_desc &list) {
    const bool grown = list.Count > kUsualLength && list.pNegMech[list.Count - 1].MechOidFromPeer.elements != nullptr;
    if (grown && !is_full(list.Count))
        return true;
    if (!make_room(list.pNegMech, list.Count))
        return false;
    // The entries made for the peer point into themselves. They form the tail, and own the bytes of their OID.
    for (OM_uint32 i = list.Count; i-- > 0 && list.pNegMech[i].MechOidFromPeer.elements != nullptr;)
        list.pNegMech[i].pMechOid = &list.pNegMech[i].MechOidFromPeer;
    return true;
}

OM_uint32 append_unknown(OM_uint32 *pMinorStatus, NegMechEntry_desc &peer, NegContext_t context) {
    NegMechList_desc &list = context->NegMechList;
    if (!reserve_one(list))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    NegMechEntry_desc &added = list.pNegMech[list.Count++];
    added = peer;
    peer.MechOidFromPeer = {};
    peer.GssMinorStatusText = {};
    peer.InputToken = {};
    peer.SsoAuthenticationIdBuf = {};
    added.pMechOid = &added.MechOidFromPeer;
    added.MechIndex = -1;
    QXNEGO_INT_NegLogEntry(nullptr, "QXNEGO_INT_ProcessNegMech: Peer reports a mechanism not known locally", &added,
                           context);

    OM_uint32 minor = GSSP_E_SUCCESS;
    if (failed(release_if_any(&minor, added.GssMinorStatusText)) || failed(release_if_any(&minor, added.InputToken)) ||
        failed(release_if_any(&minor, added.SsoAuthenticationIdBuf)))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    const NegMechReason_et reason =
        context->IsInitiator != 0 ? NEG_MECH_REASON_NOT_AVAIL_AT_CLIENT : NEG_MECH_REASON_NOT_AVAIL_AT_SERVER;
    if (failed(QXNEGO_INT_NegMechStateChange(&minor, NEG_MECH_STATE_REJECTED, reason, 0, 0, nullptr, &added)))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    QXNEGO_INT_NegLogEntry(nullptr,
                           "QXNEGO_INT_ProcessNegMech: Reject peer mechanism because not available on local system",
                           &added, context);
    return succeed(pMinorStatus);
}

} // namespace

OM_uint32 QXNEGO_INT_ProcessNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, NegContext_t pNegContext) {
    if (pNegMech == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);
    const NegMechList_desc &list = pNegContext->NegMechList;
    if (list.Count == 0 || list.pNegMech == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    const qxgss_OID oid = pNegMech->pMechOid;
    if (!usable(oid))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_MECH);

    OM_sint32 found = -1;
    OM_uint32 minor = GSSP_E_SUCCESS;
    if (failed(find_entry(&minor, *pNegContext, *oid, found)))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    return found >= 0 ? merge_known(pMinorStatus, list.pNegMech[found], *pNegMech, pNegContext)
                      : append_unknown(pMinorStatus, *pNegMech, pNegContext);
}
