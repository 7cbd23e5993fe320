// The two ends of an exchange with one mechanism, through its function table: the contract that every mechanism keeps.
#ifndef QXNEGO_PEER_H
#define QXNEGO_PEER_H

#include <functional>
#include <set>
#include <string>
#include <utility>

#include "common/owned.h"
#include "testkit/ber.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace support {

using Table = qxgss_ftn_table_desc;

// Configures anew; the message. Only a setting leads to the keys of Kerberos.
inline std::string configured(const std::string &text, OM_uint32 role = QXGSS_SERVER) {
    setenv("KRB5_KTNAME", (testkit::kRealm + "/none.keytab").c_str(), 1);
    qxgss_shutdown(nullptr);
    const Folder folder;
    qxgss_buffer_desc message{};
    EXPECT_EQ(qxgss_configure(nullptr, role, folder.file("qxgss.conf", text).c_str(), &message), GSS_S_COMPLETE);
    return taken(message);
}

inline const std::string kNegotiator = "\x2b\x06\x01\x05\x05\x02",
                         kNtlmOctets = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a", kMessage{"mes\0sage", 8};

// RFC 2743 3.1
inline std::string framed(const std::string &oid, const std::string &token) {
    return testkit::tlv(0x60, testkit::tlv(6, oid) + token);
}

// The records of a user, as `described` has them: each has 7 octets about it.
inline std::string records_of(const std::string &user, const testkit::RealMechanism &of) {
    const auto record = [](int id, const std::string &data) {
        return std::to_string(id) + ":" + std::to_string((7 + data.size() + 3) / 4 * 4) + "[" + data + "]";
    };
    return record(9, user) + " 8:16(2 0 1 0) " + record(15, of.name) + " " + record(16, of.oid) + " " +
           record(17, bytes_of(*registered(of.name).pMechOid));
}

inline void release_text(OM_uint32 *, char **ppText) {
    std::free(*ppText);
}
// What a call hands out.
struct Outputs {
    bool any() const {
        return buffer.bytes().data() != nullptr || !(source == nullptr) || !(target == nullptr) || !(oids == nullptr) ||
               !(user == nullptr) || !(domain == nullptr);
    }
    std::string text() const { return std::string(buffer.bytes()); }

    common::Buffer buffer;
    common::Name source, target;
    common::OidSet oids;
    common::Owned<char *, release_text> user, domain;
};

// One end; what it holds goes with it. Each call gives its statuses, and keeps them with all that it handed out.
struct Peer {
    explicit Peer(const MechInfo_t &used, const std::string &logon = "") : info(used) {
        EXPECT_TRUE(logon.empty() || acquire(logon).starts_with("0000")) << logon << ": " << text();
    }
    explicit Peer(const std::string &mechanism, const std::string &logon = "") : Peer(registered(mechanism), logon) {}
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() {
        forget();
        EXPECT_EQ(table.ftn_gssp_release_cred(nullptr, &credential), GSS_S_COMPLETE);
        EXPECT_EQ(table.ftn_gssp_release_cred(nullptr, &delegated), GSS_S_COMPLETE);
    }

    // The statuses of a call, "" when the mechanism does not have it. A failure hands nothing out.
    template <typename... Parameters>
    std::string call(const Outputs &out, OM_uint32 (*Table::*slot)(OM_uint32 *, Parameters...),
                     std::type_identity_t<Parameters>... arguments) const {
        if (table.*slot == nullptr)
            return "";
        const std::string answer = outcome(table.*slot, arguments...);
        if (!answer.starts_with("0000")) {
            EXPECT_FALSE(out.any()) << answer;
            on_failure(*this, answer);
        }
        return answer;
    }

