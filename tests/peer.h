// The two ends of an exchange with one mechanism, through its function table, and what someone in between can do: the
// contract that every mechanism keeps.
#ifndef QXNEGO_PEER_H
#define QXNEGO_PEER_H

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "qxgss/operations.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace support {

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
                         kNtlmOctets = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a";

// RFC 2743 3.1
inline std::string framed(const std::string &oid, const std::string &token) {
    const std::size_t size = 2 + oid.size() + token.size();
    return "\x60\x82" + std::string{static_cast<char>(size >> 8), static_cast<char>(size)} + '\x06' +
           static_cast<char>(oid.size()) + oid + token;
}

// One end; what it holds goes with it. Each call gives its statuses, and keeps them with all that it handed out.
struct Peer {
    explicit Peer(const MechInfo_t &used, const std::string &logon = "") : info(used) {
        if (logon.empty())
            return;
        acquire(logon);
        EXPECT_FALSE(failed()) << logon << ": " << text();
    }
    explicit Peer(const std::string &mechanism, const std::string &logon = "") : Peer(registered(mechanism), logon) {}
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() {
        forget();
        EXPECT_EQ(table.ftn_gssp_release_cred(nullptr, &credential), GSS_S_COMPLETE);
        EXPECT_EQ(table.ftn_gssp_release_cred(nullptr, &delegated), GSS_S_COMPLETE);
        gssp_release_name(nullptr, &target);
    }

    // No name for an empty logon string.
    std::string acquire(const std::string &logon, qxgss_cred_usage_t usage = GSS_C_INITIATE) {
        qxgss_OID_set_desc mechs = {1, info.pMechOid};
        qxgss_name_t name = imported(logon);
        said = outcome(table.ftn_gssp_acquire_cred, name, GSS_C_INDEFINITE, &mechs, usage, &credential, nullptr,
                       &lifetime);
        gssp_release_name(nullptr, &name);
        return said;
    }
    std::string init(const std::string &input) {
        qxgss_buffer_desc in = view(input), out{};
        said = outcome(table.ftn_gssp_init_sec_context, credential, &context, target, info.pMechOid, request, 0U,
                       bindings, &in, &actual, &out, &flags, &lifetime);
        token = taken(out);
        return said;
    }
    std::string accept(const std::string &input) {
        qxgss_buffer_desc in = view(input), out{};
        qxgss_name_t name = nullptr;
        said = outcome(table.ftn_gssp_accept_sec_context, &context, credential, &in, bindings, &name, &actual, &out,
                       &flags, &lifetime, &delegated);
        token = taken(out);
        source = taken(name);
        return said;
    }
    // Deletes the context, for another exchange.
    void forget() {
        const OM_uint32 deleted =
            context == nullptr ? 0 : table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr);
        EXPECT_TRUE(deleted == GSS_S_COMPLETE && context == nullptr);
        said.clear();
    }

    bool failed() const { return said.compare(0, 4, "0000") != 0; }
    bool complete() const { return said.compare(0, 8, "00000000") == 0; }
    std::string text() const {
        qxgss_buffer_desc out{};
        OM_uint32 more = 0;
        const auto minor = static_cast<OM_uint32>(std::stoul("0" + said.substr(said.find('/') + 1), nullptr, 16));
        table.ftn_gssp_display_status(nullptr, minor, GSS_C_MECH_CODE, info.pMechOid, &more, &out);
        return taken(out);
    }
    // "source>target", whether this end has begun, whether the context is open, whether it lasts.
    std::string inquired() {
        qxgss_name_t from = nullptr, to = nullptr;
        int initiated = -1, open = -1;
        OM_uint32 left = 0, all = 0;
        qxgss_OID oid = nullptr;
        EXPECT_EQ(table.ftn_gssp_inquire_context(nullptr, context, &from, &to, &left, &oid, &all, &initiated, &open),
                  GSS_S_COMPLETE);
        EXPECT_EQ(bytes_of(*oid), bytes_of(*info.pMechOid));
        EXPECT_EQ(all & kProtection, flags & kProtection);
        const std::string names = taken(from) + ">" + taken(to);
        return names + " " + std::to_string(initiated) + " " + std::to_string(open) + " " + std::to_string(left > 3600);
    }

    // Every name that is told of the peer of this end; they must be one.
    std::string named() {
        const std::string inquired_name = inquired();
        EXPECT_EQ(inquired_name.substr(0, inquired_name.find('>')), source);
        qxgss_buffer_desc out{};
        EXPECT_EQ(table.ftn_gssp_inquire_properties_for_user(nullptr, context, &out), GSS_S_COMPLETE);
        EXPECT_NE(described(taken(out)).find("[" + source + "]"), std::string::npos);
        char *user = nullptr, *domain = nullptr;
        if (table.ftn_gssp_get_client_domain_username != nullptr) {
            EXPECT_EQ(table.ftn_gssp_get_client_domain_username(nullptr, context, &user, &domain), GSS_S_COMPLETE);
        }
        if (user != nullptr && domain != nullptr) {
            const bool windows = source.find('\\') != std::string::npos;
            EXPECT_EQ(windows ? std::string(domain) + "\\" + user : std::string(user) + "@" + domain, source);
        }
        std::free(user);
        std::free(domain);
        return source;
    }
    // What every operation that needs an established context says, and hands out, of the one that there is.
    void expect_no_context(const std::string &state) const {
        qxgss_buffer_desc in = view(state), out{};
        char *user = nullptr, *domain = nullptr;
        OM_uint32 size = 0;
        const auto refused = [&](auto *operation, auto... arguments) {
            if (operation != nullptr) {
                EXPECT_EQ(outcome(operation, context, arguments...).substr(0, 8), "00080000") << state;
            }
        };
        refused(table.ftn_gssp_wrap_size_limit, 1, 0U, 100U, &size);
        refused(table.ftn_gssp_wrap, 1, 0U, &in, nullptr, &out);
        refused(table.ftn_gssp_unwrap, &in, &out, nullptr, nullptr);
        refused(table.ftn_gssp_get_mic, 0U, &in, &out);
        refused(table.ftn_gssp_verify_mic, &in, &in, nullptr);
        refused(table.ftn_gssp_get_client_domain_username, &user, &domain);
        refused(table.ftn_gssp_inquire_properties_for_user, &out);
        EXPECT_TRUE(out.value == nullptr && user == nullptr && domain == nullptr && size == 0) << state;
        if (context != nullptr)
            return;
        qxgss_ctx_id_t none = nullptr;
        EXPECT_EQ(outcome(table.ftn_gssp_delete_sec_context, &none, nullptr).substr(0, 8), "00080000");
        refused(table.ftn_gssp_inquire_context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    }

    static constexpr OM_uint32 kProtection = GSS_C_MUTUAL_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;

    const MechInfo_t &info;
    const qxgss_ftn_table_desc &table = info.MechFtnTable;
    qxgss_name_t target = imported("host@localhost", GSS_C_NT_HOSTBASED_SERVICE);
    OM_uint32 request = kProtection | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG;
    qxgss_channel_bindings_t bindings = nullptr;
    qxgss_cred_id_t credential = nullptr, delegated = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_OID actual = nullptr;
    OM_uint32 flags = 0, lifetime = 0;
    std::string said, token, source;
};

