// The SCRAM mechanisms through the framework: whole exchanges, what a wrong password and an unknown user look like,
// damaged and missing tokens, hostile peers, and wrong verifiers files. Every test runs for both mechanisms.
#include <cstring>
#include <utility>
#include <vector>

#include <gsasl.h>
#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

using namespace support;

struct Family {
    const char *name, *oid, *prefix;
    std::string der;
    std::size_t key; // its length
};
const Family kFamily[] = {{"SCRAM-SHA-256", "1.3.6.1.5.5.18", "SCRAM_SHA_256", "\x2B\x06\x01\x05\x05\x12", 32},
                          {"SCRAM-SHA-1", "1.3.6.1.5.5.14", "SCRAM_SHA_1", "\x2B\x06\x01\x05\x05\x0E", 20}};

struct Outcome {
    OM_uint32 major = GSS_S_COMPLETE, minor = 0;
    std::string token;
    bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return out << std::hex << outcome.major << "/" << outcome.minor << " '" << outcome.token << "'";
}

constexpr OM_uint32 kNoIdentity = 0x107, kNoPassword = 0x108, kNoToken = 0x10B, kEarlyToken = 0x10C, kAuthzid = 0x10E;
const Outcome kNoCredential{GSS_S_NO_CRED, 0x109, ""}, kNoVerifiers{GSS_S_NO_CRED, 0x10A, ""};
const Outcome kIterations{GSS_S_DEFECTIVE_TOKEN, 0x10D, ""};
const Outcome kOver{GSS_S_FAILURE, GSASL_MECHANISM_CALLED_TOO_MANY_TIMES, ""};

// One end of an exchange; what it holds goes with it.
struct Peer {
    explicit Peer(const qxgss_ftn_table_desc &used, const std::string &logon = "") : table(used) {
        EXPECT_TRUE(logon.empty() || acquire(logon) == Outcome{}) << logon;
    }
    Peer(const Peer &) = delete;
    ~Peer() {
        const OM_uint32 expected = context == nullptr ? GSS_S_NO_CONTEXT : GSS_S_COMPLETE;
        EXPECT_EQ(table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr), expected);
        EXPECT_EQ(table.ftn_gssp_release_cred(nullptr, &credential), GSS_S_COMPLETE);
        gssp_release_name(nullptr, &source);
    }

    Outcome acquire(const std::string &logon, qxgss_cred_usage_t usage = GSS_C_INITIATE) {
        Outcome out;
        qxgss_name_t name = imported(logon);
        out.major = table.ftn_gssp_acquire_cred(&out.minor, name, 0, nullptr, usage, &credential, nullptr, nullptr);
        gssp_release_name(nullptr, &name);
        return out;
    }
    Outcome init(const std::string &token) {
        Outcome outcome;
        qxgss_buffer_desc in = view(token), out{};
        outcome.major = table.ftn_gssp_init_sec_context(&outcome.minor, credential, &context, nullptr, nullptr, 0, 0,
                                                        nullptr, &in, &type, &out, &flags, &lifetime);
        outcome.token = taken(out);
        return outcome;
    }
    Outcome accept(const std::string &token) {
        Outcome outcome;
        qxgss_buffer_desc in = view(token), out{};
        outcome.major = table.ftn_gssp_accept_sec_context(&outcome.minor, &context, credential, &in, nullptr, &source,
                                                          &type, &out, &flags, &lifetime, &delegated);
        outcome.token = taken(out);
        return outcome;
    }
    // "source>target local open"
    std::string inquired() {
        qxgss_name_t from = nullptr, to = nullptr;
        int local = -1, open = -1;
        EXPECT_EQ(
            table.ftn_gssp_inquire_context(nullptr, context, &from, &to, nullptr, nullptr, nullptr, &local, &open),
            GSS_S_COMPLETE);
        const std::string names = taken(from) + ">" + taken(to);
        return names + " " + std::to_string(local) + " " + std::to_string(open);
    }

    const qxgss_ftn_table_desc &table;
    qxgss_cred_id_t credential = nullptr, delegated = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_name_t source = nullptr;
    qxgss_OID type = nullptr;
    OM_uint32 flags = 0, lifetime = 0;
};

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
        EXPECT_EQ(qxgss_configure(nullptr, role, file.c_str(), nullptr), GSS_S_COMPLETE);
        const char *message = registered(GetParam().name).pszMessage;
        return message == nullptr ? "" : message;
    }
    const qxgss_ftn_table_desc &table() const { return registered(GetParam().name).MechFtnTable; }

    std::string status_text(OM_uint32 value, OM_uint32 expected = GSS_S_COMPLETE, int type = GSS_C_MECH_CODE,
                            qxgss_OID mechanism = nullptr, OM_uint32 context = 0) const {
        qxgss_buffer_desc text{};
        EXPECT_EQ(table().ftn_gssp_display_status(nullptr, value, type, mechanism, &context, &text), expected) << value;
        return taken(text);
    }

    // An exchange of alice's, token number `number` of it passed through `damage`; whether both ends completed.
    template <typename Damage> bool run(std::size_t number, Damage damage, std::vector<std::string> &tokens) {
        Peer client(table(), "alice@@wonderland"), server(table());
        tokens.clear();
        Outcome last;
        while (tokens.size() < 4) {
            last = tokens.size() % 2 == 0 ? client.init(last.token) : server.accept(last.token);
            if (GSS_ERROR(last.major))
                return false;
            tokens.push_back(last.token);
            if (tokens.size() == number + 1)
                damage(last.token);
        }
        return last.major == GSS_S_COMPLETE && client.init(last.token) == Outcome{};
    }

    Folder folder_;
};

