// What the SCRAM mechanisms add to what every mechanism keeps: the form of the tokens, what a wrong password and an
// unknown user look like, hostile peers, and wrong verifiers files. Every test runs for both mechanisms.
#include <utility>

#include <gsasl.h>

#include "tests/peer.h"

namespace {

using namespace support;
using namespace testkit;

using Lines = std::vector<std::string>;
const std::string kComplete = "00000000/00000000", kNoCredential = "00070000/00000109",
                  kNotProved = "000F0000/0000001F", kAuthzid = "000F0000/0000010E", kIterations = "00090000/0000010D";

class Scram : public testing::TestWithParam<RealMechanism> {
  protected:
    void SetUp() override { ASSERT_EQ(configure(kScram.settings), ""); }
    void TearDown() override { qxgss_shutdown(nullptr); }

    // Configures both mechanisms; the message of the one under test, empty when it is in use.
    std::string configure(const std::string &settings) {
        RealMechanism both[] = {kScram, kScram1};
        both[0].settings = both[1].settings = settings;
        said_ = configured(entries_of(both));
        const char *message = registered(name()).pszMessage;
        return message == nullptr ? "" : message;
    }
    std::string configure_file(const std::string &path) { return configure("verifiers_file = \"" + path + "\"\n"); }
    static std::string name() { return GetParam().name; }

    // Of a key: one in base64, how long it must be.
    const bool is_1_ = name() == kScram1.name;
    const std::string key_ = is_1_ ? "1q9YQJiTahLwUw87uIk1JkxZLfI=" : "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs=";
    const std::string keys_ = "," + key_ + "," + key_, bytes_ = std::string(is_1_ ? "20" : "32") + " bytes in base64";
    Folder folder_;
    std::string said_; // by all mechanisms
};
INSTANTIATE_TEST_SUITE_P(Both, Scram, testing::Values(kScram, kScram1), [](const auto &r) { return r.param.prefix; });

TEST_P(Scram, NeedsACredentialOfItsRoleAndTokensInOrder) {
    Peer lone(name()), acceptor(name()), initiator(name(), GetParam().logon);
    const std::string first = "n,,n=alice,r=x", no_token = "00090000/0000010B", early_token = "00090000/0000010C";
    EXPECT_EQ((Lines{lone.init(""), acceptor.acquire("", GSS_C_ACCEPT), acceptor.init(""), acceptor.accept(first),
                     initiator.accept(first), initiator.init(first), lone.accept(""), initiator.init(""),
                     initiator.init("")}),
              (Lines{kNoCredential, kComplete, kNoCredential, "00000001/00000000", kNoCredential, early_token, no_token,
                     "00000001/00000000", no_token}));
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
            EXPECT_TRUE(salts.back().size() == 16 && token.starts_with("r=") && token.ends_with(",i=4096")) << token;
        });
        EXPECT_EQ(server.said + server.token + server.source, kNotProved + "(none)") << logon;
    }
    ASSERT_EQ(salts.size(), 5U);
    EXPECT_TRUE(salts[0] == salts[1] && salts[2] == salts[3] && salts[2] != salts[4]);
    // Decoys follow what the file has: other salt lengths and counts than the usual ones too.
    configure_file(folder_.file("verifiers", "joe:{" + name() + "}5000,YWJjZGVmZ2hpamtsbW5vcHFyc3Q=" + keys_ + "\r\n"));
    Peer server(name());
    server.accept("n,,n=mallory,r=abc");
    EXPECT_TRUE(salt_of(server.token).size() == 28 && server.token.ends_with(",i=5000")) << server.token;
}

TEST_P(Scram, RefusesServersThatAskForTooFewOrTooManyIterations) {
    Peer client(name(), "alice@@wonderland");
    for (const std::string count : {"4095", "1000001", "4294971392", "99999999999999999999", "4096x", " 4096"}) {
        client.forget();
        client.init("");
        EXPECT_EQ(client.init(client.token.substr(11) + "abc,s=84W8Vq2rDQlfWHOD,i=" + count), kIterations) << count;
    }
}

