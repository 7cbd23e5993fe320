// The token reader, for the format drawn at the head of token_encode.cpp. Every mechanism read is handed to
// reconciliation at once; what a token has changed before it proves defective stays changed.
#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

// Reads the items of one element in the order of their tags and remembers the first error. A destination of an absent
// optional item stays as it was.
class ElementReader {
  public:
    explicit ElementReader(gsspasn_decoding_t handle) : handle_(handle) {}

    template <typename Number> void required(OM_uint32 tag, Number &value) {
        read(tag, GSSPASN_INTEGER, &value, false);
    }
    void required(OM_uint32 tag, qxgss_buffer_desc &value) { read(tag, GSSPASN_OCTET_STRING, &value, false); }
    void required(OM_uint32 tag, qxgss_OID_desc &value) { read(tag, GSSPASN_OBJECT_IDENTIFIER, &value, false); }
    template <typename Number> bool optional(OM_uint32 tag, Number &value) {
        return read(tag, GSSPASN_INTEGER, &value, true);
    }
    bool optional(OM_uint32 tag, qxgss_buffer_desc &value) { return read(tag, GSSPASN_OCTET_STRING, &value, true); }

    bool ok() const { return status_ == GSSPASN_E_SUCCESS; }
    OM_uint32 fail(OM_uint32 *pMinorStatus) const { return report(pMinorStatus, GSS_S_FAILURE, status_); }

  private:
    // Whether the value has been read.
    bool read(OM_uint32 tag, OM_uint32 type, void *value, bool mayBeAbsent) {
        if (!ok())
            return false;
        const OM_uint32 status = gsspasn_get_decode_item(handle_, tag, type, value);
        if (!(mayBeAbsent && status == GSSPASN_E_TAG_NOT_FOUND))
            status_ = status;
        return status == GSSPASN_E_SUCCESS;
    }

    gsspasn_decoding_t handle_;
    OM_uint32 status_ = GSSPASN_E_SUCCESS;
};

class Decoder {
  public:
    Decoder() = default;
    Decoder(const Decoder &) = delete;
    Decoder &operator=(const Decoder &) = delete;
    ~Decoder() {
        if (handle_ != nullptr)
            gsspasn_close_decode_handle(&handle_);
    }
    OM_uint32 open(qxgss_buffer_t token) {
        const OM_uint32 status = gsspasn_open_decode_handle(&handle_, token);
        if (status != GSSPASN_E_SUCCESS)
            handle_ = nullptr; // whatever a failure left there is nothing to close
        return status;
    }
    gsspasn_decoding_t get() const { return handle_; }

  private:
    gsspasn_decoding_t handle_ = nullptr;
};

// One mechanism as the peer sent it. What reconciliation has taken over it has also cleared here.
struct PeerEntry : NegMechEntry_desc {
    PeerEntry() : NegMechEntry_desc{} { MechIndex = -1; }
    PeerEntry(const PeerEntry &) = delete;
    PeerEntry &operator=(const PeerEntry &) = delete;
    ~PeerEntry() {
        if (pMechOid == &MechOidFromPeer)
            std::free(MechOidFromPeer.elements);
        discard(GssMinorStatusText);
        discard(InputToken);
        discard(SsoAuthenticationIdBuf);
    }
};

// An optional text of the token for a field of the context, which keeps its text when the item is absent.
void read_text(ElementReader &items, OM_uint32 tag, qxgss_buffer_desc &field) {
    qxgss_buffer_desc text{};
    if (!items.optional(tag, text))
        return;
    discard(field);
    field = text;
}