INSTANTIATE_TEST_SUITE_P(Both, Scram, testing::ValuesIn(kFamily), [](const auto &row) { return row.param.prefix; });

TEST_P(Scram, ExchangesFourTokensAndTellsTheUser) {
    Peer client(table(), "authcid=alice password=wonderland user=dbuser"), server(table());
    qxgss_buffer_desc properties{};
    std::vector<std::string> tokens{""};
    for (const char *pattern : {"n,,n=alice,r=", "r=", "c=biws,r=", "v="}) {
        EXPECT_EQ(server.source, nullptr);
        const Outcome out = tokens.size() % 2 == 1 ? client.init(tokens.back()) : server.accept(tokens.back());
        EXPECT_EQ(out.major, *pattern == 'v' ? GSS_S_COMPLETE : GSS_S_CONTINUE_NEEDED);
        EXPECT_EQ(out.token.rfind(pattern, 0), 0U) << out;
        tokens.push_back(out.token);
        EXPECT_TRUE(tokens.size() != 3 || table().ftn_gssp_inquire_properties_for_user(
                                              nullptr, server.context, &properties) == GSS_S_NO_CONTEXT);
    }
    EXPECT_EQ(tokens[2].substr(tokens[2].size() - 7), ",i=4096") << tokens[2];
    EXPECT_EQ(client.init(tokens[4]), Outcome{});
    for (Peer *peer : {&client, &server}) {
        EXPECT_EQ(bytes_of(*peer->type), GetParam().der);
        EXPECT_EQ(peer->flags, GSS_C_MUTUAL_FLAG);
        EXPECT_EQ(peer->lifetime, GSS_C_INDEFINITE);
        EXPECT_EQ(peer->delegated, nullptr);
        EXPECT_EQ(peer->inquired(), peer == &client ? "alice>(none) 1 1" : "alice>(none) 0 1");
    }
    EXPECT_EQ(taken(server.source), "alice");
    ASSERT_EQ(table().ftn_gssp_inquire_properties_for_user(nullptr, server.context, &properties), GSS_S_COMPLETE);
    EXPECT_EQ(described(taken(properties)), std::string("9:12[alice] 15:20[") + GetParam().name + "] 16:24[" +
                                                GetParam().oid + "] 17:16[" + GetParam().der + "]");
    EXPECT_EQ(client.init(tokens[4]), kOver);
    EXPECT_EQ(server.accept(tokens[3]), kOver);
}

