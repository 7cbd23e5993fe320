#include "bridge/gssapi/framing.h"

#include "bridge/gssapi/qxnego_gssapi.h"
#include "session/failure.h"

namespace bridge {

namespace {

constexpr char kApplication = 0x60; // RFC 2743 3.1
constexpr char kOid = 0x06;
constexpr std::string_view kOffer("\x9e\x01\x01", 3);

// An element's identifier and length, in DER.
std::string head_of(char identifier, std::size_t length) {
    if (length < 0x80)
        return {identifier, static_cast<char>(length)};
    std::string octets;
    for (; length != 0; length >>= 8)
        octets.insert(octets.begin(), static_cast<char>(length));
    return std::string{identifier, static_cast<char>(0x80 | octets.size())}.append(octets);
}

std::string element(char identifier, std::string_view contents) {
    return head_of(identifier, contents.size()).append(contents);
}

// The contents of the element at the front of the text, which is taken off; nothing when there is no whole one with a
// length in DER.
std::optional<std::string_view> take_element(std::string_view &text) {
    if (text.size() < 2)
        return std::nullopt;
    std::size_t head = 2, length = static_cast<unsigned char>(text[1]);
    if (length >= 0x80) {
        const std::size_t octets = length - 0x80;
        if (octets == 0 || octets > 4 || text.size() - head < octets)
            return std::nullopt;
        for (length = 0; head != 2 + octets; ++head)
            length = length << 8 | static_cast<unsigned char>(text[head]);
    }
    if (text.size() - head < length || head_of(text[0], length).size() != head)
        return std::nullopt;
    const std::string_view contents = text.substr(head, length);
    text.remove_prefix(head + length);
    return contents;
}

// The contents of an element that is the whole text.
std::optional<std::string_view> whole_element(char identifier, std::string_view text) {
    if (text.empty() || text.front() != identifier)
        return std::nullopt;
    const std::optional<std::string_view> contents = take_element(text);
    return text.empty() ? contents : std::nullopt;
}

} // namespace

std::string framed(std::string_view token) {
    return element(kApplication, element(kOid, QXNEGO_GSS_MECH).append(token));
}

std::string_view unframed(std::string_view token) {
    std::optional<std::string_view> contents = whole_element(kApplication, token);
    if (!contents || !contents->starts_with(element(kOid, QXNEGO_GSS_MECH)))
        throw session::Failure(QXGSS_SESSION_FAILURE_PROTOCOL, "the peer's first token is none of QXNEGO's",
                               GSS_S_DEFECTIVE_TOKEN);
    take_element(*contents);
    return *contents;
}

std::string with_offer(std::string_view token) {
    const std::optional<std::string_view> contents = token.empty() ? std::nullopt : whole_element(token.front(), token);
    return contents ? element(token.front(), std::string(*contents).append(kOffer)) : std::string(token);
}

bool take_offer(std::string &token) {
    const std::optional<std::string_view> contents = token.empty() ? std::nullopt : whole_element(token.front(), token);
    if (!contents || !contents->ends_with(kOffer))
        return false;
    // It is an element of its own, and not the end of another one.
    std::string_view rest = *contents;
    while (rest.size() > kOffer.size() && take_element(rest)) {
    }
    if (rest != kOffer)
        return false;
    token = element(token.front(), contents->substr(0, contents->size() - kOffer.size()));
    return true;
}

std::string own_token(OwnToken kind, std::string_view contents) {
    return element(static_cast<char>(kind), contents);
}

std::optional<std::string_view> contents_of(OwnToken kind, std::string_view token) {
    return whole_element(static_cast<char>(kind), token);
}

} // namespace bridge
