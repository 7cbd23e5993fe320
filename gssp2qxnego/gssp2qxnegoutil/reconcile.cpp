// Merging what the peer says of a mechanism into the local list. Whatever is taken from the peer's entry or released
// is cleared in it at that moment, so that its reader releases exactly what it still holds.
#include <algorithm>
#include <bit>
#include <string_view>

#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

using namespace qxnego;

namespace {

// The framework's operations here begin with its own success.
template <typename Operation, typename... Arguments> Status ask_framework(Operation operation, Arguments... arguments) {
    return common::ask<GSSP_E_SUCCESS>(operation, arguments...);
}

// A buffer with a length or a value; its release may fail, which the caller reports.
Status release_if_any(qxgss_buffer_desc &buffer) {
    if (buffer.length == 0 && buffer.value == nullptr)
        return kSuccess;
    return ask_framework(gssp_release_buffer, &buffer);
}

// Only a mechanism that is still available here follows the peer, and the change is not sent back to it.
Status adopt_peer_state(NegMechEntry_desc &local, NegMechEntry_desc &peer, NegContext_desc &negotiation) {
    if (local.MechState != NEG_MECH_STATE_AVAILABLE || peer.MechState == NEG_MECH_STATE_AVAILABLE)
        return kSuccess;
    const Status status = ask_framework(QXNEGO_INT_NegMechStateChange, peer.MechState, peer.MechReason,
                                        peer.GssMajorStatus, peer.GssMinorStatus, &peer.GssMinorStatusText, &local);
    if (status.failed())
        return status;
    local.IsMechStateChanged = 0;
    local.IsStateFromPeer = true;
    log_event("QXNEGO_INT_ProcessNegMech: Local Mech state changing due to Peer Mech state", &local, negotiation);
    return kSuccess;
}

Status merge_known(NegMechEntry_desc &local, NegMechEntry_desc &peer, NegContext_desc &negotiation) {
    discard(peer.MechOidFromPeer);
    peer.pMechOid = local.pMechOid;
    peer.MechIndex = local.MechIndex;
    peer.IsCtxEstablished = local.IsCtxEstablished;
    if (peer.MechReason == NEG_MECH_REASON_INVALID)
        peer.MechReason = local.MechReason;
    log_event("QXNEGO_INT_ProcessNegMech: Peer reporting Mech state", &peer, negotiation);

    Status status = adopt_peer_state(local, peer, negotiation);
    if (!status.failed())
        status = release_if_any(peer.GssMinorStatusText);
    if (!status.failed() && peer.InputToken.length != 0) {
        status = release_if_any(local.InputToken);
        if (!status.failed())
            local.InputToken = moved(peer.InputToken);
    }
    if (status.failed())
        return status;
    if (peer.SsoAuthenticationIdBuf.length != 0) {
        discard(local.SsoAuthenticationIdBuf);
        local.SsoAuthenticationIdBuf = moved(peer.SsoAuthenticationIdBuf);
    }
    // What was not moved is empty, but may still have a value.
    discard(peer.InputToken);
    discard(peer.SsoAuthenticationIdBuf);
    return kSuccess;
}

// ---- Looking a mechanism up ----------------------------------------------------------------------------------------

// So many entries are looked through one by one. A peer can name thousands, and each is looked for among all before it:
// those beyond are found by their order, so that a token costs what its length says.
constexpr OM_uint32 kUsualLength = 32;

std::string_view octets(const qxgss_OID_desc *oid) {
    return usable(oid) ? std::string_view(static_cast<const char *>(oid->elements), oid->length) : std::string_view();
}

// The first place in the order whose entry does not come before that OID.
OM_uint32 *place_of(const NegContext_desc &negotiation, std::string_view oid) {
    const NegMechOrder_desc &order = negotiation.MechOrder;
    const auto before = [&](OM_uint32 entry, std::string_view wanted) {
        return octets(negotiation.NegMechList.pNegMech[entry].pMechOid) < wanted;
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
bool complete_order(NegContext_desc &negotiation) {
    NegMechOrder_desc &order = negotiation.MechOrder;
    for (OM_uint32 entry; (entry = kUsualLength + order.Count) < negotiation.NegMechList.Count; ++order.Count) {
        if (is_full(order.Count) && !make_room(order.pPlaces, order.Count))
            return false;
        OM_uint32 *const at = place_of(negotiation, octets(negotiation.NegMechList.pNegMech[entry].pMechOid));
        std::copy_backward(at, order.pPlaces + order.Count, order.pPlaces + order.Count + 1);
        *at = entry;
    }
    return true;
}

// The first entry with that OID. Most peers name the mechanisms in the order of this side, so that the entry behind the
// last one found is it.
Found find_entry(NegContext_desc &negotiation, qxgss_OID_desc &oid) {
    const std::span<NegMechEntry_desc> all = entries(negotiation.NegMechList);
    if (const OM_uint32 next = negotiation.NextFromPeer;
        next < all.size() && all[next].IsFirstOfOid && octets(all[next].pMechOid) == octets(&oid))
        return {static_cast<OM_sint32>(next), {GSS_S_COMPLETE, GSSP_E_SUCCESS}};
    const std::size_t usual = std::min<std::size_t>(all.size(), kUsualLength);
    Found found = find_mechanism(all.first(usual), oid, GSSP_E_SUCCESS);
    if (found.status.failed() || found.number >= 0 || all.size() == usual)
        return found;
    if (!complete_order(negotiation))
        return {-1, common::failure(QXNEGO_E_CALLOC)};
    const OM_uint32 *const at = place_of(negotiation, octets(&oid));
    if (at != negotiation.MechOrder.pPlaces + negotiation.MechOrder.Count && octets(all[*at].pMechOid) == octets(&oid))
        found.number = static_cast<OM_sint32>(*at);
    return found;
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

// An OID that is not the entry's own becomes it.
bool own_oid(NegMechEntry_desc &peer) {
    if (peer.MechOidFromPeer.elements == nullptr)
        peer.MechOidFromPeer = {peer.pMechOid->length,
                                common::copy_bytes(peer.pMechOid->elements, peer.pMechOid->length).release()};
    return peer.MechOidFromPeer.elements != nullptr;
}

Status append_unknown(NegMechEntry_desc &peer, NegContext_desc &negotiation) {
    NegMechList_desc &list = negotiation.NegMechList;
    if (!reserve_one(list) || !own_oid(peer))
        return common::failure(QXNEGO_E_CALLOC);
    NegMechEntry_desc &added = list.pNegMech[list.Count++];
    added = peer;
    peer.MechOidFromPeer = {};
    peer.GssMinorStatusText = {};
    peer.InputToken = {};
    peer.SsoAuthenticationIdBuf = {};
    added.pMechOid = &added.MechOidFromPeer;
    added.MechIndex = -1;
    added.IsFirstOfOid = true;
    log_event("QXNEGO_INT_ProcessNegMech: Peer reports a mechanism not known locally", &added, negotiation);

    for (qxgss_buffer_desc *buffer : {&added.GssMinorStatusText, &added.InputToken, &added.SsoAuthenticationIdBuf})
        if (const Status status = release_if_any(*buffer); status.failed())
            return status;
    const NegMechReason_et reason =
        negotiation.IsInitiator != 0 ? NEG_MECH_REASON_NOT_AVAIL_AT_CLIENT : NEG_MECH_REASON_NOT_AVAIL_AT_SERVER;
    return change_state(added, NEG_MECH_STATE_REJECTED, reason,
                        "QXNEGO_INT_ProcessNegMech: Reject peer mechanism because not available on local system",
                        negotiation);
}

} // namespace

OM_uint32 QXNEGO_INT_ProcessNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, NegContext_t pNegContext) {
    if (pNegMech == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);
    const std::span<NegMechEntry_desc> all = entries(pNegContext->NegMechList);
    if (all.empty())
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    if (!usable(pNegMech->pMechOid))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_MECH);

    const Found found = find_entry(*pNegContext, *pNegMech->pMechOid);
    Status status = found.status;
    pNegContext->NextFromPeer = static_cast<OM_uint32>(found.number) + 1; // none found: back to the first
    if (!status.failed())
        status = found.number >= 0 ? merge_known(all[static_cast<std::size_t>(found.number)], *pNegMech, *pNegContext)
                                   : append_unknown(*pNegMech, *pNegContext);
    return status.failed() ? report(pMinorStatus, GSS_S_FAILURE, status.minor) : succeed(pMinorStatus);
}
