// The configuration file and the loader: wrong files and their one line, mechanisms that can and cannot be put to use,
// properties, settings and policy.
#include <span>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "common/owned.h"
#include "testkit/real_mechanisms.h"
#include "tests/support.h"

namespace {

using namespace support;

constexpr const char *kDone = "00000000/21000064";

// What the mechanisms of this program saw, in the order of their configure operations.
std::vector<std::string> configured;

OM_uint32 say(qxgss_buffer_t pBuffer, const std::string &text, OM_uint32 *pMinorStatus, OM_uint32 major) {
    common::append(*pBuffer, text);
    *pMinorStatus = major == GSS_S_COMPLETE ? GSSP_E_SUCCESS : 0xA100012BU;
    return major;
}

std::string in_use() {
    std::string names;
    for (const MechInfo_t &mech : std::span(pMechInfo, MechCount))
        names += mech.fUseMech != 0 ? " " + std::string(mech.pszMechName) : "";
    return names;
}

} // namespace

// Mechanisms in the program itself: each does that when it is configured, and then says and returns that.
#define CONFIGURES(PREFIX, text, major, ...)                                                                           \
    extern "C" QXGSS_API OM_uint32 PREFIX##_configure(OM_uint32 *pMinorStatus,                                         \
                                                      [[maybe_unused]] OM_uint32 ClientServer,                         \
                                                      [[maybe_unused]] qxgss_buffer_t pPath, qxgss_buffer_t pInfo) {   \
        __VA_ARGS__;                                                                                                   \
        return say(pInfo, text, pMinorStatus, major);                                                                  \
    }
#define ANSWERS(NAME, answer)                                                                                          \
    extern "C" QXGSS_API OM_uint32 NAME() {                                                                            \
        return answer;                                                                                                 \
    }
CONFIGURES(GOOD, "", GSS_S_COMPLETE,
           configured.push_back("GOOD " + std::to_string(ClientServer) + " " + text_of(*pPath)))
CONFIGURES(NEGO, "", GSS_S_COMPLETE, configured.push_back("NEGO" + in_use())) // it negotiates
CONFIGURES(TALKS, "ready", GSS_S_CONTINUE_NEEDED, )
CONFIGURES(FAILS, "no key", GSS_S_FAILURE, )
CONFIGURES(MUTE, "", GSS_S_FAILURE, )
CONFIGURES(THROWS, "", GSS_S_COMPLETE, throw std::runtime_error("no card"))
CONFIGURES(RAISES, "", GSS_S_COMPLETE, throw 1)
ANSWERS(GOOD_release_name, GSS_S_COMPLETE)
ANSWERS(PLAIN_release_name, GSS_S_COMPLETE)
ANSWERS(OLD_release_name, GSS_S_COMPLETE)
ANSWERS(DATA_release_name, GSS_S_COMPLETE)
ANSWERS(GOOD_interface_version, QXGSS_INTERFACE_VERSION)
ANSWERS(OLD_interface_version, QXGSS_INTERFACE_VERSION + 1)
extern "C" {
QXGSS_API int DATA_configure = 1;
QXGSS_API thread_local int TLS_configure = 1;
}

namespace {

std::string in_program(const std::string &name, const std::string &oid, const std::string &more = "") {
    return testkit::entry_of(name, oid, name, "") + more;
}

class Loader : public testing::Test {
  protected:
    ~Loader() override {
        qxgss_shutdown(nullptr);
        configured.clear();
    }

    OM_uint32 configure(const std::string &file, OM_uint32 ClientServer = QXGSS_CLIENT) {
        OM_uint32 minor = 0;
        qxgss_buffer_desc message{7, this}; // whatever was there is not to be read
        const OM_uint32 major = qxgss_configure(&minor, ClientServer, file.c_str(), &message);
        EXPECT_EQ(GSS_ERROR(major) != 0, minor != GSSP_E_SUCCESS);
        message_ = taken(message);
        return minor;
    }
    OM_uint32 configure_with(const std::string &content, OM_uint32 ClientServer = QXGSS_CLIENT) {
        return configure(folder_.file("qxgss.conf", content), ClientServer);
    }

