// The adapter for the host's mechanisms, driven through its function table against a private Kerberos realm and an NTLM
// user file: real tokens, real messages, and what a user is told when something is missing.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/gssp.h"
#include "qxgss/qxgss_records.h"

namespace {

using namespace std::string_literals;

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

std::string configuration() {
    const auto mechanism = [](const std::string &name, const std::string &oid, const std::string &more) {
        return "[[mechanism]]\nname = \"" + name + "\"\noid = \"" + oid +
               "\"\nlibrary = \"" HOSTGSS_LIBRARY "\"\nprefix = \"HOSTGSS\"\n" + more;
    };
    return mechanism("absent", "1.3.6.1.4.1.99999.1", "") +
           mechanism("kerberos", "1.2.840.113554.1.2.2",
                     "[mechanism.settings]\nkeytab_file = \"" + folder + "/service.keytab\"\n") +
           mechanism("ntlm", "1.3.6.1.4.1.311.2.2.10", "");
}

std::string configure_message;

class Realm : public testing::Environment {
    void SetUp() override {
        char name[] = "/tmp/hostgss_test.XXXXXX";
        folder = mkdtemp(name);
        ASSERT_NO_FATAL_FAILURE(realm("start"));
        // Only the mechanism's setting leads to the service's keys.
        setenv("KRB5_KTNAME", (folder + "/none.keytab").c_str(), 1);
        std::ofstream(folder + "/qxgss.conf") << configuration();
        qxgss_buffer_desc message{};
        const OM_uint32 major = qxgss_configure(nullptr, QXGSS_SERVER, (folder + "/qxgss.conf").c_str(), &message);
        configure_message.assign(static_cast<char *>(message.value), message.length);
        gssp_release_buffer(nullptr, &message);
        ASSERT_EQ(major, GSS_S_COMPLETE) << configure_message;
    }
    void TearDown() override {
        realm("stop");
        qxgss_shutdown(nullptr);
    }
};

const auto *const environment = testing::AddGlobalTestEnvironment(new Realm);

const MechInfo_t &mech(const std::string &name) {
    for (OM_uint32 i = 0; i != MechCount; ++i)
        if (pMechInfo[i].pszMechName == name)
            return pMechInfo[i];
    throw std::runtime_error("no mechanism " + name);
}

// ---- The framework's types as values -------------------------------------------------------------------------------

qxgss_buffer_desc buffer(const std::string &text) {
    return {text.size(), const_cast<char *>(text.data())};
}

std::string take(qxgss_buffer_desc &from) {
    std::string text(static_cast<char *>(from.value), from.length);
    std::free(from.value);
    from = {};
    return text;
}

struct Name {
    qxgss_name_t handle = nullptr;
    Name() = default;
    Name(const std::string &text, qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) {
        qxgss_buffer_desc bytes = buffer(text);
        qxgss_import_name(nullptr, &bytes, type, &handle);
    }
    Name(const Name &) = delete;
    ~Name() { gssp_release_name(nullptr, &handle); }
    std::string text() const {
        return handle == nullptr
                   ? ""
                   : std::string(static_cast<char *>(handle->pElements->Name.value), handle->pElements->Name.length);
    }
};

const Name &service() {
    static const Name name("host@localhost", GSS_C_NT_HOSTBASED_SERVICE);
    return name;
}

// One side: what its calls left.
struct Side {
    explicit Side(const MechInfo_t &used) : info(used), table(used.MechFtnTable) {}
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
        const Name name = logon == nullptr ? Name() : Name(logon);
        major = table.ftn_gssp_acquire_cred(&minor, name.handle, GSS_C_INDEFINITE, &mechs, usage, &credential, nullptr,
                                            &lifetime);
        return GSS_ERROR(major) == 0;
    }
    void init(const std::string &input, const Name &target = service()) {
        qxgss_buffer_desc in = buffer(input), out{};
        major = table.ftn_gssp_init_sec_context(&minor, credential, &context, target.handle, info.pMechOid, request, 0,
                                                bindings, &in, &actual, &out, &flags, &lifetime);
        token = take(out);
    }
    void accept(const std::string &input) {
        qxgss_buffer_desc in = buffer(input), out{};
        Name name;
        major = table.ftn_gssp_accept_sec_context(&minor, &context, credential, &in, bindings, &name.handle, &actual,
                                                  &out, &flags, &lifetime, &delegated);
        token = take(out);
        source = name.text();
    }
    bool failed() const { return GSS_ERROR(major) != 0; }
    std::string text() const {
        qxgss_buffer_desc out{};
        OM_uint32 more = 0;
        table.ftn_gssp_display_status(nullptr, minor, GSS_C_MECH_CODE, info.pMechOid, &more, &out);
        return take(out);
    }

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
    const char *mechanism;
    const char *logon;
    const char *source;
    const char *user;
    const char *domain;
    bool client_first; // the client completes before the server does
};

