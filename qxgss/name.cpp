// Names. The record, its element array and each text are blocks of their own, so that a name made by a mechanism is
// released here and the other way round; name types are borrowed, and texts are wiped because they may hold a password.

#include <string_view>

#include "qxgss/internal.h"

using namespace qxgss;

namespace {

constexpr qxgss_OID_desc oid(std::string_view bytes) {
    return {static_cast<OM_uint32>(bytes.size()), const_cast<char *>(bytes.data())};
}

// The arcs 1 to 4 under an OID made of a UUID (X.667), 2.25.105643741675128127600954353860063168044.
#define QXGSS_ARC "\x69\x81\x9e\xfa\x9f\xa6\xe0\xd3\xd2\xb5\xed\x95\xa0\xc7\x84\xab\xf6\xda\x8c\x2c"
constinit qxgss_OID_desc name_types[] = {
    oid(QXGSS_ARC "\x01"),
    oid(QXGSS_ARC "\x02"),
    oid(QXGSS_ARC "\x03"),
    oid(QXGSS_ARC "\x04"),
    oid("\x2a\x86\x48\x86\xf7\x12\x01\x02\x01\x04"), // 1.2.840.113554.1.2.1.4
};
#undef QXGSS_ARC

// The framework's constant of that value, or null.
qxgss_OID constant_of(const qxgss_OID_desc &type) {
    for (qxgss_OID_desc &constant : name_types)
        if (equal(constant, type))
            return &constant;
    return nullptr;
}

bool foreign(const qxgss_OID pType) {
    return usable(pType) && constant_of(*pType) == nullptr;
}

// The element array of a copy. Name types that are not the framework's lie behind the elements in the same block,
// first a descriptor for each element, then their bytes, so that they live exactly as long as the name.
qxgss_name_element_t new_elements(const qxgss_name_desc &source) {
    std::size_t bytes = source.Count * (sizeof(qxgss_name_element_desc) + sizeof(qxgss_OID_desc));
    for (OM_uint32 i = 0; i < source.Count; ++i)
        if (foreign(source.pElements[i].pNameType))
            bytes += source.pElements[i].pNameType->length;
    return static_cast<qxgss_name_element_t>(std::calloc(1, bytes));
}

void copy_types(const qxgss_name_desc &source, qxgss_name_desc &copy) {
    auto *type = reinterpret_cast<qxgss_OID>(copy.pElements + copy.Count);
    auto *bytes = reinterpret_cast<unsigned char *>(type + copy.Count);
    for (OM_uint32 i = 0; i < copy.Count; ++i, ++type) {
        const qxgss_OID pSource = source.pElements[i].pNameType;
        if (!usable(pSource))
            continue;
        copy.pElements[i].pNameType = constant_of(*pSource);
        if (copy.pElements[i].pNameType != nullptr)
            continue;
        *type = {pSource->length, std::memcpy(bytes, pSource->elements, pSource->length)};
        bytes += pSource->length;
        copy.pElements[i].pNameType = type;
    }
}

Name copy_of(const qxgss_name_desc &source) {
    Name copy(zeroed<qxgss_name_desc>().release());
    if (copy == nullptr || source.Count == 0 || source.pElements == nullptr)
        return copy;
    copy->pElements = new_elements(source);
    if (copy->pElements == nullptr)
        return nullptr;
    copy->Count = source.Count;
    copy_types(source, *copy.get());
    for (OM_uint32 i = 0; i < source.Count; ++i)
        if (GSS_ERROR(gssp_duplicate_buffer(nullptr, &source.pElements[i].Name, &copy->pElements[i].Name)))
            return nullptr;
    return copy;
}

} // namespace

qxgss_OID GSS_C_NT_QXAT_MECHDATA = &name_types[0];
qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF8 = &name_types[1];
qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF16 = &name_types[2];
qxgss_OID GSS_C_NT_QXAT_MECHDATA_UTF32 = &name_types[3];
qxgss_OID QXGSS_C_NT_HOSTBASED_SERVICE = &name_types[4];

OM_uint32 qxgss_import_name(OM_uint32 *pMinorStatus, const qxgss_buffer_t pInputName, const qxgss_OID pInputNameType,
                            qxgss_name_t *ppOutputName) {
    if (ppOutputName == nullptr)
        return fail(pMinorStatus, QXGSS_E_NAME_NOT_IMPORTED);
    *ppOutputName = nullptr;
    if (pInputName == nullptr || (pInputName->length != 0 && pInputName->value == nullptr) || !usable(pInputNameType))
        return fail(pMinorStatus, QXGSS_E_NAME_NOT_IMPORTED);
    qxgss_name_element_desc element{pInputNameType, *pInputName};
    *ppOutputName = copy_of({1, &element, nullptr}).release();
    return *ppOutputName != nullptr ? succeed(pMinorStatus) : fail(pMinorStatus, GSSP_E_NO_MEMORY);
}

OM_uint32 gssp_duplicate_name(OM_uint32 *pMinorStatus, const qxgss_name_t pSource, qxgss_name_t *ppCopy) {
    if (ppCopy == nullptr)
        return fail(pMinorStatus, QXGSS_E_NAME_NOT_DUPLICATED);
    *ppCopy = nullptr;
    if (pSource == nullptr)
        return succeed(pMinorStatus);
    *ppCopy = copy_of(*pSource).release();
    return *ppCopy != nullptr ? succeed(pMinorStatus) : fail(pMinorStatus, GSSP_E_NO_MEMORY);
}

OM_uint32 gssp_release_name(OM_uint32 *pMinorStatus, qxgss_name_t *ppName) {
    if (ppName == nullptr || *ppName == nullptr)
        return succeed(pMinorStatus);
    qxgss_name_desc &name = **ppName;
    if (name.pElements != nullptr)
        for (OM_uint32 i = 0; i < name.Count; ++i)
            gssp_release_secure_buffer(nullptr, &name.pElements[i].Name);
    std::free(name.pElements);
    std::free(*ppName);
    *ppName = nullptr;
    return succeed(pMinorStatus);
}