// A client with its user's password and a server with its default credential.
struct Pair {
    explicit Pair(const testkit::RealMechanism &of) : client(of.name, of.logon), server(of.name) {
        server.acquire("", GSS_C_ACCEPT);
        EXPECT_FALSE(server.failed()) << server.text();
    }
    Peer client, server;
};

// What is done to a token between the ends, by its number.
using Between = std::function<void(std::size_t, std::string &)>;

// An exchange from its beginning, until an end fails or has nothing to send; that end.
inline Peer *exchange(
    Peer &client, Peer &server, Between between = [](std::size_t, std::string &) {}) {
    client.forget();
    server.forget();
    std::string token;
    for (std::size_t number = 1;; ++number) {
        Peer &peer = number % 2 == 1 ? client : server;
        number % 2 == 1 ? client.init(token) : server.accept(token);
        token = peer.token;
        if (peer.failed() || token.empty() || number == 9)
            return &peer;
        between(number, token);
    }
}

inline bool established(Peer &client, Peer &server) {
    exchange(client, server);
    return client.complete() && server.complete();
}

// Whether sweeps are to leave nothing out, however long that takes: QXNEGO_SWEEP=full.
inline bool in_full() {
    const char *how = std::getenv("QXNEGO_SWEEP");
    return how != nullptr && std::string(how) == "full";
}

// What is done to a token: it ends before each of its bytes in turn (`cut`), or has its bits changed there (all of
// them; in full, each one, too), or other values; it goes on behind its end; or it is another one.
struct Change {
    bool cut;
    std::function<void(std::string &)> make;
};
inline std::vector<Change> changes(std::size_t size, const std::vector<std::string> &others) {
    std::vector<Change> all;
    for (std::size_t at = 0; at < size; ++at) { // lengths differ between exchanges
        const auto place = [at](const std::string &token) { return std::min(at, token.size() - 1); };
        all.push_back({true, [=](std::string &token) { token.resize(place(token)); }});
        for (const char value : {'\0', '!'})
            all.push_back({false, [=](std::string &token) { token[place(token)] = value; }});
        for (int mask = 0xFF; mask != 0; mask = mask == 0xFF ? (in_full() ? 0x80 : 0) : mask >> 1)
            all.push_back({false, [=](std::string &token) {
                               char &byte = token[place(token)];
                               byte = static_cast<char>(byte ^ mask);
                           }});
    }
    for (const std::size_t more : {1, 1000})
        all.push_back({false, [=](std::string &token) { token.append(more, '\0'); }});
    for (const std::string &other : others)
        all.push_back({false, [=](std::string &token) { token = other; }});
    return all;
}