void PrintTo(const Case &of, std::ostream *out) {
    *out << of.mechanism;
}

const Case kKerberos{"kerberos", "authcid=alice password=Alice1", "alice@QXNEGO.TEST", "alice", "QXNEGO.TEST", false};
const Case kNtlm{"ntlm", "authcid='QXTEST\\alice' password=Secret1", "QXTEST\\alice", "alice", "QXTEST", true};

// A client with its user's password and a server with its default credential.
struct Pair {
    explicit Pair(const Case &of) : client(mech(of.mechanism)), server(mech(of.mechanism)) {
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

std::string wrap(Side &side, int confidential, const std::string &message, int expected_state) {
    qxgss_buffer_desc in = buffer(message), out{};
    int state = -1;
    side.major = side.table.ftn_gssp_wrap(&side.minor, side.context, confidential, 0, &in, &state, &out);
    EXPECT_EQ(state, expected_state);
    return take(out);
}

std::string unwrap(Side &side, const std::string &wrapped, int expected_state) {
    qxgss_buffer_desc in = buffer(wrapped), out{};
    int state = -1;
    qxgss_qop_t qop = 99;
    side.major = side.table.ftn_gssp_unwrap(&side.minor, side.context, &in, &out, &state, &qop);
    if (!side.failed()) {
        EXPECT_EQ(state, expected_state);
        EXPECT_EQ(qop, 0U);
    }
    return take(out);
}

std::string mic(Side &side, const std::string &message) {
    qxgss_buffer_desc in = buffer(message), out{};
    side.major = side.table.ftn_gssp_get_mic(&side.minor, side.context, 0, &in, &out);
    return take(out);
}

bool verify(Side &side, const std::string &message, const std::string &token) {
    qxgss_buffer_desc in = buffer(message), mac = buffer(token);
    side.major = side.table.ftn_gssp_verify_mic(&side.minor, side.context, &in, &mac, nullptr);
    return !side.failed();
}

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
        EXPECT_EQ(source.text(), GetParam().source);
        EXPECT_TRUE(lifetime > 3600 || GetParam().mechanism == "ntlm"s); // gss-ntlmssp does not say
        EXPECT_EQ(flags & GSS_C_CONF_FLAG, GSS_C_CONF_FLAG);
        EXPECT_EQ(initiated, side == &pair.client ? 1 : 0);
        EXPECT_EQ(open, 1);
        EXPECT_EQ(actual, side->info.pMechOid);
    }
}

TEST_P(EachMechanism, TellsTheUsersPropertiesAndDomain) {
    Pair pair(GetParam());
    ASSERT_NE(pair.establish(), nullptr);
    char *user = nullptr, *domain = nullptr;
    ASSERT_EQ(pair.server.table.ftn_gssp_get_client_domain_username(nullptr, pair.server.context, &user, &domain),
              GSS_S_COMPLETE);
    EXPECT_STREQ(user, GetParam().user);
    EXPECT_STREQ(domain, GetParam().domain);
    std::free(user);
    std::free(domain);

    qxgss_buffer_desc out{};
    ASSERT_EQ(pair.server.table.ftn_gssp_inquire_properties_for_user(nullptr, pair.server.context, &out),
              GSS_S_COMPLETE);
    const std::string records = take(out);
    const auto *bytes = reinterpret_cast<const unsigned char *>(records.data());
    std::vector<std::pair<int, std::string>> found;
    qxat_data_header_t header;
    for (std::size_t at = 0; qxgss_record_at(bytes, records.size(), at, &header); at += header.qxgss_Length) {
        std::size_t length = 0;
        const unsigned char *data = qxgss_record_data(bytes + at, &header, &length);
        ASSERT_NE(data, nullptr);
        found.emplace_back(header.qxgss_DataId, std::string(data, data + length));
    }
    const MechInfo_t &info = pair.server.info;
    EXPECT_EQ(found, (std::vector<std::pair<int, std::string>>{
                         {9, GetParam().source},
                         {15, info.pszMechName},
                         {16, info.pszMechOid},
                         {17, {static_cast<char *>(info.pMechOid->elements), info.pMechOid->length}}}));
}

