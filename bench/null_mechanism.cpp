// A mechanism that does nothing, so that what is measured around it is the cost of the layers above. It answers for any
// OID of 9 bytes, whose last one says how many legs it takes: below 0x40 one, below 0x60 two, else three.
//
//     token: 60 len | 06 09 OID | flags (4)   of the initiator, 17 bytes
//            "R" | flags (4)                  of the acceptor and the third leg, 5 bytes
//
// Per side and handshake it allocates its context and one block for each token. A credential is an address.
#include <array>
#include <cstdlib>
#include <cstring>

#include "qxgss/gssp.h"

namespace {

constexpr std::size_t kOidLength = 9;
constexpr unsigned char kTwoLegs = 0x40;
constexpr unsigned char kThreeLegs = 0x60;
constexpr char kMic[] = {'n', 'u', 'l', 'l', '-', 'm', 'e', 'c', 'h', '-', 'm', 'i', 'c', '-', '0', '1'};

using Flags = std::array<unsigned char, 4>;

struct InitiatorToken {
    unsigned char head[4] = {0x60, sizeof(InitiatorToken) - 2, 0x06, kOidLength};
    unsigned char oid[kOidLength];
    Flags flags;
};

struct ShortToken {
    unsigned char tag = 'R';
    Flags flags;
};

struct Context {
    int legs;
    bool open;
    Flags flags;
};

char theCredential;

OM_uint32 put(qxgss_buffer_t output, const void *bytes, std::size_t length) {
    output->value = std::malloc(length);
    if (output->value == nullptr)
        return GSS_S_FAILURE;
    std::memcpy(output->value, bytes, length);
    output->length = length;
    return GSS_S_COMPLETE;
}

int legs_of(const InitiatorToken &token) {
    const unsigned char last = token.oid[kOidLength - 1];
    return 1 + (last >= kTwoLegs) + (last >= kThreeLegs);
}

OM_uint32 make_context(qxgss_ctx_id_t *ppContext, int legs, bool open, const Flags &flags) {
    auto *context = static_cast<Context *>(std::malloc(sizeof(Context)));
    if (context == nullptr)
        return GSS_S_FAILURE;
    *context = {legs, open, flags};
    *ppContext = context;
    return GSS_S_COMPLETE;
}

void give_results(const Flags &flags, OM_uint32 *pRetFlags, OM_uint32 *pTimeRec) {
    if (pRetFlags != nullptr)
        std::memcpy(pRetFlags, &flags, sizeof flags);
    if (pTimeRec != nullptr)
        *pTimeRec = GSS_C_INDEFINITE;
}

OM_uint32 begin(qxgss_ctx_id_t *ppContext, const qxgss_OID_desc &oid, OM_uint32 reqFlags, qxgss_buffer_t output) {
    if (oid.length != kOidLength)
        return GSS_S_BAD_MECH;
    InitiatorToken token;
    std::memcpy(token.oid, oid.elements, kOidLength);
    std::memcpy(&token.flags, &reqFlags, sizeof reqFlags);
    const int legs = legs_of(token);
    const OM_uint32 major = make_context(ppContext, legs, legs == 1, token.flags);
    return major == GSS_S_COMPLETE ? put(output, &token, sizeof token) : major;
}

} // namespace

#define NULL_EXPORT extern "C" QXGSS_API OM_uint32

NULL_EXPORT NULLMECH_acquire_cred(OM_uint32 *pMinor, qxgss_name_t, OM_uint32, qxgss_OID_set, qxgss_cred_usage_t,
                                  qxgss_cred_id_t *ppCredential, qxgss_OID_set *, OM_uint32 *) {
    *pMinor = 0;
    *ppCredential = &theCredential;
    return GSS_S_COMPLETE;
}

NULL_EXPORT NULLMECH_release_cred(OM_uint32 *pMinor, qxgss_cred_id_t *ppCredential) {
    *pMinor = 0;
    *ppCredential = nullptr;
    return GSS_S_COMPLETE;
}