    Folder folder_;
    std::string message_, file_ = folder_.path + "/qxgss.conf";
};

TEST_F(Loader, OneLineSaysWhatIsWrongInAFile) {
    const std::string good = in_program("GOOD", "1.3.6.1.5.5.18"); // four lines
    const std::string other = in_program("OTHER", "1.3.6.1.5.5.14");
    const std::string dots = std::string(257, '.');
    // clang-format off
    std::vector<std::pair<std::string, std::string>> rows = {
        {"", ":1: mechanism: is missing"}, {"mechanism = []", ":1: mechanism: is missing"},
        {"\nmechanism = 1", ":2: mechanism: must be an array of tables"},
        {"library_path = 1\n" + good, ":1: library_path: must be a string"},
        {"\n[[mechanism]]\noid = '1.2.3'\nprefix = 'x'", ":2: mechanism.name: is missing"},
        {in_program("x", "1.3.x"), ":3: mechanism.oid: '1.3.x' is no OID"},
        {good + in_program("GOOD", "1.2.3"), ":6: mechanism.name: 'GOOD' is already the name of another mechanism"},
        {good + in_program("x", "1.3.6.1.5.5.18"), ":7: mechanism.oid: '1.3.6.1.5.5.18' is already the OID of GOOD"},
        {good + dots, ":5: syntax: more than 256 dots outside strings"},
        {"[[[", ":1: syntax: Error while parsing key: expected bare key starting character or string delimiter, saw '['"},
        {good + other + "name = 'x'", ":9: syntax: Error while parsing key-value pair: cannot redefine existing string 'name'"},
    };
    const std::pair<const char *, const char *> after_a_good_one[] = {
        {"\n[polcy]\n", ":6: polcy: unknown key"}, {"[policy]\nuser = 1", ":6: policy.user: unknown key"},
        {"\"a\\nb\\u007F\" = 'x'", ":5: mechanism.a?b?: unknown key"},
        {"[policy.users.alice]\nname = 'x'", ":6: policy.users.alice.name: unknown key"},
        {"negotiates = [{oid = '1.2.3', rank = 1}]", ":5: mechanism.negotiates.rank: unknown key"},
        {"[mechanism.properties]\nlevel = 1", ":6: mechanism.properties.level: unknown key"},
        {"library = \"a\\u0000b\"", ":5: mechanism.library: must not hold control characters"},
        {"enabled = 1", ":5: mechanism.enabled: must be true or false"},
        {"[mechanism.properties]\nrank = 1.0", ":6: mechanism.properties.rank: must be an integer"},
        {"[mechanism.properties]\nrank = 2147483648", ":6: mechanism.properties.rank: does not fit in 32 bits"},
        {"[mechanism.properties]\nrank = -2147483649", ":6: mechanism.properties.rank: does not fit in 32 bits"},
        {"properties = 3", ":5: mechanism.properties: must be a table"},
        {"[mechanism.settings]\n\"\" = 'x'", ":6: mechanism.settings.: must not be empty"},
        {"negotiates = [{oid = '1.2.3'},\n{oid = '1.2.3'}]", ":6: mechanism.negotiates.oid: '1.2.3' is listed twice"},
        {"[policy]\ndefault = 'GOOD'", ":6: policy.default: must be \"any\", \"none\" or an array of strings"},
        {"[policy.users]\nalice = [\n'GOOD',\n'OTHER']", ":8: policy.users.alice: 'OTHER' is no mechanism of this file"},
        {"[policy.users.alice]\nnames = ['x']", ":5: policy.users.alice.mechanisms: is missing"},
        {"[policy.users.alice]\nmechanisms = 'any'\nnames = 'x'", ":7: policy.users.alice.names: must be an array of strings"},
        {"[policy.users.alice]\nmechanisms = 'any'\nnames = ['x',\n'']", ":8: policy.users.alice.names: must not be empty"},
        {"[policy.users]\n'D\\a' = []\n\n'd\\A' = []", ":8: policy.users.d\\A: 'd\\A' is already a name of D\\a"},
        {"library = 'a\\' \u0409", ":5: syntax: a character beyond ASCII outside strings and comments"}, // no escape there
        {"enabled = t'\u0409'", ":5: syntax: a quotation mark inside a word"},
        {"library = '''\nx'''", ":5: syntax: strings of several lines are not supported"},
        {"library = '\\\\\xff' # '", ":5: syntax: Encountered invalid utf-8 sequence"},
        {"x = \"\\\"\xff\"", ":5: syntax: Encountered invalid utf-8 sequence"},
    };
    // clang-format on
    for (const auto &[content, message] : after_a_good_one)
        rows.emplace_back(good + content, message);
    for (const auto &[content, message] : rows) {
        EXPECT_EQ(configure_with(content), message == ":1: mechanism: is missing" ? 0xE1000096U : 0xE10000A8U);
        EXPECT_EQ(message_, file_ + message);
        EXPECT_TRUE(pMechInfo == nullptr && MechCount == 0) << message;
    }
    EXPECT_TRUE(configured.empty());
}

TEST_F(Loader, ArgumentsAndUnreadableFilesAreRefusedInOrder) {
    EXPECT_EQ(outcome(qxgss_configure, 3, nullptr, nullptr), "000D0000/E1000091");
    expect_all("000D0000/E1000099", {outcome(qxgss_configure, QXGSS_SERVER, nullptr, nullptr),
                                     outcome(qxgss_configure, QXGSS_SERVER, "", nullptr)});
    EXPECT_EQ(configure(file_), 0xE10000A8U);
    EXPECT_EQ(message_, file_ + ": cannot be read: No such file or directory");
    std::string largest = in_program("GOOD", "1.2.3") + "\n#";
    largest.resize(1 << 20, '#');
    EXPECT_EQ(configure_with(largest), GSSP_E_SUCCESS);
    qxgss_shutdown(nullptr);
    EXPECT_EQ(configure_with(largest + '#'), 0xE10000A8U);
    EXPECT_EQ(message_, file_ + ": cannot be read: it is larger than 1 MiB");
    EXPECT_EQ(configure(folder_.path), 0xE10000A8U);
    EXPECT_EQ(message_, folder_.path + ": cannot be read: Is a directory");
    std::filesystem::current_path(std::filesystem::path(SAMPLE).parent_path()); // a name without a folder
    EXPECT_EQ(outcome(qxgss_configure, QXGSS_CLIENT, "qxgss.conf.sample", nullptr), kDone);
    EXPECT_EQ(outcome(qxgss_configure, 3, nullptr, nullptr), "000D0000/E1000094");
    EXPECT_EQ(MechCount, 2U);
}

TEST_F(Loader, MechanismsThatFailAreOutOfUseAndTheOthersGoOn) {
    // Name, more of the entry, whether it is in use, what it says.
    const std::tuple<std::string, std::string, bool, std::string> rows[] = {
        {"NEGO", "negotiates = [{oid = '1.2.1'}, {oid = '2.100.3', enabled = false}]\n", true, ""},
        {"GOOD", "", true, ""},
        {"FAILS", "", false, "no key"},
        {"MUTE", "", false, "its configure operation failed with major status 0x000D0000, minor status 0xA100012B"},
        {"PLAIN", "", true, ""},
        {"GONE", "library = 'none.so'\n", false, "none.so: cannot open shared object file"},
        {"EMPTY", "", false, "no operation of it has the prefix EMPTY_"},
        {"TALKS", "", true, "ready"},
        {"TEXT", "library = '" + file_ + "'\n", false, "qxgss.conf: "},
        {"OLD", "", false, "it is made for version 2 of the framework's interface, which is 1"},
        {"DATA", "", false, "DATA_configure is data, not a function"},
        {"THROWS", "", false, "its configure operation threw an exception: no card"},
        {"RAISES", "", false, "its configure operation threw an exception"},
        {"TLS", "", false, "TLS_configure is data, not a function"},
    };
    std::string content = in_program("OFF", "1.2.0", "enabled = false\nlibrary = 'none.so'\n"), all;
    int number = 0;
    for (const auto &[name, more, used, says] : rows)
        content += in_program(name, "1.2." + std::to_string(++number), more);
    ASSERT_EQ(configure_with(content, QXGSS_SERVER), GSSP_E_SUCCESS);
    for (const auto &[name, more, used, says] : rows) {
        const MechInfo_t &mech = registered(name);
        const std::string told = mech.pszMessage == nullptr ? says : mech.pszMessage;
        EXPECT_TRUE((mech.fUseMech != 0) == used && (mech.pszMessage == nullptr) == used) << name;
        EXPECT_NE(told.find(says), told.npos) << told;
        all += says.empty() ? "" : "\n" + name + ": " + told;
    }
    EXPECT_EQ("\n" + message_, all); // of what is switched off nothing is said
    EXPECT_STREQ(registered("OFF").pszMessage, "it is disabled in the configuration file");
    EXPECT_EQ(registered("OFF").fUseMech, 0U);
    EXPECT_EQ(configured, (std::vector<std::string>{"GOOD 2 " + folder_.path + "/.", "NEGO NEGO GOOD PLAIN TALKS"}));

    const MechInfo_t &good = registered("GOOD"), &nego = registered("NEGO");
    EXPECT_EQ(good.MechFtnTable.ftn_gssp_configure, &GOOD_configure);
    EXPECT_NE(good.MechFtnTable.ftn_gssp_release_name, nullptr);
    EXPECT_EQ(good.MechFtnTable.ftn_gssp_wrap, nullptr);
    EXPECT_EQ(registered("DATA").MechFtnTable.ftn_gssp_release_name, nullptr); // nothing of what cannot be used
    EXPECT_EQ(good.pszLibrary, nullptr);
    EXPECT_EQ(registered("GONE").pszLibrary, folder_.path + "/./none.so");
    ASSERT_EQ(nego.NegotiatedMechCount, 2U);
    EXPECT_STREQ(nego.pNegMechInfo[1].pNegotiatedMech, "2.100.3");
    EXPECT_TRUE(nego.pNegMechInfo[0].fEnabled == 1 && nego.pNegMechInfo[1].fEnabled == 0);
}

TEST_F(Loader, WhatOthersCanWriteIsToldOf) {
    const std::string key = folder_.file("key", "");
    const std::string settings = "settings = { a_file = 'key', b_file = '" + key + "', c_file = '/dev/null' }\n";
    const std::string unused = "enabled = false\nsettings = { a_file = 'off', b_file = 'gone', c = 'off' }\n";
    const std::string content = in_program("GOOD", "1.2.3", settings) + in_program("OFF", "1.2.4", unused);
    std::filesystem::permissions(folder_.file("off", ""), std::filesystem::perms{0666});
    const std::string warning = ": others than its owner can write it", folder = folder_.path + "/";
    bool foreign = true; // whether the group can be made another than the owner's own
    for (const std::string &path : {key, folder, folder_.file("qxgss.conf", "")})
        foreign = (chown(path.c_str(), geteuid(), geteuid() + 1) == 0 || getegid() != geteuid()) && foreign;
    const std::tuple<unsigned, unsigned, unsigned, std::string> rows[] = {
        {0644, 0755, 0600, ""},
        {0644, 01777, 0600, ""}, // nobody can put another file in the place of this one
        {0602, 0777, 0604, file_ + warning + "\n" + folder + warning},
        {0600, 0700, 0602, key + warning},
        {0660, 0770, 0660, foreign ? file_ + warning + "\n" + folder + warning + "\n" + key + warning : ""},
    };
    configure_with(content);
    for (const auto &[of_file, of_folder, of_key, message] : rows) {
        for (const auto &[path, mode] : {std::pair{file_, of_file}, {folder, of_folder}, {key, of_key}})
            std::filesystem::permissions(path, std::filesystem::perms{mode});
        qxgss_shutdown(nullptr);
        EXPECT_EQ(configure(file_), GSSP_E_SUCCESS);
        EXPECT_EQ(message_, message);
    }
}

TEST_F(Loader, LookUpsAnswerFromTheRegistry) {
    ASSERT_EQ(configure_with(in_program("GOOD", "1.3.6.1.5.5.18") + in_program("PLAIN", "1.3.6.1.5.5.14")),
              GSSP_E_SUCCESS);
    qxgss_OID oid = nullptr, same = nullptr, unknown = nullptr, again = nullptr;
    OM_sint32 index = 7, no_index = 7;
    const char *name = nullptr, *text = nullptr;
    expect_all(kDone,
               {outcome(gssp_mechstr_to_oid, "PLAIN", &oid), outcome(gssp_mechoidstr_to_oid, "1.3.6.1.5.5.14", &same),
                outcome(gssp_mechoidstr_to_oid, "1.3.6.1.5.5.2", &unknown),
                outcome(gssp_mechoidstr_to_oid, "1.3.6.1.5.5.2", &again), outcome(gssp_oid_to_mechindex, oid, &index),
                outcome(gssp_oid_to_mechindex, unknown, &no_index), outcome(gssp_oid_to_mechstr, oid, &name),
                outcome(gssp_mechstr_to_oidstr, "GOOD", &text)});
    EXPECT_EQ(bytes_of(*oid) + " " + name + " " + text, "\x2b\x06\x01\x05\x05\x0e PLAIN 1.3.6.1.5.5.18");
    EXPECT_TRUE(same == oid && again == unknown && index == 1 && no_index == -1);

    qxgss_OID_desc none{0, nullptr};
    index = 7;
    expect_all("000D0000/E100007B",
               {without_each(gssp_mechstr_to_oid, "GOOD", &oid), outcome(gssp_mechstr_to_oid, "good", &oid),
                without_each(gssp_mechoidstr_to_oid, "1.2.3", &oid),
                without_each(gssp_oid_to_mechindex, same, &index)});
    EXPECT_EQ(outcome(gssp_mechoidstr_to_oid, "1.3.6.", &oid), "000D0000/E1000081");
    EXPECT_EQ(outcome(gssp_oid_to_mechindex, &none, &index), "000D0000/E10000CD");
    oid = same;
    EXPECT_EQ(outcome(gssp_mechstr_to_oid, "NEGO", &oid), "000D0000/E100007B");
    expect_all("000D0000/E100007C", {without_each(gssp_oid_to_mechstr, registered("GOOD").pMechOid, &text),
                                     outcome(gssp_oid_to_mechstr, unknown, &text)});
    expect_all("000D0000/E10000DB",
               {without_each(gssp_mechstr_to_oidstr, "GOOD", &text), outcome(gssp_mechstr_to_oidstr, "NEGO", &text)});
    EXPECT_TRUE(oid == nullptr && text == nullptr && index == -1); // whatever was there before
}

TEST_F(Loader, PropertiesAndSettingsAreThoseThatAreGiven) {
    ASSERT_EQ(configure_with(in_program("GOOD", "1.2.3",
                                        "[mechanism.properties]\nauthentication = true\n"
                                        "authorization = false\nrank = -5\n[mechanism.settings]\n"
                                        "realm = 'a b'\nkey_file = 'k'\nroot_file = '/k'\n") +
                             in_program("PLAIN", "1.2.4", "[mechanism.properties]\nsingle_sign_on = true\n")),
              GSSP_E_SUCCESS);
    // "7" for an answer that was left alone.
    const auto answer = []<typename T>(auto call, const char *name, OM_uint32 property, T value) {
        const std::string got = outcome(call, registered(name).pMechOid, property, &value);
        EXPECT_EQ(got, value == 7 ? "000D0000/E1000074" : kDone) << property;
        return std::to_string(value);
    };
    constexpr auto boolean = gssp_inquire_one_mech_property_boolean;
    constexpr auto integer = gssp_inquire_one_mech_property_int;
    for (const auto &[number, expected] :
         {std::pair{2U, "1777"}, {3U, "0777"}, {8U, "7177"}, {17U, "77-57"}, {4U, "7777"}})
        EXPECT_EQ(answer(boolean, "GOOD", number, OM_uint32{7}) + answer(boolean, "PLAIN", number, OM_uint32{7}) +
                      answer(integer, "GOOD", number, OM_sint32{7}) + answer(integer, "PLAIN", number, OM_sint32{7}),
                  expected)
            << number;
    OM_sint32 rank = -5;
    const char *text = nullptr;
    expect_all("000D0000/E1000074", {outcome(integer, GSS_C_NT_QXAT_MECHDATA, 17, &rank),
                                     without_each(integer, registered("GOOD").pMechOid, 17, &rank),
                                     without_each(gssp_inquire_mech_setting, "GOOD", "realm", &text)});
    EXPECT_EQ(rank, -5);

    std::string settings;
    constexpr const char *kAsked[][2] = {
        {"GOOD", "realm"}, {"GOOD", "key_file"}, {"GOOD", "root_file"}, {"PLAIN", "realm"}, {"NONE", "realm"}};
    for (const auto &[mech, key] : kAsked)
        settings += gssp_inquire_mech_setting(nullptr, mech, key, &text) == GSS_S_COMPLETE ? text : "-";
    EXPECT_EQ(settings, "a b" + folder_.path + "/k/k--");
}

// The names of the allowed mechanisms, "none", "any", or the statuses.
std::string allowed(const char *user) {
    common::OidSet set;
    const std::string got = outcome(gssp_inquire_mech_policy_for_user, user, set.out());
    if (got != kDone)
        return got;
    std::string names = set == nullptr ? "any" : "";
    for (std::size_t i = 0; set != nullptr && i < set->count; ++i) {
        const char *name = nullptr;
        gssp_oid_to_mechstr(nullptr, &set->elements[i], &name);
        const bool none = bytes_of(set->elements[i]) == bytes_of(*GSSP_C_NO_MECHANISM);
        names += (i == 0 ? "" : " ") + std::string(none ? "none" : name);
    }
    return names;
}

constexpr char kAccounts[] = "[policy.users]\n"
                             "alice = ['A', 'B']\n"
                             "bob = { mechanisms = ['A'], names = ['bob@R', 'D\\bob', 'bob@R'] }\n"
                             "'carol@R' = { mechanisms = 'none', names = ['E\\carol'] }\n"
                             "dave = 'none'\n"
                             "erna = 'any'\n"
                             "'\u00e9.x' = ['1.2.11']\n"
                             "'jos\u00e9' = { mechanisms = ['B'], names = ['D\\jos\u00e9'] }\n"
                             "mike = ['B', 'C']\n";

TEST_F(Loader, ThePolicyHoldsForAUserNotForASpelling) {
    const std::string mechanisms = in_program("GOOD", "1.2.10") + in_program("A", "1.2.11") +
                                   in_program("B", "1.2.12") + in_program("C", "1.2.13") + "# \u00e9" +
                                   std::string(300, '.') + "\n";
    // clang-format off
    const std::tuple<const char *, std::vector<std::pair<const char *, const char *>>> rows[] = {
        {"", { // listed names
            {"alice", "A B"}, {"bob", "A"}, {"bob@R", "A"}, {"D\\bob", "A"}, {"d\\BOB", "A"}, {"carol@R", "none"},
            {"e\\CAROL", "none"}, {"erna", "any"}, {"\u00e9.x", "A"}, {"d\\jos\u00e9", "B"}}},
        {"", { // others: the user of an account in any realm or domain, unless the account says in which
            {"Alice@R", "A B"}, {"x\\alicE", "A B"}, {"a\\b\\alice", "A B"}, {"D\\Dave", "none"}, {"bob@S", "any"},
            {"BOB@R", "any"}, {"E\\bob", "any"}, {"erna@R", "any"}, {"ALICE@x@R", "any"}, {"alice\\@R", "any"},
            {"carol", "any"}, {"carol@S", "any"}, {"Alice", "any"}, {"@R", "any"}, {"D\\", "any"}}},
        {"", { // beyond ASCII the case is not known
            {"D\\JOS\u00c9", "B"}, {"D\\JO\u017f\u00c9", "B"}, {"JOS\u00c9@R", "B"}, {"mi\u212ae@R", "B C"},
            {"D\\jose", "any"}, {"m\u00efke@R", "any"}, {"\u00e9@R", "any"}}},
        {"[policy]\ndefault = ['C', 'B']\n", {
            {"alice", "A B"}, {"alice@R", "B"}, {"bob@S", "C B"}, {"dave@R", "none"}, {"erna@R", "C B"}, {"nobody", "C B"}}},
        {"[policy]\ndefault = 'none'\n", {{"alice", "A B"}, {"alice@R", "none"}, {"erna", "any"}}},
        {nullptr, {{"alice", "any"}}},
    };
    // clang-format on
    for (const auto &[before, users] : rows) { // what stands before the accounts; null: there is no policy at all
        const std::string policy = before == nullptr ? "" : std::string(before) + kAccounts;
        ASSERT_EQ(configure_with(mechanisms + policy), GSSP_E_SUCCESS) << message_;
        for (const auto &[user, expected] : users)
            EXPECT_EQ(allowed(user), expected) << policy << user;
        qxgss_shutdown(nullptr);
    }
    EXPECT_EQ(allowed("alice"), "000D0000/E10000F2");
    ASSERT_EQ(configure_with(mechanisms + kAccounts), GSSP_E_SUCCESS);
    expect_all("000D0000/E10000CB", {allowed(""), allowed(nullptr)});
    EXPECT_EQ(outcome(gssp_inquire_mech_policy_for_user, "bob", nullptr), "000D0000/E10000CD");
}

TEST_F(Loader, AccountsThatLackANameAreToldOf) {
    const std::string kerberos = "1.2.840.113554.1.2.2", ntlm = "1.3.6.1.4.1.311.2.2.10", scram = "1.2.3";
    const std::string rest = testkit::entry_of("KRB", kerberos, "GOOD", "") +
                             testkit::entry_of("NTLM", ntlm, "GOOD", "") + testkit::entry_of("S", scram, "GOOD", "") +
                             "[policy.users]\na = []\nb = { mechanisms = [], names = ['b@R'] }\n'c@R' = 'none'\n";
    const std::string holds = ": the policy holds for every such name of that user";
    const std::pair<std::string, std::string> rows[] = {
        {"{oid = '" + kerberos + "'}, {oid = '" + ntlm + "'}, {oid = '" + scram + "'}",
         "policy.users.a: no name of the form user@REALM (KRB) or DOMAIN\\user (NTLM)" + holds +
             "\npolicy.users.b: no name of the form DOMAIN\\user (NTLM)" + holds +
             "\npolicy.users.c@R: no name of the form user (S) or DOMAIN\\user (NTLM): such a name gets the default"},
        {"{oid = '" + kerberos + "'}, {oid = '" + scram + "', enabled = false}, {oid = '1.2.4'}",
         "policy.users.a: no name of the form user@REALM (KRB)" + holds},
        {"", ""},
    };
    for (const auto &[negotiates, message] : rows) {
        const std::string negotiator = in_program("NEGO", "1.2.1", "negotiates = [" + negotiates + "]\n");
        ASSERT_EQ(configure_with(negotiator + rest), GSSP_E_SUCCESS);
        EXPECT_EQ(message_, message);
        qxgss_shutdown(nullptr);
    }
}

} // namespace
