// What the adapter for the host's mechanisms adds to what every mechanism keeps: NTLM that nobody can use without a
// password, names and limits of it, single sign-on, and which mechanisms are put to use.
#include <array>
#include <atomic>
#include <thread>

#include "mechanisms/hostgss/ntlm.h"
#include "tests/peer.h"

namespace {

using namespace std::string_literals;
using namespace support;
using namespace testkit;

const std::string kUsers = std::getenv("NTLM_USER_FILE"), kAccept = "accept = \"yes\"\n";

// Both mechanisms, with these settings of NTLM.
std::string configured_with(const std::string &ntlm_settings) {
    RealMechanism rows[] = {kKerberos, kNtlm};
    rows[1].settings = ntlm_settings;
    return configured(entries_of(rows));
}

struct Host : testing::Test {
    void SetUp() override { configured_with(kNtlm.settings); }
    void TearDown() override { qxgss_shutdown(nullptr); }
};
using Ntlm = Host;

// The count is the process's: it lasts over configurations, and threads share it. This is the first to log on.
TEST_F(Ntlm, IsAcceptedAsOftenAsTheLimitSays) {
    const auto logons = [](int number, int limit) {
        configured_with(kAccept + "accept_limit = \"" + std::to_string(limit) + "\"\n");
        std::atomic<int> accepted{0};
        const auto log_on = [&] {
            Peer client(kNtlm.name, kNtlm.logon), server(kNtlm.name);
            accepted += established(client, server) ? 1 : 0;
            EXPECT_TRUE(!server.failed() || server.text().find("accept_limit") != std::string::npos);
        };
        std::vector<std::jthread> threads;
        for (int i = 0; i < number; ++i)
            threads.emplace_back(log_on);
        threads.clear(); // joins them
        return accepted.load();
    };
    EXPECT_EQ(logons(12, 5), 5);
    EXPECT_EQ(logons(2, 5), 0);
}

std::string octets(std::size_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, value >>= 8)
        text += static_cast<char>(value & 0xFF);
    return text;
}

constexpr std::size_t kUsual = 0x20008201, kSign = 0x10, kSeal = 0x20, kAnonymous = 0x800, kExtended = 0x80000,
                      kKeyExchange = 0x40000000; // usual: 128 bits, NTLM, always signed, Unicode

// [MS-NLMP] 2.2.1.1
std::string negotiate(std::size_t flags) {
    return "NTLMSSP"s + '\0' + octets(1, 4) + octets(kUsual | flags, 4) + std::string(24, '\0');
}

// An answer of user alice's that was made without a password ([MS-NLMP] 2.2.1.3).
std::string answer(std::size_t lm, std::size_t nt, bool with_domain, std::size_t flags) {
    const std::string domain = with_domain ? "Q\0X\0T\0E\0S\0T\0"s : "", user = "a\0l\0i\0c\0e\0"s;
    std::string head = "NTLMSSP"s + '\0' + octets(3, 4), payload(24, '\0'); // version, MIC
    for (const std::string &field : {("12345678" + std::string(lm, '\0')).substr(0, lm), std::string(nt, 'n'), domain,
                                     user, "h\0"s, std::string(16, 'k')}) {
        head += octets(field.size(), 2) + octets(field.size(), 2) + octets(64 + payload.size(), 4);
        payload += field;
    }
    return head + octets(kUsual | flags, 4) + payload;
}

