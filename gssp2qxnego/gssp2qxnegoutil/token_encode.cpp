// The token writer. A token is one BER element with implicit context tags; each operation reads as its element's
// definition, top to bottom.
//
//     INIT [0] { [0] list, [1] state, [2] authentication ID | [3] IsSso, [4] user?, [5] profile? }
//     RESP [1] { [0] list, [1] state, [2] selected mechanism (completed only), [3] IsPolicyApplied? }
//     list     { [0] mechanism ... }
//     mechanism{ [0] OID, [1] state, [2] reason (changed only), [3] major [4] minor [5] text (failed only),
//                [6] inner token?, [7] SSO authentication ID? }
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

// Writes through the framework's encoder and remembers the first error.
class TokenWriter {
  public:
    explicit TokenWriter(gsspasn_encoding_t handle) : handle_(handle) {}

    void start(OM_uint32 tag) {
        run([&] { return gsspasn_start_encode_sequence(handle_, tag); });
    }
    void stop(OM_uint32 tag) {
        run([&] { return gsspasn_stop_encode_sequence(handle_, tag); });
    }
    void integer(OM_uint32 tag, OM_uint32 value) { put(tag, GSSPASN_INTEGER, &value); }
    void octets(OM_uint32 tag, const qxgss_buffer_desc &value) { put(tag, GSSPASN_OCTET_STRING, &value); }
    void octets_if_present(OM_uint32 tag, const qxgss_buffer_desc &value) {
        if (present(value))
            octets(tag, value);
    }
    void oid(OM_uint32 tag, const qxgss_OID_desc *value) {
        if (value == nullptr)
            fail(QXNEGO_E_INVALID_INPUT);
        else
            put(tag, GSSPASN_OBJECT_IDENTIFIER, value);
    }

    // An element with an operation of its own, which reports its failure by its minor status.
    template <typename Operation, typename Source> void nested(Operation encode, Source source) {
        run([&] {
            OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
            return failed(encode(&minor, source, handle_)) ? minor : GSSPASN_E_SUCCESS;
        });
    }

    void fail(OM_uint32 status) {
        run([&] { return status; });
    }
    bool ok() const { return status_ == GSSPASN_E_SUCCESS; }
    OM_uint32 finish(OM_uint32 *pMinorStatus) const {
        return ok() ? succeed(pMinorStatus) : report(pMinorStatus, GSS_S_FAILURE, status_);
    }

  private:
    void put(OM_uint32 tag, OM_uint32 type, const void *value) {
        run([&] { return gsspasn_put_encode_item(handle_, tag, type, value); });
    }
    template <typename Step> void run(Step step) {
        if (ok())
            status_ = step();
    }

    gsspasn_encoding_t handle_;
    OM_uint32 status_ = GSSPASN_E_SUCCESS;
};

// An encoder that is discarded unless it is closed into an output.
class Encoder {
  public:
    Encoder() = default;
    Encoder(const Encoder &) = delete;
    Encoder &operator=(const Encoder &) = delete;
    ~Encoder() {
        if (handle_ != nullptr)
            gsspasn_close_encode_handle(&handle_, nullptr);
    }
    OM_uint32 open() {
        const OM_uint32 status = gsspasn_open_encode_handle(&handle_);
        if (status != GSSPASN_E_SUCCESS)
            handle_ = nullptr; // whatever a failure left there is nothing to close
        return status;
    }
    OM_uint32 close_into(qxgss_buffer_t output) {
        const OM_uint32 status = gsspasn_close_encode_handle(&handle_, output);
        handle_ = nullptr;
        return status;
    }
    gsspasn_encoding_t get() const { return handle_; }

  private:
    gsspasn_encoding_t handle_ = nullptr;
};

bool has_mechanisms(const NegMechList_desc &list) {
    return list.Count != 0 && list.pNegMech != nullptr;
}

OM_uint32 encode_token(OM_uint32 *pMinorStatus, OM_uint32 TokenType, NegContext_t pNegContext,
                       gsspasn_encoding_t handle) {
    switch (TokenType) {
    case NEG_MECH_TOKENTYPE_INIT:
        return QXNEGO_INT_EncodeNegTokenInit(pMinorStatus, pNegContext, handle);
    case NEG_MECH_TOKENTYPE_RESP:
        return QXNEGO_INT_EncodeNegTokenResp(pMinorStatus, pNegContext, handle);
    default:
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_TOKEN_TYPE);
    }
}

} // namespace

