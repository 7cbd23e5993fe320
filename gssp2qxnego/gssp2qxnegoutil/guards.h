// What every operation shares: the one way to report a status, owners of C-heap memory, and the door to the registry.
#ifndef QXNEGO_GUARDS_H
#define QXNEGO_GUARDS_H

#include <cstdlib>
#include <cstring>
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

template <typename T> void set_if_given(T *pOutput, T value) {
    if (pOutput != nullptr)
        *pOutput = value;
}

inline bool failed(OM_uint32 major) {
    return GSS_ERROR(major) != 0;
}

// A buffer counts as present when it has a length and a value; either alone is nothing to send or to read.
inline bool present(const qxgss_buffer_desc &buffer) {
    return buffer.length != 0 && buffer.value != nullptr;
}

// An OID that can be compared: it has bytes.
inline bool usable(const qxgss_OID_desc *oid) {
    return oid != nullptr && oid->length != 0 && oid->elements != nullptr;
}

struct Free {
    void operator()(void *p) const { std::free(p); }
};
template <typename T> using Heap = std::unique_ptr<T, Free>;

template <typename T> Heap<T> zeroed(std::size_t count) {
    return Heap<T>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

// A single record, for which malloc is the faster way: calloc passes by the blocks that the C library keeps at hand.
template <typename T> Heap<T> zeroed() {
    Heap<T> record(static_cast<T *>(std::malloc(sizeof(T))));
    if (record != nullptr)
        *record = T{};
    return record;
}

// A copy of a NUL-terminated text; null when memory is lacking.
inline Heap<char> copy_text(const char *text) {
    const std::size_t size = std::strlen(text) + 1;
    Heap<char> copy(static_cast<char *>(std::malloc(size)));
    if (copy != nullptr)
        std::memcpy(copy.get(), text, size);
    return copy;
}

// A NUL-terminated copy of bytes that may hold a secret: wiped before it is freed.
class SecretText {
  public:
    explicit SecretText(const qxgss_buffer_desc &source)
        : size_(source.length + 1), text_(size_ != 0 ? static_cast<char *>(std::malloc(size_)) : nullptr) {
        if (text_ == nullptr)
            return;
        const std::size_t length = present(source) ? source.length : 0;
        if (length != 0)
            std::memcpy(text_.get(), source.value, length);
        text_.get()[length] = '\0';
    }
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;
    ~SecretText() {
        if (text_ != nullptr)
            explicit_bzero(text_.get(), size_);
    }
    const char *get() const { return text_.get(); }

  private:
    std::size_t size_;
    Heap<char> text_;
};

// Releases a field's contents. Most fields are empty most of the time: the framework is not called for those.
inline void discard(qxgss_buffer_desc &buffer) {
    if (buffer.value != nullptr)
        gssp_release_buffer(nullptr, &buffer);
    buffer = {};
}

// Moves a NUL-terminated heap text into a buffer, whose old contents are released; its length is without the NUL.
inline void take_text(qxgss_buffer_desc &buffer, Heap<char> text) {
    discard(buffer);
    buffer.length = std::strlen(text.get());
    buffer.value = text.release();
}

// A framework buffer that is released on every path.
class Buffer {
  public:
    Buffer() = default;
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
    ~Buffer() { discard(desc_); }

    qxgss_buffer_t get() { return &desc_; }
    const qxgss_buffer_desc &operator*() const { return desc_; }
    void reset() { discard(desc_); }
    qxgss_buffer_desc release() {
        qxgss_buffer_desc taken = desc_;
        desc_ = {};
        return taken;
    }

  private:
    qxgss_buffer_desc desc_{};
};

// A set of OIDs that is released on every path, with the operation that its source names.
template <auto Release> class OidSet {
  public:
    OidSet() = default;
    OidSet(const OidSet &) = delete;
    OidSet &operator=(const OidSet &) = delete;
    ~OidSet() {
        if (set_ != nullptr)
            Release(nullptr, &set_);
    }
    qxgss_OID_set *get() { return &set_; }
    qxgss_OID_set operator*() const { return set_; }

  private:
    qxgss_OID_set set_ = nullptr;
};

// The result of a release that goes on after a failing step: the last failure, or success.
class LastFailure {
  public:
    void note(OM_uint32 major, OM_uint32 minor) {
        if (failed(major)) {
            major_ = major;
            minor_ = minor;
        }
    }
    OM_uint32 report(OM_uint32 *pMinorStatus) const { return qxnego::report(pMinorStatus, major_, minor_); }

  private:
    OM_uint32 major_ = GSS_S_COMPLETE;
    OM_uint32 minor_ = QXNEGO_E_SUCCESSFUL;
};

// The registry's record at an index; null outside the registry. Nobody else indexes the registry, and the two below
// answer for entries made for the peer only, whose index is -1.
inline bool is_registered(OM_sint32 index) {
    return static_cast<OM_uint32>(index) < MechCount; // a negative index is larger than any count
}

inline const MechInfo_t *registered(OM_sint32 index) {
    return is_registered(index) ? &pMechInfo[index] : nullptr;
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

inline NegContext_desc &negotiation_of(qxgss_ctx_id_t handle) {
    return static_cast<QxnegoSecCtx_int_t>(handle)->NegCtx;
}

// Releases a name that an entry's mechanism made: with the mechanism's own operation where it has one.
inline OM_uint32 release_mechanism_name(const NegMechEntry_desc &entry, OM_uint32 *pMinorStatus, qxgss_name_t *ppName) {
    const auto release = table_of(entry).ftn_gssp_release_name;
    return release != nullptr ? release(pMinorStatus, ppName) : gssp_release_name(pMinorStatus, ppName);
}

// Whether two OIDs with bytes differ at first sight. Those of mechanisms differ in their last byte first.
inline bool differ(const qxgss_OID_desc &one, const qxgss_OID_desc &other) {
    return one.length != other.length || static_cast<const unsigned char *>(one.elements)[one.length - 1] !=
                                             static_cast<const unsigned char *>(other.elements)[other.length - 1];
}

// The first entry with that OID, or -1 in `found`. Most entries are passed over without a call, as a long list is met
// by a long token; an entry without an OID is left to the framework's comparison, whose failure ends the search.
inline OM_uint32 find_mechanism(OM_uint32 *pMinorStatus, const NegMechList_desc &list, qxgss_OID_desc &oid,
                                OM_sint32 &found) {
    found = -1;
    for (OM_uint32 i = 0; list.pNegMech != nullptr && i < list.Count; ++i) {
        const qxgss_OID other = list.pNegMech[i].pMechOid;
        if (usable(other) && differ(oid, *other))
            continue;
        OM_sint32 difference = 0;
        const OM_uint32 major = gssp_compare_oids(pMinorStatus, &oid, other, &difference);
        if (failed(major))
            return major;
        if (difference == 0) {
            found = static_cast<OM_sint32>(i);
            break;
        }
    }
    return GSS_S_COMPLETE;
}

// Whom the policy is looked up for: the requested user, else who authenticates. Not proved: a claim of the client.
const qxgss_buffer_desc &policy_identity(const NegContext_desc &context);

// The entry that the negotiation has selected, or null when the index designates none.
inline NegMechEntry_t selected_entry(const NegContext_desc &context) {
    const NegMechList_desc &list = context.NegMechList;
    if (list.pNegMech == nullptr || static_cast<OM_uint32>(context.SelectedMechListIndex) >= list.Count)
        return nullptr;
    return &list.pNegMech[context.SelectedMechListIndex];
}

// The selected mechanism's function table and its entry; null for both when either index designates nothing.
struct Selected {
    const qxgss_ftn_table_desc *table;
    NegMechEntry_t entry;
    explicit operator bool() const { return table != nullptr; }
};

inline Selected selected(const NegContext_desc &context) {
    const NegMechEntry_t entry = selected_entry(context);
    if (!is_registered(context.SelectedMechInfoIndex) || entry == nullptr)
        return {nullptr, nullptr};
    return {&pMechInfo[context.SelectedMechInfoIndex].MechFtnTable, entry};
}

} // namespace qxnego

#endif
