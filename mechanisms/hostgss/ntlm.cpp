// NTLM messages.
#include "mechanisms/hostgss/ntlm.h"

#include <cstdlib>

#include "mechanisms/hostgss/status.h"

namespace hostgss {

namespace {

constexpr std::size_t kMaxLength = 0xFFFF;

// Where the length of a field stands, and what it may be. The field's offset stands 4 bytes behind its length.
struct Field {
    std::size_t at;
    std::size_t least = 0;
    std::size_t most = kMaxLength;
};

// The fields of a message, by its type.
constexpr Field kNegotiateFields[] = {{16}, {24}};    // domain, workstation
constexpr Field kChallengeFields[] = {{12, 1}, {40}}; // target name, target information
constexpr Field kAuthenticateFields[] = {
    {12}, {20, 44}, {28}, {36}, {44}, {52, 16, 16}, // LM and NT responses, domain, user, workstation, session key
};

struct Layout {
    const Field *fields;
    std::size_t count;
    std::size_t header; // its length
};
constexpr Layout kLayouts[] = {{kNegotiateFields, 2, 32}, {kChallengeFields, 2, 48}, {kAuthenticateFields, 6, 64}};

// A little-endian number of so many bytes, all inside.
std::size_t number(Bytes message, std::size_t at, std::size_t bytes) {
    std::size_t value = 0;
    for (std::size_t i = bytes; i != 0; --i)
        value = value << 8 | static_cast<unsigned char>(message[at + i - 1]);
    return value;
}

bool fits(Bytes message, const Layout &layout, const Field &field) {
    const std::size_t length = number(message, field.at, 2), offset = number(message, field.at + 4, 4);
    const bool inside = offset >= layout.header && offset <= message.size() && length <= message.size() - offset;
    return length >= field.least && length <= field.most && (length == 0 || inside);
}

} // namespace

Status check_ntlm_message(Bytes token, NtlmMessage expected) {
    const auto type = static_cast<std::size_t>(expected);
    const Layout &layout = kLayouts[type - 1];
    if (token.size() < layout.header || !token.starts_with(kNtlmSignature) || number(token, 8, 4) != type)
        return refusal(GSS_S_DEFECTIVE_TOKEN, "The peer's token is not the NTLM message that is due.");
    for (std::size_t i = 0; i != layout.count; ++i)
        if (!fits(token, layout, layout.fields[i]))
            return refusal(GSS_S_DEFECTIVE_TOKEN, "A field of the peer's NTLM message is missing, lies outside of it "
                                                  "or is not NTLMv2's.");
    return {};
}

const char *ntlm_user_file() {
    return std::getenv("NTLM_USER_FILE");
}

} // namespace hostgss
