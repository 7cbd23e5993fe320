// The SCRAM mechanisms through the framework: whole exchanges, what a wrong password and an unknown user look like,
// damaged and missing tokens, hostile peers, and wrong verifiers files. Every test runs for both mechanisms.
#include <cstring>
#include <utility>

#include <gsasl.h>

#include "tests/peer.h"

namespace {

using namespace support;

struct Family {
    const char *name, *oid, *prefix;
    std::string length, key; // of a key, in bytes; one in base64
};
const Family kFamily[] = {
    {"SCRAM-SHA-256", "1.3.6.1.5.5.18", "SCRAM_SHA_256", "32", "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs="},
    {"SCRAM-SHA-1", "1.3.6.1.5.5.14", "SCRAM_SHA_1", "20", "1q9YQJiTahLwUw87uIk1JkxZLfI="}};

const std::string kComplete = "00000000/00000000", kContinue = "00000001/00000000";
const std::string kNoIdentity = "00070000/00000107", kNoPassword = "00070000/00000108";
const std::string kNoCredential = "00070000/00000109", kNoVerifiers = "00070000/0000010A";
const std::string kNoLogonString = "00020000/00000106", kNoContext = "00080000/00000104";
const std::string kNoToken = "00090000/0000010B", kEarlyToken = "00090000/0000010C", kIterations = "00090000/0000010D";
const std::string kAuthzid = "000F0000/0000010E", kNotProved = "000F0000/0000001F", kOver = "000D0000/00000003";

class Scram : public testing::TestWithParam<Family> {
  protected:
    void SetUp() override { ASSERT_EQ(configure(SCRAM_VERIFIERS), ""); }
    void TearDown() override { qxgss_shutdown(nullptr); }

    // Configures both mechanisms; the message of the one under test, empty when it is in use.
    std::string configure(const std::string &verifiers, OM_uint32 role = QXGSS_SERVER) {
        qxgss_shutdown(nullptr);
        std::string text;
        for (const Family &family : kFamily)
            text += mechanism(family.name, family.oid, family.prefix, SCRAM_LIBRARY, "[mechanism.settings]\n") +
                    (verifiers.empty() ? "" : "verifiers_file = \"" + verifiers + "\"\n");
        const std::string file = folder_.file("qxgss.conf", text);
        qxgss_buffer_desc said{};
        EXPECT_EQ(qxgss_configure(nullptr, role, file.c_str(), &said), GSS_S_COMPLETE);
        said_ = taken(said);
        const char *message = registered(name()).pszMessage;
        return message == nullptr ? "" : message;
    }
    static std::string name() { return GetParam().name; }
    const qxgss_ftn_table_desc &table() const { return registered(name()).MechFtnTable; }