TEST_P(EachMechanism, ProtectsMessagesBothWays) {
    Pair pair(GetParam());
    ASSERT_NE(pair.establish(), nullptr);
    for (const auto &[from, to] : {std::pair{&pair.client, &pair.server}, {&pair.server, &pair.client}})
        for (const std::string &message : {"x"s, "a\0b"s, std::string(100000, 'm')})
            for (const int confidential : {1, 0}) {
                const int state = GetParam().client_first ? 1 : confidential; // NTLM seals all or nothing
                const std::string wrapped = wrap(*from, confidential, message, state);
                EXPECT_EQ(wrapped.find("mmmmmm") != std::string::npos, state == 0 && message.size() > 5);
                EXPECT_EQ(unwrap(*to, wrapped, state), message) << to->text();
            }
    OM_uint32 limit = 0;
    ASSERT_EQ(pair.client.table.ftn_gssp_wrap_size_limit(nullptr, pair.client.context, 1, 0, 1000, &limit),
              GSS_S_COMPLETE);
    EXPECT_GT(limit, 500U);
    EXPECT_LE(wrap(pair.client, 1, std::string(limit, 'm'), 1).size(), 1000U);
}

TEST_P(EachMechanism, NoticesAnAlteredMic) {
    Pair pair(GetParam());
    ASSERT_NE(pair.establish(), nullptr);
    const std::string token = mic(pair.client, "message");
    ASSERT_FALSE(token.empty()) << pair.client.text();
    for (std::size_t i = 0; i != token.size(); ++i) {
        std::string altered = token;
        altered[i] = static_cast<char>(altered[i] ^ 1);
        EXPECT_FALSE(verify(pair.server, "message", altered)) << i;
        EXPECT_FALSE(pair.server.text().empty());
    }
    EXPECT_FALSE(verify(pair.server, "massage", token));
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
            EXPECT_NE(GSS_ERROR(cut.major), 0U) << "prefix " << n << " of token " << leg;
            EXPECT_FALSE(cut.text.empty()) << "prefix " << n << " of token " << leg;
            const Reading altered = read_spoilt(owners, leg, [n](std::string token) {
                char &byte = token[std::min(n, token.size() - 1)];
                byte = static_cast<char>(~byte);
                return token;
            });
            EXPECT_TRUE(altered.source.empty() || altered.source == GetParam().source) << altered.source;
        }
    }
}

TEST_P(EachMechanism, TakesTheTargetNameInEveryForm) {
    const Name utf16({"h\0o\0s\0t\0/\0l\0o\0c\0a\0l\0h\0o\0s\0t\0", 28}, GSS_C_NT_QXAT_MECHDATA_UTF16);
    const Name slash("host/localhost");
    for (const Name *target : {&service(), &slash, &utf16}) {
        Pair pair(GetParam());
        pair.client.init("", *target);
        EXPECT_FALSE(pair.client.failed()) << pair.client.text();
        pair.server.accept(pair.client.token);
        EXPECT_FALSE(pair.server.failed()) << pair.server.text();
    }
    Side client(mech(GetParam().mechanism));
    client.init("", Name());
    EXPECT_EQ(client.major, GSS_S_BAD_NAME);
}

TEST_P(EachMechanism, TakesAnAcceptorsNameAsAService) {
    Pair pair(GetParam());
    pair.server.table.ftn_gssp_release_cred(nullptr, &pair.server.credential);
    ASSERT_TRUE(pair.server.acquire("host/localhost@@unused", GSS_C_ACCEPT)) << pair.server.text();
    EXPECT_NE(pair.establish(), nullptr) << pair.server.text();
}

TEST_P(EachMechanism, ComparesChannelBindings) {
    std::string one = "channel one", two = "channel two";
    qxgss_channel_bindings_desc first{}, second{};
    first.application_data = buffer(one);
    second.application_data = buffer(two);
    Pair same(GetParam());
    same.client.bindings = same.server.bindings = &first;
    EXPECT_NE(same.establish(), nullptr) << same.client.text() << same.server.text();
    Pair different(GetParam());
    different.client.bindings = &first;
    different.server.bindings = &second;
    EXPECT_EQ(different.establish(), nullptr);
    // gss-ntlmssp has no status of its own for that.
    EXPECT_EQ(different.server.major, GetParam().client_first ? GSS_S_DEFECTIVE_TOKEN : GSS_S_BAD_BINDINGS);
}

