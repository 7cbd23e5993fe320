// The two ends of an exchange with one mechanism, through its function table, and what someone in between can do.
#ifndef QXNEGO_PEER_H
#define QXNEGO_PEER_H

#include <algorithm>
#include <functional>
#include <string>

#include "tests/support.h"

namespace support {

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

// What is done to a token between the ends, by its number.
using Between = std::function<void(std::size_t, std::string &)>;

// An exchange from its beginning, until an end fails or has nothing to send; that end.
inline Peer &exchange(
    Peer &client, Peer &server, Between between = [](std::size_t, std::string &) {}) {
    client.forget();
    server.forget();
    std::string token;
    for (std::size_t number = 1;; ++number) {
        Peer &peer = number % 2 == 1 ? client : server;
        number % 2 == 1 ? client.init(token) : server.accept(token);
        token = peer.token;
        if (peer.failed() || token.empty() || number == 9)
            return peer;
        between(number, token);
    }
}

inline bool established(Peer &client, Peer &server) {
    exchange(client, server);
    return client.complete() && server.complete();
}

// Exchanges in which one token ends before one of its bytes, or has all its bits changed there, or one of the values;
// the number of tokens. `check` is told whether the token was cut, which end came to read it, and at which the exchange
// ended.
template <typename Check>
std::size_t spoil_every_byte(Peer &client, Peer &server, const std::string &values, const Check &check) {
    for (std::size_t spoilt = 1;; ++spoilt) {
        std::size_t size = 0;
        const auto measure = [&](std::size_t number, const std::string &token) {
            size = number == spoilt ? token.size() : size;
        };
        exchange(client, server, measure);
        if (size == 0)
            return spoilt - 1;
        const Peer &reader = spoilt % 2 == 1 ? server : client;
        for (std::size_t at = 0; at < size; ++at)
            for (std::size_t way = 0; way <= 1 + values.size(); ++way) {
                SCOPED_TRACE("token " + std::to_string(spoilt) + ", byte " + std::to_string(at) + ", way " +
                             std::to_string(way));
                const Peer &last = exchange(client, server, [&](std::size_t number, std::string &token) {
                    const std::size_t place = std::min(at, token.size() - 1); // lengths differ between exchanges
                    if (number == spoilt && way == 0)
                        token.resize(place);
                    else if (number == spoilt)
                        token[place] = way == 1 ? static_cast<char>(~token[place]) : values[way - 2];
                });
                EXPECT_TRUE(way != 0 || at != 0 || (last.failed() && &last == &reader));
                check(way == 0, reader, last);
            }
    }
}

// Null for every pointer, zero for every number: 'r' when that is refused, '0' when there is no such operation.
template <typename... Arguments> char refuses_nothing(OM_uint32 (*operation)(Arguments...)) {
    return operation == nullptr ? '0' : GSS_ERROR(operation(Arguments{}...)) != 0 ? 'r' : '-';
}

// Of every operation, in the order of the function table's families.
inline std::string refusals(const qxgss_ftn_table_desc &table) {
    const auto all = [](auto... operations) { return std::string{refuses_nothing(operations)...}; };
    return all(table.ftn_gssp_configure, table.ftn_gssp_indicate_mechs, table.ftn_gssp_inquire_names_for_mech,
               table.ftn_gssp_acquire_cred, table.ftn_gssp_release_cred, table.ftn_gssp_inquire_cred,
               table.ftn_gssp_init_sec_context, table.ftn_gssp_accept_sec_context, table.ftn_gssp_delete_sec_context,
               table.ftn_gssp_inquire_context, table.ftn_gssp_wrap_size_limit, table.ftn_gssp_wrap,
               table.ftn_gssp_unwrap, table.ftn_gssp_get_mic, table.ftn_gssp_verify_mic,
               table.ftn_gssp_get_client_domain_username, table.ftn_gssp_inquire_properties_for_user,
               table.ftn_gssp_display_status, table.ftn_gssp_qop_string_to_int, table.ftn_gssp_release_name);
}

} // namespace support

#endif
