// The adapter for the host's mechanisms, driven through its function table against a private Kerberos realm and an NTLM
// user file: real tokens, real messages, and what a user is told when something is missing.
#include <algorithm>
#include <functional>
#include <sstream>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support.h"

namespace {

using namespace std::string_literals;
using namespace support;

std::string folder;

std::string run(const std::string &command) {
    std::string output;
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    return pipe != nullptr && pclose(pipe) == 0 ? output : "failed: " + output;
}

void realm(const std::string &verb) {
    const std::string said = run(REALM_SCRIPT " " + verb + " " + folder);
    ASSERT_NE(said.rfind("failed: ", 0), 0U) << said;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);)
        if (const auto equals = line.find('='); equals != std::string::npos)
            setenv(line.substr(0, equals).c_str(), line.substr(equals + 1).c_str(), 1);
}

class Realm : public testing::Environment {
    void SetUp() override {
        folder = folder_.path;
        ASSERT_NO_FATAL_FAILURE(realm("start"));
        // Only the mechanism's setting leads to the service's keys.
        setenv("KRB5_KTNAME", (folder + "/none.keytab").c_str(), 1);
        const std::string keys = "[mechanism.settings]\nkeytab_file = \"" + folder + "/service.keytab\"\n";
        const std::string file = folder_.file(
            "qxgss.conf", mechanism("absent", "1.3.6.1.4.1.99999.1", "HOSTGSS", HOSTGSS_LIBRARY) +
                              mechanism("kerberos", "1.2.840.113554.1.2.2", "HOSTGSS", HOSTGSS_LIBRARY, keys) +
                              mechanism("ntlm", "1.3.6.1.4.1.311.2.2.10", "HOSTGSS", HOSTGSS_LIBRARY));
        qxgss_buffer_desc message{};
        ASSERT_EQ(qxgss_configure(nullptr, QXGSS_SERVER, file.c_str(), &message), GSS_S_COMPLETE) << text_of(message);
        EXPECT_NE(taken(message).find("absent: the host's GSS-API library has no mechanism 1.3.6.1.4.1.99999.1"),
                  std::string::npos);
    }
    void TearDown() override {
        realm("stop");
        qxgss_shutdown(nullptr);
    }
    Folder folder_;
};

const auto *const environment = testing::AddGlobalTestEnvironment(new Realm);

struct Name {
    qxgss_name_t handle = nullptr;
    Name() = default;
    Name(const std::string &text, qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) : handle(imported(text, type)) {}
    Name(const Name &) = delete;
    ~Name() { gssp_release_name(nullptr, &handle); }
};

const Name &service() {
    static const Name name("host@localhost", GSS_C_NT_HOSTBASED_SERVICE);
    return name;
}