// The host's library has taken many of these for logons.
TEST_F(Ntlm, LetsNobodyInWithoutAPassword) {
    Peer server(kNtlm.name), by_default(kNtlm.name);
    server.acquire("", GSS_C_ACCEPT);
    EXPECT_TRUE(server.accept(negotiate(0).replace(16, 1, "\1")).starts_with("0009")); // a domain that is not there
    const std::size_t lengths[] = {0, 1, 8, 16, 23, 24, 25, 43, 44, 45, 60};
    for (const std::size_t flags : {0UL, kSign, kSign | kSeal, kSign | kSeal | kKeyExchange, kKeyExchange | kAnonymous,
                                    kExtended, kExtended | kSign, kExtended | kSign | kSeal,
                                    kExtended | kSign | kSeal | kKeyExchange, kExtended | kKeyExchange | kAnonymous})
        for (const std::size_t lm : lengths)
            for (const std::size_t nt : lengths)
                for (const bool domain : {true, false}) {
                    const std::string message = answer(lm, nt, domain, flags);
                    for (Peer *acceptor : {&server, &by_default})
                        for (const std::string &token : {message, framed(kNtlmOctets, message)}) {
                            acceptor->forget();
                            ASSERT_TRUE(acceptor->accept(negotiate(flags)).starts_with("00000001"));
                            acceptor->accept(token);
                            EXPECT_TRUE(acceptor->failed()) << lm << " " << nt << " " << domain << " " << flags;
                        }
                }
}

// Without a key the host's library signs with a constant, and takes that from anybody.
TEST_F(Ntlm, SignsOnlyWithAKey) {
    Pair pair(kNtlm);
    pair.client.request = 0;
    exchange(pair.client, pair.server);
    Peer &client = pair.client;
    ASSERT_TRUE(client.context != nullptr && (client.flags & GSS_C_INTEG_FLAG) == 0);
    client.protect(2, kMessage);
    EXPECT_TRUE(client.said.starts_with("000D0000")) << client.said;
    client.unprotect(2, "\1"s + std::string(15, '\0'), kMessage);
    EXPECT_TRUE(client.said.starts_with("000D0000")) << client.said;
    Pair keyed(kNtlm);
    ASSERT_TRUE(established(keyed.client, keyed.server));
    keyed.server.unprotect(2, keyed.client.protect(2, kMessage).substr(0, 15), kMessage); // it would be read beyond
    EXPECT_EQ(keyed.server.said, "00090000/E10000CD");
}

// Who logs on is named as the server's file names the account, in every answer, however the client spells it: without
// a MIC the names of the last message are anybody's to change.
TEST_F(Ntlm, NamesAUserInOneWay) {
    const std::string usual = "QXTEST\\alice:0:X:A40E586DFDDC53FE383E01FFB26CF642:[U]:\n",
                      two = "qxTest:aLice:Alice1\nOTHERS:alice:x\n";
    // Domain and user of the client, the domain in its last message; the user, "": refused.
    const std::tuple<std::string, std::string, std::string, std::string, std::string> cases[] = {
        {usual, "QXTEST", "Alice", "qxtest", "alice"},
        {usual, "QXTEST", "alice", "OTHERS", ""},
        {two, "QXTEST", "alice", "QXTEST", ""}, // another domain: another key
        {two, "qxTest", "ALICE", "QXTEST", "aLice"},
        {"QXTEST:al@ice:Alice1\n", "QXTEST", "al@ice", "QXTEST", "al@ice"},
    };
    for (const auto &[users, domain, user, written, named] : cases) {
        SCOPED_TRACE(users + user + " of " + written);
        Peer client(kNtlm.name, "authcid='" + domain + "\\" + user + "' password=Alice1"), server(kNtlm.name);
        std::ofstream(kUsers) << users;
        exchange(client, server, [&](std::size_t number, std::string &token) {
            if (number == 3) // where the domain is stands at byte 32
                for (std::size_t i = 0, at = static_cast<unsigned char>(token[32]); i < written.size(); ++i)
                    token[at + 2 * i] = written[i];
        });
        const std::string whole = domain + "\\" + named;
        EXPECT_EQ(server.source, named.empty() ? "(none)" : whole) << server.text();
        const std::string told = whole + ">(none) 0 1 0 " + named + "," + domain + " " + records_of(whole, kNtlm);
        EXPECT_TRUE(named.empty() || server.asked() == told) << server.asked();
    }
    std::ofstream(kUsers) << usual;
}

