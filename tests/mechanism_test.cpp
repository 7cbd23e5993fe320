// What every real mechanism keeps, driven through its function table in a realm of its own: who is let in, what someone
// in between can change, what a user is told when something is missing.
#include "tests/peer.h"

namespace {

using namespace std::string_literals;
using namespace support;
using namespace testkit;

// A mechanism, and what is to be seen of it: `over` begins the statuses of a call on a context that is no longer open.
struct Row {
    const RealMechanism &of;
    std::size_t tokens; // an odd number: the client completes before the server does
    std::string said, client, server, half_open, over, refusals;
};
const std::string kHostRefusals = "-rrrrrrrrrrrrrrr00rr0000";  // no ticket, hence no default credential to inquire
const std::string kScramRefusals = "-rrrrrrrrr00000000rr0000"; // no messages, and no domains
const std::string kNoContext = "00080000", kOfKerberos = "alice@QXNEGO.TEST>host/localhost@QXNEGO.TEST ";
// gss-ntlmssp does not say for how long, nor its acceptor as whom.
const std::string kComplete = "00000000/00000000", kNothingMore = "000D0000/00000003";
const std::string kFromScram = "alice>host@localhost 1 1 1", kToScram = "alice>(none) 0 1 1",
                  kHalfOpen = "alice>host@localhost 1 0 1";
const Row kRows[] = {{kKerberos, 2, "00000000/21000064", kOfKerberos + "1 1 1", kOfKerberos + "0 1 1",
                      "(none)>(none) 1 0 0", kNoContext, kHostRefusals},
                     {kNtlm, 3, "00000000/21000064", kNtlm.user + ">host/localhost 1 1 0", kNtlm.user + ">(none) 0 1 0",
                      "(none)>(none) 1 0 0", kNoContext, kHostRefusals},
                     {kScram, 4, kComplete, kFromScram, kToScram, kHalfOpen, kNothingMore, kScramRefusals},
                     {kScram1, 4, kComplete, kFromScram, kToScram, kHalfOpen, kNothingMore, kScramRefusals}};

// Tokens of every mechanism, for another one's context or for the same one's later.
std::vector<std::string> tokens_of_all() {
    std::vector<std::string> tokens;
    for (const char *token :
         {"\x60", "\x60\x84\x7f\xff\xff\xff\x06\x09", "\x6e", "NTLMSSP", "\xa1\x03\x0a\x01\x02", "v=AAAA",
          "n,,n=bob,r=abcdefgh", "r=abcdefgh,s=YWJj,i=4096", "c=biws,r=abc,p=AAAA", "e=other-error"})
        tokens.push_back(token);
    for (const Row &row : kRows) {
        Pair pair(row.of);
        exchange(pair.client, pair.server, [&](std::size_t, const std::string &token) {
            tokens.push_back(token);
            tokens.push_back(framed(kNegotiator, token));
            tokens.push_back(framed(kNtlmOctets, token));
        });
    }
    return tokens;
}

class Mechanism : public testing::TestWithParam<Row> {
  protected:
    static void SetUpTestSuite() { configured(entries_of(kAll)); }
    static void TearDownTestSuite() { qxgss_shutdown(nullptr); }
    const RealMechanism &of = GetParam().of;
    const bool is_ntlm = &of == &kNtlm;
    Pair pair{of};
    Peer &client = pair.client, &server = pair.server;
};
class Host : public Mechanism {};
const auto prefix = [](const auto &row) { return row.param.of.prefix + std::to_string(row.index); };
INSTANTIATE_TEST_SUITE_P(Each, Mechanism, testing::ValuesIn(kRows), prefix);
INSTANTIATE_TEST_SUITE_P(Each, Host, testing::ValuesIn(kRows, kRows + 2), prefix);

// A record of user properties: 7 octets about it, and its data.
std::string record(int id, const std::string &data) {
    return std::to_string(id) + ":" + std::to_string((7 + data.size() + 3) / 4 * 4) + "[" + data + "]";
}

TEST_P(Mechanism, EstablishesAndTellsWhoAndHow) {
    exchange(client, server, [&](std::size_t, const std::string &) {
        if (server.context != nullptr && !server.complete())
            server.expect_no_context("half open");
    });
    ASSERT_TRUE(client.complete() && server.complete()) << client.text() << server.text();
    EXPECT_EQ(client.said, GetParam().said);
    const std::string octets = bytes_of(*server.info.pMechOid);
    constexpr OM_uint32 protection = GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;
    for (Peer *peer : {&client, &server}) {
        EXPECT_EQ(bytes_of(*peer->actual), octets);
        EXPECT_TRUE(of.has_mics ? (peer->flags & protection) == protection : peer->flags == GSS_C_MUTUAL_FLAG);
        EXPECT_TRUE(of.has_mics ? peer->lifetime > 3600 : peer->lifetime == GSS_C_INDEFINITE);
        EXPECT_EQ(peer->delegated, nullptr);
    }
    EXPECT_EQ(client.inquired(), GetParam().client);
    EXPECT_EQ(server.inquired(), GetParam().server);
    EXPECT_EQ(server.named(), of.user);
    qxgss_buffer_desc out{};
    ASSERT_EQ(server.table.ftn_gssp_inquire_properties_for_user(nullptr, server.context, &out), GSS_S_COMPLETE);
    EXPECT_EQ(described(taken(out)), record(9, of.user) + " 8:16(2 0 1 0) " + record(15, of.name) + " " +
                                         record(16, of.oid) + " " + record(17, octets));
}

TEST_P(Mechanism, RefusesEveryPrefixAndAltersNoNameByAnyChange) {
    const auto check = [&](const Spoilt &spoilt) {
        const Peer &last = spoilt.last;
        EXPECT_TRUE(!spoilt.cut || (last.failed() && !last.text().empty()));
        EXPECT_TRUE(!spoilt.cut || !of.has_mics || &last == &spoilt.reader);
        EXPECT_TRUE(!server.complete() || server.source == of.user) << server.source;
        EXPECT_TRUE(!server.failed() || (server.source == "(none)" && (!of.has_mics || server.actual == nullptr)));
        // Of SCRAM every byte counts; but the last digit of base64 before a "=" has bits that mean nothing.
        const bool same = spoilt.sent.size() == spoilt.whole.size() && spoilt.whole.ends_with('=') &&
                          spoilt.whole.compare(0, spoilt.whole.size() - 2, spoilt.sent, 0, spoilt.sent.size() - 2) == 0;
        EXPECT_FALSE(!of.has_mics && client.complete() && server.complete() && !same);
    };
    EXPECT_EQ(spoil_every_token(client, server, tokens_of_all(), check), GetParam().tokens);
}

// Of each call that needs one: none, one that is not established, one that failed, one of the other role, of another
// mechanism, one that is established already.
TEST_P(Mechanism, NeedsAContext) {
    client.expect_no_context("none");
    client.init("");
    client.expect_no_context("half open");
    EXPECT_EQ(client.inquired(), GetParam().half_open);
    EXPECT_EQ(client.accept(client.token).substr(0, 8), kNoContext);
    for (const Row &row : kRows) {
        Peer other(row.of.name);
        if (row.of.library != of.library || &row.of == &of)
            continue;
        std::swap(other.context, client.context);
        EXPECT_EQ(other.init("rubbish").substr(0, 8), of.has_mics ? "00010000" : kNoContext);
        std::swap(other.context, client.context);
    }
    client.init("rubbish");
    EXPECT_TRUE(client.failed());
    client.expect_no_context("failed");
    for (int i = 0; i < 2; ++i) // and stays so
        EXPECT_TRUE(client.init("rubbish").starts_with(GetParam().over)) << client.said;
    ASSERT_TRUE(established(client, server));
    const OM_uint32 flags = server.flags;
    EXPECT_TRUE(server.accept("rubbish").starts_with(GetParam().over)) << server.said;
    server.flags = flags;
    EXPECT_EQ(server.inquired().find(of.user), 0U); // which it has survived
}

// ---- Messages, and what else only the host's mechanisms have --------------------------------------------------------

std::string wrapped(const Peer &from, int confidential, const std::string &message, int expected_state) {
    qxgss_buffer_desc in = view(message), out{};
    int state = -1;
    EXPECT_EQ(from.table.ftn_gssp_wrap(nullptr, from.context, confidential, 0, &in, &state, &out), GSS_S_COMPLETE);
    EXPECT_EQ(state, expected_state);
    return taken(out);
}

TEST_P(Host, ProtectsMessagesBothWays) {
    ASSERT_TRUE(established(client, server));
    for (const auto &[from, to] : {std::pair{&client, &server}, {&server, &client}})
        for (const std::string &message : {"x"s, "a\0b"s, std::string(100000, 'm')})
            for (const int confidential : {1, 0}) {
                const int state = is_ntlm ? 1 : confidential; // NTLM seals all or nothing
                const std::string token = wrapped(*from, confidential, message, state);
                EXPECT_EQ(token.find("mmmmmm") != std::string::npos, state == 0 && message.size() > 5);
                qxgss_buffer_desc in = view(token), out{};
                int opened = -1;
                qxgss_qop_t qop = 99;
                EXPECT_EQ(outcome(to->table.ftn_gssp_unwrap, to->context, &in, &out, &opened, &qop), to->said);
                EXPECT_EQ(taken(out), message);
                EXPECT_TRUE(opened == state && qop == 0);
            }
    OM_uint32 limit = 0;
    ASSERT_EQ(client.table.ftn_gssp_wrap_size_limit(nullptr, client.context, 1, 0, 1000, &limit), GSS_S_COMPLETE);
    EXPECT_GT(limit, 500U);
    EXPECT_LE(wrapped(client, 1, std::string(limit, 'm'), 1).size(), 1000U);

    const std::string message = "message", other = "massage";
    qxgss_buffer_desc in = view(message), changed = view(other), mic{};
    ASSERT_EQ(client.table.ftn_gssp_get_mic(nullptr, client.context, 0, &in, &mic), GSS_S_COMPLETE);
    EXPECT_EQ(server.table.ftn_gssp_verify_mic(nullptr, server.context, &changed, &mic, nullptr), GSS_S_BAD_MIC);
    gssp_release_buffer(nullptr, &mic);
}

TEST_P(Host, RefusesEveryChangedMessage) {
    spoil_every_message(client, server);
}

TEST_P(Host, TakesNamesInEveryForm) {
    const std::string utf16("h\0o\0s\0t\0/\0l\0o\0c\0a\0l\0h\0o\0s\0t\0", 28);
    server.table.ftn_gssp_release_cred(nullptr, &server.credential);
    server.acquire("host/localhost@@unused", GSS_C_ACCEPT); // an acceptor's is a service too
    for (qxgss_name_t name : {imported("host/localhost"), imported(utf16, GSS_C_NT_QXAT_MECHDATA_UTF16)}) {
        gssp_release_name(nullptr, &client.target);
        client.target = name;
        EXPECT_TRUE(established(client, server)) << client.text() << server.text();
    }
    gssp_release_name(nullptr, &client.target);
    client.forget();
    EXPECT_EQ(client.init(""), "00020000/E10000CD");
}

TEST_P(Host, ComparesChannelBindings) {
    const std::string texts[] = {"channel one", "channel two"};
    qxgss_channel_bindings_desc channels[2]{};
    for (const std::size_t i : {0, 1})
        channels[i].application_data = view(texts[i]);
    for (const std::size_t of_server : {0, 1}) {
        client.bindings = &channels[0], server.bindings = &channels[of_server];
        EXPECT_EQ(established(client, server), of_server == 0) << client.text() << server.text();
    }
    // gss-ntlmssp has no status of its own for that
    EXPECT_EQ(server.said.substr(0, 8), is_ntlm ? "00090000" : "00040000");
}

// With a credential or without: only the tokens of a mechanism that is accepted, and of the credential's.
TEST_P(Host, AcceptsOnlyWhatItMay) {
    Peer none(client.info), initiating(client.info, of.logon);
    ASSERT_TRUE(established(client, none)) << none.text();
    EXPECT_EQ(none.source, of.user);
    EXPECT_EQ(exchange(client, initiating), &initiating);
    EXPECT_EQ(initiating.said.substr(0, 8), "00070000");

    Pair other(is_ntlm ? kKerberos : kNtlm);
    other.client.init("");
    client.forget();
    client.init("");
    for (Peer *acceptor : {&none, &server})
        for (const std::string &token : {framed(kNegotiator, client.token), framed(kNegotiator, other.client.token),
                                         framed("\x2a\x03"s, client.token), std::string("rubbish")}) {
            acceptor->forget();
            EXPECT_EQ(acceptor->accept(token).substr(0, 8), "00010000");
            EXPECT_TRUE(acceptor->context == nullptr && acceptor->token.empty() && !acceptor->text().empty());
        }
    server.forget();
    EXPECT_EQ(server.accept(other.client.token).substr(0, 8), "00010000");
    EXPECT_EQ(server.context, nullptr);
}

// The name acquired, or "!" and a piece of the statuses and the text of the failure.
TEST(Logons, GiveTheNameOrTheWholeReason) {
    configured(entries_of(kAll));
    // clang-format off
    const struct {
        const RealMechanism &of;
        std::string logon, outcome;
    } cases[] = {
        {kKerberos, "alice@QXNEGO.TEST@@Alice1", kKerberos.user},
        {kKerberos, "authcid=alice password=wrong", "!: Preauthentication failed"},
        {kKerberos, "authcid=alice realm=OTHER.TEST password=x", "!: Cannot find KDC for realm \"OTHER.TEST\""},
        {kKerberos, "", "!: No Kerberos credentials available (default cache: FILE:"},
        {kKerberos, "user=dbuser", "!: No Kerberos credentials available"},
        {kKerberos, "bob@QXNEGO.TEST", "!: Can't find client principal bob@QXNEGO.TEST in cache collection"},
        {kKerberos, "password=x", "!: The logon string has a password but no identity."},
        {kKerberos, "authcid=alice bogus", "!: The logon string cannot be parsed."},
        {kNtlm, "QXTEST\\alice@@Alice1", kNtlm.user},
        {kNtlm, "", kNtlm.user},
        {kScram, "joe@REALM@@secret", "joe@REALM"},
        {kScram, "authcid='a,b=c' password=x", "a,b=c"},
        {kScram, "", "!00070000/00000107"},
        {kScram, "password=wonderland", "!00070000/00000107"},
        {kScram, "authcid=, password=wonderland", "!00070000/00000107"},
        {kScram, "authcid=alice", "!00070000/00000108"},
        {kScram, "authcid=alice password=''", "!00070000/00000108"},
        {kScram, "authcid=alice authcid=bob password=x", "!00020000/00000106"},
        {kScram, std::string("authcid=alice\0password=x", 24), "!00020000/00000106"},
        {kScram, "authcid=\xFF password=x", "!00020000/00000106"},
    };
    // clang-format on
    for (const auto &[of, logon, expected] : cases) {
        SCOPED_TRACE(of.name + " " + logon);
        Peer client(of.name);
        const std::string said = client.acquire(logon);
        if (expected[0] == '!') {
            EXPECT_TRUE(client.failed() && client.credential == nullptr);
            EXPECT_NE((said + ": " + client.text()).find(expected.substr(1)), std::string::npos) << client.text();
            continue;
        }
        qxgss_name_t name = nullptr;
        OM_uint32 lifetime = 0;
        qxgss_cred_usage_t usage = -1;
        qxgss_OID_set mechs = nullptr;
        ASSERT_EQ(client.table.ftn_gssp_inquire_cred(nullptr, client.credential, &name, &lifetime, &usage, &mechs),
                  GSS_S_COMPLETE);
        EXPECT_EQ(taken(name), expected);
        EXPECT_TRUE(lifetime == client.lifetime && usage == GSS_C_INITIATE && mechs->count == 1);
        gssp_release_oid_set(nullptr, &mechs);
    }
}

TEST(Nothing, IsRefusedByEveryOperation) {
    configured(entries_of(kAll));
    for (const Row &row : kRows)
        EXPECT_EQ(refusals(registered(row.of.name).MechFtnTable), row.refusals);
}

// A client's process uses what it does not accept.
TEST(Client, AcceptsNobody) {
    for (const auto &[of, statuses, text] :
         {std::tuple{kNtlm, "00010000", "accept = \"yes\""}, {kScram, "00070000/0000010A", "verifier"}}) {
        RealMechanism bare = of;
        bare.settings.clear();
        configured(entries_of({&bare, 1}), QXGSS_CLIENT);
        Peer client(of.name, of.logon), server(of.name);
        EXPECT_TRUE(server.acquire("", GSS_C_ACCEPT).starts_with("00070000"));
        EXPECT_EQ(exchange(client, server), &server);
        EXPECT_TRUE(server.said.starts_with(statuses) && server.text().find(text) != std::string::npos)
            << server.said << server.text();
    }
    qxgss_shutdown(nullptr);
}

} // namespace