    // No name for an empty text.
    std::string acquire(const std::string &logon, qxgss_cred_usage_t usage = GSS_C_INITIATE,
                        qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) {
        Outputs out;
        qxgss_OID_set_desc mechs = {1, info.pMechOid};
        const common::Name name(imported(logon, type));
        said = call(out, &Table::ftn_gssp_acquire_cred, name.get(), GSS_C_INDEFINITE, &mechs, usage, &credential,
                    out.oids.out(), &lifetime);
        EXPECT_TRUE((credential == nullptr) == failed() && (lifetime == 0) == failed());
        return said;
    }
    std::string init(const std::string &input) {
        qxgss_buffer_desc in = view(input), out{};
        said = call({}, &Table::ftn_gssp_init_sec_context, credential, &context, target.get(), info.pMechOid, request,
                    0U, bindings, &in, &actual, &out, &flags, &lifetime);
        token = taken(out);
        return said;
    }
    std::string accept(const std::string &input) {
        Outputs peer;
        qxgss_buffer_desc in = view(input), out{};
        said = call(peer, &Table::ftn_gssp_accept_sec_context, &context, credential, &in, bindings, peer.source.out(),
                    &actual, &out, &flags, &lifetime, &delegated);
        token = taken(out);
        source = text_of(peer.source.get());
        return said;
    }
    // Deletes the context, for another exchange.
    void forget() {
        const OM_uint32 deleted =
            context == nullptr ? 0 : table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr);
        EXPECT_TRUE(deleted == GSS_S_COMPLETE && context == nullptr);
        said.clear();
    }

    // Of kind 0 a message as it is, of kind 1 a sealed one, of kind 2 a message's MIC.
    std::string protect(int kind, const std::string &message) {
        Outputs out;
        qxgss_buffer_desc in = view(message);
        said = kind == 2 ? call(out, &Table::ftn_gssp_get_mic, context, 0U, &in, out.buffer.out())
                         : call(out, &Table::ftn_gssp_wrap, context, kind, 0U, &in, &sealed, out.buffer.out());
        return out.text();
    }
    // The message; "" after a failure.
    std::string unprotect(int kind, const std::string &sent, const std::string &message) {
        Outputs out;
        const std::string before = sent; // which is the caller's
        qxgss_buffer_desc in = view(message), mac = view(sent);
        qxgss_qop_t qop = 9;
        sealed = 9;
        said = kind == 2 ? call(out, &Table::ftn_gssp_verify_mic, context, &in, &mac, &qop)
                         : call(out, &Table::ftn_gssp_unwrap, context, &mac, out.buffer.out(), &sealed, &qop);
        EXPECT_TRUE(said.empty() || (qop == 0 && (kind == 2 || !failed() || sealed == 0)));
        EXPECT_EQ(sent, before);
        return failed() ? "" : kind == 2 ? message : out.text();
    }

    bool failed() const { return said.compare(0, 4, "0000") != 0; }
    bool complete() const { return said.compare(0, 8, "00000000") == 0; }
    std::string display(const std::string &of, Outputs &out) const {
        OM_uint32 more = 0;
        const auto minor = static_cast<OM_uint32>(std::stoul("0" + of.substr(of.find('/') + 1), nullptr, 16));
        return outcome(table.ftn_gssp_display_status, minor, GSS_C_MECH_CODE, info.pMechOid, &more, out.buffer.out());
    }
    std::string text(const std::string &of) const {
        Outputs out;
        display(of, out);
        return out.text();
    }
    std::string text() const { return text(said); }
    static void expect_text(const Peer &peer, const std::string &of) { EXPECT_NE(peer.text(of), "") << of; }

    // Whose credential it is.
    std::string owner(OM_uint32 *pLeft = nullptr) const {
        Outputs out;
        qxgss_cred_usage_t usage = -1;
        const std::string answer =
            call(out, &Table::ftn_gssp_inquire_cred, credential, out.source.out(), pLeft, &usage, out.oids.out());
        EXPECT_TRUE(out.oids == nullptr || credential == nullptr || out.oids->count == 1);
        EXPECT_TRUE(usage != -1 || !answer.starts_with("0000"));
        return text_of(out.source.get());
    }
    // "source>target", whether this end has begun, whether the context is open, whether it lasts.
    std::string inquired() const {
        Outputs out;
        int initiated = -1, open = -1;
        OM_uint32 left = 0, all = 0;
        qxgss_OID oid = nullptr;
        const std::string answer = call(out, &Table::ftn_gssp_inquire_context, context, out.source.out(),
                                        out.target.out(), &left, &oid, &all, &initiated, &open);
        if (!answer.starts_with("0000"))
            return answer;
        EXPECT_EQ(bytes_of(*oid), bytes_of(*info.pMechOid));
        EXPECT_TRUE(failed() || ((all ^ flags) & kProtection) == 0);
        return text_of(out.source.get()) + ">" + text_of(out.target.get()) + " " + std::to_string(initiated) + " " +
               std::to_string(open) + " " + std::to_string(left > 3600);
    }
    // That, and every name that is told of the user: "user,domain" and the records.
    std::string asked() const {
        Outputs who, records;
        call(who, &Table::ftn_gssp_get_client_domain_username, context, who.user.out(), who.domain.out());
        call(records, &Table::ftn_gssp_inquire_properties_for_user, context, records.buffer.out());
        const auto shown = [](const char *text) { return std::string(text == nullptr ? "-" : text); };
        return inquired() + " " + shown(who.user.get()) + "," + shown(who.domain.get()) + " " +
               described(records.text());
    }
    // What the operations say that need an established context.
    std::set<std::string> refusals() const {
        Outputs out;
        OM_uint32 size = 0;
        qxgss_buffer_desc in = view(kMessage);
        return {call(out, &Table::ftn_gssp_wrap_size_limit, context, 1, 0U, 100U, &size),
                call(out, &Table::ftn_gssp_wrap, context, 1, 0U, &in, nullptr, out.buffer.out()),
                call(out, &Table::ftn_gssp_unwrap, context, &in, out.buffer.out(), nullptr, nullptr),
                call(out, &Table::ftn_gssp_get_mic, context, 0U, &in, out.buffer.out()),
                call(out, &Table::ftn_gssp_verify_mic, context, &in, &in, nullptr),
                call(out, &Table::ftn_gssp_get_client_domain_username, context, out.user.out(), out.domain.out()),
                call(out, &Table::ftn_gssp_inquire_properties_for_user, context, out.buffer.out())};
    }

    static constexpr OM_uint32 kProtection = GSS_C_MUTUAL_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;
    static inline void (*on_failure)(const Peer &, const std::string &said) = expect_text;

    const MechInfo_t &info;
    const Table &table = info.MechFtnTable;
    common::Name target{imported("host@localhost", GSS_C_NT_HOSTBASED_SERVICE)};
    OM_uint32 request = kProtection | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG;
    qxgss_channel_bindings_t bindings = nullptr;
    qxgss_cred_id_t credential = nullptr, delegated = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_OID actual = nullptr;
    OM_uint32 flags = 0, lifetime = 0;
    int sealed = 0; // the last message
    std::string said, token, source;
};

// A client with its user's password and a server with its default credential.
struct Pair {
    explicit Pair(const testkit::RealMechanism &of) : client(of.name, of.logon), server(of.name) {
        EXPECT_TRUE(server.acquire("", GSS_C_ACCEPT).starts_with("0000")) << server.text();
    }
    Peer client, server;
};

// What is done to a token between the ends, by its number.
using Between = std::function<void(std::size_t, std::string &)>;

// An exchange from its beginning, until an end fails or has nothing to send; that end.
inline Peer *exchange(Peer &client, Peer &server, const Between &between = {}) {
    client.forget();
    server.forget();
    std::string token;
    for (std::size_t number = 1;; ++number) {
        Peer &peer = number % 2 == 1 ? client : server;
        number % 2 == 1 ? client.init(token) : server.accept(token);
        token = peer.token;
        if (peer.failed() || token.empty() || number == 9)
            return &peer;
        if (between)
            between(number, token);
    }
}

inline bool established(Peer &client, Peer &server) {
    exchange(client, server);
    return client.complete() && server.complete();
}

} // namespace support

#endif
