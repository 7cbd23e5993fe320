// The host's GSS-API library behind types of our own. Its headers and the framework's give the same names to different
// things, so the files that include <gssapi/gssapi.h> (host_*.cpp) include this one and none of the framework's.
//
// Inputs are views and are only read during the call; results are on the C heap. Handles are the host's own.
#ifndef HOSTGSS_HOST_H
#define HOSTGSS_HOST_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace hostgss {

// Minor status for lack of memory on our side of the fence: that of the framework.
inline constexpr std::uint32_t kNoMemory = 0xE1000065U;

// A major and a minor status (RFC 2744 3.9).
struct Status {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    const char *text = nullptr; // a literal: why we refuse; null: the host has a text, or memory was lacking

    bool failed() const { return (major & 0xFFFF0000U) != 0; }
    // A failure that is not of the host's making.
    bool ours() const { return text != nullptr || minor == kNoMemory; }
};

inline constexpr Status kOutOfMemory{0x000D0000U, kNoMemory};

// GSS_S_NO_CRED
inline constexpr Status kNoCredential{0x00070000U, 0, "The credential is not one to do that with."};

// GSS_S_BAD_MECH
inline constexpr Status kOtherMechanism{0x00010000U, 0, "The peer's token is of another mechanism."};

using Bytes = std::string_view; // a token, a text, or the contents octets of an object identifier

inline constexpr Bytes kKerberos = "\x2a\x86\x48\x86\xf7\x12\x01\x02\x02";
inline constexpr Bytes kNtlm = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a";
inline constexpr Bytes kNegotiator = "\x2b\x06\x01\x05\x05\x02"; // RFC 4178

// Bytes on the C heap. Freed by the destructor unless they were released to a caller.
class Block {
  public:
    Block() = default;
    Block(const Block &) = delete;
    Block &operator=(const Block &) = delete;
    ~Block();

    // Appends a copy and keeps a NUL behind it; on failure the block is as it was.
    bool append(Bytes bytes);
    Bytes view() const { return {static_cast<const char *>(value_), length_}; }
    std::size_t length() const { return length_; }
    void *release();

  private:
    std::size_t length_ = 0;
    void *value_ = nullptr;
};

// A set of object identifiers that the host made.
class OidSet {
  public:
    OidSet() = default;
    OidSet(const OidSet &) = delete;
    OidSet &operator=(const OidSet &) = delete;
    ~OidSet() { take(nullptr); }

    // Owns that one from now on, and no other.
    void take(void *set);
    std::size_t count() const;
    Bytes operator[](std::size_t index) const;

  private:
    void *set_ = nullptr;
};

enum class NameKind { kUser, kHostBasedService };

// A name before it is imported; one without text is the default identity.
struct Name {
    Bytes text;
    NameKind kind = NameKind::kUser;
};

// RFC 2744 3.11
struct Bindings {
    std::uint32_t initiator_type;
    Bytes initiator;
    std::uint32_t acceptor_type;
    Bytes acceptor;
    Bytes application;
};

struct CredentialRequest {
    Name name;
    const char *password = nullptr; // null: from the ticket cache, the key table or what else the mechanism has
    const char *keytab = nullptr;   // null, as in the next two: the host's default
    const char *client_keytab = nullptr;
    const char *ccache = nullptr;
    void *given = nullptr; // a credential of which a copy is wanted; all but the mechanism is passed over then
    std::uint32_t lifetime = 0xFFFFFFFFU;
    Bytes mech;
    int usage = 0;
};

struct CredentialFacts {
    Block name;
    std::uint32_t lifetime = 0;
    int usage = 0;
    OidSet mechs;
};

// A credential: the host's, and what the host has said of it, which stays. The framework's handle points to one. It is
// only read once it is made.
struct Credential {
    Credential() = default;
    Credential(const Credential &) = delete;
    Credential &operator=(const Credential &) = delete;
    ~Credential() { release(); }
    Status release();

    void *host = nullptr;
    bool named = false; // whether the name is among the facts; otherwise it is asked for when it is wanted
    CredentialFacts facts;
};

// The host's handle in it; null, for the default one, without a credential.
inline void *host_of(const Credential *credential) {
    return credential == nullptr ? nullptr : credential->host;
}

struct ContextFacts {
    Block source; // an initiator's own
    Block target;
    std::uint32_t lifetime = 0;
    Bytes mech; // the host's own, for the life of the process
    std::uint32_t flags = 0;
    int initiated = 0;
    int open = 0;
};

// What an establishment call leaves besides its context.
struct Leg {
    Block token;
    Block source; // acceptor only
    Bytes mech;   // the host's own, for the life of the process
    std::uint32_t flags = 0;
    std::uint32_t lifetime = 0;
};

// ---- host_status.cpp

// Append all texts of a major status, separated by "; ", or of a mechanism's minor status; behind a text that is there
// already, ": " comes first.
Status major_text(std::uint32_t major, Block &text);
Status minor_text(std::uint32_t minor, Bytes mech, Block &text);

// ---- host_credentials.cpp

Status mechanisms(OidSet &set);

// Acquires a credential and resolves it (password verified, ticket cache read), so that what it lacks is told here and
// not by the first context. kNoCredential when the mechanism makes one of another usage.
Status acquire(const CredentialRequest &request, Credential &credential);

// Asks the host. A null pointer is the default credential. The name is empty for a credential without one.
Status inquire_credential(const Credential *credential, CredentialFacts &facts);

// ---- host_contexts.cpp

Status initiate(void *credential, void **context, const Name &target, Bytes mech, std::uint32_t flags,
                std::uint32_t lifetime, const Bindings *bindings, Bytes input, Leg &leg);

// `delegated` may be null: a delegated credential is then not asked for. Nothing but its usage is known of one.
Status accept(void *credential, void **context, const Bindings *bindings, Bytes input, Leg &leg, Credential *delegated);
Status delete_context(void **context, Block &token);

// Of an established context.
Status inquire_context(void *context, ContextFacts &facts);
Status wrap_size_limit(void *context, int confidential, std::uint32_t qop, std::uint32_t output_size,
                       std::uint32_t *input_size);
Status wrap(void *context, int confidential, std::uint32_t qop, Bytes message, int *state, Block &wrapped);
Status unwrap(void *context, Bytes wrapped, Block &message, int *state, std::uint32_t *qop);
Status get_mic(void *context, std::uint32_t qop, Bytes message, Block &mic);
Status verify_mic(void *context, Bytes message, Bytes mic, std::uint32_t *qop);

} // namespace hostgss

#endif