TEST_P(EachMechanism, AcceptsWithoutACredentialOnlyWhatIsConfigured) {
    Pair pair(GetParam());
    pair.server.table.ftn_gssp_release_cred(nullptr, &pair.server.credential);
    ASSERT_NE(pair.establish(), nullptr) << pair.server.text();
    EXPECT_EQ(pair.server.source, GetParam().source);

    Side spnego(pair.client.info);
    const std::string oid = "\x2b\x06\x01\x05\x05\x02";
    qxgss_OID_desc mechanism = {6, const_cast<char *>(oid.data())};
    MechInfo_t other = spnego.info;
    other.pMechOid = &mechanism;
    Side client(other), server(pair.server.info);
    ASSERT_TRUE(client.acquire(GetParam().logon, GSS_C_INITIATE)) << client.text();
    client.init("");
    ASSERT_FALSE(client.token.empty()) << client.text();
    server.accept(client.token);
    EXPECT_EQ(server.major, GSS_S_NO_CRED);
    EXPECT_EQ(server.context, nullptr);
}

TEST_P(EachMechanism, AcceptsWithACredentialOnlyItsMechanism) {
    const Case &other = GetParam().client_first ? kKerberos : kNtlm;
    Pair pair(GetParam()), stranger(other);
    stranger.client.init("");
    pair.server.accept(stranger.client.token);
    EXPECT_EQ(pair.server.major, GSS_S_NO_CRED);
    // Nor with a credential that only initiates.
    Side server(pair.client.info);
    std::swap(server.credential, pair.client.credential);
    Side client(pair.client.info);
    ASSERT_TRUE(client.acquire(GetParam().logon, GSS_C_INITIATE));
    client.init("");
    server.accept(client.token);
    EXPECT_EQ(server.major, GSS_S_NO_CRED);
}

// ---- Credentials ---------------------------------------------------------------------------------------------------

struct LogonCase {
    const char *mechanism;
    const char *logon;
    const char *outcome; // the name acquired, or "!" and a piece of the text of the failure
};

class Logons : public testing::TestWithParam<LogonCase> {};
INSTANTIATE_TEST_SUITE_P(
    Hostgss, Logons,
    testing::Values(
        LogonCase{"kerberos", "alice@@Alice1", "alice@QXNEGO.TEST"},
        LogonCase{"kerberos", "alice@QXNEGO.TEST@@Alice1", "alice@QXNEGO.TEST"},
        LogonCase{"kerberos", "authcid=alice realm=QXNEGO.TEST password=Alice1", "alice@QXNEGO.TEST"},
        LogonCase{"kerberos", "authcid=alice password=wrong", "!Preauthentication failed"},
        LogonCase{"kerberos", "authcid=nobody password=x",
                  "!Client 'nobody@QXNEGO.TEST' not found in Kerberos database"},
        LogonCase{"kerberos", "expired@@Expired1", "!Client's entry in database has expired"},
        LogonCase{"kerberos", "authcid=alice realm=OTHER.TEST password=x", "!Cannot find KDC for realm \"OTHER.TEST\""},
        LogonCase{"kerberos", nullptr, "!No Kerberos credentials available (default cache: FILE:"},
        LogonCase{"kerberos", "user=dbuser", "!No Kerberos credentials available"},
        LogonCase{"kerberos", "bob@QXNEGO.TEST", "!Can't find client principal bob@QXNEGO.TEST in cache collection"},
        LogonCase{"kerberos", "password=x", "!The logon string has a password but no identity."},
        LogonCase{"kerberos", "authcid=alice bogus", "!The logon string cannot be parsed."},
        LogonCase{"ntlm", "QXTEST\\alice@@Secret1", "QXTEST\\alice"},
        LogonCase{"ntlm", "alice@QXTEST@@Secret1", "QXTEST\\alice"},
        LogonCase{"ntlm", "authcid=alice realm=QXTEST password=Secret1", "QXTEST\\alice"},
        LogonCase{"ntlm", nullptr, "QXTEST\\alice"}));