// The host's library reads where a field says that it is.
TEST(NtlmMessage, HasItsFieldsBehindItsHeaderAndInside) {
    using enum hostgss::NtlmMessage;
    constexpr OM_uint32 any = 0xFFFF;
    // The length of the header; of each field where its length stands, and what it may be.
    const std::tuple<hostgss::NtlmMessage, OM_uint32, std::vector<std::array<OM_uint32, 3>>> cases[] = {
        {kNegotiate, 32, {{16, 0, any}, {24, 0, any}}},
        {kChallenge, 48, {{12, 1, any}, {40, 0, any}}},
        {kAuthenticate, 64, {{12, 0, any}, {20, 44, any}, {28, 0, any}, {36, 0, any}, {44, 0, any}, {52, 16, 16}}}};
    for (const auto &[type, header, fields] : cases) {
        std::string message = "NTLMSSP" + std::string(121, '\0');
        message[8] = static_cast<char>(type);
        for (const auto &[at, least, most] : fields)
            message.replace(at, 8, octets(least, 4) + octets(header, 4));
        EXPECT_TRUE(check_ntlm_message(message.substr(0, header - 1), type).failed());
        for (const auto &[at, least, most] : fields)
            for (const OM_uint32 length : {0U, 1U, 15U, 16U, 17U, 43U, 44U, 64U, 65U, any})
                for (const OM_uint32 offset : {0U, header - 1, header, 128 - length, 129 - length, 129U, ~0U}) {
                    const std::string changed =
                        std::string(message).replace(at, 8, octets(length, 4) + octets(offset, 4));
                    const bool inside = length == 0 || (offset >= header && 0UL + offset + length <= message.size());
                    EXPECT_EQ(check_ntlm_message(changed, type).failed(), length < least || length > most || !inside)
                        << header << " " << at << " " << length << " at " << offset;
                }
    }
}

// A user of the host's NTLM, as the client has written the name.
TEST(NtlmName, IsThatOfTheOneAccountThatItCanMean) {
    const std::string two = "A:alice:x\nb:Alice:y\n", hashes = ":1:h:h:u\n", none = "none", unset = "unset", refused;
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {two, "A\\ALICE", "A\\alice"},
        {two, "alice", refused},
        {two + "a:ALICE:z\n", "A\\alice", refused},
        {two + "A:alice:z\n", "a\\alice", "A\\alice"},
        {"#A:bob:x\n\nA:bob\nA:bobby:x\nA:\xC3\xA9", "bob", refused},
        {"A:bob:x:y\nB:bob:x\r\n", "bob", "B\\bob"}, // three colons are no line
        {"C:B\\bob:x\nB:bob:y\n", "B\\bob", refused},
        {"bob" + hashes, "ANY\\BOB", "bob"},
        {"A\\bob" + hashes + "bob" + hashes, "a\\bob", refused},
        {"A:" + std::string(1021, 'x') + "B:bob:y", "b\\bob", "B\\bob"}, // a long line is two
        {"A:ma\xC3\x9F:x\nA:mass:y\n", "A\\mass", refused},
        {none, "dOm\\bOb", "DOM\\bob"},
        {none, "dom.example\\bob", refused},
        {none, "DOM\\bob@dom.example", refused},
        {".", "DOM\\bob", refused},      // a folder
        {unset, "dom\\Bob", "DOM\\bob"}, // whatever that has left in errno
    };
    const Folder folder;
    for (const auto &[users, shown, name] : cases) {
        const std::string file =
            users == none || users == "." ? folder.path + "/" + users : folder.file("users", users);
        hostgss::Block found;
        const auto status = hostgss::canonical_ntlm_name(shown, users == unset ? nullptr : file.c_str(), found);
        EXPECT_EQ(status.failed() ? refused : std::string(found.view()), name) << shown << " in\n" << users;
    }
}