TEST_P(Scram, ReadsTheLogonString) {
    // clang-format off
    const struct {
        std::string logon;
        OM_uint32 major, minor;
        const char *identity;
    } cases[] = {
        {"authcid=alice password=wonderland", 0, 0, "alice"},
        {"alice@@wonderland", 0, 0, "alice"},
        {"joe@REALM@@secret", 0, 0, "joe@REALM"},
        {"authcid='a,b=c' password=x", 0, 0, "a,b=c"},
        {"", GSS_S_NO_CRED, kNoIdentity, "(none)"},
        {"password=wonderland", GSS_S_NO_CRED, kNoIdentity, "(none)"},
        {"authcid=, password=wonderland", GSS_S_NO_CRED, kNoIdentity, "(none)"},
        {"authcid=alice", GSS_S_NO_CRED, kNoPassword, "(none)"},
        {"alice@REALM", GSS_S_NO_CRED, kNoPassword, "(none)"},
        {"authcid=alice password=''", GSS_S_NO_CRED, kNoPassword, "(none)"},
        {"authcid=alice authcid=bob password=x", GSS_S_BAD_NAME, 0x106, "(none)"},
        {std::string("authcid=alice\0password=x", 24), GSS_S_BAD_NAME, 0x106, "(none)"},
        {"authcid=\xFF password=x", GSS_S_BAD_NAME, 0x106, "(none)"},
    };
    // clang-format on
    for (const auto &[logon, major, minor, identity] : cases) {
        Peer client(table());
        EXPECT_EQ(client.acquire(logon), (Outcome{major, minor, ""})) << logon;
        qxgss_name_t name = nullptr;
        table().ftn_gssp_inquire_cred(nullptr, client.credential, &name, nullptr, nullptr, nullptr);
        EXPECT_EQ(taken(name), identity) << logon;
    }
    Peer lone(table()), acceptor(table()), initiator(table(), "alice@@wonderland");
    EXPECT_EQ(lone.init(""), kNoCredential);
    EXPECT_EQ(acceptor.acquire("", GSS_C_ACCEPT), Outcome{});
    EXPECT_EQ(acceptor.init(""), kNoCredential);
    EXPECT_EQ(acceptor.accept("n,,n=alice,r=x").major, GSS_S_CONTINUE_NEEDED);
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
        Peer client(table(), logon), server(table());
        const Outcome first = server.accept(client.init("").token);
        EXPECT_EQ(first.major, GSS_S_CONTINUE_NEEDED) << logon;
        EXPECT_EQ(first.token.substr(first.token.size() - 7), ",i=4096") << logon;
        salts.push_back(salt_of(first.token));
        EXPECT_EQ(salts.back().size(), 16U) << logon;
        EXPECT_EQ(server.accept(client.init(first.token).token),
                  (Outcome{GSS_S_UNAUTHORIZED, GSASL_AUTHENTICATION_ERROR, ""}));
        EXPECT_EQ(server.source, nullptr) << logon;
    }
    EXPECT_TRUE(salts[0] == salts[1] && salts[2] == salts[3] && salts[2] != salts[4]);
    // Decoys follow what the file has: other salt lengths and counts than the usual ones too.
    char *key = nullptr;
    ASSERT_EQ(gsasl_base64_to(std::string(GetParam().key, 'k').data(), GetParam().key, &key, nullptr), GSASL_OK);
    folder_.file("verifiers", std::string("joe:{") + GetParam().name + "}5000,YWJjZGVmZ2hpamtsbW5vcHFyc3Q=," + key +
                                  "," + key + "\r\n");
    gsasl_free(key);
    configure("verifiers");
    Peer server(table());
    const std::string first = server.accept("n,,n=mallory,r=abc").token;
    EXPECT_EQ(salt_of(first).size(), 28U);
    EXPECT_EQ(first.substr(first.size() - 7), ",i=5000");
}

TEST_P(Scram, RefusesDamagedMissingAndEarlyTokens) {
    std::vector<std::string> whole, tokens;
    ASSERT_TRUE(run(
        4, [](std::string &) {}, whole));
    for (std::size_t number = 0; number < whole.size(); ++number)
        for (std::size_t at = 0; at < whole[number].size(); ++at) {
            SCOPED_TRACE("token " + std::to_string(number) + " at " + std::to_string(at));
            EXPECT_FALSE(run(
                number, [&](std::string &token) { token.resize(at); }, tokens));
            EXPECT_TRUE(at != 0 || tokens.size() == number + 1);
            for (const char byte : {'!', '\0'})
                EXPECT_FALSE(run(
                    number, [&](std::string &token) { token[at] = byte; }, tokens));
        }
    Peer early(table(), "alice@@wonderland"), client(table(), "alice@@wonderland");
    EXPECT_EQ(early.init("n,,"), (Outcome{GSS_S_DEFECTIVE_TOKEN, kEarlyToken, ""}));
    EXPECT_EQ(early.context, nullptr);
    EXPECT_EQ(Peer(table()).accept(""), (Outcome{GSS_S_DEFECTIVE_TOKEN, kNoToken, ""}));
    // A context that failed stays failed, and can be inquired.
    client.init("");
    EXPECT_EQ(client.init(""), (Outcome{GSS_S_DEFECTIVE_TOKEN, kNoToken, ""}));
    EXPECT_EQ(client.init("r=x"), kOver);
    EXPECT_EQ(client.inquired(), "alice>(none) 1 0");
}