OM_uint32 null_handle_or_context(OM_uint32 *pMinorStatus, gsspasn_decoding_t handle, NegContext_t context) {
    if (handle == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    if (context == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);
    return GSS_S_COMPLETE;
}

// Finds the entry that the peer has selected and notes it in the context, whatever the context's own state. Whether
// that entry has earned a completion is looked at when the results are set.
OM_uint32 read_selected_mechanism(OM_uint32 *pMinorStatus, ElementReader &items, NegContext_desc &context) {
    qxgss_OID_desc oid{};
    items.required(2, oid);
    const Heap<void> oidBytes(oid.elements);
    if (!items.ok())
        return items.fail(pMinorStatus);
    if (!usable(&oid))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_SELECTED_OID);

    OM_sint32 found = -1;
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = find_mechanism(&minor, context.NegMechList, oid, found);
    if (failed(major))
        return report(pMinorStatus, major, minor);
    if (found < 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_SELECTED_NOT_FOUND);
    context.SelectedMechListIndex = found;
    context.SelectedMechInfoIndex = context.NegMechList.pNegMech[found].MechIndex;
    return GSS_S_COMPLETE;
}

// What differs between the two kinds of token before their own items begin.
struct TokenKind {
    OM_uint32 tag;
    OM_uint32 emptyToken; // minor status of an outer element without children
    bool mayReject;
    const char *stateChanged;
};

constexpr TokenKind kInitToken = {0, QXNEGO_E_BAD_INIT_TOKEN, false,
                                  "QXNEGO_INT_DecodeNegTokenInit: Peer has changed Negotiation State"};
constexpr TokenKind kRespToken = {1, QXNEGO_E_BAD_RESP_TOKEN, true,
                                  "QXNEGO_INT_DecodeNegTokenResp: Peer has changed Negotiation State"};

// Reads a token's mechanisms and the peer's state, and gives its children, of which the items behind the state are
// left.
OM_uint32 read_up_to_state(OM_uint32 *pMinorStatus, const TokenKind &kind, gsspasn_decoding_t handle,
                           NegContext_t context, gsspasn_decoding_t &children) {
    if (const OM_uint32 major = null_handle_or_context(pMinorStatus, handle, context); failed(major))
        return major;
    OM_uint32 count = 0;
    const OM_uint32 status = gsspasn_get_top_decode_sequence(handle, kind.tag, &children, &count);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);
    if (count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, kind.emptyToken);
    if (const OM_uint32 major = QXNEGO_INT_DecodeNegMechList(pMinorStatus, children, context); failed(major))
        return major;

    ElementReader items(children);
    items.required(1, context->NegStateFromPeer);
    if (!items.ok())
        return items.fail(pMinorStatus);
    const NegState_et state = context->NegStateFromPeer;
    if (state == NEG_STATE_REQUEST_MIC)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_NEG_STATE_UNSUPPORTED);
    const bool isOver = state == NEG_STATE_COMPLETED || (state == NEG_STATE_REJECT && kind.mayReject);
    if (!isOver && state != NEG_STATE_INCOMPLETE)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_STATE);
    if (isOver)
        QXNEGO_INT_NegLogEntry(nullptr, kind.stateChanged, nullptr, context);
    return GSS_S_COMPLETE;
}

} // namespace

OM_uint32 QXNEGO_INT_ProcessInputToken(OM_uint32 *pMinorStatus, OM_uint32 TokenType, qxgss_buffer_t pInputToken,
                                       NegContext_t pNegContext) {
    if (TokenType != NEG_MECH_TOKENTYPE_INIT && TokenType != NEG_MECH_TOKENTYPE_RESP)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_TOKEN_TYPE);
    if (pInputToken == nullptr || pInputToken->value == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_INVALID_INPUT);
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);

    Decoder decoder;
    OM_uint32 status = decoder.open(pInputToken);
    if (status == GSSPASN_E_SUCCESS)
        status = gsspasn_set_decode_tagging(decoder.get(), GSSP_TAGGING_IMPLICIT);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);
    return TokenType == NEG_MECH_TOKENTYPE_INIT
               ? QXNEGO_INT_DecodeNegTokenInit(pMinorStatus, decoder.get(), pNegContext)
               : QXNEGO_INT_DecodeNegTokenResp(pMinorStatus, decoder.get(), pNegContext);
}

