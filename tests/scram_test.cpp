// The SCRAM mechanisms through the framework: whole exchanges, what a wrong password and an unknown user look like,
// damaged and missing tokens, hostile peers, and wrong verifiers files. Every test runs for both mechanisms.
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gsasl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "qxgss/gssp.h"
#include "qxgss/qxgss_records.h"

namespace {

struct Family {
    const char *name;
    const char *oid;
    const char *prefix;
    std::string der;
};
const Family kFamily[] = {{"SCRAM-SHA-256", "1.3.6.1.5.5.18", "SCRAM_SHA_256", "\x2B\x06\x01\x05\x05\x12"},
                          {"SCRAM-SHA-1", "1.3.6.1.5.5.14", "SCRAM_SHA_1", "\x2B\x06\x01\x05\x05\x0E"}};

struct Outcome {
    OM_uint32 major = GSS_S_COMPLETE;
    OM_uint32 minor = 0;
    std::string token;
};

bool operator==(const Outcome &a, const Outcome &b) {
    return a.major == b.major && a.minor == b.minor && a.token == b.token;
}

std::ostream &operator<<(std::ostream &out, const Outcome &outcome) {
    return out << std::hex << outcome.major << "/" << outcome.minor << " '" << outcome.token << "'";
}

std::string taken(qxgss_buffer_desc buffer) {
    const std::string text(static_cast<char *>(buffer.value), buffer.length);
    gssp_release_buffer(nullptr, &buffer);
    return text;
}

std::string text_of(qxgss_name_t pName) {
    if (pName == nullptr)
        return "(none)";
    const qxgss_buffer_desc &text = pName->pElements[0].Name;
    std::string result(static_cast<char *>(text.value), text.length);
    gssp_release_name(nullptr, &pName);
    return result;
}

qxgss_name_t name(std::string text, qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) {
    qxgss_buffer_desc buffer{text.size(), text.data()};
    qxgss_name_t pName = nullptr;
    EXPECT_EQ(qxgss_import_name(nullptr, &buffer, type, &pName), GSS_S_COMPLETE);
    return pName;
}

// One end of an exchange; what it holds goes with it.
class Peer {
  public:
    explicit Peer(const qxgss_ftn_table_desc &table) : table_(table) {}
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    ~Peer() {
        const OM_uint32 expected = context == nullptr ? GSS_S_NO_CONTEXT : GSS_S_COMPLETE;
        EXPECT_EQ(table_.ftn_gssp_delete_sec_context(nullptr, &context, nullptr), expected);
        EXPECT_EQ(table_.ftn_gssp_release_cred(nullptr, &credential), GSS_S_COMPLETE);
        gssp_release_name(nullptr, &source);
    }

    Outcome acquire(const std::string &logon, qxgss_cred_usage_t usage = GSS_C_INITIATE) {
        Outcome outcome;
        qxgss_name_t pName = name(logon);
        outcome.major =
            table_.ftn_gssp_acquire_cred(&outcome.minor, pName, 0, nullptr, usage, &credential, nullptr, nullptr);
        gssp_release_name(nullptr, &pName);
        return outcome;
    }
    Outcome init(std::string token) {
        Outcome outcome;
        qxgss_buffer_desc in{token.size(), token.data()}, out{};
        outcome.major = table_.ftn_gssp_init_sec_context(&outcome.minor, credential, &context, nullptr, nullptr, 0, 0,
                                                         nullptr, &in, &type, &out, &flags, &lifetime);
        outcome.token = taken(out);
        return outcome;
    }
    Outcome accept(std::string token) {
        Outcome outcome;
        qxgss_buffer_desc in{token.size(), token.data()}, out{};
        outcome.major = table_.ftn_gssp_accept_sec_context(&outcome.minor, &context, credential, &in, nullptr, &source,
                                                           &type, &out, &flags, &lifetime, &delegated);
        outcome.token = taken(out);
        return outcome;
    }

