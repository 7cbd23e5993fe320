// Logon strings: what each splits into, and that nothing of a failed one is left.
#include <array>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include "qxat/qxatldapauthorize.h"
#include "tests/failing_heap.h"

namespace {

constexpr std::array<const char *, 9> kNames{"upn",  "authcid", "password", "realm",       "authzid",
                                             "mech", "user",    "profile",  "encuserprops"};
constexpr unsigned kAll = 0x1FF;
constexpr unsigned kNoUpn = kAll & ~1U;
constexpr unsigned kNoAuthcid = kAll & ~2U;
constexpr unsigned kNoPassword = kAll & ~4U;
constexpr unsigned kNoUser = kAll & ~0x40U;

struct Parsed {
    OM_uint32 major, minor;
    std::string outputs; // "name=[value]" of each that was set
};

Parsed parse(const char *input, unsigned flags = 0, unsigned asked = kAll) {
    std::array<char *, 9> values;
    std::array<char **, 9> outputs;
    static char stale[] = "stale";
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = stale;
        outputs[i] = (asked >> i & 1) != 0 ? &values[i] : nullptr;
    }
    Parsed result{0, 0, ""};
    result.major = qxat_parse_logon(&result.minor, input, outputs[0], outputs[1], outputs[2], outputs[3], outputs[4],
                                    outputs[5], outputs[6], outputs[7], outputs[8], static_cast<qxat_flags_t>(flags));
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (outputs[i] == nullptr || values[i] == nullptr)
            continue;
        result.outputs += std::string(result.outputs.empty() ? "" : " ") + kNames[i] + "=[" + values[i] + "]";
        std::free(values[i]);
    }
    return result;
}

struct Case {
    int line;
    const char *input;
    const char *outputs; // of a success
    OM_uint32 failure = 0;
    unsigned flags = QXAT_FLAG_NONE;
    unsigned asked = kAll;
};

