// The mechanisms underneath: the one door to the registry, and what is asked of a candidate's own library.
#ifndef QXNEGO_MECHANISMS_H
#define QXNEGO_MECHANISMS_H

#include "gssp2qxnego/gssp2qxnegoutil/shared.h"

namespace qxnego {

// The registry's record at an index; null outside the registry. Nobody else indexes the registry, and the two below
// answer for entries made for the peer only, whose index is -1.
inline const MechInfo_t *registered(OM_sint32 index) {
    return static_cast<OM_uint32>(index) < MechCount ? &pMechInfo[index] : nullptr; // no count is as large as -1
}

inline bool in_use(OM_sint32 index) {
    const MechInfo_t *mechanism = registered(index);
    return mechanism != nullptr && mechanism->fUseMech != 0;
}

inline const qxgss_ftn_table_desc &table_of(const NegMechEntry_desc &entry) {
    static constexpr qxgss_ftn_table_desc kEmpty{};
    const MechInfo_t *mechanism = registered(entry.MechIndex);
    return mechanism != nullptr ? mechanism->MechFtnTable : kEmpty;
}

// Releases a name that an entry's mechanism made: with the mechanism's own operation where it has one.
inline OM_uint32 release_mechanism_name(const NegMechEntry_desc &entry, OM_uint32 *pMinorStatus, qxgss_name_t *ppName) {
    const auto release = table_of(entry).ftn_gssp_release_name;
    return release != nullptr ? release(pMinorStatus, ppName) : gssp_release_name(pMinorStatus, ppName);
}

// The entry that the negotiation has selected, or null when the index designates none.
inline NegMechEntry_t selected_entry(const NegContext_desc &negotiation) {
    const std::span<NegMechEntry_desc> all = entries(negotiation.NegMechList);
    const auto index = static_cast<OM_uint32>(negotiation.SelectedMechListIndex);
    return index < all.size() ? &all[index] : nullptr;
}

// What messages and inquiries go to: the selected mechanism's function table and its context. The table is null when
// either index of the selection designates nothing.
struct SelectedMechanism {
    const qxgss_ftn_table_desc *table;
    qxgss_ctx_id_t context;
    explicit operator bool() const { return table != nullptr; }
};

inline SelectedMechanism selected_mechanism(const NegContext_desc &negotiation) {
    const NegMechEntry_t entry = selected_entry(negotiation);
    if (entry == nullptr)
        return {nullptr, nullptr};
    const MechInfo_t *mechanism = registered(negotiation.SelectedMechInfoIndex);
    if (mechanism == nullptr)
        return {nullptr, nullptr};
    return {&mechanism->MechFtnTable, entry->pMechContext};
}

// The number of the first entry of a list with that OID; -1 when there is none. The status is a comparison's.
struct Found {
    OM_sint32 number = -1;
    Status status = kSuccess;
};
Found find_mechanism(std::span<NegMechEntry_desc> list, qxgss_OID_desc &oid, OM_uint32 minor_before);

// Whether a context with a list of mechanisms is there: GSS_S_FAILURE with NEG_CONTEXT, EMPTY_LIST or NO_MECHANISM.
Status require_mechanisms(const NegContext_desc *pNegContext);

// The status texts of one pass over the entries, in which the display operation's message context runs on.
class StatusTexts {
  public:
    // Rejects the entry for GSSAPI_ERROR with the statuses of its mechanism's call and the mechanism's text for them.
    // Without memory for the stand-in text the entry is rejected without a text. The failure is the state change's.
    Status reject(NegMechEntry_desc &entry, Status cause);

  private:
    void fetch(const NegMechEntry_desc &entry, OM_uint32 minor, common::Buffer &text);

    OM_uint32 message_context_ = 0;
};

} // namespace qxnego

#endif
