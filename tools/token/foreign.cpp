// NTLMSSP messages have their fields at fixed places ([MS-NLMP] 2.2.1), little-endian; all others are DER.
#include "tools/token/foreign.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include <iconv.h>
#include <openssl/asn1.h>

#include "tools/show/oids.h"
#include "tools/token/inner.h"

namespace tools {

namespace {

using Fields = std::vector<Foreign::Field>;

constexpr int kDeepest = 3; // tokens in tokens

void add(Fields &fields, const char *name, const std::string &value) {
    if (!value.empty())
        fields.push_back({name, value});
}

// ---- DER -----------------------------------------------------------------------------------------------------------

struct Element {
    unsigned char identifier = 0;
    ByteView contents;
};

// The element at the beginning, which it takes away.
std::optional<Element> take(ByteView &rest) {
    const unsigned char *at = rest.data();
    long length = 0;
    int tag = 0, form = 0;
    const int found = rest.empty() ? 0x80 : ASN1_get_object(&at, &length, &tag, &form, static_cast<long>(rest.size()));
    if ((found & 0x81) != 0) // it does not fit, or has no length
        return std::nullopt;
    const auto begin = static_cast<std::size_t>(at - rest.data());
    const Element out{rest.front(), rest.subspan(begin, static_cast<std::size_t>(length))};
    rest = rest.subspan(begin + out.contents.size());
    return out;
}

// The contents that the identifier octets lead to, each the first of its kind in the one before; null when there are
// none.
ByteView inside(ByteView bytes, std::initializer_list<unsigned char> path) {
    for (const unsigned char identifier : path) {
        std::optional<Element> element;
        do
            element = take(bytes);
        while (element && element->identifier != identifier);
        if (!element)
            return {};
        bytes = element->contents;
    }
    return bytes;
}

// The contents of all the elements of a sequence, each shown in a way, with a separator.
template <typename Show> std::string joined(ByteView sequence, const char *separator, const Show &show) {
    std::string out;
    while (const std::optional<Element> element = take(sequence))
        out += (out.empty() ? "" : separator) + show(element->contents);
    return shortened(out);
}

std::string number(ByteView contents) {
    long long value = 0;
    if (contents.empty() || contents.size() > 4)
        return {};
    for (const unsigned char octet : contents)
        value = value << 8 | octet;
    return std::to_string(value);
}

std::string text(ByteView contents) {
    return shortened(as_text(contents));
}

std::string size_of(ByteView contents) {
    return contents.data() == nullptr ? "" : std::to_string(contents.size()) + " bytes";
}

// ---- Kerberos (RFC 4120 5) -----------------------------------------------------------------------------------------

std::string service(ByteView names, ByteView realm) {
    const std::string name = joined(names, "/", text);
    return name.empty() ? "" : name + '@' + text(realm);
}

void add_request(Fields &fields, ByteView request) {
    const ByteView ticket = inside(request, {0xA3, 0x61, 0x30});
    add(fields, "service", service(inside(ticket, {0xA2, 0x30, 0xA1, 0x30}), inside(ticket, {0xA1, 0x1B})));
    add(fields, "key version", number(inside(ticket, {0xA3, 0x30, 0xA1, 0x02})));
    add(fields, "encryption type", number(inside(ticket, {0xA3, 0x30, 0xA0, 0x02})));
    add(fields, "ticket", size_of(inside(ticket, {0xA3, 0x30, 0xA2, 0x04})));
}

void add_error(Fields &fields, ByteView error) {
    add(fields, "error", number(inside(error, {0xA6, 0x02})));
    add(fields, "text", text(inside(error, {0xAB, 0x1B})));
    add(fields, "time", text(inside(error, {0xA4, 0x18})));
    add(fields, "service", service(inside(error, {0xAA, 0x30, 0xA1, 0x30}), inside(error, {0xA9, 0x1B})));
}

struct Message {
    unsigned char identifier;
    const char *kind;
    void (*add_fields)(Fields &fields, ByteView sequence);
};
constexpr Message kMessages[] = {
    {0x6E, "Kerberos AP-REQ", add_request},
    {0x6F, "Kerberos AP-REP", [](Fields &, ByteView) {}},
    {0x7E, "Kerberos KRB-ERROR", add_error},
};

std::optional<Foreign> read_kerberos(ByteView message) {
    const Message *const row =
        message.empty() ? std::end(kMessages) : std::ranges::find(kMessages, message.front(), &Message::identifier);
    if (row == std::end(kMessages) || inside(message, {row->identifier, 0x30, 0xA0, 0x02}).empty())
        return std::nullopt;
    Foreign out{row->kind, {}};
    row->add_fields(out.fields, inside(message, {row->identifier, 0x30}));
    return out;
}

// ---- NTLMSSP -------------------------------------------------------------------------------------------------------

std::uint32_t little_endian(ByteView message, std::size_t at, std::size_t octets) {
    std::uint32_t value = 0;
    for (std::size_t i = octets; i-- != 0 && at + i < message.size();)
        value = value << 8 | message[at + i];
    return value;
}

// What the field's length and offset say.
ByteView buffer(ByteView message, std::size_t at) {
    const std::size_t length = little_endian(message, at, 2), offset = little_endian(message, at + 4, 4);
    return at + 8 > message.size() || offset > message.size() || length > message.size() - offset
               ? ByteView()
               : message.subspan(offset, length);
}

std::string from_utf16(ByteView contents) {
    const iconv_t converter = iconv_open("UTF-8", "UTF-16LE");
    if (converter == reinterpret_cast<iconv_t>(-1))
        return hex(contents);
    std::string out(contents.size() * 3, '\0');
    std::string in(as_text(contents));
    char *from = in.data(), *to = out.data();
    std::size_t left = in.size(), room = out.size();
    const bool is_whole = iconv(converter, &from, &left, &to, &room) != static_cast<std::size_t>(-1);
    iconv_close(converter);
    out.resize(out.size() - room);
    return is_whole ? shortened(out) : hex(contents);
}

struct Flag {
    std::uint32_t bit;
    const char *name;
};
constexpr std::uint32_t kUnicode = 1, kVersion = 0x02000000;
constexpr Flag kFlags[] = {
    {kUnicode, "Unicode"},
    {2, "OEM"},
    {4, "target wanted"},
    {0x10, "sign"},
    {0x20, "seal"},
    {0x200, "NTLM"},
    {0x800, "anonymous"},
    {0x8000, "always sign"},
    {0x80000, "extended"},
    {0x800000, "target info"},
    {kVersion, "version"},
    {0x20000000, "128"},
    {0x40000000, "key exchange"},
    {0x80000000, "56"},
};

std::string flags_text(std::uint32_t flags) {
    std::string out;
    for (const Flag &flag : kFlags)
        if ((flags & flag.bit) != 0)
            out += (out.empty() ? "" : ", ") + std::string(flag.name);
    return out;
}

// Where each message has what; 0: it has none.
struct Places {
    std::size_t flags, version;
    struct {
        const char *name;
        std::size_t at;
        bool is_text; // of others the size is told: they may be secret
    } buffers[5];
};
constexpr Places kPlaces[] = {
    {12, 32, {{"domain", 16, true}, {"workstation", 24, true}}},
    {20, 48, {{"target", 12, true}, {"target information", 40, false}}},
    {60,
     64,
     {{"domain", 28, true},
      {"user", 36, true},
      {"workstation", 44, true},
      {"LM response", 12, false},
      {"NTLM response", 20, false}}},
};

std::optional<Foreign> read_ntlm(ByteView message) {
    constexpr std::string_view kSignature{"NTLMSSP", 8};
    const std::uint32_t type = little_endian(message, kSignature.size(), 4);
    if (!as_text(message).starts_with(kSignature) || type < 1 || type > std::size(kPlaces))
        return std::nullopt;
    Foreign out{kind_of_inner_token(message), {}};
    const Places &places = kPlaces[type - 1];
    const std::uint32_t flags = little_endian(message, places.flags, 4);
    add(out.fields, "flags", flags_text(flags));
    for (const auto &[name, at, is_text] : places.buffers) {
        const ByteView contents = at == 0 ? ByteView() : buffer(message, at);
        if (!contents.empty()) // the first message's texts are not in Unicode
            add(out.fields, name,
                !is_text                               ? size_of(contents)
                : type != 1 && (flags & kUnicode) != 0 ? from_utf16(contents)
                                                       : text(contents));
    }
    if ((flags & kVersion) != 0 && places.version + 4 <= message.size())
        add(out.fields, "version",
            std::to_string(message[places.version]) + '.' + std::to_string(message[places.version + 1]) + " build " +
                std::to_string(little_endian(message, places.version + 2, 2)));
    return out;
}

// ---- RFC 4178, and the framing of RFC 2743 3.1 ---------------------------------------------------------------------

std::optional<Foreign> read(ByteView token, int depth);

void add_inside(Fields &fields, const char *name, ByteView token, int depth) {
    if (token.empty())
        return;
    const std::optional<Foreign> inner = depth < kDeepest ? read(token, depth + 1) : std::nullopt;
    add(fields, name, (inner ? inner->kind : kind_of_inner_token(token)) + ", " + size_of(token));
    for (const Foreign::Field &field : inner ? inner->fields : Fields())
        fields.push_back({"  " + field.name, field.value});
}

std::optional<Foreign> read_negotiation(ByteView token, int depth) {
    constexpr const char *kStates[] = {"accept-completed", "accept-incomplete", "reject", "request-mic"};
    const ByteView init = inside(token, {0xA0, 0x30}), response = inside(token, {0xA1, 0x30});
    if (const ByteView mechanisms = inside(init, {0xA0, 0x30}); !mechanisms.empty()) {
        Foreign out{"RFC 4178 NegTokenInit", {}};
        add(out.fields, "mechanisms", joined(mechanisms, ", ", mechanism_name));
        add_inside(out.fields, "mechanism token", inside(init, {0xA2, 0x04}), depth);
        add(out.fields, "MIC", size_of(inside(init, {0xA3, 0x04})));
        return out;
    }
    const ByteView state = inside(response, {0xA0, 0x0A}), mechanism = inside(response, {0xA1, 0x06}),
                   answer = inside(response, {0xA2, 0x04});
    if (state.empty() && mechanism.empty() && answer.empty())
        return std::nullopt;
    Foreign out{"RFC 4178 NegTokenResp", {}};
    add(out.fields, "state", state.size() == 1 && state[0] < std::size(kStates) ? kStates[state[0]] : hex(state));
    add(out.fields, "mechanism", mechanism.empty() ? "" : mechanism_name(mechanism));
    add_inside(out.fields, "response token", answer, depth);
    add(out.fields, "MIC", size_of(inside(response, {0xA3, 0x04})));
    return out;
}

std::optional<Foreign> read_framed(ByteView token, int depth) {
    constexpr char kNegotiation[] = "1.3.6.1.5.5.2";
    ByteView rest = inside(token, {0x60});
    const std::optional<Element> oid = take(rest);
    if (!oid || oid->identifier != 0x06)
        return std::nullopt;
    if (dotted_oid(oid->contents) == kNegotiation)
        return read_negotiation(rest, depth);
    Foreign out{kind_of_inner_token(token), {}};
    add(out.fields, "mechanism", mechanism_name(oid->contents));
    if (rest.size() > 2)
        if (const std::optional<Foreign> message = read_kerberos(rest.subspan(2))) // behind its token ID (RFC 4121 4.1)
            out.fields.insert(out.fields.end(), message->fields.begin(), message->fields.end());
    return out;
}

std::optional<Foreign> read(ByteView token, int depth) {
    if (std::optional<Foreign> out = read_ntlm(token))
        return out;
    if (std::optional<Foreign> out = read_framed(token, depth))
        return out;
    if (std::optional<Foreign> out = read_negotiation(token, depth))
        return out;
    return read_kerberos(token);
}

} // namespace

std::optional<Foreign> read_foreign(ByteView token) {
    return read(token, 0);
}

} // namespace tools