    qxgss_cred_id_t credential = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_name_t source = nullptr;
    qxgss_OID type = nullptr;
    OM_uint32 flags = 0;
    OM_uint32 lifetime = 0;
    qxgss_cred_id_t delegated = nullptr;

  private:
    const qxgss_ftn_table_desc &table_;
};

constexpr OM_uint32 kDamaged = GSS_S_DEFECTIVE_TOKEN;
constexpr OM_uint32 kNoIdentity = 0x107, kNoPassword = 0x108, kNoCredential = 0x109, kNoVerifiers = 0x10A,
                    kNoToken = 0x10B, kEarlyToken = 0x10C, kIterations = 0x10D, kAuthzid = 0x10E;

class Scram : public testing::TestWithParam<Family> {
  protected:
    Scram() {
        char folder[] = "/tmp/scram_test.XXXXXX";
        folder_ = mkdtemp(folder);
    }
    ~Scram() override {
        qxgss_shutdown(nullptr);
        for (const char *file : {"/qxgss.conf", "/verifiers"})
            unlink((folder_ + file).c_str());
        rmdir(folder_.c_str());
    }

    // Configures both mechanisms; the message of the one under test, empty when it is in use.
    std::string configure(const std::string &verifiers, OM_uint32 role = QXGSS_SERVER) {
        qxgss_shutdown(nullptr);
        std::ofstream config(folder_ + "/qxgss.conf");
        for (const Family &family : kFamily)
            config << "[[mechanism]]\nname = \"" << family.name << "\"\noid = \"" << family.oid << "\"\nlibrary = \""
                   << SCRAM_LIBRARY << "\"\nprefix = \"" << family.prefix << "\"\n[mechanism.settings]\n"
                   << (verifiers.empty() ? "" : "verifiers_file = \"" + verifiers + "\"\n");
        config.close();
        EXPECT_EQ(qxgss_configure(nullptr, role, (folder_ + "/qxgss.conf").c_str(), nullptr), GSS_S_COMPLETE);
        for (OM_uint32 i = 0; i < MechCount; ++i)
            if (pMechInfo[i].pszMechName == std::string(GetParam().name))
                info_ = &pMechInfo[i];
        return info_->pszMessage == nullptr ? "" : info_->pszMessage;
    }
    void serve() { ASSERT_EQ(configure(SCRAM_VERIFIERS), ""); }

    const qxgss_ftn_table_desc &table() const { return info_->MechFtnTable; }

    std::string status_text(OM_uint32 minor) const {
        OM_uint32 context = 0;
        qxgss_buffer_desc text{};
        EXPECT_EQ(table().ftn_gssp_display_status(nullptr, minor, GSS_C_MECH_CODE, info_->pMechOid, &context, &text),
                  GSS_S_COMPLETE);
        return taken(text);
    }

    // The tokens of an exchange, the one with this number passed through `damage`; whether both ends completed.
    template <typename Damage>
    bool run(const std::string &logon, std::size_t number, Damage damage, std::vector<std::string> &tokens) {
        Peer client(table()), server(table());
        EXPECT_EQ(client.acquire(logon).major, GSS_S_COMPLETE);
        tokens.clear();
        Outcome last;
        while (tokens.size() < 4) {
            const bool isClient = tokens.size() % 2 == 0;
            last = isClient ? client.init(last.token) : server.accept(last.token);
            if (GSS_ERROR(last.major))
                return false;
            tokens.push_back(last.token);
            if (tokens.size() == number + 1)
                damage(last.token);
        }
        return last.major == GSS_S_COMPLETE && client.init(last.token) == Outcome{};
    }

