// What `qxnego dump` says of a token, where the fuzz target's rules do not: where the first wrong byte is and why, and
// what the tokens of others are.
#include <gtest/gtest.h>

#include "tools/token/foreign.h"
#include "tools/token/tree.h"

namespace {

using tools::Bytes;

// The bytes of hexadecimal digits, so many times.
Bytes from_hex(std::string_view digits, std::size_t times = 1) {
    Bytes out;
    for (const Bytes once = tools::from_hex(digits).value(); times != 0; --times)
        out.insert(out.end(), once.begin(), once.end());
    return out;
}

TEST(Dump, MarksTheFirstWrongByte) {
    Bytes flat = from_hex("9e00", GSSPASN_DECODE_MAX_ELEMENTS);
    flat.insert(flat.begin(), {0xA0, 0x80});
    const std::tuple<Bytes, std::size_t, const char *> cases[] = {
        {{}, 0, "an element should begin here"},
        {from_hex("a0"), 1, "a length should follow"},
        {from_hex("a0ff"), 1, "a length octet has the reserved value FF"},
        {from_hex("a08400"), 1, "the length has more octets than are there"},
        {from_hex("a006a00280058100"), 5, "the length is 5, and only 0 bytes follow in the element around it"},
        {from_hex("a002bf00"), 2, "the tag number is 31 or above"},
        {from_hex("a0028080"), 3, "a primitive element has an indefinite length"},
        {from_hex("a0808000000100"), 5, "the end of an indefinite length is two zero octets"},
        {from_hex("a080", 17), 32, "elements are nested more than 16 deep"},
        {flat, 2 * GSSPASN_DECODE_MAX_ELEMENTS, "more than 16384 elements"},
        {Bytes(GSSPASN_DECODE_MAX_TOKEN + 1, 0xA0), GSSPASN_DECODE_MAX_TOKEN, "the token is larger than 1 MiB"},
        {from_hex("a00da008a006800101010101810102"), 9, "the element's class is not context-specific"},
        {from_hex("a00da008a0068001018101018101020101"), 15, "more bytes follow the outer element"},
        {from_hex("a00aa008a006800101810101"), 12, "INIT has no negotiation state [1] where it belongs"},
        {from_hex("a00aa005a003810101810102"), 6, "mechanism has no OID [0] where it belongs"},
        {from_hex("a00ca007a0058000810101810102"), 7, "the OID is empty"},
        {from_hex("a005a000810102"), 3, "the mechanism list is empty"},
        {from_hex("a00da008a006800101810101810103"), 14, "no INIT has that negotiation state"},
        {from_hex("a00ea008a00680010181010181020002"), 14,
         "the negotiation state is not the shortest form of a number of 32 bits"},
        {from_hex("a10ca008a006800101810101a100"), 12, "the negotiation state is constructed"},
    };
    for (const auto &[token, offset, why] : cases) {
        const tools::TokenTree tree = tools::read_token(token);
        ASSERT_TRUE(tree.fault) << why;
        EXPECT_EQ(tree.fault->offset, offset) << why;
        EXPECT_EQ(tree.fault->why, why);
    }
}

std::string told(const Bytes &token) {
    const auto foreign = tools::read_foreign(token);
    std::string out = foreign ? foreign->kind : "";
    for (const auto &field : foreign ? foreign->fields : std::vector<tools::Foreign::Field>())
        out += "; " + field.name + ' ' + field.value;
    return out;
}

TEST(Dump, TellsTokensOfOthers) {
    const std::pair<const char *, const char *> cases[] = {
        {"605106092a864886f71201020201006e423040a003020105a33961373035a003020105a1031b0152a2143012a003020103a10b30091b0"
         "4686f73741b0168a3133011a003020112a103020102a205040378797a",
         "Kerberos AP-REQ; mechanism Kerberos; service host/h@R; key version 2; encryption type 18; ticket 3 bytes"},
        {"603d06092a864886f71201020203007e2e302ca003020105a603020125a9031b0152aa143012a003020103a10b30091b04686f73741b0"
         "168ab051b036e6f1b",
         "Kerberos KRB-ERROR; mechanism Kerberos; error 37; text no\\x1b; service host/h@R"},
        {"602e06062b0601050502a0243022a019301706092a864886f712010202060a2b06010401823702020aa30504036d6963",
         "RFC 4178 NegTokenInit; mechanisms Kerberos, NTLMSSP; MIC 3 bytes"},
        {"a1293027a0030a0101a10c060a2b06010401823702020aa21204104e544c4d535350000100000002020000",
         "RFC 4178 NegTokenResp; state accept-incomplete; mechanism NTLMSSP; response token NTLMSSP NEGOTIATE, 16 "
         "bytes;   flags OEM, NTLM"},
        {"4e544c4d5353500003000000000000000000000002000200480000000400040040000000040004004400000009000900e803000000000"
         "000000000000102000051005800e9000a003f3f",
         "NTLMSSP AUTHENTICATE; flags Unicode, NTLM; domain QX; user é\\x0a; NTLM response 2 bytes"},
    };
    for (const auto &[text, expected] : cases) {
        const Bytes token = from_hex(text);
        EXPECT_EQ(told(token), expected);
        for (std::size_t at = 0; at < token.size(); ++at) {
            std::vector<Bytes> changed(257, token);
            changed[256].resize(at);
            for (unsigned value = 0; value < 256; ++value)
                changed[value][at] = static_cast<unsigned char>(value);
            for (const Bytes &one : changed) {
                const std::string shown = told(one);
                ASSERT_EQ(shown, tools::printable(shown)) << at;
            }
        }
    }
    EXPECT_EQ(told(from_hex("a108a0008101028201ff")), "");
}

} // namespace