TEST_P(Logons, GiveTheNameOrTheWholeReason) {
    Side client(mech(GetParam().mechanism));
    const std::string outcome = GetParam().outcome;
    const bool good = client.acquire(GetParam().logon, GSS_C_INITIATE);
    ASSERT_EQ(good, outcome[0] != '!') << client.text();
    if (!good) {
        EXPECT_EQ(client.credential, nullptr);
        EXPECT_NE(client.text().find(": " + outcome.substr(1)), std::string::npos) << client.text();
        return;
    }
    Name name;
    OM_uint32 lifetime = 0;
    qxgss_cred_usage_t usage = -1;
    qxgss_OID_set mechs = nullptr;
    ASSERT_EQ(client.table.ftn_gssp_inquire_cred(nullptr, client.credential, &name.handle, &lifetime, &usage, &mechs),
              GSS_S_COMPLETE);
    EXPECT_EQ(name.text(), outcome);
    EXPECT_EQ(lifetime, client.lifetime);
    EXPECT_EQ(usage, GSS_C_INITIATE);
    EXPECT_EQ(mechs->count, 1U);
    gssp_release_oid_set(nullptr, &mechs);
}

TEST(Ntlm, WrongPasswordIsToldByTheServer) {
    Pair pair({"ntlm", "QXTEST\\alice@@wrong", "", "", "", true});
    EXPECT_EQ(pair.establish(), nullptr);
    EXPECT_TRUE(pair.server.failed());
    EXPECT_NE(pair.server.text().find(": "), std::string::npos) << pair.server.text();
}

class TicketCache : public testing::Test {
  protected:
    void SetUp() override {
        const std::string said = run("kinit -k -t " + folder + "/client.keytab alice");
        ASSERT_EQ(said, "");
    }
    void TearDown() override { run("kdestroy"); }
};