// One side: what its calls left.
struct Side {
    explicit Side(const MechInfo_t &used) : info(used), table(used.MechFtnTable) {}
    explicit Side(const char *name) : Side(registered(name)) {}
    Side(const Side &) = delete;
    ~Side() {
        if (context != nullptr)
            table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr);
        for (qxgss_cred_id_t *handle : {&credential, &delegated})
            if (*handle != nullptr)
                table.ftn_gssp_release_cred(nullptr, handle);
    }

    bool acquire(const char *logon, int usage) {
        qxgss_OID_set_desc mechs = {1, info.pMechOid};
        qxgss_name_t name = logon == nullptr ? nullptr : imported(logon);
        major =
            table.ftn_gssp_acquire_cred(&minor, name, GSS_C_INDEFINITE, &mechs, usage, &credential, nullptr, &lifetime);
        gssp_release_name(nullptr, &name);
        return !failed();
    }
    void init(const std::string &input, const Name &target = service()) {
        qxgss_buffer_desc in = view(input), out{};
        major = table.ftn_gssp_init_sec_context(&minor, credential, &context, target.handle, info.pMechOid, request, 0,
                                                bindings, &in, &actual, &out, &flags, &lifetime);
        token = taken(out);
    }
    void accept(const std::string &input) {
        qxgss_buffer_desc in = view(input), out{};
        qxgss_name_t name = nullptr;
        major = table.ftn_gssp_accept_sec_context(&minor, &context, credential, &in, bindings, &name, &actual, &out,
                                                  &flags, &lifetime, &delegated);
        token = taken(out);
        source = taken(name);
    }
    std::string wrap(int confidential, const std::string &message, int expected_state) {
        qxgss_buffer_desc in = view(message), out{};
        int state = -1;
        major = table.ftn_gssp_wrap(&minor, context, confidential, 0, &in, &state, &out);
        EXPECT_EQ(state, expected_state);
        return taken(out);
    }
    std::string unwrap(const std::string &wrapped, int expected_state) {
        qxgss_buffer_desc in = view(wrapped), out{};
        int state = -1;
        qxgss_qop_t qop = 99;
        major = table.ftn_gssp_unwrap(&minor, context, &in, &out, &state, &qop);
        EXPECT_TRUE(failed() || (state == expected_state && qop == 0));
        return taken(out);
    }
    bool verify(const std::string &message, const std::string &mic) {
        qxgss_buffer_desc in = view(message), mac = view(mic);
        major = table.ftn_gssp_verify_mic(&minor, context, &in, &mac, nullptr);
        return !failed();
    }
    bool failed() const { return GSS_ERROR(major) != 0; }
    std::string text() const {
        qxgss_buffer_desc out{};
        OM_uint32 more = 0;
        table.ftn_gssp_display_status(nullptr, minor, GSS_C_MECH_CODE, info.pMechOid, &more, &out);
        return taken(out);
    }
    bool says(const std::string &piece) const { return failed() && text().find(piece) != std::string::npos; }

    const MechInfo_t &info;
    const qxgss_ftn_table_desc &table;
    OM_uint32 request =
        GSS_C_MUTUAL_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG;
    qxgss_channel_bindings_t bindings = nullptr;
    OM_uint32 major = 0, minor = 0, flags = 0, lifetime = 0;
    qxgss_cred_id_t credential = nullptr, delegated = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_OID actual = nullptr;
    std::string token, source;
};

// A mechanism, and what is to be seen of its user.
struct Case {
    const char *mechanism, *logon, *source, *user, *domain;
    bool client_first; // the client completes before the server does
    std::string properties;
};

void PrintTo(const Case &of, std::ostream *out) {
    *out << of.mechanism;
}

const Case kKerberos{"kerberos",
                     "authcid=alice password=Alice1",
                     "alice@QXNEGO.TEST",
                     "alice",
                     "QXNEGO.TEST",
                     false,
                     "9:24[alice@QXNEGO.TEST] 15:16[kerberos] 16:28[1.2.840.113554.1.2.2] "
                     "17:16[\x2a\x86\x48\x86\xf7\x12\x01\x02\x02]"};
const Case kNtlm{"ntlm",
                 "authcid='QXTEST\\alice' password=Secret1",
                 "QXTEST\\alice",
                 "alice",
                 "QXTEST",
                 true,
                 "9:20[QXTEST\\alice] 15:12[ntlm] 16:32[1.3.6.1.4.1.311.2.2.10] "
                 "17:20[\x2b\x06\x01\x04\x01\x82\x37\x02\x02\x0a]"};

// A client with its user's password and a server with its default credential.
struct Pair {
    explicit Pair(const Case &of) : client(of.mechanism), server(of.mechanism) {
        EXPECT_TRUE(client.acquire(of.logon, GSS_C_INITIATE)) << client.text();
        EXPECT_TRUE(server.acquire(nullptr, GSS_C_ACCEPT)) << server.text();
    }