NULL_EXPORT NULLMECH_init_sec_context(OM_uint32 *pMinor, qxgss_cred_id_t, qxgss_ctx_id_t *ppContext, qxgss_name_t,
                                      qxgss_OID pMechType, OM_uint32 ReqFlags, OM_uint32, qxgss_channel_bindings_t,
                                      qxgss_buffer_t pInput, qxgss_OID *ppActual, qxgss_buffer_t pOutput,
                                      OM_uint32 *pRetFlags, OM_uint32 *pTimeRec) {
    *pMinor = 0;
    *pOutput = {};
    if (*ppContext == nullptr) {
        if (const OM_uint32 major = begin(ppContext, *pMechType, ReqFlags, pOutput); major != GSS_S_COMPLETE)
            return major;
    } else {
        if (pInput->length != sizeof(ShortToken))
            return GSS_S_DEFECTIVE_TOKEN;
        auto *begun = static_cast<Context *>(*ppContext);
        begun->open = true;
        if (begun->legs == 3 && put(pOutput, pInput->value, pInput->length) != GSS_S_COMPLETE)
            return GSS_S_FAILURE;
    }
    const auto *context = static_cast<const Context *>(*ppContext);
    if (ppActual != nullptr)
        *ppActual = pMechType;
    give_results(context->flags, pRetFlags, pTimeRec);
    return context->open ? GSS_S_COMPLETE : GSS_S_CONTINUE_NEEDED;
}

NULL_EXPORT NULLMECH_accept_sec_context(OM_uint32 *pMinor, qxgss_ctx_id_t *ppContext, qxgss_cred_id_t,
                                        qxgss_buffer_t pInput, qxgss_channel_bindings_t, qxgss_name_t *ppSource,
                                        qxgss_OID *ppMechType, qxgss_buffer_t pOutput, OM_uint32 *pRetFlags,
                                        OM_uint32 *pTimeRec, qxgss_cred_id_t *ppDelegated) {
    *pMinor = 0;
    *pOutput = {};
    if (*ppContext != nullptr) {
        static_cast<Context *>(*ppContext)->open = true;
        return GSS_S_COMPLETE;
    }
    InitiatorToken token;
    if (pInput->length != sizeof token)
        return GSS_S_DEFECTIVE_TOKEN;
    std::memcpy(&token, pInput->value, sizeof token);
    const int legs = legs_of(token);
    if (const OM_uint32 major = make_context(ppContext, legs, legs < 3, token.flags); major != GSS_S_COMPLETE)
        return major;
    if (ppSource != nullptr)
        *ppSource = nullptr;
    if (ppMechType != nullptr)
        *ppMechType = nullptr;
    if (ppDelegated != nullptr)
        *ppDelegated = nullptr;
    give_results(token.flags, pRetFlags, pTimeRec);
    if (legs == 1)
        return GSS_S_COMPLETE;
    ShortToken reply;
    reply.flags = token.flags;
    const OM_uint32 major = put(pOutput, &reply, sizeof reply);
    return major == GSS_S_COMPLETE && legs == 3 ? GSS_S_CONTINUE_NEEDED : major;
}

NULL_EXPORT NULLMECH_delete_sec_context(OM_uint32 *pMinor, qxgss_ctx_id_t *ppContext, qxgss_buffer_t) {
    *pMinor = 0;
    std::free(*ppContext);
    *ppContext = nullptr;
    return GSS_S_COMPLETE;
}

NULL_EXPORT NULLMECH_wrap(OM_uint32 *pMinor, qxgss_ctx_id_t, int ConfReqFlag, qxgss_qop_t, qxgss_buffer_t pMessage,
                          int *pConfState, qxgss_buffer_t pOutput) {
    *pMinor = 0;
    if (pConfState != nullptr)
        *pConfState = ConfReqFlag;
    return put(pOutput, pMessage->value, pMessage->length);
}

NULL_EXPORT NULLMECH_unwrap(OM_uint32 *pMinor, qxgss_ctx_id_t, qxgss_buffer_t pMessage, qxgss_buffer_t pOutput,
                            int *pConfState, qxgss_qop_t *pQopState) {
    *pMinor = 0;
    if (pConfState != nullptr)
        *pConfState = 1;
    if (pQopState != nullptr)
        *pQopState = 0;
    return put(pOutput, pMessage->value, pMessage->length);
}

NULL_EXPORT NULLMECH_get_mic(OM_uint32 *pMinor, qxgss_ctx_id_t, qxgss_qop_t, qxgss_buffer_t, qxgss_buffer_t pOutput) {
    *pMinor = 0;
    return put(pOutput, kMic, sizeof kMic);
}

NULL_EXPORT NULLMECH_verify_mic(OM_uint32 *pMinor, qxgss_ctx_id_t, qxgss_buffer_t, qxgss_buffer_t pToken,
                                qxgss_qop_t *pQopState) {
    *pMinor = 0;
    if (pQopState != nullptr)
        *pQopState = 0;
    const bool genuine = pToken->length == sizeof kMic && std::memcmp(pToken->value, kMic, sizeof kMic) == 0;
    return genuine ? GSS_S_COMPLETE : GSS_S_BAD_MIC;
}
