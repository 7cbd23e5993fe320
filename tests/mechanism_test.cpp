// What every real mechanism keeps, driven through its function table in a realm of its own: who is let in, what someone
// in between can change, what a user is told when something is missing, and what a lack of memory leaves.
#include <gsasl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qxgss/operations.h"
#include "tests/failing_heap.h"
#include "tests/peer.h"

namespace {

using namespace std::string_literals;
using namespace support;
using namespace testkit;

// What is to be seen of all mechanisms of a library: the statuses of success, how those of a call on a context that is
// no longer open begin, those of calls that need an open one, and what is told of a half open one.
struct Library {
    std::string success, over;
    std::set<std::string> no_context;
    std::string half_open;
};
const Library kHost{"00000000/21000064", "00080000", {"00080000/E10000CD"}, "(none)>(none) 1 0 0"},
    kGsasl{"00000000/00000000", "000D0000/00000003", {"", "00080000/00000104"}, "alice>host@localhost 1 0 1"};
struct Row {
    const RealMechanism &of, &sibling;
    const Library &library;
    std::size_t tokens; // an odd number: the client completes before the server does
    std::string client, server;
    std::string_view password;
    std::string wrong, message; // a logon string that is refused, and what a lack of memory lets a configuration say
};
const std::string kOfKerberos = "alice@QXNEGO.TEST>host/localhost@QXNEGO.TEST ",
                  kFromScram = "alice>host/localhost 1 1 1 -,-", kToScram = "alice>(none) 0 1 1 -,-",
                  kNoVerifiers = "verifiers: Cannot allocate memory";
// gss-ntlmssp does not say for how long, nor its acceptor as whom.
const Row kRows[] = {
    {kKerberos, kNtlm, kHost, 2, kOfKerberos + "1 1 1 alice,QXNEGO.TEST", kOfKerberos + "0 1 1 alice,QXNEGO.TEST",
     "Alice1", "authcid=alice realm=OTHER.TEST password=Alice1", ""},
    {kNtlm, kKerberos, kHost, 3, kNtlm.user + ">host/localhost 1 1 0 alice,QXTEST",
     kNtlm.user + ">(none) 0 1 0 alice,QXTEST", "Alice1", "password=Alice1", "hashes instead of passwords"},
    {kScram, kScram1, kGsasl, 4, kFromScram, kToScram, "wonderland", "password=wonderland", kNoVerifiers},
    {kScram1, kScram, kGsasl, 4, kFromScram, kToScram, "wonderland", "password=wonderland", kNoVerifiers}};

// Tokens of every mechanism, for another one's context or for the same one's later.
std::vector<std::string> tokens_of_all() {
    std::vector<std::string> tokens{"\x60", "\x60\x84\x7f\xff\xff\xff\x06\x09", "NTLMSSP", "c=biws,r=abc,p=AAAA"};
    for (const Row &row : kRows) {
        Pair pair(row.of);
        exchange(pair.client, pair.server, [&](std::size_t, const std::string &token) {
            tokens.insert(tokens.end(), {token, framed(kNegotiator, token), framed(kNtlmOctets, token)});
        });
    }
    return tokens;
}

class Mechanism : public testing::TestWithParam<Row> {
  protected:
    static void SetUpTestSuite() { configured(entries_of(kAll)); }
    const Row &row = GetParam();
    const RealMechanism &of = row.of;
    const Library &library = row.library;
    Pair pair{of};
    Peer &client = pair.client, &server = pair.server;
};
class Host : public Mechanism {};
const auto prefix = [](const auto &row) { return row.param.of.prefix + std::to_string(row.index); };
INSTANTIATE_TEST_SUITE_P(Each, Mechanism, testing::ValuesIn(kRows), prefix);
INSTANTIATE_TEST_SUITE_P(Each, Host, testing::ValuesIn(kRows, kRows + 2), prefix);

// Change number `number` of a token: it ends before one of its bytes (`cut`), or that is another one (in full with each
// bit changed, too); it goes on behind its end; or it is another token. False: there are no more.
bool change(std::string &token, std::size_t number, const std::vector<std::string> &others, bool &cut) {
    static const char *const how = std::getenv("QXNEGO_SWEEP");
    static const std::size_t ways = how != nullptr && how == "full"s ? 12 : 4;
    const std::size_t at = number / ways, way = number % ways, beyond = number - ways * token.size();
    cut = at < token.size() && way == 0;
    if (cut)
        token.resize(at);
    else if (at < token.size())
        token[at] = way < 3 ? "!"[way - 1] : static_cast<char>(token[at] ^ (way == 3 ? 0xFF : 0x80 >> (way - 4)));
    else if (beyond < 2)
        token.append(beyond == 0 ? 1 : 1000, '\0');
    else if (beyond - 2 < others.size())
        token = others[beyond - 2];
    else
        return false;
    return true;
}

// Of SCRAM every byte counts; but the last digit of base64 before a "=" has bits that mean nothing.
bool means_the_same(const std::string &whole, const std::string &sent) {
    return sent.size() == whole.size() && whole.ends_with('=') &&
           whole.compare(0, whole.size() - 2, sent, 0, sent.size() - 2) == 0;
}

TEST_P(Mechanism, RefusesEveryPrefixAndAltersNoNameByAnyChange) {
    const std::vector<std::string> others = tokens_of_all();
    std::size_t tokens = 0; // that are sent
    for (std::size_t spoilt = 1, number = 0; spoilt != tokens + 2; ++number) {
        SCOPED_TRACE("token " + std::to_string(spoilt) + ", change " + std::to_string(number));
        std::string whole, sent;
        bool more = false, cut = false;
        const Peer &last = *exchange(client, server, [&](std::size_t at, std::string &token) {
            if (at != spoilt)
                return;
            tokens = spoilt, whole = token;
            more = change(token, number, others, cut);
            sent = token;
        });
        EXPECT_TRUE(!cut || last.failed());
        EXPECT_TRUE(!(cut && (of.has_mics || sent.empty())) || &last == (spoilt % 2 == 1 ? &server : &client));
        EXPECT_TRUE(!server.complete() || server.source == of.user) << server.source;
        EXPECT_TRUE(!server.failed() || !of.has_mics || server.actual == nullptr);
        EXPECT_FALSE(more && !of.has_mics && client.complete() && server.complete() && !means_the_same(whole, sent));
        if (!more)
            ++spoilt, number = SIZE_MAX;
    }
    EXPECT_EQ(tokens, row.tokens);
}

// Of each call that needs one: none, one that is not established, one that failed, one of the other role, of another
// mechanism, one that is established already.
TEST_P(Mechanism, NeedsAContext) {
    EXPECT_EQ(client.refusals(), library.no_context);
    EXPECT_TRUE(library.no_context.contains(client.inquired()));
    EXPECT_TRUE(
        library.no_context.contains(client.call({}, &Table::ftn_gssp_delete_sec_context, &client.context, nullptr)));
    client.init("");
    server.accept(client.token);
    EXPECT_TRUE(server.complete() || server.refusals() == library.no_context);
    EXPECT_EQ(client.refusals(), library.no_context);
    EXPECT_EQ(client.inquired(), library.half_open);
    EXPECT_TRUE(client.accept(client.token).starts_with("00080000"));
    Peer other(row.sibling.name);
    std::swap(other.context, client.context);
    EXPECT_TRUE(other.init("rubbish").starts_with(of.has_mics ? "00010000" : "00080000"));
    std::swap(other.context, client.context);
    client.init("rubbish");
    EXPECT_TRUE(client.failed());
    EXPECT_EQ(client.refusals(), library.no_context);
    for (int i = 0; i < 2; ++i) // and stays so
        EXPECT_TRUE(client.init("rubbish").starts_with(library.over)) << client.said;
    ASSERT_TRUE(established(client, server));
    EXPECT_TRUE(server.accept("rubbish").starts_with(library.over)) << server.said;
    EXPECT_TRUE(server.inquired().starts_with(of.user)); // which it has survived
}

// ---- What only the host's mechanisms have ---------------------------------------------------------------------------

TEST_P(Host, TakesNamesInEveryForm) {
    const std::string utf16("h\0o\0s\0t\0/\0l\0o\0c\0a\0l\0h\0o\0s\0t\0", 28);
    server.table.ftn_gssp_release_cred(nullptr, &server.credential);
    server.acquire("host/localhost@@unused", GSS_C_ACCEPT); // an acceptor's is a service too
    for (qxgss_name_t name : {imported("host/localhost"), imported(utf16, GSS_C_NT_QXAT_MECHDATA_UTF16)}) {
        client.target = common::Name(name);
        EXPECT_TRUE(established(client, server)) << client.text() << server.text();
    }
    client.target.reset();
    client.forget();
    EXPECT_EQ(client.init(""), "00020000/E10000CD");
}

// With a credential or without: only the tokens of a mechanism that is accepted, and of the credential's.
TEST_P(Host, AcceptsOnlyWhatItMay) {
    Peer none(client.info), initiating(client.info, of.logon);
    ASSERT_TRUE(established(client, none)) << none.text();
    EXPECT_EQ(none.source, of.user);
    EXPECT_EQ(exchange(client, initiating), &initiating);
    EXPECT_EQ(initiating.said.substr(0, 8), "00070000");

    Pair other(row.sibling);
    other.client.init("");
    client.forget();
    client.init("");
    for (Peer *acceptor : {&none, &server})
        for (const std::string &token : {framed(kNegotiator, client.token), framed(kNegotiator, other.client.token),
                                         framed("\x2a\x03"s, client.token), std::string("rubbish")}) {
            acceptor->forget();
            EXPECT_EQ(acceptor->accept(token).substr(0, 8), "00010000");
            EXPECT_TRUE(acceptor->context == nullptr && acceptor->token.empty());
        }
    server.forget();
    EXPECT_TRUE(server.accept(other.client.token).starts_with("00010000") && server.context == nullptr) << server.said;
}

// The name acquired, or "!" and a piece of the statuses and the text of the failure.
TEST(Logons, GiveTheNameOrTheWholeReason) {
    configured(entries_of(kAll));
    // clang-format off
    const std::tuple<const RealMechanism &, std::string, std::string> cases[] = {
        {kKerberos, "alice@QXNEGO.TEST@@Alice1", kKerberos.user},
        {kKerberos, "authcid=alice password=wrong", "!: Preauthentication failed"},
        {kKerberos, "authcid=alice realm=OTHER.TEST password=x", "!: Cannot find KDC for realm \"OTHER.TEST\""},
        {kKerberos, "", "!: No Kerberos credentials available (default cache: FILE:"},
        {kKerberos, "bob@QXNEGO.TEST", "!: Can't find client principal bob@QXNEGO.TEST in cache collection"},
        {kKerberos, "password=x", "!: The logon string has a password but no identity."},
        {kKerberos, "user=dbuser", "!: No Kerberos credentials available"},
        {kKerberos, "authcid=alice bogus", "!: The logon string cannot be parsed."},
        {kNtlm, "QXTEST\\alice@@Alice1", kNtlm.user},
        {kNtlm, "", kNtlm.user},
        {kScram, "joe@REALM@@secret", "joe@REALM"},
        {kScram, "authcid='a,b=c' password=x", "a,b=c"},
        {kScram, "", "!00070000/00000107"},
        {kScram, "authcid=, password=wonderland", "!00070000/00000107"},
        {kScram, "authcid=alice", "!00070000/00000108"},
        {kScram, std::string("authcid=alice\0password=x", 24), "!00020000/00000106"},
        {kScram, "authcid=\xFF password=x", "!00020000/00000106"},
    };
    // clang-format on
    for (const auto &[of, logon, expected] : cases) {
        SCOPED_TRACE(of.name + " " + logon);
        Peer client(of.name);
        OM_uint32 left = 0;
        client.acquire(logon);
        const std::string said = client.said + ": " + client.text(),
                          owner = client.failed() ? "!" : client.owner(&left);
        EXPECT_EQ(owner, expected[0] == '!' ? "!" : expected) << said;
        EXPECT_TRUE(expected[0] != '!' || said.find(expected.substr(1)) != std::string::npos) << said;
        EXPECT_EQ(left, client.lifetime);
    }
}

// Whether an operation that there is takes null for every pointer and zero for every number.
template <typename... Arguments> bool takes_nothing(OM_uint32 (*operation)(Arguments...)) {
    return operation != nullptr && GSS_ERROR(operation(Arguments{}...)) == 0;
}

TEST(Nothing, IsRefusedByEveryOperation) {
    configured(entries_of(kAll));
    for (const Row &row : kRows) {
        std::string taking;
#define TAKES(TABLE, operation) taking += takes_nothing(TABLE.ftn_gssp_##operation) ? #operation " " : "";
        QXGSS_OPERATIONS(TAKES, registered(row.of.name).MechFtnTable)
#undef TAKES
        EXPECT_EQ(taking, "configure ");
    }
}

// A client's process uses what it does not accept.
TEST(Client, AcceptsNobody) {
    for (const auto &[of, settings, statuses, text] :
         {std::tuple{kNtlm, "", "00010000", "accept = \"yes\""},
          {kScram, "", "00070000/0000010A", "verifier"},
          {kKerberos, "keytab_file = \"/none.keytab\"", "00070000", "/none.keytab"}}) {
        RealMechanism bare = of;
        bare.settings = settings;
        configured(entries_of({&bare, 1}), QXGSS_CLIENT);
        Peer client(of.name, of.logon), server(of.name);
        EXPECT_TRUE(server.acquire("", GSS_C_ACCEPT).starts_with("00070000"));
        EXPECT_EQ(exchange(client, server), &server);
        EXPECT_TRUE(server.said.starts_with(statuses)) << server.said;
        EXPECT_PRED_FORMAT2(testing::IsSubstring, text, server.text());
    }
}

// ---- Without memory -------------------------------------------------------------------------------------------------

bool failed = false; // a call of this life has
long from_gsasl = 0; // blocks that GNU SASL made and our objects have to free

bool lacks_memory(const std::string &said) { // GSS_S_FAILURE with a minor status of either adapter
    return said == "000D0000/E1000065" || said == "000D0000/00000007";
}

// A failure comes with a text; the first one is lack of memory, later ones follow from it.
void check_failure(const Peer &peer, const std::string &said) {
    Outputs text;
    const std::string shown = peer.display(said, text);
    EXPECT_TRUE(text.any() ? shown.starts_with("0000") : lacks_memory(shown)) << said << ", " << shown;
    EXPECT_TRUE(failed || lacks_memory(said)) << said << ", " << text.text();
    failed = true;
}

// The message is whole or empty; that of a failure has said what failed.
std::string configure(MechInfo_t &info, const std::string &expected) {
    Outputs message;
    const int use = std::exchange(info.fUseMech, GSSP_MECH_BEING_CONFIGURED);
    const std::string said = outcome(info.MechFtnTable.ftn_gssp_configure, QXGSS_SERVER, nullptr, message.buffer.out());
    info.fUseMech = use;
    EXPECT_TRUE(!message.any() || message.text().ends_with(expected)) << message.text();
    if (!said.starts_with("0000"))
        failed = failed || message.any(), check_failure(Peer(info), said);
    return said;
}

void inquire(const Peer &peer, const Row &row, const std::string &expected) {
    Outputs mechs, types;
    peer.call(mechs, &Table::ftn_gssp_indicate_mechs, mechs.oids.out());
    peer.call(types, &Table::ftn_gssp_inquire_names_for_mech, peer.info.pMechOid, types.oids.out());
    const std::string asked = peer.asked();
    EXPECT_TRUE(peer.complete() || asked.find(" 1 1 ") == std::string::npos) << asked;
    EXPECT_TRUE(!peer.failed() || (peer.token.empty() && peer.delegated == nullptr));
    if (failed)
        return;
    int known = 0;
    gssp_test_oid_set_member(nullptr, peer.info.pMechOid, mechs.oids.get(), &known);
    EXPECT_TRUE(known == 1 && types.oids->count == (row.of.has_mics ? 5 : 4));
    EXPECT_EQ(bytes_of(*peer.actual), bytes_of(*peer.info.pMechOid));
    constexpr OM_uint32 protection = GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;
    EXPECT_TRUE(row.of.has_mics ? (peer.flags & protection) == protection : peer.flags == GSS_C_MUTUAL_FLAG);
    EXPECT_EQ((peer.flags & GSS_C_MUTUAL_FLAG) == 0, row.of.name == kNtlm.name); // whose server proves nothing
    EXPECT_TRUE(row.of.has_mics ? peer.lifetime > 3600 : peer.lifetime == GSS_C_INDEFINITE);
    EXPECT_EQ(asked, expected + " " + records_of(row.of.user, row.of));
}

void protect(Peer &from, Peer &to, const RealMechanism &of) {
    for (const int kind : {0, 1, 2}) {
        const std::string token = from.protect(kind, kMessage), message = to.unprotect(kind, token, kMessage);
        const int sealed = of.name == kNtlm.name ? 1 : kind; // NTLM seals all or nothing
        EXPECT_TRUE(failed || message == (of.has_mics ? kMessage : ""));
        EXPECT_TRUE(failed || kind == 2 || !of.has_mics || (from.sealed == sealed && to.sealed == sealed));
        EXPECT_TRUE(failed || (token.find(kMessage) != std::string::npos) == (of.has_mics && sealed == 0));
    }
    OM_uint32 limit = 0;
    from.call({}, &Table::ftn_gssp_wrap_size_limit, from.context, 1, 0U, 1000U, &limit);
    EXPECT_TRUE(failed || !of.has_mics || (limit > 500 && from.protect(1, std::string(limit, 'm')).size() <= 1000));
}

void live(const Row &row, bool with_credential) {
    const RealMechanism &of = row.of;
    MechInfo_t &info = registered(of.name), &absent = registered("absent");
    Peer client(info), server(info);
    client.target = common::Name(imported("host/localhost"));
    client.request |= GSS_C_DELEG_FLAG;
    failed = false;
    configure(info, row.message);
    if (with_credential)
        server.acquire("host@localhost", GSS_C_ACCEPT, GSS_C_NT_HOSTBASED_SERVICE), server.owner();
    client.acquire(of.logon);
    EXPECT_TRUE(client.failed() || std::set({"(none)"s, of.user}).contains(client.owner()));
    // A side that could not log on does not call: without a credential it would be another user.
    if (client.credential != nullptr && (server.credential != nullptr) == with_credential)
        exchange(client, server);
    EXPECT_TRUE(failed || (client.complete() && server.complete() && server.source == of.user));
    EXPECT_TRUE(failed || client.said == row.library.success);
    EXPECT_TRUE(failed || (server.delegated != nullptr) == (of.name == kKerberos.name));
    inquire(client, row, row.client);
    inquire(server, row, row.server);
    protect(client, server, of);
    protect(server, client, of);
    for (Peer *peer : {&client, &server})
        EXPECT_TRUE(peer->context == nullptr ||
                    peer->call({}, &Table::ftn_gssp_delete_sec_context, &peer->context, nullptr).starts_with("0000"));
    EXPECT_TRUE(client.call({}, &Table::ftn_gssp_release_cred, &client.credential).starts_with("0000"));
    failed = true; // as the next calls must
    EXPECT_FALSE(client.acquire(row.wrong).starts_with("0000"));
    EXPECT_FALSE(configure(absent, absent.pszMessage).starts_with("0000"));
    info.MechFtnTable.ftn_gssp_configure(nullptr, QXGSS_CLIENT, nullptr, nullptr); // drops the verifiers
}

// Each mechanism goes through its whole life with each allocation failing, alone and with all later ones. A call is
// then right, or says that memory is lacking and hands out nothing; a side that failed is not established, handles can
// be asked and deleted, nothing is left, and no block that our objects give back holds the password. The libraries
// behind keep what they allocate.
TEST(Life, IsWholeOrRefused) {
    const Folder folder;
    std::ifstream sample(SCRAM_VERIFIERS);
    std::string lines; // without the comments, in which the password stands
    for (std::string line; std::getline(sample, line);)
        lines += line.starts_with('#') ? "" : line + '\n';
    const std::string verifiers = folder.file("verifiers", lines);
    std::filesystem::permissions(verifiers, std::filesystem::perms(0600));
    RealMechanism all[] = {kScram, kScram1, kKerberos, kNtlm};
    all[0].settings = all[1].settings = "verifiers_file = \"" + verifiers + "\"\n";
    configured(entry_of("absent", "1.3.6.1.4.1.99999.1", "HOSTGSS", "") + entries_of(all), QXGSS_CLIENT);
    for (const Row &row : kRows)
        for (const auto &[all_later, with_credential] : {std::pair{false, true}, {true, true}, {false, false}}) {
            // In processes of their own: the host's NTLM takes thread keys for each password, and never gives them
            // back.
            const pid_t child = fork();
            if (child == 0) {
                around_call = failing_heap::open_window;
                Peer::on_failure = check_failure;
                failing_heap::watch_for(row.password);
                failing_heap::sweep(
                    all_later, [&, with = with_credential] { live(row, with); },
                    [] { return failing_heap::live_blocks() + from_gsasl; });
                std::fflush(nullptr);
                _exit(testing::Test::HasFailure() ? 1 : 0);
            }
            int status = -1;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
    qxgss_shutdown(nullptr);
}

} // namespace

extern "C" int __real_gsasl_step(Gsasl_session *, const char *, std::size_t, char **, std::size_t *);
extern "C" int __wrap_gsasl_step(Gsasl_session *pSession, const char *pInput, std::size_t length, char **ppOutput,
                                 std::size_t *pLength) {
    const int rc = __real_gsasl_step(pSession, pInput, length, ppOutput, pLength);
    from_gsasl += (rc == GSASL_OK || rc == GSASL_NEEDS_MORE) && *ppOutput != nullptr;
    return rc;
}