    // Exchanges tokens until a side fails or nothing is left to send; the side that completed first, if both did.
    const Side *establish() {
        const Side *first = nullptr;
        for (Side *side = &client; !client.failed() && !server.failed(); side = side == &client ? &server : &client) {
            side == &client ? client.init(server.token) : server.accept(client.token);
            if (side->major == GSS_S_COMPLETE && first == nullptr)
                first = side;
            if (side->token.empty())
                return side->major == GSS_S_COMPLETE ? first : nullptr;
        }
        return nullptr;
    }

    Side client, server;
};

class EachMechanism : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(Hostgss, EachMechanism, testing::Values(kKerberos, kNtlm),
                         [](const auto &test) { return std::string(test.param.mechanism); });

TEST_P(EachMechanism, EstablishesAndTellsWhoAndHow) {
    Pair pair(GetParam());
    const Side *first = pair.establish();
    ASSERT_NE(first, nullptr) << pair.client.text() << pair.server.text();
    EXPECT_EQ(first == &pair.client, GetParam().client_first);
    EXPECT_EQ(pair.server.source, GetParam().source);
    EXPECT_EQ(pair.client.minor, GSSP_E_SUCCESS);
    for (const Side *side : {&pair.client, &pair.server}) {
        EXPECT_EQ(side->actual, side->info.pMechOid);
        EXPECT_EQ(side->flags & (GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG), GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG);
        EXPECT_GT(side->lifetime, 3600U);
        Name source, target;
        OM_uint32 flags = 0, lifetime = 0;
        int initiated = -1, open = -1;
        qxgss_OID actual = nullptr;
        ASSERT_EQ(side->table.ftn_gssp_inquire_context(nullptr, side->context, &source.handle, &target.handle,
                                                       &lifetime, &actual, &flags, &initiated, &open),
                  GSS_S_COMPLETE);
        EXPECT_EQ(text_of(source.handle), GetParam().source);
        EXPECT_TRUE(lifetime > 3600 || GetParam().mechanism == "ntlm"s); // gss-ntlmssp does not say
        EXPECT_EQ(flags & GSS_C_CONF_FLAG, GSS_C_CONF_FLAG);
        EXPECT_EQ(initiated, side == &pair.client ? 1 : 0);
        EXPECT_EQ(open, 1);
        EXPECT_EQ(actual, side->info.pMechOid);
    }
    const auto &table = pair.server.table;
    char *user = nullptr, *domain = nullptr;
    ASSERT_EQ(table.ftn_gssp_get_client_domain_username(nullptr, pair.server.context, &user, &domain), GSS_S_COMPLETE);
    EXPECT_STREQ(user, GetParam().user);
    EXPECT_STREQ(domain, GetParam().domain);
    std::free(user);
    std::free(domain);
    qxgss_buffer_desc out{};
    ASSERT_EQ(table.ftn_gssp_inquire_properties_for_user(nullptr, pair.server.context, &out), GSS_S_COMPLETE);
    EXPECT_EQ(described(taken(out)), GetParam().properties);
}

TEST_P(EachMechanism, ProtectsMessagesBothWays) {
    Pair pair(GetParam());
    ASSERT_NE(pair.establish(), nullptr);
    for (const auto &[from, to] : {std::pair{&pair.client, &pair.server}, {&pair.server, &pair.client}})
        for (const std::string &message : {"x"s, "a\0b"s, std::string(100000, 'm')})
            for (const int confidential : {1, 0}) {
                const int state = GetParam().client_first ? 1 : confidential; // NTLM seals all or nothing
                const std::string wrapped = from->wrap(confidential, message, state);
                EXPECT_EQ(wrapped.find("mmmmmm") != std::string::npos, state == 0 && message.size() > 5);
                EXPECT_EQ(to->unwrap(wrapped, state), message) << to->text();
            }
    const auto &table = pair.client.table;
    OM_uint32 limit = 0;
    ASSERT_EQ(table.ftn_gssp_wrap_size_limit(nullptr, pair.client.context, 1, 0, 1000, &limit), GSS_S_COMPLETE);
    EXPECT_GT(limit, 500U);
    EXPECT_LE(pair.client.wrap(1, std::string(limit, 'm'), 1).size(), 1000U);

    const std::string message = "message";
    qxgss_buffer_desc in = view(message), out{};
    ASSERT_EQ(table.ftn_gssp_get_mic(nullptr, pair.client.context, 0, &in, &out), GSS_S_COMPLETE);
    const std::string mic = taken(out);
    for (std::size_t i = 0; i != mic.size(); ++i) {
        std::string altered = mic;
        altered[i] = static_cast<char>(altered[i] ^ 1);
        EXPECT_FALSE(pair.server.verify(message, altered)) << i;
        EXPECT_FALSE(pair.server.text().empty());
    }
    EXPECT_FALSE(pair.server.verify("massage", mic));
    EXPECT_EQ(pair.server.major, GSS_S_BAD_MIC);
}