// A client of GNU SASL's own asks to act as somebody else: its password is right, and that is not enough.
TEST_P(Scram, RefusesAnotherAuthorizationIdentity) {
    Gsasl *library = nullptr;
    ASSERT_EQ(gsasl_init(&library), GSASL_OK);
    for (const std::string other : {"bob", "alice"}) {
        Gsasl_session *session = nullptr;
        ASSERT_EQ(gsasl_client_start(library, name().c_str(), &session), GSASL_OK);
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
        EXPECT_TRUE(server.said == (other == "bob" ? kAuthzid : kComplete) && server.token.empty() == (other == "bob"));
    }
    gsasl_done(library);
}

TEST_P(Scram, SaysWhatIsWrongWithTheVerifiersFile) {
    const std::string head = "joe:{" + name() + "}", good = head + "4096,84W8Vq2rDQlfWHOD" + keys_ + "\n";
    const std::string form = ": expected USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY";
    const std::pair<std::string, std::string> cases[] = {
        {"# users\n\n \t\r\n" + good, ""},
        {"", ": no verifier for mechanism " + name()},
        {good + "joe\n", ":2" + form},
        {head + "4096,84W8Vq2rDQlfWHOD," + key_, ":1" + form},
        {"joe:{SCRAM-SHA-512}4096,YQ==" + keys_, ":1: unknown mechanism SCRAM-SHA-512"},
        {head + "4095,YQ==" + keys_, ":1: ITERATIONS must be a number from 4096 to 1000000"},
        {head + "4096," + std::string(44, 'A') + keys_, ":1: SALT must be 1 to 32 bytes in base64"},
        {head + "4096,YQ==,YQ==," + key_, ":1: STOREDKEY must be " + bytes_},
        {head + "4096,YQ==," + key_ + ",", ":1: SERVERKEY must be " + bytes_},
        {head + "4096,YQ==" + keys_ + ",00ff",
         ":1: more than four fields; only ITERATIONS,SALT,STOREDKEY,SERVERKEY belong here"},
        {good + good, ":2: second line for user joe and mechanism " + name()},
    };
    for (const auto &[content, wrong] : cases) {
        const std::string file = folder_.file("verifiers", content);
        EXPECT_EQ(configure_file(file), wrong.empty() ? "" : file + wrong) << content;
    }
    const std::string file = folder_.file("verifiers", good);
    for (const auto &[mode, warns] : {std::pair{0640, false}, {0604, true}, {0620, true}}) {
        std::filesystem::permissions(file, std::filesystem::perms(mode));
        EXPECT_EQ(configure_file(file), "");
        EXPECT_EQ(said_.find(name() + ": " + file + " can be ") != std::string::npos, warns) << said_;
    }
    EXPECT_EQ(configure_file(folder_.path + "/missing"), folder_.path + "/missing: No such file or directory");
    EXPECT_EQ(configure_file(folder_.path), folder_.path + ": Is a directory");
    EXPECT_EQ(configure(""), "verifiers_file is not set");
}

TEST_P(Scram, DisplaysMechanismStatusesAlone) {
    const qxgss_OID own = registered(name()).pMechOid;
    qxgss_OID_desc other{1, const_cast<char *>("\x2B")};
    const auto shown = [&](OM_uint32 code, qxgss_OID mechanism, int type = GSS_C_MECH_CODE, OM_uint32 context = 0) {
        Outputs out;
        const std::string said = outcome(registered(name()).MechFtnTable.ftn_gssp_display_status, code, type, mechanism,
                                         &context, out.buffer.out());
        return said + " " + out.text();
    };
    EXPECT_EQ(shown(0x108, nullptr), kComplete + " The logon string holds no password.");
    EXPECT_EQ(shown(GSASL_AUTHENTICATION_ERROR, own), kComplete + " " + gsasl_strerror(GSASL_AUTHENTICATION_ERROR));
    EXPECT_EQ(shown(0x10B, &other), "00010000/00000103 ");
    expect_all("00050000/00000102 ", {shown(0x10B, own, GSS_C_MECH_CODE, 1), shown(0x10B, own, GSS_C_GSS_CODE),
                                      shown(0x1FF, own), shown(0xE1000065, own)});
}

} // namespace
