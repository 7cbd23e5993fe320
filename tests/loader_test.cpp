// The configuration file and the loader: wrong files and their one line, mechanisms that can and cannot be put to use,
// properties, settings and policy, and a lack of memory at every point.
#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "qxgss/gssp.h"

namespace {

long allocations_left = -1; // no limit

} // namespace

// Not inlined, for then the compiler takes malloc and free for a pair with the other side.
[[gnu::noinline]] void *operator new(std::size_t size) {
    if (allocations_left == 0)
        throw std::bad_alloc();
    if (allocations_left > 0)
        --allocations_left;
    if (void *block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}

namespace {

// What the mechanisms of this program saw, in the order of their configure operations.
std::vector<std::string> configured;

OM_uint32 say(qxgss_buffer_t pBuffer, const std::string &text, OM_uint32 *pMinorStatus, OM_uint32 major) {
    if (!text.empty())
        pBuffer->value = std::realloc(pBuffer->value, pBuffer->length + text.size());
    text.copy(static_cast<char *>(pBuffer->value) + pBuffer->length, text.size());
    pBuffer->length += text.size();
    *pMinorStatus = major == GSS_S_COMPLETE ? GSSP_E_SUCCESS : 0xA100012BU;
    return major;
}

} // namespace

// Mechanisms in the program itself. GOOD has two operations; TALKS and NEGO have configure alone.
extern "C" {
QXGSS_API OM_uint32 GOOD_configure(OM_uint32 *pMinorStatus, OM_uint32 ClientServer, qxgss_buffer_t pLibPathBuf,
                                   qxgss_buffer_t pConfigInfoBuf) {
    configured.push_back("GOOD " + std::to_string(ClientServer) + " " +
                         std::string(static_cast<char *>(pLibPathBuf->value), pLibPathBuf->length));
    return say(pConfigInfoBuf, "", pMinorStatus, GSS_S_COMPLETE);
}
QXGSS_API OM_uint32 GOOD_release_name(OM_uint32 *, qxgss_name_t *) {
    return GSS_S_COMPLETE;
}
QXGSS_API OM_uint32 TALKS_configure(OM_uint32 *pMinorStatus, OM_uint32, qxgss_buffer_t, qxgss_buffer_t pConfigInfoBuf) {
    return say(pConfigInfoBuf, "ready", pMinorStatus, GSS_S_CONTINUE_NEEDED);
}
QXGSS_API OM_uint32 FAILS_configure(OM_uint32 *pMinorStatus, OM_uint32, qxgss_buffer_t, qxgss_buffer_t pConfigInfoBuf) {
    return say(pConfigInfoBuf, "no key", pMinorStatus, GSS_S_FAILURE);
}
QXGSS_API OM_uint32 MUTE_configure(OM_uint32 *pMinorStatus, OM_uint32, qxgss_buffer_t, qxgss_buffer_t pConfigInfoBuf) {
    return say(pConfigInfoBuf, "", pMinorStatus, GSS_S_FAILURE);
}
QXGSS_API OM_uint32 PLAIN_release_name(OM_uint32 *, qxgss_name_t *) {
    return GSS_S_COMPLETE;
}
// A negotiating mechanism, which notes whom it finds in use.
QXGSS_API OM_uint32 NEGO_configure(OM_uint32 *pMinorStatus, OM_uint32, qxgss_buffer_t, qxgss_buffer_t pConfigInfoBuf) {
    std::string seen = "NEGO";
    for (OM_uint32 i = 0; i < MechCount; ++i)
        seen += pMechInfo[i].fUseMech != 0 ? " " + std::string(pMechInfo[i].pszMechName) : "";
    configured.push_back(seen);
    return say(pConfigInfoBuf, "", pMinorStatus, GSS_S_COMPLETE);
}
}

// ALL has every operation, in the order of the function table.
// clang-format off
#define ALL_OPERATIONS(ROW)                                                                                            \
    ROW(configure) ROW(indicate_mechs) ROW(inquire_names_for_mech) ROW(acquire_cred) ROW(release_cred)                 \
    ROW(inquire_cred) ROW(init_sec_context) ROW(accept_sec_context) ROW(delete_sec_context) ROW(inquire_context)       \
    ROW(wrap_size_limit) ROW(wrap) ROW(unwrap) ROW(get_mic) ROW(verify_mic) ROW(get_client_domain_username)            \
    ROW(qop_string_to_int) ROW(qop_int_to_string) ROW(inquire_properties_for_user) ROW(display_status)                 \
    ROW(release_name)
// clang-format on
#define DEFINE(operation)                                                                                              \
    extern "C" QXGSS_API OM_uint32 ALL_##operation() {                                                                 \
        return GSS_S_COMPLETE;                                                                                         \
    }