using Spoil = std::function<std::string(std::string)>;

// What the side that reads token number `leg` makes of it when it is spoilt; the tokens before it are proper.
struct Reading {
    OM_uint32 major;
    std::string source, text;
    std::size_t size; // of the proper token
};

Reading read_spoilt(const Pair &owners, int leg, const Spoil &spoil) {
    Side client(owners.client.info), server(owners.server.info);
    client.credential = owners.client.credential;
    server.credential = owners.server.credential;
    std::string token;
    Side *reader = &client;
    client.init("");
    for (int number = 1; number <= leg; ++number) {
        token = reader->token;
        reader = reader == &client ? &server : &client;
        const std::string given = number == leg ? spoil(token) : token;
        reader == &client ? client.init(given) : server.accept(given);
    }
    client.credential = server.credential = nullptr;
    return {reader->major, reader->source, reader->failed() ? reader->text() : "", token.size()};
}

TEST_P(EachMechanism, RefusesEveryPrefixAndAltersNoNameByAnyByte) {
    const Pair owners(GetParam());
    for (int leg = 1; leg <= (GetParam().client_first ? 3 : 2); ++leg) {
        const std::size_t size = read_spoilt(owners, leg, [](std::string token) { return token; }).size;
        ASSERT_GT(size, 30U);
        for (std::size_t n = 0; n != size; ++n) { // a token's length may differ by one from the next one's
            const Reading cut = read_spoilt(
                owners, leg, [n](const std::string &token) { return token.substr(0, std::min(n, token.size() - 1)); });
            EXPECT_TRUE(GSS_ERROR(cut.major) != 0 && !cut.text.empty()) << "prefix " << n << " of token " << leg;
            const Reading altered = read_spoilt(owners, leg, [n](std::string token) {
                char &byte = token[std::min(n, token.size() - 1)];
                byte = static_cast<char>(~byte);
                return token;
            });
            EXPECT_TRUE(altered.source == "(none)" || altered.source == "" || altered.source == GetParam().source)
                << altered.source;
        }
    }
}

TEST_P(EachMechanism, TakesNamesInEveryForm) {
    const Name utf16({"h\0o\0s\0t\0/\0l\0o\0c\0a\0l\0h\0o\0s\0t\0", 28}, GSS_C_NT_QXAT_MECHDATA_UTF16);
    const Name slash("host/localhost");
    for (const Name *target : {&service(), &slash, &utf16}) {
        Pair pair(GetParam());
        pair.client.init("", *target);
        EXPECT_FALSE(pair.client.failed()) << pair.client.text();
        pair.server.accept(pair.client.token);
        EXPECT_FALSE(pair.server.failed()) << pair.server.text();
    }
    Side client(GetParam().mechanism);
    client.init("", Name());
    EXPECT_EQ(client.major, GSS_S_BAD_NAME);
    Pair pair(GetParam()); // an acceptor's is a service too
    pair.server.table.ftn_gssp_release_cred(nullptr, &pair.server.credential);
    ASSERT_TRUE(pair.server.acquire("host/localhost@@unused", GSS_C_ACCEPT)) << pair.server.text();
    EXPECT_NE(pair.establish(), nullptr) << pair.server.text();
}