// An exchange in which a token was changed: what it was, which end came to read it, and at which the exchange ended.
struct Spoilt {
    bool cut;
    std::string whole, sent;
    const Peer &reader, &last;
};

// Exchanges in which one token is changed in every way; the number of tokens. `check` is told of each.
template <typename Check>
std::size_t spoil_every_token(Peer &client, Peer &server, const std::vector<std::string> &others, const Check &check) {
    for (std::size_t spoilt = 1, tried = 0;; ++spoilt) {
        std::size_t size = 0;
        exchange(client, server,
                 [&](std::size_t number, const std::string &token) { size = number == spoilt ? token.size() : size; });
        if (size == 0) {
            std::printf("%zu exchanges with a spoilt token\n", tried);
            return spoilt - 1;
        }
        const Peer &reader = spoilt % 2 == 1 ? server : client;
        for (const Change &change : changes(size, others)) {
            SCOPED_TRACE("token " + std::to_string(spoilt) + ", exchange " + std::to_string(++tried));
            std::string whole, sent;
            const Peer &last = *exchange(client, server, [&](std::size_t number, std::string &token) {
                if (number == spoilt)
                    whole = token, change.make(token), sent = token;
            });
            EXPECT_TRUE(!sent.empty() || (last.failed() && &last == &reader));
            check(Spoilt{change.cut, whole, sent, reader, last});
        }
    }
}

// Messages and MICs that are changed in every way, in both directions, on a context of their own each: refused, and
// nothing is handed out.
inline void spoil_every_message(Peer &client, Peer &server) {
    std::size_t tried = 0;
    for (const auto &[from, to] : {std::pair{&client, &server}, {&server, &client}})
        for (const int kind : {0, 1, 2}) { // a message as it is, a sealed one, a MIC
            const auto token = [&, from = from] {
                const std::string message = "message";
                qxgss_buffer_desc in = view(message), out{};
                EXPECT_TRUE(established(client, server));
                const auto &table = from->table;
                EXPECT_EQ(kind == 2 ? table.ftn_gssp_get_mic(nullptr, from->context, 0, &in, &out)
                                    : table.ftn_gssp_wrap(nullptr, from->context, kind, 0, &in, nullptr, &out),
                          GSS_S_COMPLETE);
                return taken(out);
            };
            const auto read = [&, to = to](const std::string &sent, std::string &message) {
                const std::string before(sent.data(), sent.size());
                qxgss_buffer_desc in = view(message), mac = view(sent), out{};
                int state = 9;
                qxgss_qop_t qop = 9;
                to->said = kind == 2 ? outcome(to->table.ftn_gssp_verify_mic, to->context, &in, &mac, &qop)
                                     : outcome(to->table.ftn_gssp_unwrap, to->context, &mac, &out, &state, &qop);
                EXPECT_TRUE(!to->failed() ||
                            (out.value == nullptr && out.length == 0 && qop == 0 && (kind == 2 || state == 0)));
                message = kind == 2 ? message : taken(out);
                EXPECT_EQ(sent, before); // which is the caller's
            };
            std::string message = "message";
            read(token(), message);
            EXPECT_TRUE(!to->failed() && message == "message");
            for (const Change &change : changes(token().size(), {})) {
                SCOPED_TRACE("kind " + std::to_string(kind) + ", message " + std::to_string(++tried));
                std::string sent = token();
                const std::string whole = sent;
                change.make(sent);
                read(sent, message = "message");
                // Kerberos leaves the count by which a message was rotated unprotected (RFC 4121 4.2.5).
                EXPECT_TRUE(to->failed() ? !to->text().empty() : sent == whole || (kind != 2 && message == "message"));
            }
        }
    std::printf("%zu spoilt messages\n", tried);
}

// Null for every pointer, zero for every number: 'r' when that is refused, '0' when there is no such operation.
template <typename... Arguments> char refuses_nothing(OM_uint32 (*operation)(Arguments...)) {
    return operation == nullptr ? '0' : GSS_ERROR(operation(Arguments{}...)) != 0 ? 'r' : '-';
}

// Of every operation.
inline std::string refusals(const qxgss_ftn_table_desc &table) {
    std::string said;
#define REFUSES(TABLE, operation) said += refuses_nothing(TABLE.ftn_gssp_##operation);
    QXGSS_OPERATIONS(REFUSES, table)
#undef REFUSES
    return said;
}

} // namespace support

#endif
