// The token writer: each operation reads as its element's definition, top to bottom. The rows are in token_format.h;
// an inner element is present when it is written here.
#include "common/asn.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/token_format.h"

using namespace qxnego;

namespace {

// Writes through the framework's encoder and remembers the first error.
class TokenWriter {
  public:
    explicit TokenWriter(gsspasn_encoding_t handle) : handle_(handle) {}

    void start(const token::Element &element) {
        run([&] { return gsspasn_start_encode_sequence(handle_, element.tag); });
    }
    void stop(const token::Element &element) {
        run([&] { return gsspasn_stop_encode_sequence(handle_, element.tag); });
    }
    void put(const token::Element &element, OM_uint32 value) { put_value(element, &value); }
    void put(const token::Element &element, const qxgss_buffer_desc &value) { put_value(element, &value); }
    void put_if_present(const token::Element &element, const qxgss_buffer_desc &value) {
        if (present(value))
            put(element, value);
    }
    void put(const token::Element &element, const qxgss_OID_desc *value) {
        if (value == nullptr)
            fail(QXNEGO_E_INVALID_INPUT);
        else
            put_value(element, value);
    }

    // An element with an operation of its own, which reports its failure by its minor status.
    template <typename Operation, typename Source> void nested(Operation encode, Source source) {
        run([&] {
            const Status status = ask(encode, source, handle_);
            return status.failed() ? status.minor : GSSPASN_E_SUCCESS;
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
    void put_value(const token::Element &element, const void *value) {
        run([&] { return gsspasn_put_encode_item(handle_, element.tag, element.type, value); });
    }
    template <typename Step> void run(Step step) {
        if (ok())
            status_ = step();
    }

    gsspasn_encoding_t handle_;
    OM_uint32 status_ = GSSPASN_E_SUCCESS;
};

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

    common::Encoding encoding;
    if (encoding.status() != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, encoding.status());
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (failed(encode_token(&minor, TokenType, pNegContext, encoding.get())))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    common::Buffer output;
    const OM_uint32 status = encoding.close_into(output);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);
    *pOutputToken = output.release();
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegTokenInit(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegContext_desc &negotiation = *pNegContext;
    if (negotiation.IsInitiator == 0 || negotiation.TokenNum != 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INIT_NOT_FIRST);
    if (negotiation.NegState != NEG_STATE_INCOMPLETE && negotiation.NegState != NEG_STATE_REQUEST_MIC)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (entries(negotiation.NegMechList).empty())
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    const qxgss_buffer_desc &identity = negotiation.AuthenticationIdBuf;
    if (negotiation.IsSso == 1 && (identity.length != 0 || identity.value != nullptr))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INTERNAL);
    if (negotiation.IsSso != 1 && !present(identity))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NO_AUTHENTICATION_ID);

    TokenWriter writer(pEncodeHandle);
    writer.start(token::kInit);
    writer.nested(QXNEGO_INT_EncodeNegMechList, pNegContext);
    writer.put(token::kNegState, negotiation.NegState);
    if (negotiation.IsSso == 0)
        writer.put(token::init::kAuthenticationId, identity);
    else
        writer.put(token::init::kIsSso, negotiation.IsSso);
    writer.put_if_present(token::init::kUserName, negotiation.UserNameBuf);
    writer.put_if_present(token::init::kProfileName, negotiation.ProfileNameBuf);
    writer.stop(token::kInit);
    return writer.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegTokenResp(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                        gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegContext_desc &negotiation = *pNegContext;
    if (negotiation.NegState <= NEG_STATE_INVALID || negotiation.NegState >= NEG_STATE_INVALID_LAST)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (entries(negotiation.NegMechList).empty())
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    const NegMechEntry_t selected = selected_entry(negotiation);
    const bool is_completed = negotiation.NegState == NEG_STATE_COMPLETED;
    if (is_completed && (selected == nullptr || selected->pMechOid == nullptr))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INVALID_INPUT);

    TokenWriter writer(pEncodeHandle);
    writer.start(token::kResp);
    writer.nested(QXNEGO_INT_EncodeNegMechList, pNegContext);
    writer.put(token::kNegState, negotiation.NegState);
    if (is_completed)
        writer.put(token::resp::kSelected, selected->pMechOid);
    if (negotiation.IsPolicyApplied != 0)
        writer.put(token::resp::kIsPolicyApplied, negotiation.IsPolicyApplied);
    writer.stop(token::kResp);
    return writer.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegMechList(OM_uint32 *pMinorStatus, NegContext_t pNegContext,
                                       gsspasn_encoding_t pEncodeHandle) {
    if (pNegContext == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);

    TokenWriter writer(pEncodeHandle);
    writer.start(token::kMechanisms);
    bool is_written = false;
    for (NegMechEntry_desc &entry : entries(pNegContext->NegMechList)) {
        if (entry.IsMechStateChanged == 0 && entry.MechState != NEG_MECH_STATE_AVAILABLE)
            continue;
        writer.nested(QXNEGO_INT_EncodeNegMech, &entry);
        if (!writer.ok())
            break;
        entry.IsMechStateChanged = 0;
        is_written = true;
    }
    if (!is_written)
        writer.fail(QXNEGO_E_NOTHING_TO_ENCODE);
    writer.stop(token::kMechanisms);
    return writer.finish(pMinorStatus);
}

OM_uint32 QXNEGO_INT_EncodeNegMech(OM_uint32 *pMinorStatus, NegMechEntry_t pNegMech, gsspasn_encoding_t pEncodeHandle) {
    if (pNegMech == nullptr || pEncodeHandle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    const NegMechEntry_desc &entry = *pNegMech;

    TokenWriter writer(pEncodeHandle);
    writer.start(token::kMechanism);
    writer.put(token::mech::kOid, entry.pMechOid);
    writer.put(token::mech::kState, entry.MechState);
    if (entry.IsMechStateChanged != 0)
        writer.put(token::mech::kReason, entry.MechReason);
    if (failed(entry.GssMajorStatus)) {
        writer.put(token::mech::kMajorStatus, entry.GssMajorStatus);
        writer.put(token::mech::kMinorStatus, entry.GssMinorStatus);
        writer.put(token::mech::kStatusText, entry.GssMinorStatusText);
    }
    writer.put_if_present(token::mech::kInnerToken, entry.OutputToken);
    writer.put_if_present(token::mech::kSsoAuthenticationId, entry.SsoAuthenticationIdBuf);
    writer.stop(token::kMechanism);
    return writer.finish(pMinorStatus);
}
