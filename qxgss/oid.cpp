// OIDs and sets of OIDs. A set is three kinds of blocks, the record, the array and each member's bytes, so that sets
// made by any mechanism are extended and released here and the other way round.

#include <bit>
#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "qxgss/internal.h"

using namespace qxgss;

namespace {

OidSet new_set() {
    return OidSet(zeroed<qxgss_OID_set_desc>().release());
}

// The copy counts a member once it is whole, so that a half made copy can be released.
OidSet copy_of(const qxgss_OID_set_desc &source) {
    OidSet copy = new_set();
    if (copy == nullptr || source.count == 0 || source.elements == nullptr)
        return copy;
    copy->elements = zeroed<qxgss_OID_desc>(source.count).release();
    if (copy->elements == nullptr)
        return nullptr;
    for (; copy->count < source.count; ++copy->count) {
        const qxgss_OID_desc &member = source.elements[copy->count];
        if (!usable(&member))
            continue;
        Heap<unsigned char> bytes = copy_bytes(member.elements, member.length);
        if (bytes == nullptr)
            return nullptr;
        copy->elements[copy->count] = {member.length, bytes.release()};
    }
    return copy;
}

// Takes one arc off a dotted text: digits without needless zeros, then the end, or a dot with something behind it.
std::optional<OM_uint32> take_arc(std::string_view &text) {
    OM_uint32 arc = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), arc);
    const auto digits = static_cast<std::size_t>(end - text.data());
    if (error != std::errc{} || (digits > 1 && text.front() == '0'))
        return std::nullopt;
    text.remove_prefix(digits);
    if (text.empty())
        return arc;
    if (text.front() != '.' || text.size() == 1)
        return std::nullopt;
    text.remove_prefix(1);
    return arc;
}

// Groups of seven bits, the most significant first (X.690 8.19.2).
unsigned char *put_subidentifier(unsigned char *out, OM_uint64 value) {
    int shift = 0;
    while ((value >> shift) > 0x7F)
        shift += 7;
    for (; shift > 0; shift -= 7)
        *out++ = static_cast<unsigned char>(0x80 | ((value >> shift) & 0x7F));
    *out++ = static_cast<unsigned char>(value & 0x7F);
    return out;
}

// Length of the contents octets written, which are never more than the text's characters; 0 for a text that is no OID.
std::size_t encode(std::string_view text, unsigned char *out) {
    const std::optional<OM_uint32> root = take_arc(text);
    const std::optional<OM_uint32> second = root ? take_arc(text) : std::nullopt;
    if (!second || *root > 2 || (*root < 2 && *second > 39))
        return 0;
    unsigned char *end = put_subidentifier(out, OM_uint64{*root} * 40 + *second); // X.690 8.19.4
    while (!text.empty()) {
        const std::optional<OM_uint32> arc = take_arc(text);
        if (!arc)
            return 0;
        end = put_subidentifier(end, *arc);
    }
    return static_cast<std::size_t>(end - out);
}

} // namespace

OM_uint32 gssp_compare_oids(OM_uint32 *pMinorStatus, const qxgss_OID pOid1, const qxgss_OID pOid2, OM_sint32 *pResult) {
    if (!usable(pOid1) || !usable(pOid2) || pResult == nullptr)
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    *pResult = equal(*pOid1, *pOid2) ? 0 : 1;
    return succeed(pMinorStatus);
}

OM_uint32 gssp_create_empty_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet) {
    if (ppSet == nullptr)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_SET);
    *ppSet = new_set().release();
    return *ppSet != nullptr ? succeed(pMinorStatus) : fail(pMinorStatus, GSSP_E_NO_MEMORY);
}

