// The token reader, for the rows of token_format.h. Every mechanism read is handed to reconciliation at once; what a
// token has changed before it proves defective stays changed.
#include "common/asn.h"
#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/token_format.h"

using namespace qxnego;

namespace {

// Reads the items of one element in the order of their tags and remembers the first error. A destination of an absent
// optional item stays as it was.
class ElementReader {
  public:
    explicit ElementReader(gsspasn_decoding_t handle) : handle_(handle) {}

    template <typename Value> void required(const token::Element &element, Value &value) {
        read(element, &value, false);
    }
    template <typename Value> bool optional(const token::Element &element, Value &value) {
        return read(element, &value, true);
    }

    // Its bytes are the token's.
    qxgss_OID_desc required_oid(const token::Element &element) {
        qxgss_buffer_desc oid{};
        if (ok())
            status_ = gsspasn_get_decode_contents(handle_, element.tag, &oid);
        return {static_cast<OM_uint32>(oid.length), oid.value};
    }

    bool ok() const { return status_ == GSSPASN_E_SUCCESS; }
    Status failure() const { return common::failure(status_); }

  private:
    // Whether the value has been read.
    bool read(const token::Element &element, void *value, bool may_be_absent) {
        if (!ok())
            return false;
        const OM_uint32 status = gsspasn_get_decode_item(handle_, element.tag, element.type, value);
        if (!(may_be_absent && status == GSSPASN_E_TAG_NOT_FOUND))
            status_ = status;
        return status == GSSPASN_E_SUCCESS;
    }