TEST_P(EachMechanism, ComparesChannelBindings) {
    const std::string one = "channel one", two = "channel two";
    qxgss_channel_bindings_desc first{}, second{};
    first.application_data = view(one);
    second.application_data = view(two);
    Pair same(GetParam()), different(GetParam());
    same.client.bindings = same.server.bindings = different.client.bindings = &first;
    EXPECT_NE(same.establish(), nullptr) << same.client.text() << same.server.text();
    different.server.bindings = &second;
    EXPECT_EQ(different.establish(), nullptr);
    // gss-ntlmssp has no status of its own for that.
    EXPECT_EQ(different.server.major, GetParam().client_first ? GSS_S_DEFECTIVE_TOKEN : GSS_S_BAD_BINDINGS);
}

// Without a credential only what is configured is accepted, with one only its mechanism, and if it accepts at all.
TEST_P(EachMechanism, AcceptsOnlyWhatItMay) {
    Pair pair(GetParam());
    pair.server.table.ftn_gssp_release_cred(nullptr, &pair.server.credential);
    ASSERT_NE(pair.establish(), nullptr) << pair.server.text();
    EXPECT_EQ(pair.server.source, GetParam().source);

    const std::string spnego = "\x2b\x06\x01\x05\x05\x02";
    qxgss_OID_desc oid = oid_view(spnego);
    MechInfo_t info = pair.client.info;
    info.pMechOid = &oid;
    Side unconfigured(info), initiating(pair.client.info);
    Pair other(GetParam().client_first ? kKerberos : kNtlm), own(GetParam());
    ASSERT_TRUE(unconfigured.acquire(GetParam().logon, GSS_C_INITIATE)) << unconfigured.text();
    std::swap(initiating.credential, pair.client.credential);
    Side none(pair.client.info), &strict = own.server;
    for (const auto &[client, server] :
         {std::pair{&unconfigured, &none}, {&other.client, &strict}, {&own.client, &initiating}}) {
        client->init("");
        ASSERT_FALSE(client->token.empty()) << client->text();
        server->accept(client->token);
        EXPECT_EQ(server->major, GSS_S_NO_CRED);
        EXPECT_EQ(server->context, nullptr);
    }
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

TEST(Logons, GiveTheNameOrTheWholeReason) {
    // clang-format off
    const struct {
        const char *mechanism, *logon;
        std::string outcome; // the name acquired, or "!" and a piece of the text of the failure
    } cases[] = {
        {"kerberos", "alice@@Alice1", "alice@QXNEGO.TEST"},
        {"kerberos", "alice@QXNEGO.TEST@@Alice1", "alice@QXNEGO.TEST"},
        {"kerberos", "authcid=alice realm=QXNEGO.TEST password=Alice1", "alice@QXNEGO.TEST"},
        {"kerberos", "authcid=alice password=wrong", "!Preauthentication failed"},
        {"kerberos", "authcid=nobody password=x", "!Client 'nobody@QXNEGO.TEST' not found in Kerberos database"},
        {"kerberos", "expired@@Expired1", "!Client's entry in database has expired"},
        {"kerberos", "authcid=alice realm=OTHER.TEST password=x", "!Cannot find KDC for realm \"OTHER.TEST\""},
        {"kerberos", nullptr, "!No Kerberos credentials available (default cache: FILE:"},
        {"kerberos", "user=dbuser", "!No Kerberos credentials available"},
        {"kerberos", "bob@QXNEGO.TEST", "!Can't find client principal bob@QXNEGO.TEST in cache collection"},
        {"kerberos", "password=x", "!The logon string has a password but no identity."},
        {"kerberos", "authcid=alice bogus", "!The logon string cannot be parsed."},
        {"ntlm", "QXTEST\\alice@@Secret1", "QXTEST\\alice"},
        {"ntlm", "alice@QXTEST@@Secret1", "QXTEST\\alice"},
        {"ntlm", "authcid=alice realm=QXTEST password=Secret1", "QXTEST\\alice"},
        {"ntlm", nullptr, "QXTEST\\alice"},
    };
    // clang-format on
    for (const auto &[mechanism_name, logon, expected] : cases) {
        SCOPED_TRACE(std::string(mechanism_name) + " " + (logon == nullptr ? "" : logon));
        Side client(mechanism_name);
        if (!client.acquire(logon, GSS_C_INITIATE)) {
            EXPECT_EQ(client.credential, nullptr);
            EXPECT_TRUE(expected[0] == '!' && client.says(": " + expected.substr(1))) << client.text();
            continue;
        }
        Name name;
        OM_uint32 lifetime = 0;
        qxgss_cred_usage_t usage = -1;
        qxgss_OID_set mechs = nullptr;
        ASSERT_EQ(
            client.table.ftn_gssp_inquire_cred(nullptr, client.credential, &name.handle, &lifetime, &usage, &mechs),
            GSS_S_COMPLETE);
        EXPECT_EQ(text_of(name.handle), expected);
        EXPECT_EQ(lifetime, client.lifetime);
        EXPECT_EQ(usage, GSS_C_INITIATE);
        EXPECT_EQ(mechs->count, 1U);
        gssp_release_oid_set(nullptr, &mechs);
    }
    Pair wrong({"ntlm", "QXTEST\\alice@@wrong", "", "", "", true, ""}); // which only the server can tell
    EXPECT_EQ(wrong.establish(), nullptr);
    EXPECT_TRUE(wrong.server.says(": ")) << wrong.server.text();
}

class TicketCache : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(run("kinit -k -t " + folder + "/client.keytab alice"), ""); }
    void TearDown() override { run("kdestroy"); }
    Side client{"kerberos"}, server{"kerberos"};
};