TEST_F(TicketCache, SignsOnAndDelegates) {
    Side client(mech("kerberos")), server(mech("kerberos"));
    Name name;
    ASSERT_EQ(client.table.ftn_gssp_inquire_cred(nullptr, nullptr, &name.handle, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(name.text(), "alice@QXNEGO.TEST");
    ASSERT_TRUE(client.acquire("alice@QXNEGO.TEST", GSS_C_INITIATE)) << client.text();
    ASSERT_TRUE(server.acquire("host/localhost", GSS_C_ACCEPT)) << server.text();
    client.request |= GSS_C_DELEG_FLAG;
    client.init("");
    server.accept(client.token);
    ASSERT_EQ(server.major, GSS_S_COMPLETE) << server.text();
    EXPECT_NE(server.flags & GSS_C_DELEG_FLAG, 0U);
    ASSERT_NE(server.delegated, nullptr);

    // With it the server is alice to the next service.
    Side next(mech("kerberos")), last(mech("kerberos"));
    std::swap(next.credential, server.delegated);
    next.init("");
    last.accept(next.token);
    EXPECT_EQ(last.source, "alice@QXNEGO.TEST") << next.text() << last.text();
}

TEST_F(TicketCache, WithoutDelegationNothingIsHandedOver) {
    Side client(mech("kerberos")), server(mech("kerberos"));
    client.request = 0;
    client.init("");
    EXPECT_EQ(client.major, GSS_S_COMPLETE); // one token, and the server is not asked to prove anything
    qxgss_buffer_desc in = buffer(client.token), out{};
    EXPECT_EQ(server.table.ftn_gssp_accept_sec_context(nullptr, &server.context, nullptr, &in, nullptr, nullptr,
                                                       nullptr, &out, nullptr, nullptr, nullptr),
              GSS_S_COMPLETE);
    EXPECT_EQ(take(out), "");
}

TEST_F(TicketCache, TheKdcStopsHalfWay) {
    Side client(mech("kerberos"));
    ASSERT_TRUE(client.acquire(nullptr, GSS_C_INITIATE));
    realm("kill");
    client.init("");
    EXPECT_TRUE(client.failed());
    EXPECT_NE(client.text().find(": Cannot contact any KDC for realm 'QXNEGO.TEST'"), std::string::npos)
        << client.text();
    realm("restart");
    client.init("");
    EXPECT_FALSE(client.failed()) << client.text();
}

TEST(Acceptor, SaysWhichKeyTableIsMissing) {
    const std::string kept = folder + "/kept";
    std::filesystem::rename(folder + "/service.keytab", kept);
    Side server(mech("kerberos"));
    EXPECT_FALSE(server.acquire(nullptr, GSS_C_ACCEPT));
    EXPECT_NE(server.text().find("service.keytab"), std::string::npos) << server.text();
    std::filesystem::rename(kept, folder + "/service.keytab");
}

// ---- Configuration and arguments -----------------------------------------------------------------------------------

TEST(Configure, TakesOnlyTheMechanismOutOfUseThatTheHostLacks) {
    EXPECT_EQ(mech("absent").fUseMech, 0);
    EXPECT_NE(configure_message.find("absent: the host's GSS-API library has no mechanism 1.3.6.1.4.1.99999.1"),
              std::string::npos);
    EXPECT_NE(mech("kerberos").fUseMech, 0);
    EXPECT_NE(mech("ntlm").fUseMech, 0);
    qxgss_OID_set set = nullptr;
    ASSERT_EQ(mech("ntlm").MechFtnTable.ftn_gssp_indicate_mechs(nullptr, &set), GSS_S_COMPLETE);
    for (const char *name : {"kerberos", "ntlm", "absent"}) {
        int present = -1;
        gssp_test_oid_set_member(nullptr, mech(name).pMechOid, set, &present);
        EXPECT_EQ(present, name == "absent"s ? 0 : 1) << name;
    }
    gssp_release_oid_set(nullptr, &set);
    const auto names = mech("ntlm").MechFtnTable.ftn_gssp_inquire_names_for_mech;
    EXPECT_EQ(names(nullptr, mech("absent").pMechOid, &set), GSS_S_BAD_MECH);
    ASSERT_EQ(names(nullptr, mech("ntlm").pMechOid, &set), GSS_S_COMPLETE);
    EXPECT_EQ(set->count, 5U);
    gssp_release_oid_set(nullptr, &set);
}

// The default arguments of a call: null for every pointer, zero for every number.
template <typename... Arguments> OM_uint32 call_with_nothing(OM_uint32 (*operation)(Arguments...)) {
    return operation(Arguments{}...);
}

TEST(Arguments, NothingAtAllIsRefusedEverywhere) {
    const qxgss_ftn_table_desc &table = mech("kerberos").MechFtnTable;
    const auto refused = [](auto operation) { return GSS_ERROR(call_with_nothing(operation)) != 0; };
    EXPECT_EQ(call_with_nothing(table.ftn_gssp_configure), GSS_S_COMPLETE);
    EXPECT_TRUE(refused(table.ftn_gssp_indicate_mechs));
    EXPECT_TRUE(refused(table.ftn_gssp_inquire_names_for_mech));
    EXPECT_TRUE(refused(table.ftn_gssp_acquire_cred));
    EXPECT_TRUE(refused(table.ftn_gssp_release_cred));
    EXPECT_TRUE(refused(table.ftn_gssp_inquire_cred)); // no ticket, hence no default credential
    EXPECT_TRUE(refused(table.ftn_gssp_init_sec_context));
    EXPECT_TRUE(refused(table.ftn_gssp_accept_sec_context));
    EXPECT_TRUE(refused(table.ftn_gssp_delete_sec_context));
    EXPECT_TRUE(refused(table.ftn_gssp_inquire_context));
    EXPECT_TRUE(refused(table.ftn_gssp_wrap_size_limit));
    EXPECT_TRUE(refused(table.ftn_gssp_wrap));
    EXPECT_TRUE(refused(table.ftn_gssp_unwrap));
    EXPECT_TRUE(refused(table.ftn_gssp_get_mic));
    EXPECT_TRUE(refused(table.ftn_gssp_verify_mic));
    EXPECT_TRUE(refused(table.ftn_gssp_get_client_domain_username));
    EXPECT_TRUE(refused(table.ftn_gssp_inquire_properties_for_user));
    EXPECT_TRUE(refused(table.ftn_gssp_display_status));
    EXPECT_EQ(table.ftn_gssp_qop_string_to_int, nullptr);
    EXPECT_EQ(table.ftn_gssp_release_name, nullptr);
}

TEST(Status, AMajorStatusHasAllItsTexts) {
    qxgss_buffer_desc out{};
    OM_uint32 more = 7;
    ASSERT_EQ(mech("ntlm").MechFtnTable.ftn_gssp_display_status(
                  nullptr, GSS_S_CALL_INACCESSIBLE_READ | GSS_S_NO_CONTEXT, GSS_C_GSS_CODE, nullptr, &more, &out),
              GSS_S_COMPLETE);
    EXPECT_EQ(more, 0U);
    EXPECT_EQ(take(out), "A required input parameter could not be read; No context has been established");
}

} // namespace