TEST_P(Scram, RefusesServersThatAskForTooFewOrTooManyIterations) {
    for (const char *count : {"0", "1", "4095", "1000001", "4294971392", "99999999999999999999", "4096x", " 4096"}) {
        Peer client(table(), "alice@@wonderland");
        const std::string nonce = client.init("").token.substr(std::strlen("n,,n=alice,r="));
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
        Peer server(table());
        Outcome out;
        for (int leg = 0; leg < 2; ++leg) {
            char *token = nullptr;
            std::size_t length = 0;
            ASSERT_EQ(gsasl_step(session, out.token.data(), out.token.size(), &token, &length), GSASL_NEEDS_MORE);
            out = server.accept(std::string(token, length));
            gsasl_free(token);
        }
        gsasl_finish(session);
        EXPECT_EQ(out.major, other == "bob" ? GSS_S_UNAUTHORIZED : GSS_S_COMPLETE);
        EXPECT_EQ(out.minor, other == "bob" ? kAuthzid : 0);
        EXPECT_EQ(out.token.empty(), other == "bob");
    }
    gsasl_done(library);
}

TEST_P(Scram, SaysWhatIsWrongWithTheVerifiersFile) {
    const std::string name = GetParam().name;
    const std::string key =
        GetParam().key == 20 ? "1q9YQJiTahLwUw87uIk1JkxZLfI=" : "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs=";
    const std::string bytes = std::to_string(GetParam().key) + " bytes in base64", keys = "," + key + "," + key;
    const std::string head = "joe:{" + name + "}", good = head + "4096,84W8Vq2rDQlfWHOD" + keys + "\n";
    const std::string form = ":1: expected USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY";
    const std::string count = ":1: ITERATIONS must be a number from 4096 to 1000000";
    const std::string salt = ":1: SALT must be 1 to 32 bytes in base64";
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {good, ""},
        {"# users\n\n \t\r\n" + good, ""},
        {"", ": no verifier for mechanism " + name},
        {good + "joe\n", ":2" + form.substr(2)},
        {"joe:" + key, form},
        {good.substr(3), form},
        {head + "4096,84W8Vq2rDQlfWHOD," + key, form},
        {"joe:{SCRAM-SHA-512}4096,YQ==" + keys, ":1: unknown mechanism SCRAM-SHA-512"},
        {head + "4095,YQ==" + keys, count},
        {head + "1000001,YQ==" + keys, count},
        {head + "4096x,YQ==" + keys, count},
        {head + "4096," + keys, salt},
        {head + "4096,?" + keys, salt},
        {head + "4096," + std::string(44, 'A') + keys, salt},
        {head + "4096,YQ==,YQ==," + key, ":1: STOREDKEY must be " + bytes},
        {head + "4096,YQ==," + key + ",", ":1: SERVERKEY must be " + bytes},
        {head + "4096,YQ==" + keys + ",00ff",
         ":1: more than four fields; only ITERATIONS,SALT,STOREDKEY,SERVERKEY belong here"},
        {good + good, ":2: second line for user joe and mechanism " + name},
    };
    // clang-format on
    for (const auto &[content, wrong] : cases) {
        const std::string file = folder_.file("verifiers", content);
        EXPECT_EQ(configure("verifiers"), wrong.empty() ? "" : file + wrong) << content;
    }
    EXPECT_EQ(configure("missing"), folder_.path + "/missing: No such file or directory");
    EXPECT_EQ(configure(folder_.path), folder_.path + ": Is a directory");
    EXPECT_EQ(configure(""), "verifiers_file is not set");
}

TEST_P(Scram, ClientsNeedNoVerifiersAndAcceptNobody) {
    ASSERT_EQ(configure("", QXGSS_CLIENT), "");
    Peer client(table(), "alice@@wonderland"), server(table());
    EXPECT_EQ(server.acquire("", GSS_C_ACCEPT), kNoVerifiers);
    EXPECT_EQ(server.accept(client.init("").token), kNoVerifiers);
}

TEST_P(Scram, DisplaysMechanismStatusesAlone) {
    qxgss_OID_desc other{1, const_cast<char *>("\x2B")};
    EXPECT_EQ(status_text(GSASL_AUTHENTICATION_ERROR), gsasl_strerror(GSASL_AUTHENTICATION_ERROR));
    EXPECT_EQ(status_text(kNoPassword), "The logon string holds no password.");
    EXPECT_EQ(status_text(kNoToken, GSS_S_BAD_MECH, GSS_C_MECH_CODE, &other) +
                  status_text(kNoToken, GSS_S_BAD_STATUS, GSS_C_MECH_CODE, nullptr, 1) +
                  status_text(GSS_S_FAILURE, GSS_S_BAD_STATUS, GSS_C_GSS_CODE) + status_text(0x1FF, GSS_S_BAD_STATUS) +
                  status_text(0xE1000065, GSS_S_BAD_STATUS),
              "");
    EXPECT_EQ(status_text(kNoToken, GSS_S_COMPLETE, GSS_C_MECH_CODE, registered(GetParam().name).pMechOid),
              "The peer sent no token.");
}

} // namespace