TEST_F(Host, SignsOnWithoutAName) {
    ASSERT_EQ(std::system("kinit -k -t $REALM/client.keytab alice"), 0);
    Peer client{kKerberos.name}, server{kKerberos.name};
    EXPECT_EQ(client.owner(), kKerberos.user);
    client.request = 0;
    client.init("");
    EXPECT_TRUE(client.complete()); // one token, and the server is not asked to prove anything
    qxgss_buffer_desc in = view(client.token), out{};
    EXPECT_EQ(server.table.ftn_gssp_accept_sec_context(nullptr, &server.context, nullptr, &in, nullptr, nullptr,
                                                       nullptr, &out, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(taken(out), "");
    EXPECT_EQ(std::system("kdestroy"), 0);
}

TEST_F(Host, PutsToUseWhatMayBeAndSaysWhy) {
    const Folder folder;
    const std::string open_keys = folder.file("open.keytab", ""), yes = kAccept;
    std::filesystem::permissions(open_keys, std::filesystem::perms(0604));
    const std::string ours = "keytab_file = \"" + open_keys + "\"\n",
                      needed = "unless its settings say accept = \"yes\"";
    // A piece of the message, "": there is none; and whether it is put to use.
    const std::tuple<OM_uint32, std::string, std::string, std::string, bool> cases[] = {
        {QXGSS_SERVER, kKerberos.oid, kKerberos.settings, "", true},
        {QXGSS_SERVER, kKerberos.oid, "accept = \"no\"\n", needed, false},
        {QXGSS_SERVER, kKerberos.oid, ours, open_keys + " can be read by everybody", true},
        {QXGSS_CLIENT, kKerberos.oid, ours, "", true},
        {QXGSS_SERVER, kNtlm.oid, "", needed + "; then gss-ntlmssp loses memory", false},
        {QXGSS_SERVER, kNtlm.oid, yes, "at most 256 in this process: gss-ntlmssp loses memory", true},
        {QXGSS_SERVER, kNtlm.oid, yes + "accept_limit = \"7\"\n", "at most 7 in this process", true},
        {QXGSS_SERVER, kNtlm.oid, yes + "accept_limit = \"4294967296\"\n", "accept_limit must be a number", false},
        {QXGSS_CLIENT, kNtlm.oid, "", "", true},
        {QXGSS_CLIENT, kNtlm.oid, "accept = \"Yes\"\n", "accept must be \"yes\" or \"no\"", false},
        {QXGSS_SERVER, "1.3.6.1.5.5.2", yes, "the host's own negotiator is not served", false},
        {QXGSS_CLIENT, "1.3.6.1.4.1.99999.1", "", "GSS-API library has no mechanism 1.3.6.1.4.1.99999.1", false},
    };
    for (const auto &[role, oid, settings, says, used] : cases) {
        const std::string said =
            configured(entry_of("one", oid, "HOSTGSS", HOSTGSS_LIBRARY) + "[mechanism.settings]\n" + settings, role);
        EXPECT_TRUE(says.empty() ? said.empty() : said.find(says) != std::string::npos) << said << ", not " << says;
        EXPECT_EQ(said.find('\n'), std::string::npos);
        EXPECT_EQ(registered("one").fUseMech != 0, used) << oid << settings;
    }
    std::filesystem::permissions(kUsers, std::filesystem::perms(0646));
    EXPECT_NE(configured_with(kNtlm.settings).find(kUsers + " can be written by others"), std::string::npos);
    std::filesystem::permissions(kUsers, std::filesystem::perms(0600));
}

TEST_F(Host, HasTheHostsStatuses) {
    const Peer peer(kNtlm.name);
    Outputs none, shown;
    qxgss_OID_desc other{2, const_cast<char *>("\x2a\x03")};
    OM_uint32 more = 7;
    const OM_uint32 status = GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT;
    EXPECT_TRUE(peer.call(none, &Table::ftn_gssp_inquire_names_for_mech, &other, none.oids.out()).starts_with("0001"));
    peer.table.ftn_gssp_display_status(nullptr, status, GSS_C_GSS_CODE, nullptr, &more, shown.buffer.out());
    EXPECT_EQ(shown.text(), "A required input parameter could not be read; No context has been established");
    EXPECT_EQ(more, 0U);
}

} // namespace