#define LISTED(operation) &ALL_##operation,
ALL_OPERATIONS(DEFINE)

namespace {

using Operation = OM_uint32 (*)();
const Operation all_operations[] = {ALL_OPERATIONS(LISTED)};

std::string mechanism(const std::string &name, const std::string &oid, const std::string &more = "") {
    return "[[mechanism]]\nname = \"" + name + "\"\noid = \"" + oid + "\"\nprefix = \"" + name + "\"\n" + more;
}

class Loader : public testing::Test {
  protected:
    Loader() {
        char folder[] = "/tmp/loader_test.XXXXXX";
        folder_ = mkdtemp(folder);
        file_ = folder_ + "/qxgss.conf";
    }
    ~Loader() override {
        qxgss_shutdown(nullptr);
        unlink(file_.c_str());
        rmdir(folder_.c_str());
        configured.clear();
    }

    void write(const std::string &content) { std::ofstream(file_, std::ios::binary) << content; }

    OM_uint32 configure(OM_uint32 ClientServer = QXGSS_CLIENT) {
        OM_uint32 minor = 0;
        qxgss_buffer_desc message{7, this}; // whatever was there is not to be read
        const OM_uint32 major = qxgss_configure(&minor, ClientServer, file_.c_str(), &message);
        EXPECT_EQ(GSS_ERROR(major) != 0, minor != GSSP_E_SUCCESS);
        message_.assign(message.length == 0 ? "" : static_cast<char *>(message.value), message.length);
        gssp_release_buffer(nullptr, &message);
        return minor;
    }

    OM_uint32 configure_with(const std::string &content) {
        write(content);
        return configure();
    }

    const MechInfo_t &info(const std::string &name) {
        for (OM_uint32 i = 0; i < MechCount; ++i)
            if (name == pMechInfo[i].pszMechName)
                return pMechInfo[i];
        ADD_FAILURE() << "no mechanism " << name;
        std::abort();
    }