    Folder folder_;
    std::string said_; // by all mechanisms
};

INSTANTIATE_TEST_SUITE_P(Both, Scram, testing::ValuesIn(kFamily), [](const auto &row) { return row.param.prefix; });

TEST_P(Scram, ExchangesFourTokensAndTellsTheUser) {
    Peer client(name(), "authcid=alice password=wonderland user=dbuser"), server(name());
    const auto properties = table().ftn_gssp_inquire_properties_for_user;
    const std::vector<std::string> patterns{"n,,n=alice,r=", "r=", "c=biws,r=", "v="};
    std::vector<std::string> tokens;
    qxgss_buffer_desc out{};
    exchange(client, server, [&](std::size_t number, const std::string &token) {
        const Peer &sender = number % 2 == 1 ? client : server;
        EXPECT_EQ(token.rfind(patterns.at(number - 1), 0), 0U) << token;
        EXPECT_EQ(sender.said, number == 4 ? kComplete : kContinue);
        EXPECT_TRUE(number != 2 || server.source + outcome(properties, server.context, &out) == "(none)" + kNoContext);
        tokens.push_back(token);
    });
    ASSERT_EQ(tokens.size(), 4U);
    EXPECT_EQ(tokens[1].substr(tokens[1].size() - 7), ",i=4096") << tokens[1];
    EXPECT_EQ(client.said, kComplete);
    EXPECT_EQ(server.source, "alice");
    for (Peer *peer : {&client, &server}) {
        EXPECT_EQ(bytes_of(*peer->actual), bytes_of(*peer->info.pMechOid));
        EXPECT_EQ(peer->flags, GSS_C_MUTUAL_FLAG);
        EXPECT_EQ(peer->lifetime, GSS_C_INDEFINITE);
        EXPECT_EQ(peer->delegated, nullptr);
    }
    EXPECT_EQ(client.inquired(), "alice>host@localhost 1 1 1");
    EXPECT_EQ(server.inquired(), "alice>(none) 0 1 1");
    EXPECT_EQ(outcome(properties, server.context, &out), kComplete);
    EXPECT_EQ(described(taken(out)), "9:12[alice] 15:20[" + name() + "] 16:24[" + GetParam().oid + "] 17:16[" +
                                         bytes_of(*server.info.pMechOid) + "]");
    EXPECT_EQ(client.init(tokens[3]), kOver);
    EXPECT_EQ(server.accept(tokens[2]), kOver);
}

TEST_P(Scram, ReadsTheLogonString) {
    const struct {
        std::string logon, outcome;
        const char *identity;
    } cases[] = {
        {"joe@REALM@@secret", kComplete, "joe@REALM"},
        {"authcid='a,b=c' password=x", kComplete, "a,b=c"},
        {"", kNoIdentity, "(none)"},
        {"password=wonderland", kNoIdentity, "(none)"},
        {"authcid=, password=wonderland", kNoIdentity, "(none)"},
        {"authcid=alice", kNoPassword, "(none)"},
        {"authcid=alice password=''", kNoPassword, "(none)"},
        {"authcid=alice authcid=bob password=x", kNoLogonString, "(none)"},
        {std::string("authcid=alice\0password=x", 24), kNoLogonString, "(none)"},
        {"authcid=\xFF password=x", kNoLogonString, "(none)"},
    };
    for (const auto &[logon, outcome, identity] : cases) {
        Peer client(name());
        EXPECT_EQ(client.acquire(logon), outcome) << logon;
        qxgss_name_t given = nullptr;
        table().ftn_gssp_inquire_cred(nullptr, client.credential, &given, nullptr, nullptr, nullptr);
        EXPECT_EQ(taken(given), identity) << logon;
    }
    Peer lone(name()), acceptor(name()), initiator(name(), "alice@@wonderland");
    EXPECT_EQ(lone.init(""), kNoCredential);
    EXPECT_EQ(acceptor.acquire("", GSS_C_ACCEPT), kComplete);
    EXPECT_EQ(acceptor.init(""), kNoCredential);
    EXPECT_EQ(acceptor.accept("n,,n=alice,r=x"), kContinue);
    EXPECT_EQ(initiator.accept("n,,n=alice,r=x"), kNoCredential);
    EXPECT_EQ(initiator.context, nullptr);
}

std::string salt_of(const std::string &server_first) {
    const std::size_t begin = server_first.find(",s=") + 3;
    return server_first.substr(begin, server_first.find(',', begin) - begin);
}

TEST_P(Scram, UnknownUserLooksLikeAWrongPassword) {
    std::vector<std::string> salts;
    for (const char *logon : {"alice@@wrong", "alice@@wrong", "mallory@@x", "mallory@@x", "trent@@x"}) {
        Peer client(name(), logon), server(name());
        exchange(client, server, [&](std::size_t number, const std::string &token) {
            if (number != 2)
                return;
            salts.push_back(salt_of(token));
            EXPECT_TRUE(salts.back().size() == 16 && token.ends_with(",i=4096")) << token;
        });
        EXPECT_EQ(server.said + server.token + server.source, kNotProved + "(none)") << logon;
    }
    ASSERT_EQ(salts.size(), 5U);
    EXPECT_TRUE(salts[0] == salts[1] && salts[2] == salts[3] && salts[2] != salts[4]);
    // Decoys follow what the file has: other salt lengths and counts than the usual ones too.
    const std::string keys = "," + GetParam().key + "," + GetParam().key;
    folder_.file("verifiers", "joe:{" + name() + "}5000,YWJjZGVmZ2hpamtsbW5vcHFyc3Q=" + keys + "\r\n");
    configure("verifiers");
    Peer server(name());
    server.accept("n,,n=mallory,r=abc");
    EXPECT_TRUE(salt_of(server.token).size() == 28 && server.token.ends_with(",i=5000")) << server.token;
}

TEST_P(Scram, RefusesDamagedMissingAndEarlyTokens) {
    Peer client(name(), "alice@@wonderland"), server(name());
    const auto check = [&](const Spoilt &spoilt) {
        // The last digit of base64 before a "=" has bits that mean nothing.
        const bool same = spoilt.sent.size() == spoilt.whole.size() && spoilt.whole.ends_with('=') &&
                          spoilt.whole.compare(0, spoilt.whole.size() - 2, spoilt.sent, 0, spoilt.sent.size() - 2) == 0;
        EXPECT_FALSE(client.complete() && server.complete() && !same);
        EXPECT_TRUE(server.source == (server.complete() ? "alice" : "(none)"));
    };
    const std::vector<std::string> others{
        "NTLMSSP", "\x60\x03\x06\x01\x2a", "n,,n=bob,r=abcdefgh", "r=abcdefgh,s=YWJj,i=4096", "c=biws,r=abc,p=AAAA",
        "v=AAAA",  "e=other-error"};
    EXPECT_EQ(spoil_every_token(client, server, others, check), 4U);
    client.forget();
    server.forget();
    EXPECT_EQ(client.init("n,,"), kEarlyToken);
    EXPECT_EQ(outcome(table().ftn_gssp_delete_sec_context, &client.context, nullptr), kNoContext);
    EXPECT_EQ(Peer(name()).accept(""), kNoToken);
    // A context that failed stays failed, and can be inquired.
    client.init("");
    EXPECT_EQ(client.init(""), kNoToken);
    EXPECT_EQ(client.init("r=x"), kOver);
    EXPECT_EQ(client.inquired(), "alice>host@localhost 1 0 1");
    client.expect_no_context("failed");
    server.expect_no_context("none");
    // Nor does one go on as the other side's, or with the other mechanism.
    client.forget();
    client.init("");
    client.expect_no_context("half open");
    for (const Family &family : kFamily) {
        Peer other(family.name);
        std::swap(other.context, client.context);
        EXPECT_EQ(other.accept("n,,n=alice,r=x"), kNoContext);
        EXPECT_EQ(other.init("r=x") == kNoContext, family.name != name());
        std::swap(other.context, client.context);
    }
}

TEST_P(Scram, RefusesServersThatAskForTooFewOrTooManyIterations) {
    for (const std::string count : {"4095", "1000001", "4294971392", "99999999999999999999", "4096x", " 4096"}) {
        Peer client(name(), "alice@@wonderland");
        client.init("");
        const std::string nonce = client.token.substr(std::strlen("n,,n=alice,r="));
        EXPECT_EQ(client.init("r=" + nonce + "abc,s=84W8Vq2rDQlfWHOD,i=" + count), kIterations) << count;
    }
}

// A client of GNU SASL's own asks to act as somebody else: its password is right, and that is not enough.
TEST_P(Scram, RefusesAnotherAuthorizationIdentity) {
    Gsasl *library = nullptr;
    ASSERT_EQ(gsasl_init(&library), GSASL_OK);
    for (const std::string other : {"bob", "alice"}) {
        Gsasl_session *session = nullptr;
        ASSERT_EQ(gsasl_client_start(library, GetParam().name, &session), GSASL_OK);
        gsasl_property_set(session, GSASL_AUTHID, "alice");
        gsasl_property_set(session, GSASL_PASSWORD, "wonderland");
        gsasl_property_set(session, GSASL_AUTHZID, other.c_str());
        Peer server(name());
        for (int leg = 0; leg < 2; ++leg) {
            char *token = nullptr;
            std::size_t length = 0;
            ASSERT_EQ(gsasl_step(session, server.token.data(), server.token.size(), &token, &length), GSASL_NEEDS_MORE);
            server.accept(std::string(token, length));
            gsasl_free(token);
        }
        gsasl_finish(session);
        EXPECT_EQ(server.said, other == "bob" ? kAuthzid : kComplete);
        EXPECT_EQ(server.token.empty(), other == "bob");
    }
    gsasl_done(library);
}

TEST_P(Scram, SaysWhatIsWrongWithTheVerifiersFile) {
    const std::string key = GetParam().key, keys = "," + key + "," + key;
    const std::string bytes = GetParam().length + " bytes in base64", salt = ":1: SALT must be 1 to 32 bytes in base64";
    const std::string head = "joe:{" + name() + "}", good = head + "4096,84W8Vq2rDQlfWHOD" + keys + "\n";
    const std::string form = ": expected USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY";
    const std::pair<std::string, std::string> cases[] = {
        {"# users\n\n \t\r\n" + good, ""},
        {"", ": no verifier for mechanism " + name()},
        {good + "joe\n", ":2" + form},
        {good.substr(3), ":1" + form},
        {head + "4096,84W8Vq2rDQlfWHOD," + key, ":1" + form},
        {"joe:{SCRAM-SHA-512}4096,YQ==" + keys, ":1: unknown mechanism SCRAM-SHA-512"},
        {head + "4095,YQ==" + keys, ":1: ITERATIONS must be a number from 4096 to 1000000"},
        {head + "4096,?" + keys, salt},
        {head + "4096," + std::string(44, 'A') + keys, salt},
        {head + "4096,YQ==,YQ==," + key, ":1: STOREDKEY must be " + bytes},
        {head + "4096,YQ==," + key + ",", ":1: SERVERKEY must be " + bytes},
        {head + "4096,YQ==" + keys + ",00ff",
         ":1: more than four fields; only ITERATIONS,SALT,STOREDKEY,SERVERKEY belong here"},
        {good + good, ":2: second line for user joe and mechanism " + name()},
    };
    for (const auto &[content, wrong] : cases) {
        const std::string file = folder_.file("verifiers", content);
        EXPECT_EQ(configure("verifiers"), wrong.empty() ? "" : file + wrong) << content;
    }
    for (const auto &[mode, warning] :
         {std::pair{0640, ""}, {0604, " can be read by everybody"}, {0620, " can be written by"}}) {
        const std::string file = folder_.file("verifiers", good);
        std::filesystem::permissions(file, std::filesystem::perms(mode));
        EXPECT_EQ(configure("verifiers"), "");
        const bool warned = said_.find(name() + ": " + file + " can be") != std::string::npos;
        EXPECT_TRUE(warned == (mode != 0640) && said_.find(warning) != std::string::npos) << said_;
    }
    EXPECT_EQ(configure("missing"), folder_.path + "/missing: No such file or directory");
    EXPECT_EQ(configure(folder_.path), folder_.path + ": Is a directory");
    EXPECT_EQ(configure(""), "verifiers_file is not set");
}

TEST_P(Scram, ClientsNeedNoVerifiersAndAcceptNobody) {
    ASSERT_EQ(configure("", QXGSS_CLIENT), "");
    Peer client(name(), "alice@@wonderland"), server(name());
    EXPECT_EQ(server.acquire("", GSS_C_ACCEPT), kNoVerifiers);
    EXPECT_EQ(exchange(client, server)->said, kNoVerifiers);
}

TEST_P(Scram, DisplaysMechanismStatusesAloneAndRefusesNothing) {
    const qxgss_OID own = registered(name()).pMechOid;
    qxgss_OID_desc other{1, const_cast<char *>("\x2B")};
    const auto shown = [&](OM_uint32 code, qxgss_OID mechanism, int type = GSS_C_MECH_CODE, OM_uint32 context = 0) {
        qxgss_buffer_desc text{};
        const std::string said = outcome(table().ftn_gssp_display_status, code, type, mechanism, &context, &text);
        return said + " " + taken(text);
    };
    EXPECT_EQ(shown(0x10B, own), kComplete + " The peer sent no token.");
    EXPECT_EQ(shown(0x108, nullptr), kComplete + " The logon string holds no password.");
    EXPECT_EQ(shown(GSASL_AUTHENTICATION_ERROR, own), kComplete + " " + gsasl_strerror(GSASL_AUTHENTICATION_ERROR));
    EXPECT_EQ(shown(0x10B, &other), "00010000/00000103 ");
    for (const std::string &text : {shown(0x10B, own, GSS_C_MECH_CODE, 1), shown(0x10B, own, GSS_C_GSS_CODE),
                                    shown(0x1FF, own), shown(0xE1000065, own)})
        EXPECT_EQ(text, "00050000/00000102 ");
    EXPECT_EQ(refusals(table()), "-rrrrrrrrr00000000rr0000"); // no messages, and no domains
}

} // namespace