    std::string folder_;
    const MechInfo_t *info_ = nullptr;
};

INSTANTIATE_TEST_SUITE_P(Both, Scram, testing::ValuesIn(kFamily), [](const auto &row) { return row.param.prefix; });

TEST_P(Scram, ExchangesFourTokens) {
    serve();
    Peer client(table()), server(table());
    ASSERT_EQ(client.acquire("authcid=alice password=wonderland user=dbuser").major, GSS_S_COMPLETE);
    const Outcome clientFirst = client.init("");
    EXPECT_EQ(clientFirst.major, GSS_S_CONTINUE_NEEDED);
    EXPECT_EQ(clientFirst.token.rfind("n,,n=alice,r=", 0), 0U) << clientFirst;
    const Outcome serverFirst = server.accept(clientFirst.token);
    EXPECT_EQ(serverFirst.major, GSS_S_CONTINUE_NEEDED);
    EXPECT_EQ(serverFirst.token.substr(serverFirst.token.size() - 7), ",i=4096") << serverFirst;
    EXPECT_EQ(server.source, nullptr);
    const Outcome clientFinal = client.init(serverFirst.token);
    EXPECT_EQ(clientFinal.major, GSS_S_CONTINUE_NEEDED);
    EXPECT_EQ(clientFinal.token.rfind("c=biws,r=", 0), 0U) << clientFinal;
    const Outcome serverFinal = server.accept(clientFinal.token);
    EXPECT_EQ(serverFinal.major, GSS_S_COMPLETE);
    EXPECT_EQ(serverFinal.token.rfind("v=", 0), 0U) << serverFinal;
    EXPECT_EQ(client.init(serverFinal.token), Outcome{});

    for (Peer *peer : {&client, &server}) {
        EXPECT_EQ(std::string(static_cast<char *>(peer->type->elements), peer->type->length), GetParam().der);
        EXPECT_EQ(peer->flags, GSS_C_MUTUAL_FLAG);
        EXPECT_EQ(peer->lifetime, GSS_C_INDEFINITE);
        EXPECT_EQ(peer->delegated, nullptr);
        qxgss_name_t pSource = nullptr, pTarget = nullptr;
        int isLocal = -1, isOpen = -1;
        EXPECT_EQ(table().ftn_gssp_inquire_context(nullptr, peer->context, &pSource, &pTarget, nullptr, nullptr,
                                                   nullptr, &isLocal, &isOpen),
                  GSS_S_COMPLETE);
        EXPECT_EQ(text_of(pSource), "alice");
        EXPECT_EQ(text_of(pTarget), "(none)");
        EXPECT_EQ(isLocal, peer == &client);
        EXPECT_EQ(isOpen, 1);
    }
    EXPECT_EQ(text_of(std::exchange(server.source, nullptr)), "alice");

    // The exchange is over for both.
    const Outcome over{GSS_S_FAILURE, GSASL_MECHANISM_CALLED_TOO_MANY_TIMES, ""};
    EXPECT_EQ(client.init(serverFinal.token), over);
    EXPECT_EQ(server.accept(clientFinal.token), over);
}

TEST_P(Scram, GivesUserPropertiesOnceEstablished) {
    serve();
    Peer client(table()), server(table());
    client.acquire("bob@@builder");
    qxgss_buffer_desc properties{};
    const Outcome serverFirst = server.accept(client.init("").token);
    EXPECT_EQ(table().ftn_gssp_inquire_properties_for_user(nullptr, server.context, &properties), GSS_S_NO_CONTEXT);
    ASSERT_EQ(server.accept(client.init(serverFirst.token).token).major, GSS_S_COMPLETE);
    ASSERT_EQ(table().ftn_gssp_inquire_properties_for_user(nullptr, server.context, &properties), GSS_S_COMPLETE);

    const std::string bytes = taken(properties);
    const auto *const data = reinterpret_cast<const unsigned char *>(bytes.data());
    const std::pair<int, std::string> expected[] = {
        {9, "bob"}, {15, GetParam().name}, {16, GetParam().oid}, {17, GetParam().der}};
    std::size_t at = 0;
    for (const auto &[id, text] : expected) {
        qxat_data_header_t header{};
        ASSERT_TRUE(qxgss_record_at(data, bytes.size(), at, &header)) << id;
        EXPECT_EQ(header.qxgss_DataId, id);
        EXPECT_EQ(header.qxgss_Length, (text.size() + 7 + 3) / 4 * 4) << id;
        std::string content = bytes.substr(at + 4, header.qxgss_Length - 4U);
        EXPECT_EQ(qxgss_get16(data + at + 4), text.size()) << id;
        content.erase(0, 2).erase(content.find_last_not_of('\0') + 1);
        EXPECT_EQ(content, text);
        at += header.qxgss_Length;
    }
    EXPECT_EQ(at, bytes.size());
}

TEST_P(Scram, ReadsTheLogonString) {
    serve();
    const struct {
        std::string logon;
        OM_uint32 major, minor;
        std::string identity;
    } cases[] = {
        {"authcid=alice password=wonderland", 0, 0, "alice"},
        {"alice@@wonderland", 0, 0, "alice"},
        {"joe@REALM@@secret", 0, 0, "joe@REALM"},
        {"authcid='a,b=c' password=x", 0, 0, "a,b=c"},
        {"", GSS_S_NO_CRED, kNoIdentity, ""},
        {"password=wonderland", GSS_S_NO_CRED, kNoIdentity, ""},
        {"authcid=, password=wonderland", GSS_S_NO_CRED, kNoIdentity, ""},
        {"authcid=alice", GSS_S_NO_CRED, kNoPassword, ""},
        {"alice@REALM", GSS_S_NO_CRED, kNoPassword, ""},
        {"authcid=alice password=''", GSS_S_NO_CRED, kNoPassword, ""},
        {"authcid=alice authcid=bob password=x", GSS_S_BAD_NAME, 0x106, ""},
        {std::string("authcid=alice\0password=x", 24), GSS_S_BAD_NAME, 0x106, ""},
        {"authcid=\xFF password=x", GSS_S_BAD_NAME, 0x106, ""},
    };
    for (const auto &[logon, major, minor, identity] : cases) {
        Peer client(table());
        EXPECT_EQ(client.acquire(logon), (Outcome{major, minor, ""})) << logon;
        qxgss_name_t pName = nullptr;
        table().ftn_gssp_inquire_cred(nullptr, client.credential, &pName, nullptr, nullptr, nullptr);
        EXPECT_EQ(text_of(pName), identity.empty() ? "(none)" : identity) << logon;
    }
    EXPECT_EQ(status_text(kNoPassword), "The logon string holds no password.");

    Peer lone(table()), acceptor(table()), initiator(table());
    EXPECT_EQ(lone.init(""), (Outcome{GSS_S_NO_CRED, kNoCredential, ""}));
    EXPECT_EQ(acceptor.acquire("", GSS_C_ACCEPT), Outcome{});
    EXPECT_EQ(acceptor.init(""), (Outcome{GSS_S_NO_CRED, kNoCredential, ""}));
    EXPECT_EQ(acceptor.accept("n,,n=alice,r=x").major, GSS_S_CONTINUE_NEEDED);
    initiator.acquire("alice@@wonderland");
    EXPECT_EQ(initiator.accept("n,,n=alice,r=x"), (Outcome{GSS_S_NO_CRED, kNoCredential, ""}));
    EXPECT_EQ(initiator.context, nullptr);
}

// A server-first message up to the salt's value, and the value.
std::string salt_of(const std::string &serverFirst) {
    const std::size_t begin = serverFirst.find(",s=") + 3;
    return serverFirst.substr(begin, serverFirst.find(',', begin) - begin);
}

TEST_P(Scram, UnknownUserLooksLikeAWrongPassword) {
    serve();
    std::vector<std::string> salts;
    for (const char *logon : {"alice@@wrong", "alice@@wrong", "mallory@@x", "mallory@@x", "trent@@x"}) {
        Peer client(table()), server(table());
        client.acquire(logon);
        const Outcome serverFirst = server.accept(client.init("").token);
        EXPECT_EQ(serverFirst.major, GSS_S_CONTINUE_NEEDED) << logon;
        EXPECT_EQ(serverFirst.token.substr(serverFirst.token.size() - 7), ",i=4096") << logon;
        salts.push_back(salt_of(serverFirst.token));
        EXPECT_EQ(salts.back().size(), 16U) << logon;
        EXPECT_EQ(server.accept(client.init(serverFirst.token).token),
                  (Outcome{GSS_S_UNAUTHORIZED, GSASL_AUTHENTICATION_ERROR, ""}))
            << logon;
        EXPECT_EQ(server.source, nullptr) << logon;
    }
    EXPECT_EQ(salts[0], salts[1]);
    EXPECT_EQ(salts[2], salts[3]);
    EXPECT_NE(salts[2], salts[4]);
    EXPECT_EQ(status_text(GSASL_AUTHENTICATION_ERROR), gsasl_strerror(GSASL_AUTHENTICATION_ERROR));
}

// Decoys follow what the file has: other salt lengths and counts than the usual ones too.
TEST_P(Scram, DecoysFollowTheFile) {
    const std::size_t keyLength = GetParam().name == std::string("SCRAM-SHA-1") ? 20 : 32;
    char *pKey = nullptr;
    ASSERT_EQ(gsasl_base64_to(std::string(keyLength, 'k').data(), keyLength, &pKey, nullptr), GSASL_OK);
    std::ofstream(folder_ + "/verifiers")
        << "joe:{" << GetParam().name << "}5000,YWJjZGVmZ2hpamtsbW5vcHFyc3Q=," << pKey << "," << pKey << "\r\n";
    gsasl_free(pKey);
    configure("verifiers");
    Peer server(table());
    const std::string serverFirst = server.accept("n,,n=mallory,r=abc").token;
    EXPECT_EQ(salt_of(serverFirst).size(), 28U);
    EXPECT_EQ(serverFirst.substr(serverFirst.size() - 7), ",i=5000");
}

TEST_P(Scram, RefusesDamagedTokens) {
    serve();
    std::vector<std::string> tokens;
    ASSERT_TRUE(run(
        "alice@@wonderland", 4, [](std::string &) {}, tokens));
    const std::vector<std::string> whole = tokens;
    for (std::size_t number = 0; number < whole.size(); ++number) {
        for (std::size_t at = 0; at < whole[number].size(); ++at) {
            const auto cut = [&](std::string &token) { token.resize(at); };
            EXPECT_FALSE(run("alice@@wonderland", number, cut, tokens)) << "token " << number << " cut at " << at;
            for (const char byte : {'!', '\0'}) {
                const auto change = [&](std::string &token) { token[at] = byte; };
                EXPECT_FALSE(run("alice@@wonderland", number, change, tokens))
                    << "token " << number << " changed at " << at;
            }
        }
    }
}

TEST_P(Scram, RefusesMissingAndEarlyTokens) {
    serve();
    Peer early(table());
    early.acquire("alice@@wonderland");
    EXPECT_EQ(early.init("n,,"), (Outcome{kDamaged, kEarlyToken, ""}));
    EXPECT_EQ(early.context, nullptr);
    EXPECT_EQ(Peer(table()).accept(""), (Outcome{kDamaged, kNoToken, ""}));
    for (std::size_t number = 0; number < 4; ++number) {
        std::vector<std::string> tokens;
        EXPECT_FALSE(run(
            "alice@@wonderland", number, [](std::string &token) { token.clear(); }, tokens))
            << number;
        EXPECT_EQ(tokens.size(), number + 1) << number;
    }
    // A context that failed stays failed, and can be inquired.
    Peer client(table());
    client.acquire("alice@@wonderland");
    client.init("");
    EXPECT_EQ(client.init(""), (Outcome{kDamaged, kNoToken, ""}));
    EXPECT_EQ(client.init("r=x"), (Outcome{GSS_S_FAILURE, GSASL_MECHANISM_CALLED_TOO_MANY_TIMES, ""}));
    int isOpen = -1;
    EXPECT_EQ(table().ftn_gssp_inquire_context(nullptr, client.context, nullptr, nullptr, nullptr, nullptr, nullptr,
                                               nullptr, &isOpen),
              GSS_S_COMPLETE);
    EXPECT_EQ(isOpen, 0);
}

TEST_P(Scram, RefusesServersThatAskForTooFewOrTooManyIterations) {
    serve();
    for (const char *count : {"0", "1", "4095", "1000001", "4294971392", "99999999999999999999", "4096x", " 4096"}) {
        Peer client(table());
        client.acquire("alice@@wonderland");
        const std::string nonce = client.init("").token.substr(std::strlen("n,,n=alice,r="));
        EXPECT_EQ(client.init("r=" + nonce + "abc,s=84W8Vq2rDQlfWHOD,i=" + count), (Outcome{kDamaged, kIterations, ""}))
            << count;
    }
}

// A client of GNU SASL's own asks to act as somebody else: its password is right, and that is not enough.
TEST_P(Scram, RefusesAnotherAuthorizationIdentity) {
    serve();
    Gsasl *pLibrary = nullptr;
    ASSERT_EQ(gsasl_init(&pLibrary), GSASL_OK);
    for (const std::string other : {"bob", "alice"}) {
        Gsasl_session *pSession = nullptr;
        ASSERT_EQ(gsasl_client_start(pLibrary, GetParam().name, &pSession), GSASL_OK);
        gsasl_property_set(pSession, GSASL_AUTHID, "alice");
        gsasl_property_set(pSession, GSASL_PASSWORD, "wonderland");
        gsasl_property_set(pSession, GSASL_AUTHZID, other.c_str());
        Peer server(table());
        Outcome outcome;
        for (int leg = 0; leg < 2; ++leg) {
            char *pToken = nullptr;
            std::size_t length = 0;
            ASSERT_EQ(gsasl_step(pSession, outcome.token.data(), outcome.token.size(), &pToken, &length),
                      GSASL_NEEDS_MORE);
            outcome = server.accept(std::string(pToken, length));
            gsasl_free(pToken);
        }
        gsasl_finish(pSession);
        EXPECT_EQ(outcome.major, other == "bob" ? GSS_S_UNAUTHORIZED : GSS_S_COMPLETE);
        EXPECT_EQ(outcome.minor, other == "bob" ? kAuthzid : 0);
        EXPECT_EQ(outcome.token.empty(), other == "bob");
    }
    gsasl_done(pLibrary);
}

TEST_P(Scram, SaysWhatIsWrongWithTheVerifiersFile) {
    const std::string name = GetParam().name;
    const bool isSha1 = name == "SCRAM-SHA-1";
    const std::string key = isSha1 ? "1q9YQJiTahLwUw87uIk1JkxZLfI=" : "oaUcZlVm2nr2mYTed1y7K41VdPvWxp4JMxkNpZryWGs=";
    const std::string bytes = isSha1 ? "20 bytes in base64" : "32 bytes in base64";
    const std::string head = "joe:{" + name + "}", good = head + "4096,84W8Vq2rDQlfWHOD," + key + "," + key + "\n";
    const std::string form = "expected USER:{MECHANISM}ITERATIONS,SALT,STOREDKEY,SERVERKEY";
    const struct {
        std::string content, wrong;
    } cases[] = {
        {good, ""},
        {"# users\n\n \t\r\n" + good, ""},
        {"", ": no verifier for mechanism " + name},
        {good + "joe\n", ":2: " + form},
        {"joe:" + key, ":1: " + form},
        {good.substr(3), ":1: " + form},
        {head + "4096,84W8Vq2rDQlfWHOD," + key, ":1: " + form},
        {"joe:{SCRAM-SHA-512}4096,YQ==," + key + "," + key, ":1: unknown mechanism SCRAM-SHA-512"},
        {head + "4095,YQ==," + key + "," + key, ":1: ITERATIONS must be a number from 4096 to 1000000"},
        {head + "1000001,YQ==," + key + "," + key, ":1: ITERATIONS must be a number from 4096 to 1000000"},
        {head + "4096x,YQ==," + key + "," + key, ":1: ITERATIONS must be a number from 4096 to 1000000"},
        {head + "4096,," + key + "," + key, ":1: SALT must be 1 to 32 bytes in base64"},
        {head + "4096,?," + key + "," + key, ":1: SALT must be 1 to 32 bytes in base64"},
        {head + "4096," + std::string(44, 'A') + "," + key + "," + key, ":1: SALT must be 1 to 32 bytes in base64"},
        {head + "4096,YQ==,YQ==," + key, ":1: STOREDKEY must be " + bytes},
        {head + "4096,YQ==," + key + ",", ":1: SERVERKEY must be " + bytes},
        {head + "4096,YQ==," + key + "," + key + ",00ff",
         ":1: more than four fields; only ITERATIONS,SALT,STOREDKEY,SERVERKEY belong here"},
        {good + good, ":2: second line for user joe and mechanism " + name},
    };
    const std::string file = folder_ + "/verifiers";
    for (const auto &[content, wrong] : cases) {
        std::ofstream(file) << content;
        EXPECT_EQ(configure("verifiers"), wrong.empty() ? "" : file + wrong) << content;
    }
    EXPECT_EQ(configure("missing"), folder_ + "/missing: No such file or directory");
    EXPECT_EQ(configure(folder_), folder_ + ": Is a directory");
    EXPECT_EQ(configure(""), "verifiers_file is not set");
}

TEST_P(Scram, ClientsNeedNoVerifiersAndAcceptNobody) {
    ASSERT_EQ(configure("", QXGSS_CLIENT), "");
    Peer client(table()), server(table());
    EXPECT_EQ(client.acquire("alice@@wonderland"), Outcome{});
    EXPECT_EQ(server.acquire("", GSS_C_ACCEPT), (Outcome{GSS_S_NO_CRED, kNoVerifiers, ""}));
    EXPECT_EQ(server.accept(client.init("").token), (Outcome{GSS_S_NO_CRED, kNoVerifiers, ""}));
}

TEST_P(Scram, DisplaysMechanismStatusesAlone) {
    serve();
    qxgss_OID_desc other{1, const_cast<char *>("\x2B")};
    const struct {
        OM_uint32 value;
        int type;
        qxgss_OID mechanism;
        OM_uint32 context, major;
    } cases[] = {
        {kNoToken, GSS_C_MECH_CODE, nullptr, 0, GSS_S_COMPLETE},
        {kNoToken, GSS_C_MECH_CODE, &other, 0, GSS_S_BAD_MECH},
        {kNoToken, GSS_C_MECH_CODE, nullptr, 1, GSS_S_BAD_STATUS},
        {GSS_S_FAILURE, GSS_C_GSS_CODE, nullptr, 0, GSS_S_BAD_STATUS},
        {0x1FF, GSS_C_MECH_CODE, nullptr, 0, GSS_S_BAD_STATUS},
        {0xE1000065, GSS_C_MECH_CODE, nullptr, 0, GSS_S_BAD_STATUS},
    };
    for (const auto &[value, type, mechanism, context, major] : cases) {
        OM_uint32 messageContext = context;
        qxgss_buffer_desc text{};
        EXPECT_EQ(table().ftn_gssp_display_status(nullptr, value, type, mechanism, &messageContext, &text), major)
            << value << " " << type;
        EXPECT_EQ(taken(text), major == GSS_S_COMPLETE ? "The peer sent no token." : "");
    }
}

} // namespace