TEST(LogonString, SplitsIntoItsProperties) {
    const Case cases[] = {
        {__LINE__, "", ""},
        {__LINE__, ",", ""},
        {__LINE__, ",authcid=joe", ""},
        {__LINE__, "authcid=joe password=secret", "authcid=[joe] password=[secret]"},
        {__LINE__, "AUTHCID=joe", "authcid=[joe]"},
        {__LINE__, "authcid=a password=b realm=c authzid=d mech=e user=f profile=g userproperties=h",
         "authcid=[a] password=[b] realm=[c] authzid=[d] mech=[e] user=[f] profile=[g] encuserprops=[h]"},
        {__LINE__, "authcid=joe,password=secret", "authcid=[joe]"},
        {__LINE__, "authcid=joe ,bogus", "authcid=[joe]"},
        {__LINE__, "authcid=, user=u", "authcid=[]"},
        {__LINE__, "authcid='jo e,x'", "authcid=[jo e,x]"},
        {__LINE__, "authcid='it''s'", "authcid=[it's]"},
        {__LINE__, "authcid=\"it's\" user='a\"b'", "authcid=[it's] user=[a\"b]"},
        {__LINE__, "authcid='a'user=u", "authcid=[a] user=[u]"},
        {__LINE__, "authcid='a'''", "authcid=[a']"},
        {__LINE__, "authcid='open user=u", "authcid=[open user=u]"},
        {__LINE__, "authcid=''", "authcid=[]"},
        {__LINE__, "authcid=a'b", "authcid=[a'b]"},
        {__LINE__, "authcid= \t\n\v\f\rjoe\x01\x1F user=u", "authcid=[joe] user=[u]"},
        {__LINE__, "authcid=\x01user=u", "authcid=[] user=[u]"},
        {__LINE__, "authcid=\xA0j\xFF\x85 user=u", "authcid=[\xA0j\xFF\x85] user=[u]"},
        {__LINE__, "authcid=joe authcid=ann", "", QXAT_E_LOGON_AUTHCIDS},
        {__LINE__, "authcid=joe authcid=ann", "", 0, 0, kNoAuthcid},
        {__LINE__, "authcid=, authcid=ann", "authcid=[]"},
        {__LINE__, "authcid='' authcid=ann", "", QXAT_E_LOGON_AUTHCIDS},
        {__LINE__, "password=a password=b realm=r realm=s", "password=[a] realm=[r]"},
        {__LINE__, "user=u1 user=u2", "", QXAT_E_LOGON_USERS},
        {__LINE__, "user=u1 user=u2 profile=p", "profile=[p]", 0, 0, kNoUser},
        {__LINE__, "profile=u1 profile=u2", "", QXAT_E_LOGON_PROFILES},
        {__LINE__, "authcid=joe bogus", "", QXAT_E_LOGON_PROPERTY},
        {__LINE__, "authcid=joe user=", "", QXAT_E_LOGON_PROPERTY},
        {__LINE__, "bogus authcid=joe", "upn=[bogus] authcid=[joe]"},
        {__LINE__, "bogus authcid=joe", "authcid=[joe]", 0, 0, kNoUpn},
        {__LINE__, "authcid=", "upn=[authcid=]"},
        {__LINE__, "  authcid=joe", "upn=[authcid=joe]"},
        {__LINE__, "'a b' user=u", "upn=[a b] user=[u]"},
        // Only white space up to the end: empty, not the value read before.
        {__LINE__, "password=secret user= \t", "password=[secret] user=[]"},
        {__LINE__, " \t", "upn=[]"},
        // A leading field is skipped.
        {__LINE__, ",,x,authcid=joe", "authcid=[joe]"},
        {__LINE__, ",,'x y' ,authcid=joe", "authcid=[joe]"},
        {__LINE__, ",,,joe", "upn=[joe]"},
        {__LINE__, ",,x,,joe", ""},
        {__LINE__, ",,x,", ""},
        {__LINE__, ",,x", "", QXAT_E_LOGON_SYNTAX},
        {__LINE__, ",,x y,", "", QXAT_E_LOGON_SYNTAX},
        {__LINE__, ",,", "", QXAT_E_LOGON_SYNTAX},
        {__LINE__, ",,  ", "", QXAT_E_LOGON_SYNTAX},
        {__LINE__, nullptr, "", GSSP_E_INVALID_ARGUMENT},
        // A principal with a password behind the last "@@"; other bits alone change nothing.
        {__LINE__, "joe@@pw", "upn=[joe@@pw] authcid=[joe] password=[pw]", 0, 2},
        {__LINE__, "joe@@p\\@w", "upn=[joe@@p\\@w] authcid=[joe] password=[p@w]", 0, 3},
        {__LINE__, "a@@b@@c", "upn=[a@@b@@c] authcid=[a@@b] password=[c]", 0, 2},
        {__LINE__, "a@@@c", "upn=[a@@@c] authcid=[a@] password=[c]", 0, 6},
        {__LINE__, "joe@@pw password=x", "upn=[joe@@pw] authcid=[joe] password=[pw]", 0, 2},
        {__LINE__, "joe@@pw authcid=x", "", QXAT_E_LOGON_AUTHCIDS, 2},
        {__LINE__, "joe@@", "", QXAT_E_LOGON_PROPERTY, 2},
        {__LINE__, "@@pw", "", QXAT_E_LOGON_PROPERTY, 2},
        {__LINE__, "@@", "", QXAT_E_LOGON_PROPERTY, 2},
        {__LINE__, "j", "", QXAT_E_LOGON_PROPERTY, 2},
        {__LINE__, "joe@pw", "", QXAT_E_LOGON_PROPERTY, 2},
        {__LINE__, "joe@@pw", "", QXAT_E_LOGON_PROPERTY, 2, kNoAuthcid},
        {__LINE__, "joe@@pw", "", QXAT_E_LOGON_PROPERTY, 2, kNoPassword},
        {__LINE__, "joe@@pw", "upn=[joe@@pw]", 0, 5},
        // A principal as the framework parses it.
        {__LINE__, "joe@R", "upn=[joe@R] authcid=[joe@R]", 0, 7},
        {__LINE__, "joe user=u", "upn=[joe] authcid=[joe] user=[u]", 0, 7},
        {__LINE__, "joe@R@@pw", "upn=[joe@R@@pw] authcid=[joe@R] password=[pw]", 0, 7},
        {__LINE__, "joe@R@@pw", "upn=[joe@R@@pw] authcid=[joe@R]", 0, 7, kNoPassword},
        {__LINE__, "joe@R@@pw", "upn=[joe@R@@pw] password=[pw]", 0, 7, kNoAuthcid},
        {__LINE__, "'joe,ann'", "", QXAT_E_LOGON_PROPERTY, 7},
        {__LINE__, "@R", "", QXAT_E_LOGON_PROPERTY, 7},
        {__LINE__, "@R", "", QXAT_E_LOGON_PROPERTY, 7, kNoAuthcid},
        {__LINE__, "joe authcid=ann", "", QXAT_E_LOGON_AUTHCIDS, 7},
        {__LINE__, "authcid=joe", "authcid=[joe]", 0, 7},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        const Parsed parsed = parse(c.input, c.flags, c.asked);
        EXPECT_EQ(parsed.major, c.failure == 0 ? GSS_S_COMPLETE : GSS_S_FAILURE);
        EXPECT_EQ(parsed.minor, c.failure == 0 ? GSSP_E_SUCCESS : c.failure);
        EXPECT_EQ(parsed.outputs, c.outputs);
    }
    EXPECT_EQ(qxat_parse_logon(nullptr, "joe", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, QXAT_FLAG_NONE),
              GSS_S_COMPLETE);
}

