// Logon data: a text of logon items, cut in one copy of it into users, realms and passwords. Record, items and texts
// are one block, which is wiped as a whole.

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "qxgss/internal.h"
#include "qxgss/qxatlogon.h"

using namespace qxgss;

struct qxat_logon_struct {
    struct Parts {
        qxat_buffer_desc user, realm, password;
    };
    std::size_t size; // of the block
    int count;
    Parts *items;
};

namespace {

using Parts = qxat_logon_struct::Parts;
using std::string_view;

struct FreeLogon {
    void operator()(qxat_logon_t logon) const { qxat_free(logon); }
};
using OwnedLogon = std::unique_ptr<qxat_logon_struct, FreeLogon>;

// Bytes of the character at the front: an escaped one has two.
std::size_t width(string_view text) {
    constexpr string_view kEscapable = "\\@,'\" ";
    return text.size() > 1 && text[0] == '\\' && kEscapable.find(text[1]) != string_view::npos ? 2 : 1;
}

std::size_t find_comma(string_view text) {
    std::size_t at = 0;
    while (at < text.size() && text[at] != ',')
        at += width(text.substr(at));
    return at;
}

int count_items(string_view text) {
    int count = 1;
    for (text.remove_prefix(find_comma(text)); !text.empty(); text.remove_prefix(find_comma(text))) {
        text.remove_prefix(1);
        ++count;
    }
    return count;
}

std::size_t find_last(string_view text, string_view separator) {
    std::size_t last = string_view::npos;
    for (std::size_t at = 0; at < text.size(); at += width(text.substr(at)))
        if (text.substr(at).starts_with(separator))
            last = at;
    return last;
}

std::size_t characters(string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; // not inside a UTF-8 sequence
    }));
}

qxat_buffer_desc part(char *text, std::size_t length, bool unescape) {
    text[length] = '\0'; // where the separator was
    qxat_buffer_desc buffer{text, length, characters({text, length})};
    if (unescape)
        qxat_unescape(&buffer);
    return buffer;
}

// Cuts the last part off the item's text, when its separator is there.
void cut(string_view separator, char *text, std::size_t &length, bool unescape, qxat_buffer_desc &buffer) {
    const std::size_t at = find_last({text, length}, separator);
    if (at == string_view::npos)
        return;
    const std::size_t begin = at + separator.size();
    buffer = part(text + begin, length - begin, unescape);
    length = at;
}

// False for an item without a user.
bool fill(Parts &item, char *text, std::size_t length, int flags) {
    cut("@@", text, length, (flags & QXAT_FLAG_UNESCAPE_PASSWORD) != 0, item.password);
    cut("@", text, length, (flags & QXAT_FLAG_UNESCAPE_REALM) != 0, item.realm);
    item.user = part(text, length, (flags & QXAT_FLAG_UNESCAPE_USER) != 0);
    return length != 0;
}

qxat_buffer_t part_of(qxat_logon_t logon, int item, qxat_buffer_desc Parts::*which) {
    if (logon == nullptr || item < 0 || item >= logon->count)
        return nullptr;
    qxat_buffer_t buffer = &(logon->items[item].*which);
    return buffer->kb_value != nullptr ? buffer : nullptr;
}

} // namespace

qxat_logon_t qxat_parse(const char *pszText, qxat_flags_t Flags) {
    if (pszText == nullptr)
        return nullptr;
    string_view text(pszText);
    if (text.size() >= INT_MAX)
        return nullptr;
    const int count = count_items(text);
    const std::size_t head = sizeof(qxat_logon_struct) + static_cast<std::size_t>(count) * sizeof(Parts);
    OwnedLogon logon(static_cast<qxat_logon_t>(std::calloc(1, head + text.size() + 1)));
    if (logon == nullptr)
        return nullptr;
    *logon = {head + text.size() + 1, count, reinterpret_cast<Parts *>(logon.get() + 1)};
    char *copy = reinterpret_cast<char *>(logon->items + count);
    std::memcpy(copy, text.data(), text.size());
    for (int i = 0; i < count; ++i) {
        const std::size_t length = find_comma(text);
        if (!fill(logon->items[i], copy, length, Flags))
            return nullptr;
        copy += length + 1;
        text.remove_prefix(std::min(length + 1, text.size()));
    }
    return logon.release();
}

int qxat_get_count(qxat_logon_t Logon) {
    return Logon != nullptr ? Logon->count : 0;
}

qxat_buffer_t qxat_get_user(qxat_logon_t Logon, int Item) {
    return part_of(Logon, Item, &Parts::user);
}

qxat_buffer_t qxat_get_realm(qxat_logon_t Logon, int Item) {
    return part_of(Logon, Item, &Parts::realm);
}

qxat_buffer_t qxat_get_password(qxat_logon_t Logon, int Item) {
    return part_of(Logon, Item, &Parts::password);
}

void qxat_unescape(qxat_buffer_t Buffer) {
    if (Buffer == nullptr || Buffer->kb_value == nullptr)
        return;
    string_view rest(Buffer->kb_value, Buffer->kb_length);
    char *end = Buffer->kb_value;
    while (!rest.empty()) {
        const std::size_t taken = width(rest);
        *end++ = rest[taken - 1];
        rest.remove_prefix(taken);
    }
    const string_view result(Buffer->kb_value, static_cast<std::size_t>(end - Buffer->kb_value));
    // The remains may be the end of a password, which the owner's wiping by the new length would miss.
    std::memset(end, 0, Buffer->kb_length - result.size());
    Buffer->kb_value[result.size()] = '\0';
    Buffer->kb_length = result.size();
    Buffer->kb_characters = characters(result);
}

void qxat_free(qxat_logon_t Logon) {
    if (Logon == nullptr)
        return;
    explicit_bzero(Logon, Logon->size);
    std::free(Logon);
}
