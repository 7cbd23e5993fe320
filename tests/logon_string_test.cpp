// Logon strings: what each splits into, and that nothing of a failed one is left.
#include <array>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qxat/qxatint.h"
#include "tests/support.h"

namespace {

constexpr std::array<const char *, 9> kNames{"upn",  "authcid", "password", "realm",       "authzid",
                                             "mech", "user",    "profile",  "encuserprops"};
constexpr unsigned kAll = 0x1FF, kNoUpn = kAll & ~1U, kNoAuthcid = kAll & ~2U, kNoPassword = kAll & ~4U;
constexpr unsigned kNoUser = kAll & ~0x40U;

// "name=[value]" of each output that was set; before them the statuses of a failure.
std::string parse(const char *input, unsigned flags = QXAT_FLAG_NONE, unsigned asked = kAll) {
    std::array<char *, 9> values;
    std::array<char **, 9> out;
    static char stale[] = "stale";
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = stale;
        out[i] = (asked >> i & 1) != 0 ? &values[i] : nullptr;
    }
    std::string text = support::outcome(qxat_parse_logon, input, out[0], out[1], out[2], out[3], out[4], out[5], out[6],
                                        out[7], out[8], static_cast<qxat_flags_t>(flags));
    if (text == "00000000/21000064")
        text.clear();
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (out[i] == nullptr || values[i] == nullptr)
            continue;
        text += std::string(text.empty() ? "" : " ") + kNames[i] + "=[" + values[i] + "]";
        std::free(values[i]);
    }
    return text;
}

constexpr const char *kTwoNames = "000D0000/E3000427", *kSyntax = "000D0000/E3000424", *kProperty = "000D0000/E300042A";

TEST(LogonString, SplitsIntoItsPropertiesOrLeavesNothing) {
    // clang-format off
    // Flags and outputs asked for, then inputs and what they split into.
    const std::tuple<unsigned, unsigned, std::vector<std::array<const char *, 2>>> groups[] = {
        {QXAT_FLAG_NONE, kAll,
         {{"", ""}, {"AUTHCID=joe", "authcid=[joe]"},
          {"authcid=a password=b realm=c authzid=d mech=e user=f profile=g userproperties=h",
           "authcid=[a] password=[b] realm=[c] authzid=[d] mech=[e] user=[f] profile=[g] encuserprops=[h]"},
          {"authcid=joe,password=secret", "authcid=[joe]"}, {"authcid=, user=u", "authcid=[]"},
          {"authcid='it''s'", "authcid=[it's]"}, {"authcid=\"it's\" user='a\"b'", "authcid=[it's] user=[a\"b]"},
          {"authcid='a'user=u", "authcid=[a] user=[u]"}, {"authcid='open user=u", "authcid=[open user=u]"},
          {"authcid= \t\n\v\f\rjoe\x01\x1F user=u", "authcid=[joe] user=[u]"},
          {"authcid=\xA0j\xFF\x85 user=u", "authcid=[\xA0j\xFF\x85] user=[u]"},
          {"password=a password=b realm=r realm=s", "password=[a] realm=[r]"},
          {"bogus authcid=joe", "upn=[bogus] authcid=[joe]"}, {"authcid=", "upn=[authcid=]"},
          {"  authcid=joe", "upn=[authcid=joe]"}, {"'a b' user=u", "upn=[a b] user=[u]"},
          // Only white space up to the end: empty, not the value read before.
          {"password=secret user= \t", "password=[secret] user=[]"}, {" \t", "upn=[]"},
          // A leading field is skipped.
          {",,'x y' ,authcid=joe", "authcid=[joe]"}, {",,,joe", "upn=[joe]"}, {",,x,", ""},
          {",,x", kSyntax}, {",,x y,", kSyntax}, {",,", kSyntax}, {",,  ", kSyntax},
          {nullptr, "000D0000/E10000CD"}, {"authcid=joe authcid=ann", kTwoNames}, {"authcid='' authcid=ann", kTwoNames},
          {"user=u1 user=u2", "000D0000/E3000428"}, {"profile=u1 profile=u2", "000D0000/E3000429"},
          {"authcid=joe bogus", kProperty}, {"authcid=joe user=", kProperty}}},
        {QXAT_FLAG_NONE, kNoUpn, {{"bogus authcid=joe", "authcid=[joe]"}}},
        {QXAT_FLAG_NONE, kNoAuthcid, {{"authcid=joe authcid=ann", ""}}},
        {QXAT_FLAG_NONE, kNoUser, {{"user=u1 user=u2 profile=p", "profile=[p]"}}},
        // A principal with a password behind the last "@@"; other bits alone change nothing.
        {QXAT_FLAG_UNESCAPE_PASSWORD, kAll,
         {{"joe@@p\\@w", "upn=[joe@@p\\@w] authcid=[joe] password=[p@w]"},
          {"a@@b@@c", "upn=[a@@b@@c] authcid=[a@@b] password=[c]"},
          {"joe@@pw password=x", "upn=[joe@@pw] authcid=[joe] password=[pw]"}, {"joe@@pw authcid=x", kTwoNames},
          {"joe@@", kProperty}, {"@@pw", kProperty}, {"@@", kProperty}, {"joe@pw", kProperty}}},
        {QXAT_FLAG_UNESCAPE_PASSWORD, kNoAuthcid, {{"joe@@pw", kProperty}}},
        {QXAT_FLAG_UNESCAPE_PASSWORD, kNoPassword, {{"joe@@pw", kProperty}}},
        {3, kAll, {{"joe@@p\\@w", "upn=[joe@@p\\@w] authcid=[joe] password=[p@w]"}}},
        {6, kAll, {{"a@@@c", "upn=[a@@@c] authcid=[a@] password=[c]"}}},
        {5, kAll, {{"joe@@pw", "upn=[joe@@pw]"}}},
        // A principal as the framework parses it.
        {QXAT_FLAG_UNESCAPE_ALL, kAll,
         {{"joe@R user=u", "upn=[joe@R] authcid=[joe@R] user=[u]"}, {"joe", "upn=[joe] authcid=[joe]"},
          {"joe@R@@pw", "upn=[joe@R@@pw] authcid=[joe@R] password=[pw]"}, {"authcid=joe", "authcid=[joe]"},
          {"joe authcid=ann", kTwoNames}, {"'joe,ann'", kProperty}, {"@R", kProperty}}},
        {QXAT_FLAG_UNESCAPE_ALL, kNoPassword, {{"joe@R@@pw", "upn=[joe@R@@pw] authcid=[joe@R]"}}},
        {QXAT_FLAG_UNESCAPE_ALL, kNoAuthcid, {{"joe@R@@pw", "upn=[joe@R@@pw] password=[pw]"}, {"@R", kProperty}}},
    };
    // clang-format on
    for (const auto &[flags, asked, rows] : groups)
        for (const auto &[input, outputs] : rows)
            EXPECT_EQ(parse(input, flags, asked), outputs) << input << ' ' << flags;
}

} // namespace