    gsspasn_decoding_t handle_;
    OM_uint32 status_ = GSSPASN_E_SUCCESS;
};

// One mechanism as the peer sent it. What reconciliation has taken over it has also cleared here.
struct PeerEntry : NegMechEntry_desc {
    PeerEntry() : NegMechEntry_desc{} { MechIndex = -1; }
    PeerEntry(const PeerEntry &) = delete;
    PeerEntry &operator=(const PeerEntry &) = delete;
    ~PeerEntry() {
        discard(GssMinorStatusText);
        discard(InputToken);
        discard(SsoAuthenticationIdBuf);
    }
};

// An optional text of the token for a field of the context, which keeps its text when the item is absent.
void read_text(ElementReader &items, const token::Element &element, qxgss_buffer_desc &field) {
    qxgss_buffer_desc text{};
    if (!items.optional(element, text))
        return;
    discard(field);
    field = text;
}

Status require_handle_and_context(gsspasn_decoding_t handle, NegContext_t pNegContext) {
    if (handle == nullptr)
        return {kInaccessibleRead, QXNEGO_E_INVALID_INPUT};
    if (pNegContext == nullptr)
        return {kInaccessibleWrite, QXNEGO_E_INVALID_INPUT};
    return kSuccess;
}

// The next constructed child, which has children of its own.
Status enter(gsspasn_decoding_t parent, const token::Element &element, OM_uint32 status_if_empty,
             gsspasn_decoding_t &children, OM_uint32 &count) {
    const OM_uint32 status = gsspasn_get_decode_sequence(parent, element.tag, &children, &count);
    if (status != GSSPASN_E_SUCCESS)
        return common::failure(status);
    return count == 0 ? common::failure(status_if_empty) : kSuccess;
}

// Finds the entry that the peer has selected and notes it in the context, whatever the context's own state.
Status read_selected_mechanism(ElementReader &items, NegContext_desc &negotiation) {
    qxgss_OID_desc oid = items.required_oid(token::resp::kSelected);
    if (!items.ok())
        return items.failure();
    if (!usable(&oid))
        return common::failure(QXNEGO_E_SELECTED_OID);
    const std::span<NegMechEntry_desc> all = entries(negotiation.NegMechList);
    const Found found = find_mechanism(all, oid, QXNEGO_E_SUCCESSFUL);
    if (found.status.failed())
        return found.status;
    if (found.number < 0)
        return common::failure(QXNEGO_E_SELECTED_NOT_FOUND);
    negotiation.SelectedMechListIndex = found.number;
    negotiation.SelectedMechInfoIndex = all[static_cast<std::size_t>(found.number)].MechIndex;
    return kSuccess;
}

// What differs between the two kinds of token before their own items begin.
struct TokenKind {
    const token::Element &outer;
    OM_uint32 empty_token; // minor status of an outer element without children
    bool may_reject;
    EventText state_changed;
};

constexpr TokenKind kInitToken = {token::kInit, QXNEGO_E_BAD_INIT_TOKEN, false,
                                  "QXNEGO_INT_DecodeNegTokenInit: Peer has changed Negotiation State"};
constexpr TokenKind kRespToken = {token::kResp, QXNEGO_E_BAD_RESP_TOKEN, true,
                                  "QXNEGO_INT_DecodeNegTokenResp: Peer has changed Negotiation State"};

// The peer's state, which must be one that the kind of token may have.
Status read_state(ElementReader &items, const TokenKind &kind, NegContext_desc &negotiation) {
    items.required(token::kNegState, negotiation.NegStateFromPeer);
    if (!items.ok())
        return items.failure();
    const NegState_et state = negotiation.NegStateFromPeer;
    if (state == NEG_STATE_REQUEST_MIC)
        return common::failure(QXNEGO_E_NEG_STATE_UNSUPPORTED);
    const bool is_over = state == NEG_STATE_COMPLETED || (state == NEG_STATE_REJECT && kind.may_reject);
    if (!is_over && state != NEG_STATE_INCOMPLETE)
        return common::failure(QXNEGO_E_BAD_NEG_STATE);
    if (is_over)
        log_event(kind.state_changed, nullptr, negotiation);
    return kSuccess;
}

// Reads a token's mechanisms and the peer's state, and gives its children, of which the items behind the state are
// left.
Status read_up_to_state(const TokenKind &kind, gsspasn_decoding_t handle, NegContext_t pNegContext,
                        gsspasn_decoding_t &children) {
    if (const Status required = require_handle_and_context(handle, pNegContext); required.failed())
        return required;
    OM_uint32 count = 0;
    const OM_uint32 found = gsspasn_get_top_decode_sequence(handle, kind.outer.tag, &children, &count);
    if (found != GSSPASN_E_SUCCESS)
        return common::failure(found);
    if (count == 0)
        return common::failure(kind.empty_token);
    if (const Status listed = ask(QXNEGO_INT_DecodeNegMechList, children, pNegContext); listed.failed())
        return listed;
    ElementReader items(children);
    return read_state(items, kind, *pNegContext);
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

    const common::Decoding decoding(common::bytes_of(pInputToken));
    if (decoding.status() != GSSPASN_E_SUCCESS)
        return report(pMinorStatus, GSS_S_FAILURE, decoding.status());
    return TokenType == NEG_MECH_TOKENTYPE_INIT
               ? QXNEGO_INT_DecodeNegTokenInit(pMinorStatus, decoding.get(), pNegContext)
               : QXNEGO_INT_DecodeNegTokenResp(pMinorStatus, decoding.get(), pNegContext);
}

OM_uint32 QXNEGO_INT_DecodeNegTokenInit(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext) {
    gsspasn_decoding_t children = nullptr;
    const Status status = read_up_to_state(kInitToken, pDecodeHandle, pNegContext, children);
    if (status.failed())
        return report(pMinorStatus, status);
    ElementReader items(children);
    read_text(items, token::init::kAuthenticationId, pNegContext->AuthenticationIdBuf);
    items.optional(token::init::kIsSso, pNegContext->IsSso);
    read_text(items, token::init::kUserName, pNegContext->UserNameBuf);
    read_text(items, token::init::kProfileName, pNegContext->ProfileNameBuf);
    return report(pMinorStatus, items.ok() ? kSuccess : items.failure());
}

OM_uint32 QXNEGO_INT_DecodeNegTokenResp(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                        NegContext_t pNegContext) {
    gsspasn_decoding_t children = nullptr;
    Status status = read_up_to_state(kRespToken, pDecodeHandle, pNegContext, children);
    ElementReader items(children);
    if (!status.failed() && pNegContext->NegStateFromPeer == NEG_STATE_COMPLETED)
        status = read_selected_mechanism(items, *pNegContext);
    if (status.failed())
        return report(pMinorStatus, status);
    if (pNegContext->IsPolicyApplied != 0)
        return succeed(pMinorStatus);
    items.optional(token::resp::kIsPolicyApplied, pNegContext->IsPolicyApplied);
    if (!items.ok())
        return report(pMinorStatus, items.failure());
    if (pNegContext->IsPolicyApplied != 0)
        log_event("QXNEGO_INT_DecodeNegTokenResp: Mechanism Policy has been applied at the Server", nullptr,
                  *pNegContext);
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_DecodeNegMechList(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                       NegContext_t pNegContext) {
    gsspasn_decoding_t mechanisms = nullptr;
    OM_uint32 count = 0;
    Status status = require_handle_and_context(pDecodeHandle, pNegContext);
    if (!status.failed())
        status = enter(pDecodeHandle, token::kMechanisms, QXNEGO_E_EMPTY_LIST, mechanisms, count);
    if (status.failed())
        return report(pMinorStatus, status);
    for (OM_uint32 i = 0; i < count; ++i)
        if (const OM_uint32 major = QXNEGO_INT_DecodeNegMech(pMinorStatus, mechanisms, pNegContext); failed(major))
            return major;
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_DecodeNegMech(OM_uint32 *pMinorStatus, gsspasn_decoding_t pDecodeHandle,
                                   NegContext_t pNegContext) {
    gsspasn_decoding_t children = nullptr;
    OM_uint32 count = 0;
    Status status = require_handle_and_context(pDecodeHandle, pNegContext);
    if (!status.failed())
        status = enter(pDecodeHandle, token::kMechanism, QXNEGO_E_BAD_NEG_MECH, children, count);
    if (status.failed())
        return report(pMinorStatus, status);

    PeerEntry entry;
    ElementReader items(children);
    qxgss_OID_desc oid = items.required_oid(token::mech::kOid);
    entry.pMechOid = &oid;
    items.required(token::mech::kState, entry.MechState);
    items.optional(token::mech::kReason, entry.MechReason);
    if (entry.MechReason == NEG_MECH_REASON_GSSAPI_ERROR) {
        items.required(token::mech::kMajorStatus, entry.GssMajorStatus);
        items.required(token::mech::kMinorStatus, entry.GssMinorStatus);
        items.required(token::mech::kStatusText, entry.GssMinorStatusText);
    }
    items.optional(token::mech::kInnerToken, entry.InputToken);
    items.optional(token::mech::kSsoAuthenticationId, entry.SsoAuthenticationIdBuf);
    if (!items.ok())
        return report(pMinorStatus, items.failure());

    status = ask(QXNEGO_INT_ProcessNegMech, &entry, pNegContext);
    return status.failed() ? report(pMinorStatus, GSS_S_FAILURE, status.minor) : succeed(pMinorStatus);
}