TEST(LogonString, EveryAllocationCanFail) {
    const struct {
        const char *input;
        unsigned flags;
    } cases[] = {{"joe user=u realm=r", 0}, {"joe@@pw user=u", 2}, {"joe@R@@pw user=u", 7}, {"joe profile=p", 7}};
    for (const auto &c : cases) {
        bool happened = true;
        for (int n = 0; happened; ++n) {
            const failing_heap::From failing(n);
            const Parsed parsed = parse(c.input, c.flags);
            happened = failing.happened();
            ASSERT_EQ(parsed.major, happened ? GSS_S_FAILURE : GSS_S_COMPLETE) << c.input << ' ' << n;
            EXPECT_EQ(parsed.outputs.empty(), happened) << c.input << ' ' << n;
            EXPECT_TRUE(!happened || parsed.minor == QXAT_E_CALLOC || parsed.minor == QXAT_E_LOGON_PROPERTY);
        }
    }
}

TEST(LogonString, ComparesWithoutRegardToCase) {
    const struct {
        int line;
        const char *a, *b;
        size_t n;
        int bounded; // of the first n bytes
        int whole;
    } cases[] = {
        {__LINE__, "", "", 4, 0, 0},          {__LINE__, "AbC", "aBc", 9, 0, 0},
        {__LINE__, "abc", "abd", 2, 0, -1},   {__LINE__, "abc", "ABD", 3, -1, -1},
        {__LINE__, "B", "a", 1, 1, 1},        {__LINE__, "ab", "AB!", 9, -'!', -1},
        {__LINE__, "abZ", "AB", 9, 'z', 1},   {__LINE__, "a", "b", 0, 0, -1},
        {__LINE__, "", "Q", 1, -'q', -1},     {__LINE__, "\xE9", "a", 1, 0x88, -1},
        {__LINE__, "a", "\xE9", 1, -0x88, 1}, {__LINE__, "\x80", "\xFE", 1, -126, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(qxat_strnicmp(c.a, c.b, c.n), c.bounded);
        EXPECT_EQ(qxat_stricmp(c.a, c.b), c.whole);
    }
}

TEST(LogonString, GetStringLeavesTheBufferWhenNothingIsLeft) {
    for (const char *input : {"", "  ", " \t\r\n\v\f"}) {
        char value[] = "kept";
        EXPECT_EQ(GetString(input, value), nullptr);
        EXPECT_STREQ(value, "kept");
    }
    char value[8];
    const char *input = "a ,b";
    EXPECT_EQ(GetString(input, value), input + 2);
    EXPECT_STREQ(value, "a");
}

} // namespace