OM_uint32 gssp_add_oid_set_member(OM_uint32 *pMinorStatus, const qxgss_OID pOid, qxgss_OID_set *ppSet) {
    if (ppSet == nullptr || *ppSet == nullptr)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_SET);
    if (!usable(pOid))
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    qxgss_OID_set_desc &set = **ppSet;
    // Copied before the array moves: the OID may be a member of this very set.
    const OM_uint32 length = pOid->length;
    Heap<unsigned char> bytes = copy_bytes(pOid->elements, length);
    if (bytes == nullptr)
        return fail(pMinorStatus, GSSP_E_NO_MEMORY);
    // The capacity follows from the count alone, as a set made elsewhere has an array that just fits.
    void *grown = std::realloc(set.elements, std::bit_ceil(set.count + 1) * sizeof(qxgss_OID_desc));
    if (grown == nullptr)
        return fail(pMinorStatus, GSSP_E_NO_MEMORY);
    set.elements = static_cast<qxgss_OID>(grown);
    set.elements[set.count++] = {length, bytes.release()};
    return succeed(pMinorStatus);
}

OM_uint32 gssp_test_oid_set_member(OM_uint32 *pMinorStatus, const qxgss_OID pOid, const qxgss_OID_set pSet,
                                   int *pPresent) {
    if (pPresent == nullptr)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_SET_FLAG);
    if (pSet == nullptr)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_SET);
    if (!usable(pOid))
        return fail(pMinorStatus, GSSP_E_INVALID_ARGUMENT);
    *pPresent = 0;
    for (std::size_t i = 0; i < pSet->count && *pPresent == 0; ++i)
        *pPresent = usable(&pSet->elements[i]) && equal(pSet->elements[i], *pOid) ? 1 : 0;
    return succeed(pMinorStatus);
}

OM_uint32 gssp_duplicate_oid_set(OM_uint32 *pMinorStatus, const qxgss_OID_set pSource, qxgss_OID_set *ppCopy) {
    if (ppCopy == nullptr)
        return fail(pMinorStatus, QXGSS_E_OID_SET_NOT_DUPLICATED);
    *ppCopy = nullptr;
    if (pSource == nullptr)
        return succeed(pMinorStatus);
    *ppCopy = copy_of(*pSource).release();
    return *ppCopy != nullptr ? succeed(pMinorStatus) : fail(pMinorStatus, GSSP_E_NO_MEMORY);
}

OM_uint32 gssp_release_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet) {
    if (ppSet == nullptr || *ppSet == nullptr)
        return succeed(pMinorStatus);
    qxgss_OID_set_desc &set = **ppSet;
    for (std::size_t i = 0; i < set.count; ++i)
        std::free(set.elements[i].elements);
    std::free(set.elements);
    std::free(*ppSet);
    *ppSet = nullptr;
    return succeed(pMinorStatus);
}

OM_uint32 qxgss_release_oid_set(OM_uint32 *pMinorStatus, qxgss_OID_set *ppSet) {
    return gssp_release_oid_set(pMinorStatus, ppSet);
}

OM_uint32 gssp_oidstr_to_oidder(OM_uint32 *pMinorStatus, OM_uint32, OM_uint32, const char *pszOid, OM_uint32 *pLength,
                                unsigned char **ppElements) {
    if (pLength != nullptr)
        *pLength = 0;
    if (ppElements != nullptr)
        *ppElements = nullptr;
    if (pszOid == nullptr || pLength == nullptr || ppElements == nullptr)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_STRING);
    const std::string_view text(pszOid);
    if (text.empty() || text.size() > UINT32_MAX)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_STRING);
    Heap<unsigned char[]> bytes = zeroed<unsigned char>(text.size());
    if (bytes == nullptr)
        return fail(pMinorStatus, GSSP_E_NO_MEMORY);
    const std::size_t length = encode(text, bytes.get());
    if (length == 0)
        return fail(pMinorStatus, QXGSS_E_BAD_OID_STRING);
    *pLength = static_cast<OM_uint32>(length);
    *ppElements = bytes.release();
    return succeed(pMinorStatus);
}