    std::string folder_, file_, message_;
};

TEST_F(Loader, OneLineSaysWhatIsWrongInAFile) {
    const std::string good = mechanism("GOOD", "1.3.6.1.5.5.18"); // four lines
    const std::string other = mechanism("OTHER", "1.3.6.1.5.5.14");
    const std::string dots = std::string(257, '.');
    const struct {
        int line;
        std::string content, message;
        OM_uint32 minor = 0xE10000A8U;
    } rows[] = {
        {__LINE__, "", ":1: mechanism: is missing", 0xE1000096U},
        {__LINE__, "mechanism = []", ":1: mechanism: is missing", 0xE1000096U},
        {__LINE__, "\nmechanism = 1", ":2: mechanism: must be an array of tables"},
        {__LINE__, "mechanism = [\n1]", ":2: mechanism: must be an array of tables"},
        {__LINE__, "[mechanism]\nname = 'x'", ":1: mechanism: must be an array of tables"},
        {__LINE__, "library_path = 1\n" + good, ":1: library_path: must be a string"},
        {__LINE__, "library_path = ''\n" + good, ":1: library_path: must not be empty"},
        {__LINE__, good + "\n[polcy]\n", ":6: polcy: unknown key"},
        {__LINE__, good + "Library = 'x'", ":5: mechanism.Library: unknown key"},
        {__LINE__, good + "\"a\\nb\" = 'x'", ":5: mechanism.a?b: unknown key"},
        {__LINE__, good + "[mechanism.properties]\nlevel = 1", ":6: mechanism.properties.level: unknown key"},
        {__LINE__, good + "negotiates = [{oid = '1.2.3', rank = 1}]", ":5: mechanism.negotiates.rank: unknown key"},
        {__LINE__, "\n[[mechanism]]\noid = '1.2.3'\nprefix = 'x'", ":2: mechanism.name: is missing"},
        {__LINE__, "[[mechanism]]\nname = 'x'\nprefix = 'x'", ":1: mechanism.oid: is missing"},
        {__LINE__, "[[mechanism]]\nname = 'x'\noid = '1.2.3'", ":1: mechanism.prefix: is missing"},
        {__LINE__, good + "library = ''", ":5: mechanism.library: must not be empty"},
        {__LINE__, good + "library = \"a\\u0000b\"", ":5: mechanism.library: must not hold control characters"},
        {__LINE__, good + "enabled = 1", ":5: mechanism.enabled: must be true or false"},
        {__LINE__, mechanism("x", "1.3.x"), ":3: mechanism.oid: '1.3.x' is no OID"},
        {__LINE__, good + mechanism("GOOD", "1.2.3"),
         ":6: mechanism.name: 'GOOD' is already the name of another mechanism"},
        {__LINE__, good + mechanism("x", "1.3.6.1.5.5.18"),
         ":7: mechanism.oid: '1.3.6.1.5.5.18' is already the OID of GOOD"},
        {__LINE__, good + "[mechanism.properties]\nauthentication = 'yes'",
         ":6: mechanism.properties.authentication: must be true or false"},
        {__LINE__, good + "[mechanism.properties]\nrank = 1.0", ":6: mechanism.properties.rank: must be an integer"},
        {__LINE__, good + "[mechanism.properties]\nrank = 2147483648",
         ":6: mechanism.properties.rank: does not fit in 32 bits"},
        {__LINE__, good + "[mechanism.properties]\nrank = -2147483649",
         ":6: mechanism.properties.rank: does not fit in 32 bits"},
        {__LINE__, good + "properties = 3", ":5: mechanism.properties: must be a table"},
        {__LINE__, good + "[mechanism.settings]\na = 3", ":6: mechanism.settings.a: must be a string"},
        {__LINE__, good + "[mechanism.settings]\n\"\" = 'x'", ":6: mechanism.settings.: must not be empty"},
        {__LINE__, good + "negotiates = ['1.2.3']", ":5: mechanism.negotiates: must be an array of tables"},
        {__LINE__, good + "negotiates = [{enabled = true}]", ":5: mechanism.negotiates.oid: is missing"},
        {__LINE__, good + "negotiates = [{oid = 'OTHER'}]", ":5: mechanism.negotiates.oid: 'OTHER' is no OID"},
        {__LINE__, good + "negotiates = [{oid = '1.2.3'},\n{oid = '1.2.3'}]",
         ":6: mechanism.negotiates.oid: '1.2.3' is listed twice"},
        {__LINE__, good + "[policy]\nusers = []", ":6: policy.users: must be a table"},
        {__LINE__, good + "[policy]\ndefault = 'GOOD'", ":6: policy.default: must be an array of strings"},
        {__LINE__, good + "[policy]\ndefault = ['GOOD', 1]", ":6: policy.default: must be an array of strings"},
        {__LINE__, good + "[policy.users]\nalice = [\n'GOOD',\n'OTHER']",
         ":8: policy.users.alice: 'OTHER' is no mechanism of this file"},
        {__LINE__, good + "[policy.users]\nalice = ['1.2.3']",
         ":6: policy.users.alice: '1.2.3' is no mechanism of this file"},
        {__LINE__, good + "[policy.users]\n\"a\\u0000\" = []", ":6: policy.users.a?: must not hold control characters"},
        {__LINE__, good + dots, ":5: syntax: more than 256 dots outside strings"},
        {__LINE__, "[[[",
         ":1: syntax: Error while parsing key: expected bare key starting character or string delimiter, saw '['"},
        {__LINE__, good + "[x\u0409]", ":5: syntax: a character beyond ASCII outside strings and comments"},
        {__LINE__, good + "enabled = t'\u0409'", ":5: syntax: a quotation mark inside a word"},
        {__LINE__, good + "library = '''\nx'''", ":5: syntax: strings of several lines are not supported"},
        {__LINE__, good + "library = '\\\\\xff' # '", ":5: syntax: Encountered invalid utf-8 sequence"},
        {__LINE__, good + other + "name = 'x'",
         ":9: syntax: Error while parsing key-value pair: cannot redefine existing string 'name'"},
        {__LINE__, good + "x = \"\\\"\xff\"", ":5: syntax: Encountered invalid utf-8 sequence"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(configure_with(row.content), row.minor);
        EXPECT_EQ(message_, file_ + row.message);
        EXPECT_EQ(pMechInfo, nullptr);
        EXPECT_EQ(MechCount, 0U);
    }
    EXPECT_TRUE(configured.empty());
}

TEST_F(Loader, FilesThatCannotBeReadAreRefused) {
    EXPECT_EQ(configure(), 0xE10000A8U);
    EXPECT_EQ(message_, file_ + ": cannot be read: No such file or directory");
    EXPECT_EQ(configure_with(mechanism("GOOD", "1.2.3") + std::string(1 << 20, '#')), 0xE10000A8U);
    EXPECT_EQ(message_, file_ + ": cannot be read: it is larger than 1 MiB");
    unlink(file_.c_str());
    file_ = folder_;
    EXPECT_EQ(configure(), 0xE10000A8U);
    EXPECT_EQ(message_, folder_ + ": cannot be read: Is a directory");
}

TEST_F(Loader, TheSampleIsRight) {
    qxgss_buffer_desc message{};
    EXPECT_EQ(qxgss_configure(nullptr, QXGSS_CLIENT, SAMPLE, &message), GSS_S_COMPLETE)
        << std::string(static_cast<char *>(message.value), message.length);
    EXPECT_EQ(MechCount, 2U);
    gssp_release_buffer(nullptr, &message);
}

TEST_F(Loader, ArgumentsAreCheckedInOrder) {
    OM_uint32 minor = 0;
    EXPECT_EQ(qxgss_configure(&minor, 3, nullptr, nullptr), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000091U);
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(qxgss_configure(&minor, QXGSS_SERVER, name, nullptr), GSS_S_FAILURE);
        EXPECT_EQ(minor, 0xE1000099U);
    }
    EXPECT_EQ(configure_with(mechanism("GOOD", "1.2.3")), GSSP_E_SUCCESS);
    EXPECT_EQ(qxgss_configure(&minor, 3, nullptr, nullptr), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000094U);
    EXPECT_EQ(MechCount, 1U);
}

TEST_F(Loader, MechanismsThatFailAreOutOfUseAndTheOthersGoOn) {
    write(mechanism("NEGO", "1.2.1", "negotiates = [{oid = '1.2.2'}, {oid = '2.100.3', enabled = false}]\n") +
          mechanism("GOOD", "1.2.2") + mechanism("FAILS", "1.2.3") + mechanism("MUTE", "1.2.4") +
          mechanism("PLAIN", "1.2.5") + mechanism("OFF", "1.2.6", "enabled = false\nlibrary = 'none.so'\n") +
          mechanism("GONE", "1.2.7", "library = 'none.so'\n") + mechanism("EMPTY", "1.2.8") +
          mechanism("TALKS", "1.2.9") + mechanism("TEXT", "1.2.10", "library = '" + file_ + "'\n"));
    ASSERT_EQ(configure(QXGSS_SERVER), GSSP_E_SUCCESS);

    const struct {
        const char *name, *message;
    } rows[] = {
        {"NEGO", nullptr},
        {"GOOD", nullptr},
        {"FAILS", "no key"},
        {"MUTE", "its configure operation failed with major status 0x000D0000, minor status 0xA100012B"},
        {"PLAIN", nullptr},
        {"OFF", "it is disabled in the configuration file"},
        {"GONE", "none.so: cannot open shared object file"},
        {"EMPTY", "no operation of it has the prefix EMPTY_"},
        {"TALKS", nullptr},
        {"TEXT", "qxgss.conf: "},
    };
    ASSERT_EQ(MechCount, std::size(rows));
    for (OM_uint32 i = 0; i < MechCount; ++i) {
        SCOPED_TRACE(rows[i].name);
        const MechInfo_t &mech = pMechInfo[i];
        EXPECT_STREQ(mech.pszMechName, rows[i].name);
        EXPECT_EQ(mech.fUseMech != 0, rows[i].message == nullptr);
        ASSERT_EQ(mech.pszMessage == nullptr, rows[i].message == nullptr);
        if (rows[i].message == nullptr)
            continue;
        EXPECT_NE(std::string(mech.pszMessage).find(rows[i].message), std::string::npos) << mech.pszMessage;
        const bool reported = message_.find(std::string(rows[i].name) + ": " + mech.pszMessage) != std::string::npos;
        EXPECT_EQ(reported, std::string(rows[i].name) != "OFF") << message_;
    }
    EXPECT_EQ(message_.rfind("FAILS: no key\nMUTE: its", 0), 0U) << message_;
    EXPECT_NE(message_.find("\nTALKS: ready\n"), std::string::npos) << message_;
    EXPECT_EQ(configured, (std::vector<std::string>{"GOOD 2 " + folder_ + "/.", "NEGO NEGO GOOD PLAIN TALKS"}));

    EXPECT_EQ(info("GOOD").MechFtnTable.ftn_gssp_configure, &GOOD_configure);
    EXPECT_EQ(info("GOOD").MechFtnTable.ftn_gssp_release_name, &GOOD_release_name);
    EXPECT_EQ(info("GOOD").MechFtnTable.ftn_gssp_wrap, nullptr);
    EXPECT_EQ(info("GOOD").pszLibrary, nullptr);
    EXPECT_EQ(info("GONE").pszLibrary, folder_ + "/./none.so");
    ASSERT_EQ(info("NEGO").NegotiatedMechCount, 2U);
    EXPECT_EQ(info("NEGO").pNegMechInfo[0].fEnabled, 1U);
    EXPECT_STREQ(info("NEGO").pNegMechInfo[1].pNegotiatedMech, "2.100.3");
    EXPECT_EQ(info("NEGO").pNegMechInfo[1].fEnabled, 0U);
}

TEST_F(Loader, EverySlotIsTheSymbolOfItsName) {
    ASSERT_EQ(configure_with(mechanism("ALL", "1.2.1")), GSSP_E_SUCCESS);
    ASSERT_EQ(std::size(all_operations) * sizeof(Operation), sizeof(qxgss_ftn_table_desc));
    const Operation *slots = reinterpret_cast<const Operation *>(&pMechInfo[0].MechFtnTable);
    for (std::size_t i = 0; i < std::size(all_operations); ++i)
        EXPECT_EQ(slots[i], all_operations[i]) << i;
}

TEST_F(Loader, LookUpsAnswerFromTheRegistry) {
    ASSERT_EQ(configure_with(mechanism("GOOD", "1.3.6.1.5.5.18") + mechanism("PLAIN", "1.3.6.1.5.5.14")),
              GSSP_E_SUCCESS);
    OM_uint32 minor = 0;
    qxgss_OID oid = nullptr, same = nullptr, unknown = nullptr;
    OM_sint32 index = 7;
    const char *text = nullptr;
    ASSERT_EQ(gssp_mechstr_to_oid(&minor, "PLAIN", &oid), GSS_S_COMPLETE);
    EXPECT_EQ(std::string(static_cast<char *>(oid->elements), oid->length), "\x2b\x06\x01\x05\x05\x0e");
    EXPECT_EQ(gssp_mechoidstr_to_oid(&minor, "1.3.6.1.5.5.14", &same), GSS_S_COMPLETE);
    EXPECT_EQ(same, oid);
    EXPECT_EQ(gssp_oid_to_mechindex(&minor, oid, &index), GSS_S_COMPLETE);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(gssp_oid_to_mechstr(&minor, oid, &text), GSS_S_COMPLETE);
    EXPECT_STREQ(text, "PLAIN");
    EXPECT_EQ(gssp_mechstr_to_oidstr(&minor, "GOOD", &text), GSS_S_COMPLETE);
    EXPECT_STREQ(text, "1.3.6.1.5.5.18");

    ASSERT_EQ(gssp_mechoidstr_to_oid(&minor, "1.3.6.1.5.5.2", &unknown), GSS_S_COMPLETE);
    EXPECT_EQ(gssp_mechoidstr_to_oid(&minor, "1.3.6.1.5.5.2", &same), GSS_S_COMPLETE);
    EXPECT_EQ(same, unknown);
    EXPECT_EQ(gssp_oid_to_mechindex(&minor, unknown, &index), GSS_S_COMPLETE);
    EXPECT_EQ(index, -1);

    qxgss_OID_desc none{0, nullptr};
    const struct {
        int line;
        OM_uint32 major, expected;
    } failures[] = {
        {__LINE__, gssp_mechstr_to_oid(&minor, "good", &oid), 0xE100007BU},
        {__LINE__, gssp_mechstr_to_oid(&minor, nullptr, &oid), 0xE100007BU},
        {__LINE__, gssp_mechstr_to_oid(&minor, "GOOD", nullptr), 0xE100007BU},
        {__LINE__, gssp_mechoidstr_to_oid(&minor, "1.3.6.", &oid), 0xE1000081U},
        {__LINE__, gssp_mechoidstr_to_oid(&minor, nullptr, &oid), 0xE100007BU},
        {__LINE__, gssp_oid_to_mechindex(&minor, &none, &index), 0xE10000CDU},
        {__LINE__, gssp_oid_to_mechindex(&minor, nullptr, &index), 0xE100007BU},
        {__LINE__, gssp_oid_to_mechstr(&minor, unknown, &text), 0xE100007CU},
        {__LINE__, gssp_mechstr_to_oidstr(&minor, "NEGO", &text), 0xE10000DBU},
    };
    for (const auto &failure : failures)
        EXPECT_EQ(failure.major, GSS_S_FAILURE) << failure.line;
    EXPECT_EQ(minor, 0xE10000DBU);
    EXPECT_EQ(oid, nullptr);
    EXPECT_EQ(text, nullptr);
}

TEST_F(Loader, PropertiesAndSettingsAreThoseThatAreGiven) {
    ASSERT_EQ(configure_with(mechanism("GOOD", "1.2.3",
                                       "[mechanism.properties]\nauthentication = true\n"
                                       "authorization = false\nrank = -5\n[mechanism.settings]\n"
                                       "realm = 'a b'\nkey_file = 'k'\nroot_file = '/k'\n") +
                             mechanism("PLAIN", "1.2.4", "[mechanism.properties]\nsingle_sign_on = true\n")),
              GSSP_E_SUCCESS);
    const auto boolean = [&](const char *name, OM_uint32 property) {
        OM_uint32 minor = 0, value = 7;
        const OM_uint32 major = gssp_inquire_one_mech_property_boolean(&minor, info(name).pMechOid, property, &value);
        EXPECT_EQ(minor, major == GSS_S_COMPLETE ? GSSP_E_SUCCESS : 0xE1000074U);
        return major == GSS_S_COMPLETE ? static_cast<int>(value) : -1;
    };
    const int expected[][4] = {{2, 1, -1, -1}, {3, 0, -1, -1}, {8, -1, 1, -1}, {17, -1, -1, -1}, {4, -1, -1, -1}};
    for (const auto &row : expected) {
        EXPECT_EQ(boolean("GOOD", static_cast<OM_uint32>(row[0])), row[1]) << row[0];
        EXPECT_EQ(boolean("PLAIN", static_cast<OM_uint32>(row[0])), row[2]) << row[0];
    }
    OM_sint32 rank = 0;
    OM_uint32 minor = 0;
    EXPECT_EQ(gssp_inquire_one_mech_property_int(&minor, info("GOOD").pMechOid, 17, &rank), GSS_S_COMPLETE);
    EXPECT_EQ(rank, -5);
    EXPECT_EQ(gssp_inquire_one_mech_property_int(&minor, info("GOOD").pMechOid, 2, &rank), GSS_S_FAILURE);
    EXPECT_EQ(gssp_inquire_one_mech_property_int(&minor, info("PLAIN").pMechOid, 17, &rank), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE1000074U);

    const auto setting = [](const char *mech, const char *key) -> std::string {
        const char *value = nullptr;
        return gssp_inquire_mech_setting(nullptr, mech, key, &value) == GSS_S_COMPLETE ? value : "(none)";
    };
    EXPECT_EQ(setting("GOOD", "realm"), "a b");
    EXPECT_EQ(setting("GOOD", "key_file"), folder_ + "/k");
    EXPECT_EQ(setting("GOOD", "root_file"), "/k");
    EXPECT_EQ(setting("PLAIN", "realm"), "(none)");
    EXPECT_EQ(setting("NONE", "realm"), "(none)");
}

// The names of the allowed mechanisms, "(empty)" for an empty set, "(none)" when no policy applies, or the minor
// status.
std::string allowed(const char *user) {
    OM_uint32 minor = 0;
    qxgss_OID_set set = nullptr;
    if (GSS_ERROR(gssp_inquire_mech_policy_for_user(&minor, user, &set)) != 0)
        return std::to_string(minor);
    std::string names = set == nullptr ? "(none)" : set->count == 0 ? "(empty)" : "";
    for (std::size_t i = 0; set != nullptr && i < set->count; ++i) {
        const char *name = nullptr;
        gssp_oid_to_mechstr(nullptr, &set->elements[i], &name);
        names += (i == 0 ? "" : " ") + std::string(name);
    }
    gssp_release_oid_set(nullptr, &set);
    return names;
}

TEST_F(Loader, PolicyNamesTheMechanismsOfAUser) {
    const std::string mechanisms = mechanism("GOOD", "1.2.3") + mechanism("PLAIN", "1.2.4");
    const std::string users =
        "# \u00e9 " + std::string(300, '.') +
        "\n[policy.users]\n'\u00e9.x' = ['GOOD']\nalice = ['PLAIN', '1.2.3']\nbob = ['GOOD']\ncarol = []\n";
    ASSERT_EQ(configure_with(mechanisms + users + "[policy]\ndefault = ['PLAIN']\n"), GSSP_E_SUCCESS);
    EXPECT_EQ(allowed("alice"), "PLAIN GOOD");
    EXPECT_EQ(allowed("bob"), "GOOD");
    EXPECT_EQ(allowed("carol"), "(empty)");
    EXPECT_EQ(allowed("\u00e9.x"), "GOOD");
    EXPECT_EQ(allowed("Bob"), "PLAIN");
    EXPECT_EQ(allowed(""), std::to_string(0xE10000CBU));
    EXPECT_EQ(allowed(nullptr), std::to_string(0xE10000CBU));
    qxgss_shutdown(nullptr);
    EXPECT_EQ(allowed("alice"), std::to_string(0xE10000F2U));
    ASSERT_EQ(configure_with(mechanisms + users), GSSP_E_SUCCESS);
    EXPECT_EQ(allowed("bob"), "GOOD");
    EXPECT_EQ(allowed("dave"), "(none)");
    qxgss_shutdown(nullptr);
    ASSERT_EQ(configure_with(mechanisms), GSSP_E_SUCCESS);
    EXPECT_EQ(allowed("alice"), "(none)");
}

TEST_F(Loader, EveryAllocationCanFail) {
    const std::string content =
        "library_path = 'a-folder-with-a-rather-long-name'\n" +
        mechanism("NEGO", "1.2.1", "negotiates = [{oid = '1.2.3'}]\n[mechanism.properties]\nrank = 1\n") +
        mechanism("GONE", "1.2.7", "library = 'none.so'\n[mechanism.settings]\na_file = 'b'\n") +
        mechanism("FAILS", "1.2.3") + "[policy.users]\nalice = ['1.2.3']\n[policy]\ndefault = ['NEGO']\n";
    configured.reserve(1);
    for (const auto &[text, result] : {std::pair(content, GSSP_E_SUCCESS), std::pair(content + "[x]", 0xE10000A8U),
                                       std::pair(content + "x", 0xE10000A8U)}) {
        write(text);
        OM_uint32 minor = 0;
        long failed = 0;
        for (; failed < 2000; ++failed) {
            allocations_left = failed;
            qxgss_configure(&minor, QXGSS_CLIENT, file_.c_str(), nullptr);
            allocations_left = -1;
            if (minor == result)
                break;
            ASSERT_EQ(minor, GSSP_E_NO_MEMORY) << failed;
            ASSERT_EQ(pMechInfo, nullptr) << failed;
        }
        EXPECT_EQ(minor, result);
        EXPECT_GT(failed, 20);
        qxgss_shutdown(nullptr);
    }
}

} // namespace
