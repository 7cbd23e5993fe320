// Texts of names in UTF-8, UTF-16 and UTF-32 become UTF-8. Strict: what Unicode does not allow is refused, never
// repaired, so that two spellings of one user can not slip past a check of the name.

#include <bit>
#include <cstring>
#include <span>

#include "qxgss/internal.h"

using namespace qxgss;

namespace {

// A text from its next character on. `unit` is the size of its code units in bytes; `big` their byte order.
struct Text {
    std::span<const unsigned char> rest;
    std::size_t unit;
    bool big = std::endian::native == std::endian::big;
};

// The well-formed sequences of several bytes (RFC 3629 section 4): first byte from-to, bytes that follow, and the range
// of the second byte, which rules out overlong forms, surrogates and what lies above U+10FFFF.
struct Sequence {
    unsigned char from, to;
    std::size_t following;
    unsigned char low, high;
};
constexpr Sequence kSequences[] = {
    {0xC2, 0xDF, 1, 0x80, 0xBF}, {0xE0, 0xE0, 2, 0xA0, 0xBF}, {0xE1, 0xEC, 2, 0x80, 0xBF}, {0xED, 0xED, 2, 0x80, 0x9F},
    {0xEE, 0xEF, 2, 0x80, 0xBF}, {0xF0, 0xF0, 3, 0x90, 0xBF}, {0xF1, 0xF3, 3, 0x80, 0xBF}, {0xF4, 0xF4, 3, 0x80, 0x8F},
};

const Sequence *sequence_of(unsigned char first) {
    for (const Sequence &sequence : kSequences)
        if (first >= sequence.from && first <= sequence.to)
            return &sequence;
    return nullptr;
}

OM_uint32 next_utf8(Text &text, char32_t &character) {
    const unsigned char first = text.rest[0];
    character = first;
    if (first < 0x80) {
        text.rest = text.rest.subspan(1);
        return GSSP_E_SUCCESS;
    }
    const Sequence *sequence = sequence_of(first);
    if (sequence == nullptr)
        return QXGSS_E_UTF_INVALID;
    character = first & (0x3FU >> sequence->following);
    for (std::size_t i = 1; i <= sequence->following; ++i) {
        if (i == text.rest.size())
            return QXGSS_E_UTF_INSUFFICIENT;
        const unsigned char byte = text.rest[i];
        if (byte < (i == 1 ? sequence->low : 0x80) || byte > (i == 1 ? sequence->high : 0xBF))
            return QXGSS_E_UTF_INVALID;
        character = (character << 6) | (byte & 0x3FU);
    }
    text.rest = text.rest.subspan(sequence->following + 1);
    return GSSP_E_SUCCESS;
}

OM_uint32 next_unit(Text &text, char32_t &value) {
    if (text.rest.size() < text.unit)
        return QXGSS_E_UTF_INSUFFICIENT;
    value = 0;
    for (std::size_t i = 0; i < text.unit; ++i)
        value = (value << 8) | text.rest[text.big ? i : text.unit - 1 - i];
    text.rest = text.rest.subspan(text.unit);
    return GSSP_E_SUCCESS;
}

bool is_surrogate(char32_t value, char32_t base) {
    return value >= base && value < base + 0x400;
}

// One code unit, or in UTF-16 a pair of surrogates (RFC 2781 section 2.2).
OM_uint32 next_wide(Text &text, char32_t &character) {
    const OM_uint32 status = next_unit(text, character);
    if (status != GSSP_E_SUCCESS)
        return status;
    if (text.unit == 2 && is_surrogate(character, 0xD800)) {
        char32_t low = 0;
        const OM_uint32 second = next_unit(text, low);
        if (second != GSSP_E_SUCCESS)
            return second;
        if (!is_surrogate(low, 0xDC00))
            return QXGSS_E_UTF_INVALID;
        character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
        return GSSP_E_SUCCESS;
    }
    const bool valid = character <= 0x10FFFF && !is_surrogate(character, 0xD800) && !is_surrogate(character, 0xDC00);
    return valid ? GSSP_E_SUCCESS : QXGSS_E_UTF_INVALID;
}

// A leading byte order mark is no part of the text; in the wide encodings it tells the order of all that follows.
struct Mark {
    std::size_t unit, size;
    unsigned char bytes[4];
    bool big;
};
constexpr Mark kMarks[] = {
    {1, 3, {0xEF, 0xBB, 0xBF}, true}, {2, 2, {0xFE, 0xFF}, true},        {2, 2, {0xFF, 0xFE}, false},
    {4, 4, {0, 0, 0xFE, 0xFF}, true}, {4, 4, {0xFF, 0xFE, 0, 0}, false},
};

void drop_byte_order_mark(Text &text) {
    for (const Mark &mark : kMarks) {
        if (mark.unit != text.unit || text.rest.size() < mark.size ||
            std::memcmp(text.rest.data(), mark.bytes, mark.size) != 0)
            continue;
        text.big = mark.big;
        text.rest = text.rest.subspan(mark.size);
        return;
    }
}

unsigned char *put_utf8(unsigned char *out, char32_t character) {
    const int following = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr unsigned char kFirst[] = {0x00, 0xC0, 0xE0, 0xF0};
    *out++ = static_cast<unsigned char>(kFirst[following] | (character >> (6 * following)));
    for (int i = following - 1; i >= 0; --i)
        *out++ = static_cast<unsigned char>(0x80 | ((character >> (6 * i)) & 0x3F));
    return out;
}

// Writes the text as UTF-8 and moves `out` behind it, also behind what was written before a fault.
OM_uint32 convert(Text text, unsigned char *&out) {
    drop_byte_order_mark(text);
    while (!text.rest.empty()) {
        char32_t character = 0;
        const OM_uint32 status = text.unit == 1 ? next_utf8(text, character) : next_wide(text, character);
        if (status != GSSP_E_SUCCESS)
            return status;
        out = put_utf8(out, character);
    }
    return GSSP_E_SUCCESS;
}

// Size of the code units of a name's text, 0 when it has none that can be converted.
std::size_t unit_size(const qxgss_OID pType, gssp_utf_format_t format) {
    constexpr std::size_t kUnits[] = {0, 1, 2, 4};
    if (format != GSSP_UTF_BY_NAMETYPE)
        return format <= GSSP_UTF32 ? kUnits[format] : 0;
    if (!usable(pType))
        return 0;
    if (equal(*pType, *GSS_C_NT_QXAT_MECHDATA) || equal(*pType, *GSS_C_NT_QXAT_MECHDATA_UTF8))
        return 1;
    if (equal(*pType, *GSS_C_NT_QXAT_MECHDATA_UTF16))
        return 2;
    return equal(*pType, *GSS_C_NT_QXAT_MECHDATA_UTF32) ? 4 : 0;
}

// Fills the empty output; the result is a minor status.
OM_uint32 convert_text(const qxgss_buffer_desc &name, std::size_t unit, qxgss_buffer_desc &output) {
    // No text of any encoding becomes longer by more than half: three bytes for two of UTF-16.
    if (name.length > std::size_t{PTRDIFF_MAX} / 2)
        return GSSP_E_NO_MEMORY;
    Heap<unsigned char> block(static_cast<unsigned char *>(std::malloc(name.length + name.length / 2 + 1)));
    if (block == nullptr)
        return GSSP_E_NO_MEMORY;
    unsigned char *end = block.get();
    const OM_uint32 status = convert({{static_cast<const unsigned char *>(name.value), name.length}, unit}, end);
    const auto length = static_cast<std::size_t>(end - block.get());
    if (status != GSSP_E_SUCCESS) {
        explicit_bzero(block.get(), length); // the text may hold a password
        return status;
    }
    *end = 0;
    if (length != 0)
        output = {length, block.release()};
    return GSSP_E_SUCCESS;
}

} // namespace

