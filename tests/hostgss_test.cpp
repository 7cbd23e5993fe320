// The adapter for the host's mechanisms, driven through its function table against a private Kerberos realm and an NTLM
// user file: real tokens, real messages, and what a user is told when something is missing.
#include <atomic>
#include <thread>
#include <utility>

#include "tests/peer.h"

#ifdef __SANITIZE_ADDRESS__ // its own header does not come with g++
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*made)(const volatile void *, std::size_t),
                                                         void (*freed)(const volatile void *));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *block);
#endif

namespace {

using namespace std::string_literals;
using namespace support;

const std::string kRealm = std::getenv("REALM"); // the folder; realm.sh runs this program
const std::string kKerberosOid = "1.2.840.113554.1.2.2", kNtlmOid = "1.3.6.1.4.1.311.2.2.10";
const std::string kKeys = "keytab_file = \"" + kRealm + "/service.keytab\"\n";
const std::string kUsers = std::getenv("NTLM_USER_FILE");

std::string entry(const std::string &name, const std::string &oid, const std::string &settings = "") {
    return mechanism(name, oid, "HOSTGSS", HOSTGSS_LIBRARY, "[mechanism.settings]\n" + settings);
}

// Configures anew; the message.
std::string configured(const std::string &text, OM_uint32 role = QXGSS_SERVER) {
    qxgss_shutdown(nullptr);
    const Folder folder;
    qxgss_buffer_desc message{};
    EXPECT_EQ(qxgss_configure(nullptr, role, folder.file("qxgss.conf", text).c_str(), &message), GSS_S_COMPLETE);
    return taken(message);
}

std::string configured_with(const std::string &ntlm_settings) {
    return configured(entry("absent", "1.3.6.1.4.1.99999.1") + entry("kerberos", kKerberosOid, kKeys) +
                      entry("ntlm", kNtlmOid, ntlm_settings));
}
const std::string kAcceptNtlm = "accept = \"yes\"\naccept_limit = \"1000000\"\n";

class Mechanisms : public testing::Environment {
    void SetUp() override {
        // Only the mechanism's setting leads to the service's keys.
        setenv("KRB5_KTNAME", (kRealm + "/none.keytab").c_str(), 1);
        EXPECT_NE(configured_with(kAcceptNtlm)
                      .find("absent: the host's GSS-API library has no mechanism 1.3.6.1.4.1.99999.1"),
                  std::string::npos);
    }
    void TearDown() override { qxgss_shutdown(nullptr); }
};

const auto *const environment = testing::AddGlobalTestEnvironment(new Mechanisms);

// A mechanism, and what is to be seen of its user.
struct Case {
    const char *mechanism, *logon, *source;
    std::size_t tokens; // an odd number: the client completes before the server does
    std::string properties;
};

const Case kKerberos{"kerberos", "authcid=alice password=Alice1", "alice@QXNEGO.TEST", 2,
                     "9:24[alice@QXNEGO.TEST] 15:16[kerberos] 16:28[1.2.840.113554.1.2.2] "
                     "17:16[\x2a\x86\x48\x86\xf7\x12\x01\x02\x02]"};
const Case kNtlm{"ntlm", "authcid='QXTEST\\alice' password=Alice1", "QXTEST\\alice", 3,
                 "9:20[QXTEST\\alice] 15:12[ntlm] 16:32[1.3.6.1.4.1.311.2.2.10] "
                 "17:20[\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a]"};

// A client with its user's password and a server with its default credential.
struct Pair {
    explicit Pair(const Case &of) : client(of.mechanism, of.logon), server(of.mechanism) {
        server.acquire("", GSS_C_ACCEPT);
        EXPECT_FALSE(server.failed()) << server.text();
    }
    Peer client, server;
};

const std::string kNegotiator = "\x2b\x06\x01\x05\x05\x02", kAbsent = "\x2a\x03";
const std::string kNtlmOctets = "\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a";

// RFC 2743 3.1
std::string framed(const std::string &oid, const std::string &token) {
    const std::size_t size = 2 + oid.size() + token.size();
    return "\x60\x82"s + static_cast<char>(size >> 8) + static_cast<char>(size) + '\x06' +
           static_cast<char>(oid.size()) + oid + token;
}

// Tokens of every mechanism, for another one's context.
std::vector<std::string> foreign_tokens() {
    std::vector<std::string> tokens{
        "n,,n=alice,r=abcdefgh", "c=biws,r=abc,p=AAAA", "\x60", "\x60\x84\x7f\xff\xff\xff\x06\x09", "\x6e", "NTLMSSP",
        "\xa1\x03\x0a\x01\x02"};
    for (const Case &each : {kKerberos, kNtlm}) {
        Pair pair(each);
        exchange(pair.client, pair.server, [&](std::size_t, const std::string &token) {
            tokens.push_back(token);
            tokens.push_back(framed(kNegotiator, token));
            tokens.push_back(framed(kNtlmOctets, token));
        });
    }
    return tokens;
}

class EachMechanism : public testing::TestWithParam<Case> {
  protected:
    const bool ntlm = GetParam().tokens == 3;
    Pair pair{GetParam()};
    Peer &client = pair.client, &server = pair.server;
};
INSTANTIATE_TEST_SUITE_P(Hostgss, EachMechanism, testing::Values(kKerberos, kNtlm),
                         [](const auto &test) { return std::string(test.param.mechanism); });

TEST_P(EachMechanism, EstablishesAndTellsWhoAndHow) {
    ASSERT_TRUE(established(client, server)) << client.text() << server.text();
    EXPECT_EQ(server.source, GetParam().source);
    EXPECT_EQ(client.said, "00000000/21000064");
    for (Peer *peer : {&client, &server}) {
        EXPECT_EQ(peer->actual, peer->info.pMechOid);
        EXPECT_EQ(peer->flags & (GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG), GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG);
        EXPECT_GT(peer->lifetime, 3600U);
    }
    // gss-ntlmssp does not say for how long, nor its acceptor as whom.
    EXPECT_EQ(client.inquired(),
              ntlm ? "QXTEST\\alice>host/localhost 1 1 0" : "alice@QXNEGO.TEST>host/localhost@QXNEGO.TEST 1 1 1");
    EXPECT_EQ(server.inquired(),
              ntlm ? "QXTEST\\alice>(none) 0 1 0" : "alice@QXNEGO.TEST>host/localhost@QXNEGO.TEST 0 1 1");
    EXPECT_EQ(server.named(), GetParam().source);
    qxgss_buffer_desc out{};
    ASSERT_EQ(server.table.ftn_gssp_inquire_properties_for_user(nullptr, server.context, &out), GSS_S_COMPLETE);
    EXPECT_EQ(described(taken(out)), GetParam().properties);
}

std::string wrapped(const Peer &from, int confidential, const std::string &message, int expected_state) {
    qxgss_buffer_desc in = view(message), out{};
    int state = -1;
    EXPECT_EQ(from.table.ftn_gssp_wrap(nullptr, from.context, confidential, 0, &in, &state, &out), GSS_S_COMPLETE);
    EXPECT_EQ(state, expected_state);
    return taken(out);
}

TEST_P(EachMechanism, ProtectsMessagesBothWays) {
    ASSERT_TRUE(established(client, server));
    for (const auto &[from, to] : {std::pair{&client, &server}, {&server, &client}})
        for (const std::string &message : {"x"s, "a\0b"s, std::string(100000, 'm')})
            for (const int confidential : {1, 0}) {
                const int state = ntlm ? 1 : confidential; // NTLM seals all or nothing
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

TEST_P(EachMechanism, RefusesEveryChangedMessage) {
    spoil_every_message(client, server);
}

TEST_P(EachMechanism, RefusesEveryPrefixAndAltersNoNameByAnyChange) {
    const auto check = [&](const Spoilt &spoilt) {
        const Peer &last = spoilt.last;
        EXPECT_TRUE(!spoilt.cut || (&last == &spoilt.reader && last.failed() && !last.text().empty()));
        EXPECT_TRUE(!server.complete() || server.source == GetParam().source) << server.source;
        EXPECT_TRUE(!server.failed() || (server.source == "(none)" && server.actual == nullptr));
    };
    EXPECT_EQ(spoil_every_token(client, server, foreign_tokens(), check), GetParam().tokens);
}

// Of each call that needs one: none, one that is not established, one that failed, one that goes the other way.
TEST_P(EachMechanism, NeedsAContext) {
    client.expect_no_context("none");
    client.init("");
    client.expect_no_context("half open");
    EXPECT_EQ(client.inquired(), "(none)>(none) 1 0 0");
    EXPECT_EQ(client.accept(client.token).substr(0, 8), "00080000");
    client.init("rubbish");
    EXPECT_TRUE(client.failed());
    client.expect_no_context("failed");
    for (int i = 0; i < 2; ++i) // and stays so
        EXPECT_EQ(client.init("rubbish").substr(0, 8), "00080000");
    ASSERT_TRUE(established(client, server));
    const OM_uint32 flags = server.flags;
    EXPECT_EQ(server.accept("rubbish").substr(0, 8), "00080000");
    server.flags = flags;
    EXPECT_EQ(server.inquired().find(GetParam().source), 0U); // which it has survived
}

TEST_P(EachMechanism, TakesNamesInEveryForm) {
    const std::string utf16("h\0o\0s\0t\0/\0l\0o\0c\0a\0l\0h\0o\0s\0t\0", 28);
    server.table.ftn_gssp_release_cred(nullptr, &server.credential);
    server.acquire("host/localhost@@unused", GSS_C_ACCEPT); // an acceptor's is a service too
    EXPECT_FALSE(server.failed()) << server.text();
    for (qxgss_name_t name : {imported("host/localhost"), imported(utf16, GSS_C_NT_QXAT_MECHDATA_UTF16)}) {
        gssp_release_name(nullptr, &client.target);
        client.target = name;
        EXPECT_TRUE(established(client, server)) << client.text() << server.text();
    }
    gssp_release_name(nullptr, &client.target);
    client.forget();
    EXPECT_EQ(client.init(""), "00020000/E10000CD");
}

TEST_P(EachMechanism, ComparesChannelBindings) {
    const std::string one = "channel one", two = "channel two";
    qxgss_channel_bindings_desc first{}, second{};
    first.application_data = view(one);
    second.application_data = view(two);
    client.bindings = server.bindings = &first;
    EXPECT_TRUE(established(client, server)) << client.text() << server.text();
    server.bindings = &second;
    EXPECT_FALSE(established(client, server));
    EXPECT_EQ(server.said.substr(0, 8),
              ntlm ? "00090000" : "00040000"); // gss-ntlmssp has no status of its own for that
}

// With a credential or without: only the tokens of a mechanism that is accepted, and of the credential's.
TEST_P(EachMechanism, AcceptsOnlyWhatItMay) {
    Peer none(client.info), initiating(client.info, GetParam().logon);
    ASSERT_TRUE(established(client, none)) << none.text();
    EXPECT_EQ(none.source, GetParam().source);
    EXPECT_EQ(exchange(client, initiating), &initiating);
    EXPECT_EQ(initiating.said.substr(0, 8), "00070000");

    Pair other(ntlm ? kKerberos : kNtlm);
    other.client.init("");
    client.forget();
    client.init("");
    for (Peer *acceptor : {&none, &server})
        for (const std::string &token : {framed(kNegotiator, client.token), framed(kNegotiator, other.client.token),
                                         framed(kAbsent, client.token), std::string("rubbish")}) {
            acceptor->forget();
            EXPECT_EQ(acceptor->accept(token).substr(0, 8), "00010000");
            EXPECT_TRUE(acceptor->context == nullptr && acceptor->token.empty() && !acceptor->text().empty());
        }
    server.forget();
    EXPECT_EQ(server.accept(other.client.token).substr(0, 8), "00010000");
    EXPECT_EQ(server.context, nullptr);
}

// ---- NTLM -----------------------------------------------------------------------------------------------------------

// The count is the process's: it lasts over configurations, and threads share it. First, so that it is short.
TEST(Ntlm, IsAcceptedAsOftenAsTheLimitSays) {
    const auto logons = [](int number, int limit) {
        configured_with("accept = \"yes\"\naccept_limit = \"" + std::to_string(limit) + "\"\n");
        std::atomic<int> accepted{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < number; ++i)
            threads.emplace_back([&] {
                Peer client("ntlm", kNtlm.logon), server("ntlm");
                accepted += established(client, server) ? 1 : 0;
                EXPECT_TRUE(!server.failed() || server.text().find("accept_limit") != std::string::npos);
            });
        for (std::thread &thread : threads)
            thread.join();
        return accepted.load();
    };
    int used = 1;
    while (logons(1, used) == 0)
        used *= 2;
    for (int i = 0; i < used && logons(1, used) == 1;)
        ++i;
    EXPECT_EQ(logons(12, used + 5), 5);
    EXPECT_EQ(logons(2, used + 5), 0);
    configured_with(kAcceptNtlm);
}

std::string number(std::size_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value & 0xFF);
    return text;
}

constexpr std::size_t kUnicode = 1, kSign = 0x10, kSeal = 0x20, kAnonymous = 0x800, kExtended = 0x80000;
constexpr std::size_t kKeyExchange = 0x40000000, kUsual = 0x20008201 | kUnicode; // 128 bits, NTLM, always signed

// [MS-NLMP] 2.2.1.1
std::string negotiate(std::size_t flags) {
    return "NTLMSSP"s + '\0' + number(1, 4) + number(kUsual | flags, 4) + std::string(24, '\0');
}

// An answer of user alice's that was made without a password ([MS-NLMP] 2.2.1.3). Of its fields number `bad` has that
// offset.
struct Answer {
    std::size_t lm, nt, key, flags;
    std::size_t bad = 6, offset = 0;
    bool with_domain = true;

    std::string message() const {
        const std::string lm_response = ("12345678" + std::string(lm, '\0')).substr(0, lm);
        const std::string domain = with_domain ? "Q\0X\0T\0E\0S\0T\0"s : "", user = "a\0l\0i\0c\0e\0"s;
        const std::string fields[] = {lm_response, std::string(nt, 'n'), domain, user, "h\0"s, std::string(key, 'k')};
        std::string head = "NTLMSSP"s + '\0' + number(3, 4), payload = std::string(24, '\0'); // version, MIC
        for (std::size_t i = 0; i < 6; ++i) {
            const std::size_t place = i == bad ? offset : 64 + payload.size();
            head += number(fields[i].size(), 2) + number(fields[i].size(), 2) + number(place, 4);
            payload += fields[i];
        }
        return head + number(kUsual | flags, 4) + payload;
    }
};

// The host's library has taken many of these for logons, and died of others.
TEST(Ntlm, LetsNobodyInWithoutAPassword) {
    Peer server("ntlm"), by_default("ntlm");
    server.acquire("", GSS_C_ACCEPT);
    int tried = 0;
    const auto attempt = [&](const Answer &answer) {
        for (Peer *acceptor : {&server, &by_default})
            for (const bool wrapped : {false, true}) {
                acceptor->forget();
                acceptor->accept(negotiate(answer.flags));
                ASSERT_EQ(acceptor->said.substr(0, 8), "00000001") << acceptor->text();
                acceptor->accept(wrapped ? framed(kNtlmOctets, answer.message()) : answer.message());
                EXPECT_TRUE(acceptor->failed() && acceptor->source == "(none)" && !acceptor->text().empty())
                    << "LM " << answer.lm << ", NT " << answer.nt << ", key " << answer.key << ", flags "
                    << answer.flags << ", field " << answer.bad << " at " << answer.offset;
                ++tried;
            }
    };
    const std::size_t lengths[] = {0, 1, 8, 16, 23, 24, 25, 43, 44, 45, 60};
    for (const std::size_t extended : {kExtended, 0UL})
        for (const std::size_t flags :
             {0UL, kSign, kSign | kSeal, kSign | kSeal | kKeyExchange, kKeyExchange | kAnonymous}) {
            for (const std::size_t lm : lengths)
                for (const std::size_t nt : lengths)
                    for (const bool domain : {true, false})
                        attempt({lm, nt, 16, extended | flags, 6, 0, domain});
            for (const std::size_t key : {0, 1, 15, 16, 17})
                for (const std::size_t nt : {24, 60})
                    attempt({24, nt, key, extended | flags});
            for (std::size_t field = 0; field < 6; ++field)
                for (const std::size_t offset : {0UL, 12UL, 63UL, 64UL, 200UL, 240UL, 241UL, 300UL, 0x7FFFFFFFUL,
                                                 0xFFFFFFFFUL, 0xFFFFFFF0UL, 0xFFFFFFFFUL - 24})
                    for (const std::size_t nt : {24, 60})
                        attempt({24, nt, 16, extended | flags, field, offset});
        }
    for (const std::string &token :
         {framed(kNtlmOctets, negotiate(kSign)), negotiate(0).substr(0, 39), negotiate(0) + "x"})
        server.forget(), server.accept(token), ++tried;
    std::printf("%d answers without a password\n", tried);
    Pair right(kNtlm);
    for (const std::size_t key : {0, 1, 15, 16, 17}) { // a session key of another length would be read beyond its end
        exchange(right.client, server, [&](std::size_t token_number, std::string &token) {
            if (token_number == 3)
                token.replace(52, 2, number(key, 2));
        });
        EXPECT_EQ(server.complete(), key == 16) << server.text();
    }
}

// Without a key the host's library signs with a constant, and takes that from anybody.
TEST(Ntlm, SignsOnlyWithAKey) {
    Pair pair(kNtlm);
    pair.client.request = 0;
    exchange(pair.client, pair.server);
    const Peer &client = pair.client;
    ASSERT_TRUE(client.context != nullptr && (client.flags & GSS_C_INTEG_FLAG) == 0);
    const std::string message = "message", constant = "\1"s + std::string(15, '\0');
    qxgss_buffer_desc in = view(message), mic = view(constant), out{};
    EXPECT_EQ(client.table.ftn_gssp_get_mic(nullptr, client.context, 0, &in, &out), GSS_S_FAILURE);
    EXPECT_EQ(client.table.ftn_gssp_verify_mic(nullptr, client.context, &in, &mic, nullptr), GSS_S_FAILURE);
}

// A client's reader of challenges has died, too.
TEST(Ntlm, ReadsNoBadChallenge) {
    Pair pair(kNtlm);
    for (const std::size_t field : {12, 40})
        for (const std::size_t length : {0, 1, 3, 65535})
            for (const std::size_t offset : {0UL, 47UL, 48UL, 100UL, 0x7FFFFFFFUL, 0xFFFFFFFFUL}) {
                const Peer &last =
                    *exchange(pair.client, pair.server, [&](std::size_t token_number, std::string &token) {
                        if (token_number == 2)
                            token.replace(field, 2, number(length, 2)).replace(field + 4, 4, number(offset, 4));
                    });
                EXPECT_TRUE(last.failed() || (field == 40 && length == 0)) << field << " " << length << " " << offset;
            }
}

// Who logs on is named as the server's file names the account, in every answer, however the client spells it: without
// a MIC the names of the last message are anybody's to change.
TEST(Ntlm, NamesAUserInOneWay) {
    const auto utf16 = [](const std::string &text) {
        std::string wide;
        for (const char c : text)
            wide += {c, '\0'};
        return wide;
    };
    const std::string hashes = ":0:X:A40E586DFDDC53FE383E01FFB26CF642:[U]:\n", usual = "QXTEST\\alice" + hashes;
    const struct {
        std::string users, domain, user; // the client's
        const char *written;             // the domain in its last message
        std::string named;               // "": refused
    } cases[] = {
        {usual, "QXTEST", "alice", "QXTEST", "QXTEST\\alice"},
        {usual, "QXTEST", "ALICE", "QXTEST", "QXTEST\\alice"},
        {usual, "QXTEST", "Alice", "qxtest", "QXTEST\\alice"},
        {usual, "", "aLICE", "", "QXTEST\\alice"},
        {usual, "OTHERS", "alice", "OTHERS", ""},
        {usual, "QXTEST", "alice", "OTHERS", ""},
        {"qxTest:aLice:Alice1\nOTHERS:alice:x\n", "QXTEST", "alice", "QXTEST", ""}, // another domain: another key
        {"qxTest:aLice:Alice1\nOTHERS:alice:x\n", "qxTest", "ALICE", "QXTEST", "qxTest\\aLice"},
        {"QXTEST:alice:Alice1\nOTHERS:alice:x\n", "", "alice", "", ""},
        {"alice" + hashes, "OTHERS", "Alice", "OTHERS", ""}, // the server has no such domain for its key
        {"Alice" + hashes, "", "ALICE", "", "Alice"},
        {"QXTEST:alice:Alice1\n", "QXTEST", "ALICE", "qxtest", "QXTEST\\alice"},
        {"QXTEST:al@ice:Alice1\n", "QXTEST", "al@ice", "QXTEST", "QXTEST\\al@ice"},
    };
    for (const auto &[users, domain, user, written, named] : cases) {
        const std::string name = domain.empty() ? user : domain + "\\" + user;
        SCOPED_TRACE(users + name + " as " + written);
        Peer client("ntlm", "authcid='" + name + "' password=Alice1"), server("ntlm");
        std::ofstream(kUsers) << users;
        exchange(client, server, [&](std::size_t token_number, std::string &token) {
            if (token_number == 3) // where the domain is stands at byte 32
                token.replace(static_cast<unsigned char>(token[32]), 2 * domain.size(), utf16(written));
        });
        EXPECT_EQ(server.source, named.empty() ? "(none)" : named) << server.text();
        if (!named.empty()) {
            EXPECT_EQ(server.named(), named);
        }
    }
    std::ofstream(kUsers) << usual;
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

TEST(Logons, GiveTheNameOrTheWholeReason) {
    // clang-format off
    const struct {
        const char *mechanism, *logon;
        std::string outcome; // the name acquired, or "!" and a piece of the text of the failure
    } cases[] = {
        {"kerberos", "alice@QXNEGO.TEST@@Alice1", "alice@QXNEGO.TEST"},
        {"kerberos", "authcid=alice password=wrong", "!Preauthentication failed"},
        {"kerberos", "authcid=alice realm=OTHER.TEST password=x", "!Cannot find KDC for realm \"OTHER.TEST\""},
        {"kerberos", "", "!No Kerberos credentials available (default cache: FILE:"},
        {"kerberos", "user=dbuser", "!No Kerberos credentials available"},
        {"kerberos", "bob@QXNEGO.TEST", "!Can't find client principal bob@QXNEGO.TEST in cache collection"},
        {"kerberos", "password=x", "!The logon string has a password but no identity."},
        {"kerberos", "authcid=alice bogus", "!The logon string cannot be parsed."},
        {"ntlm", "QXTEST\\alice@@Alice1", "QXTEST\\alice"},
        {"ntlm", "authcid=alice realm=QXTEST password=Alice1", "QXTEST\\alice"},
        {"ntlm", "", "QXTEST\\alice"},
    };
    // clang-format on
    for (const auto &[mechanism_name, logon, expected] : cases) {
        SCOPED_TRACE(std::string(mechanism_name) + " " + logon);
        Peer client(mechanism_name);
        client.acquire(logon);
        if (expected[0] == '!') {
            EXPECT_TRUE(client.failed() && client.credential == nullptr);
            EXPECT_NE(client.text().find(": " + expected.substr(1)), std::string::npos) << client.text();
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
    Pair wrong({"ntlm", "QXTEST\\alice@@wrong", "", 3, ""}); // which only the server can tell
    EXPECT_FALSE(established(wrong.client, wrong.server));
    EXPECT_NE(wrong.server.text().find(": "), std::string::npos) << wrong.server.text();
}

class TicketCache : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(std::system("kinit -k -t $REALM/client.keytab alice"), 0); }
    void TearDown() override { EXPECT_EQ(std::system("kdestroy"), 0); }
    Peer client{"kerberos"}, server{"kerberos"};
};

TEST_F(TicketCache, SignsOnAndDelegates) {
    qxgss_name_t name = nullptr;
    ASSERT_EQ(client.table.ftn_gssp_inquire_cred(nullptr, nullptr, &name, nullptr, nullptr, nullptr), GSS_S_COMPLETE);
    EXPECT_EQ(taken(name), "alice@QXNEGO.TEST");
    client.acquire("alice@QXNEGO.TEST");
    client.request |= GSS_C_DELEG_FLAG;
    ASSERT_TRUE(established(client, server)) << client.text() << server.text();
    EXPECT_NE(server.flags & GSS_C_DELEG_FLAG, 0U);

    // With it the server is alice to the next service.
    Peer next("kerberos"), last("kerberos");
    std::swap(next.credential, server.delegated);
    ASSERT_NE(next.credential, nullptr);
    EXPECT_TRUE(established(next, last)) << next.text() << last.text();
    EXPECT_EQ(last.source, "alice@QXNEGO.TEST");
}

TEST_F(TicketCache, NothingIsHandedOverUnasked) {
    gssp_release_name(nullptr, &client.target);
    client.target = imported("nobody/localhost");
    client.init("");
    EXPECT_NE(client.text().find(": Server nobody/localhost@QXNEGO.TEST not found"), std::string::npos)
        << client.text();
    std::swap(client.target, server.target);
    client.request = 0;
    client.init("");
    EXPECT_TRUE(client.complete()); // one token, and the server is not asked to prove anything
    qxgss_buffer_desc in = view(client.token), out{};
    EXPECT_EQ(server.table.ftn_gssp_accept_sec_context(nullptr, &server.context, nullptr, &in, nullptr, nullptr,
                                                       nullptr, &out, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(taken(out), "");
}

TEST(Acceptor, SaysWhichKeyTableIsMissing) {
    const std::string keys = kRealm + "/service.keytab", kept = kRealm + "/kept";
    std::filesystem::rename(keys, kept);
    Peer server("kerberos");
    server.acquire("", GSS_C_ACCEPT);
    EXPECT_TRUE(server.failed() && server.text().find("service.keytab") != std::string::npos) << server.text();
    std::filesystem::rename(kept, keys);
}

// ---- Secrets --------------------------------------------------------------------------------------------------------

#ifdef __SANITIZE_ADDRESS__

std::string_view secret; // what is looked for; empty: nothing is
std::size_t found = 0;

void ignore(const volatile void *, std::size_t) {}
void look_at(const volatile void *block) {
    const auto *bytes = static_cast<const char *>(const_cast<const void *>(block));
    const std::string_view text(bytes, __sanitizer_get_allocated_size(block));
    found += !secret.empty() && text.find(secret) != text.npos;
}

// Whoever in the process frees it: the adapter, the framework, the host's library.
TEST(Password, IsWipedBeforeItsMemoryIsFreed) {
    const std::string right = kKerberos.logon, wrong = right + "x", away = right + " realm=OTHER.TEST";
    ASSERT_NE(__sanitizer_install_malloc_and_free_hooks(ignore, look_at), 0);
    secret = "Alice1";
    {
        Peer client("kerberos", right), server("kerberos"), refused("kerberos");
        EXPECT_TRUE(established(client, server));
        refused.acquire(wrong);
        refused.acquire(away);
        EXPECT_TRUE(refused.failed());
    }
    EXPECT_EQ(found, 0U);
    { const std::string copy = right.c_str(); }
    EXPECT_EQ(found, 1U); // so it would have been seen
    secret = {};
}

#endif

// ---- Configuration and arguments -----------------------------------------------------------------------------------

TEST(Configure, PutsToUseWhatMayBeAndSaysWhy) {
    const Folder folder;
    const std::string open_keys = folder.file("open.keytab", ""), yes = "accept = \"yes\"\n";
    std::filesystem::permissions(open_keys, std::filesystem::perms(0604));
    const std::string ours = "keytab_file = \"" + open_keys + "\"\n",
                      needed = "unless its settings say accept = \"yes\"";
    const struct {
        OM_uint32 role;
        std::string oid, settings, says; // a piece of the message; none: there is none
        bool used;
    } cases[] = {
        {QXGSS_SERVER, kKerberosOid, kKeys, "", true},
        {QXGSS_SERVER, kKerberosOid, "accept = \"no\"\n", needed, false},
        {QXGSS_SERVER, kKerberosOid, ours, open_keys + " can be read by everybody", true},
        {QXGSS_CLIENT, kKerberosOid, ours, "", true},
        {QXGSS_SERVER, kNtlmOid, "", needed + "; then gss-ntlmssp loses memory", false},
        {QXGSS_SERVER, kNtlmOid, "accept = \"no\"\n", needed, false},
        {QXGSS_SERVER, kNtlmOid, yes, "at most 256 in this process: gss-ntlmssp loses memory", true},
        {QXGSS_SERVER, kNtlmOid, yes + "accept_limit = \"7\"\n", "at most 7 in this process", true},
        {QXGSS_SERVER, kNtlmOid, yes + "accept_limit = \"0\"\n", "accept_limit must be a number", false},
        {QXGSS_SERVER, kNtlmOid, yes + "accept_limit = \"4294967296\"\n", "accept_limit must be a number", false},
        {QXGSS_SERVER, kNtlmOid, yes + "accept_limit = \"7x\"\n", "accept_limit must be a number", false},
        {QXGSS_CLIENT, kNtlmOid, "", "", true},
        {QXGSS_CLIENT, kNtlmOid, "accept = \"Yes\"\n", "accept must be \"yes\" or \"no\"", false},
        {QXGSS_SERVER, "1.3.6.1.5.5.2", yes, "the host's own negotiator is not served", false},
        {QXGSS_CLIENT, "1.3.6.1.5.5.2", "", "the host's own negotiator is not served", false},
    };
    for (const auto &[role, oid, settings, says, used] : cases) {
        const std::string said = configured(entry("one", oid, settings), role);
        EXPECT_TRUE(says.empty() ? said.empty() : said.find(says) != std::string::npos) << said << ", not " << says;
        EXPECT_EQ(said.find('\n'), std::string::npos);
        EXPECT_EQ(registered("one").fUseMech != 0, used) << oid << settings;
    }
    std::filesystem::permissions(kUsers, std::filesystem::perms(0646));
    EXPECT_NE(configured_with(kAcceptNtlm).find(kUsers + " can be written by others"), std::string::npos);
    std::filesystem::permissions(kUsers, std::filesystem::perms(0600));
}

// A client's process uses what it does not accept.
TEST(Configure, AcceptsOnlyWhatTheSettingsSay) {
    configured(entry("ntlm", kNtlmOid), QXGSS_CLIENT);
    {
        Peer client("ntlm", kNtlm.logon), server("ntlm");
        EXPECT_EQ(server.acquire("", GSS_C_ACCEPT).substr(0, 8), "00070000");
        EXPECT_EQ(exchange(client, server), &server);
        EXPECT_EQ(server.said.substr(0, 8), "00010000");
        EXPECT_NE(server.text().find("accept = \"yes\""), std::string::npos) << server.text();
    }
    configured_with(kAcceptNtlm);
}

TEST(Configure, TakesOnlyTheMechanismOutOfUseThatTheHostLacks) {
    const qxgss_ftn_table_desc &table = registered("ntlm").MechFtnTable;
    qxgss_OID_set set = nullptr;
    ASSERT_EQ(table.ftn_gssp_indicate_mechs(nullptr, &set), GSS_S_COMPLETE);
    for (const std::string name : {"kerberos", "ntlm", "absent"}) {
        int present = -1;
        gssp_test_oid_set_member(nullptr, registered(name).pMechOid, set, &present);
        EXPECT_EQ(present, name == "absent" ? 0 : 1) << name;
        EXPECT_EQ(registered(name).fUseMech != 0, name != "absent") << name;
    }
    gssp_release_oid_set(nullptr, &set);
    EXPECT_EQ(table.ftn_gssp_inquire_names_for_mech(nullptr, registered("absent").pMechOid, &set), GSS_S_BAD_MECH);
    ASSERT_EQ(table.ftn_gssp_inquire_names_for_mech(nullptr, registered("ntlm").pMechOid, &set), GSS_S_COMPLETE);
    EXPECT_EQ(set->count, 5U);
    gssp_release_oid_set(nullptr, &set);

    EXPECT_EQ(refusals(table), "-rrrrrrrrrrrrrrr00rr0000"); // no ticket, hence no default credential to inquire
    qxgss_buffer_desc out{};
    OM_uint32 more = 7;
    ASSERT_EQ(table.ftn_gssp_display_status(nullptr, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, GSS_C_GSS_CODE,
                                            nullptr, &more, &out),
              GSS_S_COMPLETE);
    EXPECT_EQ(more, 0U);
    EXPECT_EQ(taken(out), "A required input parameter could not be read; No context has been established");
}

} // namespace
