// What every operation shares: the one way to report a status, owners of C-heap memory, and the door to the registry.
#ifndef QXNEGO_GUARDS_H
#define QXNEGO_GUARDS_H

#include <cstdlib>
#include <memory>

#include "gssp2qxnego/gssp2qxnegoint.h"

namespace qxnego {

inline constexpr OM_uint32 kInaccessibleRead = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_FAILURE;
inline constexpr OM_uint32 kInaccessibleWrite = GSS_S_CALL_INACCESSIBLE_WRITE | GSS_S_FAILURE;

inline OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor) {
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return major;
}

inline OM_uint32 succeed(OM_uint32 *pMinorStatus) {
    return report(pMinorStatus, GSS_S_COMPLETE, QXNEGO_E_SUCCESSFUL);
}

inline bool failed(OM_uint32 major) { return GSS_ERROR(major) != 0; }

// A buffer counts as present when it has a length and a value; either alone is nothing to send or to read.
inline bool present(const qxgss_buffer_desc &buffer) { return buffer.length != 0 && buffer.value != nullptr; }

struct Free {
    void operator()(void *p) const { std::free(p); }
};
template <typename T> using Heap = std::unique_ptr<T, Free>;

template <typename T> Heap<T> zeroed(std::size_t count = 1) {
    return Heap<T>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

// A framework buffer that is released on every path.
class Buffer {
  public:
    Buffer() = default;
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
    ~Buffer() { reset(); }

    qxgss_buffer_t get() { return &desc_; }
    const qxgss_buffer_desc &operator*() const { return desc_; }
    void reset() {
        if (desc_.value != nullptr)
            gssp_release_buffer(nullptr, &desc_);
        desc_ = {};
    }
    qxgss_buffer_desc release() {
        qxgss_buffer_desc taken = desc_;
        desc_ = {};
        return taken;
    }

  private:
    qxgss_buffer_desc desc_{};
};

// The function table of an entry's mechanism; an empty one for an entry without a registry index. Nobody else indexes
// the registry with an entry's number.
inline const qxgss_ftn_table_desc &table_of(const NegMechEntry_desc &entry) {
    static constexpr qxgss_ftn_table_desc kEmpty{};
    if (entry.MechIndex < 0 || static_cast<OM_uint32>(entry.MechIndex) >= MechCount)
        return kEmpty;
    return pMechInfo[entry.MechIndex].MechFtnTable;
}

// The entry that the negotiation has selected, or null when the index designates none.
inline NegMechEntry_t selected_entry(const NegContext_desc &context) {
    const NegMechList_desc &list = context.NegMechList;
    if (list.pNegMech == nullptr || context.SelectedMechListIndex < 0 ||
        static_cast<OM_uint32>(context.SelectedMechListIndex) >= list.Count)
        return nullptr;
    return &list.pNegMech[context.SelectedMechListIndex];
}

} // namespace qxnego

#endif
