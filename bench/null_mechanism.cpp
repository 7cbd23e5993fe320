// A mechanism that does nothing: what is measured around it is the cost of the layers above. Of its 128 OIDs the lower
// 64 take one leg (the initiator's token alone), the upper 64 two.
//
//     token: 60 len | 06 09 OID | flags (4)   of the initiator, 17 bytes
//            "R" | flags (4)                  of the acceptor, 5 bytes
//
// Per side and handshake it allocates its context and one block for each token. Names and credentials are addresses.
#include <array>
#include <cstdlib>
#include <cstring>

#include "bench/null_mechanism.h"

namespace {

constexpr OM_uint32 kSuccess = 0;
constexpr OM_uint32 kFailure = 1;
constexpr std::size_t kMicLength = 16;
constexpr char kMic[] = "null-mech-mic-01";

struct Context {
    unsigned char number;
    bool open;
    std::array<unsigned char, 4> flags;
};

struct InitiatorToken {
    unsigned char head[4];
    unsigned char oid[kNullOidLength];
    std::array<unsigned char, 4> flags;
};

struct AcceptorToken {
    unsigned char tag;
    std::array<unsigned char, 4> flags;
};

char credential;

OM_uint32 answer(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor = kSuccess) {
    *pMinorStatus = minor;
    return major;
}

OM_uint32 put(OM_uint32 *pMinorStatus, qxgss_buffer_t output, const void *bytes, std::size_t length) {
    output->value = std::malloc(length != 0 ? length : 1);
    if (output->value == nullptr)
        return answer(pMinorStatus, GSS_S_FAILURE, kFailure);
    std::memcpy(output->value, bytes, length);
    output->length = length;
    return answer(pMinorStatus, GSS_S_COMPLETE);
}

bool two_legs(unsigned char number) {
    return number >= kNullTwoLegs;
}

Context *make_context(unsigned char number, bool open, std::array<unsigned char, 4> flags) {
    auto *context = static_cast<Context *>(std::malloc(sizeof(Context)));
    if (context != nullptr)
        *context = {number, open, flags};
    return context;
}

qxgss_OID oid_of(unsigned char number) {
    static const auto table = [] {
        struct Table {
            unsigned char bytes[kNullOids][kNullOidLength];
            qxgss_OID_desc oids[kNullOids];
        } made;
        for (std::size_t i = 0; i < kNullOids; ++i) {
            std::memcpy(made.bytes[i], kNullOidPrefix, sizeof kNullOidPrefix);
            made.bytes[i][sizeof kNullOidPrefix] = static_cast<unsigned char>(i);
        }
        return made;
    }();
    static auto oids = [] {
        std::array<qxgss_OID_desc, kNullOids> made{};
        for (std::size_t i = 0; i < kNullOids; ++i)
            made[i] = {kNullOidLength, const_cast<unsigned char *>(table.bytes[i])};
        return made;
    }();
    return &oids[number];
}

} // namespace
