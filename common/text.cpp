#include "common/text.h"

#include <algorithm>

namespace common {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

struct Range {
    char32_t first, last;
};

// Controls; what is not seen (joiners, fillers, selectors of variations, tags); marks, separators, embeddings,
// overrides and isolates of direction; what is no character at all.
constexpr Range kUnsafe[] = {{0x0000, 0x001F}, {0x007F, 0x009F}, {0x00AD, 0x00AD},  {0x034F, 0x034F}, {0x061C, 0x061C},
                             {0x115F, 0x1160}, {0x17B4, 0x17B5}, {0x180B, 0x180F},  {0x200B, 0x200F}, {0x2028, 0x202E},
                             {0x2060, 0x206F}, {0x3164, 0x3164}, {0xD800, 0xDFFF},  {0xFE00, 0xFE0F}, {0xFEFF, 0xFEFF},
                             {0xFFA0, 0xFFA0}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE0FFF}};

// What a first byte says of its character: bytes in all, and the least character that needs so many.
struct Form {
    unsigned char mask, bits;
    std::size_t length;
    char32_t least;
};
constexpr Form kForms[] = {{0x80, 0x00, 1, 0}, {0xE0, 0xC0, 2, 0x80}, {0xF0, 0xE0, 3, 0x800}, {0xF8, 0xF0, 4, 0x10000}};

// Bytes of the safe character at the start of the text; 0 when there is none.
std::size_t safe_length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const auto form = std::ranges::find_if(kForms, [&](const Form &row) { return (first & row.mask) == row.bits; });
    if (form == std::end(kForms) || text.size() < form->length)
        return 0;
    char32_t character = first & static_cast<unsigned char>(~form->mask);
    for (const char next : text.substr(1, form->length - 1)) {
        const auto byte = static_cast<unsigned char>(next);
        if ((byte & 0xC0) != 0x80)
            return 0;
        character = character << 6 | (byte & 0x3FU);
    }
    const auto holds = [&](const Range &range) { return range.first <= character && character <= range.last; };
    return character < form->least || character > 0x10FFFF || std::ranges::any_of(kUnsafe, holds) ? 0 : form->length;
}

constexpr std::size_t kEscape = 4; // bytes of \xNN

void append_hex(std::string &out, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    out += "\\x";
    out += kDigits[value >> 4];
    out += kDigits[value & 15];
}

} // namespace

std::string printable(std::string_view text, std::size_t most) {
    std::string out;
    while (!text.empty()) {
        const std::size_t length = safe_length(text);
        if ((length != 0 ? length : kEscape) > most - out.size())
            return out + "...";
        if (length != 0)
            out += text.substr(0, length);
        else
            append_hex(out, text.front());
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text.substr(0, kMostOfText + 1)) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return printable(out, kMostOfText) + '"';
}

} // namespace common