OM_uint32 gssp_convertname_utf(OM_uint32 *pMinorStatus, const qxgss_name_t pName, qxgss_buffer_t pOutput,
                               const gssp_utf_convert_flags_t *pFlags) {
    if (pOutput == nullptr)
        return fail(pMinorStatus, QXGSS_E_UTF_BAD_ARGUMENT);
    *pOutput = {};
    if (pName == nullptr || pFlags == nullptr || pName->Count == 0 || pName->pElements == nullptr)
        return fail(pMinorStatus, QXGSS_E_UTF_BAD_ARGUMENT);
    const qxgss_name_element_desc &element = pName->pElements[0];
    const std::size_t unit = unit_size(element.pNameType, pFlags->InputFormat);
    if (unit == 0 || pFlags->OutputFormat != GSSP_UTF8 || pFlags->ConversionType != GSSP_UTF_STRICT_CONVERSION)
        return fail(pMinorStatus, QXGSS_E_UTF_BAD_ARGUMENT);
    if (element.Name.length == 0)
        return succeed(pMinorStatus);
    if (element.Name.value == nullptr)
        return fail(pMinorStatus, QXGSS_E_UTF_BAD_ARGUMENT);
    const OM_uint32 status = convert_text(element.Name, unit, *pOutput);
    return status == GSSP_E_SUCCESS ? succeed(pMinorStatus) : fail(pMinorStatus, status);
}
