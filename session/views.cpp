#include "session/views.h"

#include <algorithm>
#include <span>

#include "common/asn.h"
#include "gssp2qxnego/token_format.h"
#include "session/failure.h"

namespace session {

namespace {

namespace token = qxnego::token;

// ---- On their way --------------------------------------------------------------------------------------------------

void check(OM_uint32 status, qxgss_session_failure_et kind, const char *line) {
    if (status != GSSPASN_E_SUCCESS)
        throw Failure(status == GSSPASN_E_NO_MEMORY ? QXGSS_SESSION_FAILURE_RESOURCES : kind, line, GSS_S_FAILURE,
                      status);
}

void write(common::Encoding &writer, const MechanismView &mechanism) {
    const qxgss_buffer_desc oid = common::view(mechanism.oid);
    const qxgss_OID_desc oid_desc = {static_cast<OM_uint32>(oid.length), oid.value};
    const qxgss_buffer_desc text = common::view(std::string_view(mechanism.view.status_text).substr(0, kMaxStatusText));
    writer.start(token::kMechanism);
    writer.put(token::mech::kOid, &oid_desc);
    writer.put(token::mech::kState, &mechanism.view.state);
    writer.put(token::mech::kReason, &mechanism.view.reason);
    writer.put(token::mech::kMajorStatus, &mechanism.view.major);
    writer.put(token::mech::kMinorStatus, &mechanism.view.minor);
    writer.put(token::mech::kStatusText, &text);
    writer.stop(token::kMechanism);
}

class Reader {
  public:
    explicit Reader(std::string_view bytes) : decoding_(bytes) {
        run(decoding_.status());
        run(gsspasn_get_top_decode_sequence(decoding_.get(), token::kMechanisms.tag, &list_, &count_));
    }

    OM_uint32 count() const { return count_; }

    MechanismView read() {
        gsspasn_decoding_t mechanism = nullptr;
        OM_uint32 children = 0;
        run(gsspasn_get_decode_sequence(list_, token::kMechanism.tag, &mechanism, &children));
        MechanismView out{octets(mechanism, token::mech::kOid), -1, {}};
        get(mechanism, token::mech::kState, &out.view.state);
        get(mechanism, token::mech::kReason, &out.view.reason);
        get(mechanism, token::mech::kMajorStatus, &out.view.major);
        get(mechanism, token::mech::kMinorStatus, &out.view.minor);
        out.view.status_text = octets(mechanism, token::mech::kStatusText).substr(0, kMaxStatusText);
        return out;
    }

  private:
    static void run(OM_uint32 status) {
        check(status, QXGSS_SESSION_FAILURE_PROTOCOL, "the peer's verdicts cannot be read");
    }
    static void get(gsspasn_decoding_t handle, const token::Element &element, void *value) {
        run(gsspasn_get_decode_item(handle, element.tag, element.type, value));
    }
    static std::string octets(gsspasn_decoding_t handle, const token::Element &element) {
        qxgss_buffer_desc contents{};
        run(gsspasn_get_decode_contents(handle, element.tag, &contents));
        return std::string(common::bytes_of(&contents));
    }

    common::Decoding decoding_;
    gsspasn_decoding_t list_ = nullptr;
    OM_uint32 count_ = 0;
};

// ---- Verdicts ------------------------------------------------------------------------------------------------------

const View kUnknown;

const View &find(const Views &views, const std::string &oid) {
    const auto found = std::ranges::find(views, oid, &MechanismView::oid);
    return found == views.end() ? kUnknown : found->view;
}

using PublicView = qxgss_session_view_desc;

bool is_rejected(const PublicView &view) {
    return view.State == QXGSS_MECH_STATE_REJECTED;
}

// Whether the reason is that a side does not have the mechanism: whatever else happened to it follows from that.
bool is_lacking(const PublicView &view) {
    return is_rejected(view) && (view.Reason == QXGSS_MECH_REASON_NOT_AVAIL_AT_CLIENT ||
                                 view.Reason == QXGSS_MECH_REASON_NOT_AVAIL_AT_SERVER);
}

// The side that lacks the mechanism, or else that rejected it of its own: of two, the server.
bool client_decides(const PublicView &client, const PublicView &server) {
    if (is_lacking(client) != is_lacking(server))
        return is_lacking(client);
    return server.State == 0 || server.IsAdopted != 0 || (is_rejected(client) && !is_rejected(server));
}

qxgss_session_verdict_et verdict_of(const PublicView &client, const PublicView &server) {
    if (is_rejected(client) || is_rejected(server))
        return QXGSS_SESSION_VERDICT_REJECTED;
    const bool by_both = client.State == QXGSS_MECH_STATE_SELECTED && server.State == QXGSS_MECH_STATE_SELECTED;
    return by_both ? QXGSS_SESSION_VERDICT_SELECTED : QXGSS_SESSION_VERDICT_UNDECIDED;
}

} // namespace

std::string encode_views(const Views &views) {
    common::Encoding writer;
    writer.start(token::kMechanisms);
    for (const MechanismView &mechanism : std::span(views).first(std::min(views.size(), kMaxViews)))
        write(writer, mechanism);
    writer.stop(token::kMechanisms);
    common::Buffer out;
    check(writer.close_into(out), QXGSS_SESSION_FAILURE_RESOURCES, "the verdicts cannot be written");
    return std::string(out.bytes());
}

Views decode_views(std::string_view bytes) {
    Reader reader(bytes);
    Views views;
    for (OM_uint32 i = 0; i != reader.count() && i != kMaxViews; ++i)
        views.push_back(reader.read());
    return views;
}

qxgss_session_view_desc described(const View &view) {
    return {view.state, view.reason, view.major, view.minor, common::view(view.status_text), view.is_adopted ? 1 : 0};
}

std::vector<Verdict> join(const Views &own, const Views &other, bool own_is_client) {
    std::vector<Verdict> verdicts;
    const auto add = [&](const std::string &oid, OM_sint32 index, const View &here, const View &there) {
        verdicts.push_back({oid, index, own_is_client ? here : there, own_is_client ? there : here});
    };
    for (const MechanismView &mechanism : own)
        add(mechanism.oid, mechanism.index, mechanism.view, find(other, mechanism.oid));
    for (const MechanismView &mechanism : other)
        if (find(own, mechanism.oid).state == 0)
            add(mechanism.oid, -1, kUnknown, mechanism.view);
    return verdicts;
}

} // namespace session

void qxgss_session_judge(qxgss_session_verdict_desc *pVerdict) {
    if (pVerdict == nullptr)
        return;
    const bool by_client = session::client_decides(pVerdict->Client, pVerdict->Server);
    const qxgss_session_view_desc &decisive = by_client ? pVerdict->Client : pVerdict->Server;
    const qxgss_session_view_desc &other = by_client ? pVerdict->Server : pVerdict->Client;
    pVerdict->Verdict = session::verdict_of(pVerdict->Client, pVerdict->Server);
    pVerdict->Reason = decisive.Reason;
    pVerdict->StatusText = decisive.StatusText.length != 0 ? decisive.StatusText : other.StatusText;
}