OM_uint32 QXNEGO_INT_DecodeNegTokenInit(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext) {
    gsspasn_decoding_t children = nullptr;
    const OM_uint32 major = read_up_to_state(pMinorStatus, kInitToken, pDecodeHandle, pNegContext, children);
    if (failed(major))
        return major;
    ElementReader items(children);
    read_text(items, 2, pNegContext->AuthenticationIdBuf);
    items.optional(3, pNegContext->IsSso);
    read_text(items, 4, pNegContext->UserNameBuf);
    read_text(items, 5, pNegContext->ProfileNameBuf);
    return items.ok() ? succeed(pMinorStatus) : items.fail(pMinorStatus);
}

OM_uint32 QXNEGO_INT_DecodeNegTokenResp(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext) {
    gsspasn_decoding_t children = nullptr;
    OM_uint32 major = read_up_to_state(pMinorStatus, kRespToken, pDecodeHandle, pNegContext, children);
    if (failed(major))
        return major;
    ElementReader items(children);
    if (pNegContext->NegStateFromPeer == NEG_STATE_COMPLETED) {
        major = read_selected_mechanism(pMinorStatus, items, *pNegContext);
        if (failed(major))
            return major;
    }
    if (pNegContext->IsPolicyApplied == 0) {
        items.optional(3, pNegContext->IsPolicyApplied);
        if (!items.ok())
            return items.fail(pMinorStatus);
        if (pNegContext->IsPolicyApplied != 0)
            QXNEGO_INT_NegLogEntry(nullptr,
                                   "QXNEGO_INT_DecodeNegTokenResp: Mechanism Policy has been applied at the Server",
                                   nullptr, pNegContext);
    }
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_DecodeNegMechList(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                       NegContext_t pNegContext) {
    if (const OM_uint32 major = null_handle_or_context(pMinorStatus, pDecodeHandle, pNegContext); failed(major))
        return major;
    gsspasn_decoding_t mechanisms = nullptr;
    OM_uint32 count = 0;
    const OM_uint32 status = gsspasn_get_decode_sequence(pDecodeHandle, 0, &mechanisms, &count);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);
    if (count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_EMPTY_LIST);
    for (OM_uint32 i = 0; i < count; ++i)
        if (const OM_uint32 major = QXNEGO_INT_DecodeNegMech(pMinorStatus, mechanisms, pNegContext); failed(major))
            return major;
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_DecodeNegMech(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                   NegContext_t pNegContext) {
    if (const OM_uint32 major = null_handle_or_context(pMinorStatus, pDecodeHandle, pNegContext); failed(major))
        return major;
    gsspasn_decoding_t children = nullptr;
    OM_uint32 count = 0;
    const OM_uint32 status = gsspasn_get_decode_sequence(pDecodeHandle, 0, &children, &count);
    if (status != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, status);
    if (count == 0)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_NEG_MECH);

    PeerEntry entry;
    entry.pMechOid = &entry.MechOidFromPeer;
    ElementReader items(children);
    items.required(0, entry.MechOidFromPeer);
    items.required(1, entry.MechState);
    items.optional(2, entry.MechReason);
    if (entry.MechReason == NEG_MECH_REASON_GSSAPI_ERROR) {
        items.required(3, entry.GssMajorStatus);
        items.required(4, entry.GssMinorStatus);
        items.required(5, entry.GssMinorStatusText);
    }
    items.optional(6, entry.InputToken);
    items.optional(7, entry.SsoAuthenticationIdBuf);
    if (!items.ok())
        return items.fail(pMinorStatus);

    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    if (failed(QXNEGO_INT_ProcessNegMech(&minor, &entry, pNegContext)))
        return report(pMinorStatus, GSS_S_FAILURE, minor);
    return succeed(pMinorStatus);
}