TEST_F(TicketCache, SignsOnAndDelegates) {
    Name name;
    ASSERT_EQ(client.table.ftn_gssp_inquire_cred(nullptr, nullptr, &name.handle, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(text_of(name.handle), "alice@QXNEGO.TEST");
    ASSERT_TRUE(client.acquire("alice@QXNEGO.TEST", GSS_C_INITIATE)) << client.text();
    ASSERT_TRUE(server.acquire("host/localhost", GSS_C_ACCEPT)) << server.text();
    client.request |= GSS_C_DELEG_FLAG;
    client.init("");
    server.accept(client.token);
    ASSERT_EQ(server.major, GSS_S_COMPLETE) << server.text();
    EXPECT_NE(server.flags & GSS_C_DELEG_FLAG, 0U);
    ASSERT_NE(server.delegated, nullptr);

    // With it the server is alice to the next service.
    Side next("kerberos"), last("kerberos");
    std::swap(next.credential, server.delegated);
    next.init("");
    last.accept(next.token);
    EXPECT_EQ(last.source, "alice@QXNEGO.TEST") << next.text() << last.text();
}

TEST_F(TicketCache, WithoutDelegationNothingIsHandedOver) {
    client.request = 0;
    client.init("");
    EXPECT_EQ(client.major, GSS_S_COMPLETE); // one token, and the server is not asked to prove anything
    qxgss_buffer_desc in = view(client.token), out{};
    EXPECT_EQ(server.table.ftn_gssp_accept_sec_context(nullptr, &server.context, nullptr, &in, nullptr, nullptr,
                                                       nullptr, &out, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(taken(out), "");
}

TEST_F(TicketCache, TheKdcStopsHalfWay) {
    ASSERT_TRUE(client.acquire(nullptr, GSS_C_INITIATE));
    realm("kill");
    client.init("");
    EXPECT_TRUE(client.says(": Cannot contact any KDC for realm 'QXNEGO.TEST'")) << client.text();
    realm("restart");
    client.init("");
    EXPECT_FALSE(client.failed()) << client.text();
}

TEST(Acceptor, SaysWhichKeyTableIsMissing) {
    const std::string kept = folder + "/kept";
    std::filesystem::rename(folder + "/service.keytab", kept);
    Side server("kerberos");
    EXPECT_FALSE(server.acquire(nullptr, GSS_C_ACCEPT));
    EXPECT_TRUE(server.says("service.keytab")) << server.text();
    std::filesystem::rename(kept, folder + "/service.keytab");
}

// ---- Configuration and arguments -----------------------------------------------------------------------------------

TEST(Configure, TakesOnlyTheMechanismOutOfUseThatTheHostLacks) {
    qxgss_OID_set set = nullptr;
    ASSERT_EQ(registered("ntlm").MechFtnTable.ftn_gssp_indicate_mechs(nullptr, &set), GSS_S_COMPLETE);
    for (const std::string name : {"kerberos", "ntlm", "absent"}) {
        int present = -1;
        gssp_test_oid_set_member(nullptr, registered(name).pMechOid, set, &present);
        EXPECT_EQ(present, name == "absent" ? 0 : 1) << name;
        EXPECT_EQ(registered(name).fUseMech != 0, name != "absent") << name;
    }
    gssp_release_oid_set(nullptr, &set);
    const auto names = registered("ntlm").MechFtnTable.ftn_gssp_inquire_names_for_mech;
    EXPECT_EQ(names(nullptr, registered("absent").pMechOid, &set), GSS_S_BAD_MECH);
    ASSERT_EQ(names(nullptr, registered("ntlm").pMechOid, &set), GSS_S_COMPLETE);
    EXPECT_EQ(set->count, 5U);
    gssp_release_oid_set(nullptr, &set);
}

// Null for every pointer, zero for every number.
template <typename... Arguments> char refuses_nothing(OM_uint32 (*operation)(Arguments...)) {
    return operation == nullptr ? '0' : GSS_ERROR(operation(Arguments{}...)) != 0 ? 'r' : '-';
}

TEST(Arguments, NothingAtAllIsRefusedEverywhere) {
    const qxgss_ftn_table_desc &table = registered("kerberos").MechFtnTable;
    const auto all = [](auto... operations) { return std::string{refuses_nothing(operations)...}; };
    EXPECT_EQ(all(table.ftn_gssp_configure, table.ftn_gssp_indicate_mechs, table.ftn_gssp_inquire_names_for_mech,
                  table.ftn_gssp_acquire_cred, table.ftn_gssp_release_cred, table.ftn_gssp_inquire_cred,
                  table.ftn_gssp_init_sec_context, table.ftn_gssp_accept_sec_context, table.ftn_gssp_delete_sec_context,
                  table.ftn_gssp_inquire_context, table.ftn_gssp_wrap_size_limit, table.ftn_gssp_wrap,
                  table.ftn_gssp_unwrap, table.ftn_gssp_get_mic, table.ftn_gssp_verify_mic,
                  table.ftn_gssp_get_client_domain_username, table.ftn_gssp_inquire_properties_for_user,
                  table.ftn_gssp_display_status, table.ftn_gssp_qop_string_to_int, table.ftn_gssp_release_name),
              "-rrrrrrrrrrrrrrrrr00"); // no ticket, hence no default credential to inquire
    qxgss_buffer_desc out{};
    OM_uint32 more = 7;
    ASSERT_EQ(table.ftn_gssp_display_status(nullptr, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, GSS_C_GSS_CODE,
                                            nullptr, &more, &out),
              GSS_S_COMPLETE);
    EXPECT_EQ(more, 0U);
    EXPECT_EQ(taken(out), "A required input parameter could not be read; No context has been established");
}

} // namespace