OM_uint32 QXNEGO_INT_ConstructOutputToken(OM_uint32 *pMinorStatus, OM_uint32 TokenType, NegContext_t pNegContext,
                                          qxgss_buffer_t pOutputToken) {
    if (pOutputToken == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    *pOutputToken = {};
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    if (pNegContext->NegStateFromPeer != NEG_STATE_INCOMPLETE)
        return succeed(pMinorStatus); // the peer has ended the negotiation and reads no more

    Encoder encoder;
    OM_uint32 status = encoder.open();
    if (status == GSSPASN_E_SUCCESS)
        status = gsspasn_set_encode_tagging(encoder.get(), GSSP_TAGGING_IMPLICIT);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (failed(encode_token(&minor, TokenType, pNegContext, encoder.get())))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    status = encoder.close_into(pOutputToken);
    if (status != GSSPASN_E_SUCCESS) {
        *pOutputToken = {};
        return report(pMinorStatus, GSS_S_FAILURE, status);
    }
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegTokenInit(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegContext_desc &context = *pNegContext;
    if (context.IsInitiator == 0 || context.TokenNum != 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INIT_NOT_FIRST);
    if (context.NegState != NEG_STATE_INCOMPLETE && context.NegState != NEG_STATE_REQUEST_MIC)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (!has_mechanisms(context.NegMechList))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    const qxgss_buffer_desc &identity = context.AuthenticationIdBuf;
    if (context.IsSso == 1 && (identity.length != 0 || identity.value != nullptr))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INTERNAL);
    if (context.IsSso != 1 && !present(identity))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_AUTHENTICATION_ID);

    TokenWriter token(pEncodeHandle);
    token.start(0);
    token.nested(QXNEGO_INT_EncodeNegMechList, pNegContext);
    token.integer(1, context.NegState);
    if (context.IsSso == 0)
        token.octets(2, identity);
    else
        token.integer(3, context.IsSso);
    token.octets_if_present(4, context.UserNameBuf);
    token.octets_if_present(5, context.ProfileNameBuf);
    token.stop(0);
    return token.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegTokenResp(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegContext_desc &context = *pNegContext;
    if (context.NegState <= NEG_STATE_INVALID || context.NegState >= NEG_STATE_INVALID_LAST)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (!has_mechanisms(context.NegMechList))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    const NegMechEntry_t selected = selected_entry(context);
    const bool completed = context.NegState == NEG_STATE_COMPLETED;
    if (completed && (selected == nullptr || selected->pMechOid == nullptr))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INVALID_INPUT);

    TokenWriter token(pEncodeHandle);
    token.start(1);
    token.nested(QXNEGO_INT_EncodeNegMechList, pNegContext);
    token.integer(1, context.NegState);
    if (completed)
        token.oid(2, selected->pMechOid);
    if (context.IsPolicyApplied != 0)
        token.integer(3, context.IsPolicyApplied);
    token.stop(1);
    return token.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegMechList(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                       gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);

    TokenWriter token(pEncodeHandle);
    token.start(0);
    const NegMechList_desc &list = pNegContext->NegMechList;
    bool written = false;
    for (OM_uint32 i = 0; list.pNegMech != nullptr && i < list.Count; ++i) {
        NegMechEntry_desc &entry = list.pNegMech[i];
        if (entry.IsMechStateChanged == 0 && entry.MechState != NEG_MECH_STATE_AVAILABLE)
            continue;
        token.nested(QXNEGO_INT_EncodeNegMech, &entry);
        if (!token.ok())
            break;
        entry.IsMechStateChanged = 0;
        written = true;
    }
    if (!written)
        token.fail(QXNEGO_E_NOTHING_TO_ENCODE);
    token.stop(0);
    return token.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, gsspasn_encoding_t pEncodeHandle) {
    if (pNegMech == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegMechEntry_desc &entry = *pNegMech;

    TokenWriter token(pEncodeHandle);
    token.start(0);
    token.oid(0, entry.pMechOid);
    token.integer(1, entry.MechState);
    if (entry.IsMechStateChanged != 0)
        token.integer(2, entry.MechReason);
    if (GSS_ERROR(entry.GssMajorStatus) != 0) {
        token.integer(3, entry.GssMajorStatus);
        token.integer(4, entry.GssMinorStatus);
        token.octets(5, entry.GssMinorStatusText);
    }
    token.octets_if_present(6, entry.OutputToken);
    token.octets_if_present(7, entry.SsoAuthenticationIdBuf);
    token.stop(0);
    return token.finish(pMinorStatus);
}
