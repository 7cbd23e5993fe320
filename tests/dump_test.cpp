// `qxnego dump` shows where a token is wrong; whether it is, and with which status, is the mechanism's to say. For
// every token and every change to it both must agree.
#include <gtest/gtest.h>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "tools/inner_tokens.h"
#include "tools/token_tree.h"

namespace {

using tools::Bytes;
using tools::ByteView;
using tools::TokenTree;

Bytes from_hex(std::string_view digits) {
    Bytes out;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoul(std::string(digits.substr(i, 2)), nullptr, 16)));
    return out;
}

const char *const kTokens[] = {
    // INIT: OID 1.2.3.4 rejected with a status, 0.1 with an inner token and an SSO ID; incomplete; alice, SSO, b, p
    "a041a02ca01780032a030481010382010283030d000084010785026f6ba01180010181010182010186020102870241428101"
    "028205616c696365830100840162850170",
    // RESP completed with 0.1, policy applied; indefinite lengths, and fields that a receiver passes over
    "a180a080a0808001018101028201069e000000000081010182010183010184000000",
    // RESP rejected
    "a10fa008a0068001018101018101039e00",
    // without a list, empty ones, another tag, a primitive one
    "a108a0008101028201ff",
    "a000",
    "a100",
    "a200",
    "8000",
    "",
};

// The status with which a receiver refuses the token; success also when only its own list decides. Its one mechanism
// is rejected already, so that it adopts no state.
OM_uint32 mechanism_verdict(ByteView token, OM_uint32 type) {
    static unsigned char oid[] = {1};
    static qxgss_OID_desc local_oid{1, oid};
    NegContext_desc context{};
    context.NegMechList = {1, qxnego::zeroed<NegMechEntry_desc>().release()};
    context.NegMechList.pNegMech[0].pMechOid = &local_oid;
    context.NegMechList.pNegMech[0].MechState = NEG_MECH_STATE_REJECTED;
    context.NegMechList.pNegMech[0].MechIndex = -1;
    unsigned char nothing = 0; // the address of an empty token
    qxgss_buffer_desc input{token.size(), token.empty() ? &nothing : const_cast<unsigned char *>(token.data())};
    OM_uint32 minor = QXNEGO_E_SUCCESSFUL;
    const OM_uint32 major = QXNEGO_INT_ProcessInputToken(&minor, type, &input, &context);
    QXNEGO_INT_ReleaseNegContext(nullptr, &context);
    const bool accepted = !qxnego::failed(major) || minor == QXNEGO_E_SELECTED_NOT_FOUND;
    return accepted ? OM_uint32{QXNEGO_E_SUCCESSFUL} : minor;
}

void expect_agreement(ByteView token) {
    const TokenTree tree = tools::read_token(token);
    const OM_uint32 type = tree.form == "RESP" ? NEG_MECH_TOKENTYPE_RESP : NEG_MECH_TOKENTYPE_INIT;
    const OM_uint32 shown = tree.fault ? tree.fault->status : OM_uint32{QXNEGO_E_SUCCESSFUL};
    ASSERT_EQ(shown, mechanism_verdict(token, type)) << tools::hex(token, " ");
    ASSERT_TRUE(!tree.fault || tree.fault->offset <= token.size()) << tools::hex(token, " ");
}

TEST(Dump, AgreesWithTheMechanismOnEveryChangedToken) {
    for (const char *text : kTokens) {
        const Bytes token = from_hex(text);
        for (std::size_t length = 0; length <= token.size(); ++length)
            expect_agreement(ByteView(token).first(length));
        for (std::size_t at = 0; at < token.size(); ++at)
            for (unsigned value = 0; value < 256; ++value) {
                Bytes changed = token;
                changed[at] = static_cast<unsigned char>(value);
                expect_agreement(changed);
            }
    }
    for (std::size_t count : {std::size_t{510}, std::size_t{1030}}) { // nested too deeply, too many
        Bytes flat = {0xA0, 0x80};
        for (std::size_t i = 0; i < count; ++i)
            flat.insert(flat.end(), {0x9E, 0x00});
        flat.insert(flat.end(), {0x00, 0x00});
        expect_agreement(flat);
        expect_agreement(Bytes(count, 0xA0));
        Bytes deep;
        for (std::size_t i = 0; i < count; ++i)
            deep.insert(deep.end(), {0xA0, 0x80});
        expect_agreement(deep);
    }
    expect_agreement(Bytes((1U << 20) + 1, 0xA0));
}

TEST(Dump, MarksTheFirstWrongByte) {
    const struct {
        const char *token;
        std::size_t offset;
        const char *why;
    } cases[] = {
        {"", 0, "an element should begin here"},
        {"a006a00280058100", 5, "the length is 5, and only 0 bytes follow in the element around it"},
        {"a005a0038000", 1, "the length is 5, and only 4 bytes follow"},
        {"a00da008a006800101010101810102", 9, "the element's class is not context-specific"},
        {"a00da008a0068001018101018101020101", 15, "more bytes follow the outer element"},
        {"a00aa008a006800101810101", 12, "INIT has no negotiation state [1] where it belongs"},
        {"a00aa005a003810101810102", 6, "mechanism has no OID [0] where it belongs"},
        {"a00ca007a0058000810101810102", 7, "the OID is empty"},
        {"a005a000810102", 3, "the mechanism list is empty"},
        {"a00da008a006800101810101810103", 14, "no INIT has that negotiation state"},
        {"a00ea008a00680010181010181020002", 14,
         "the negotiation state is not the shortest form of a number of 32 bits"},
        {"a10ca008a006800101810101a100", 12, "the negotiation state is constructed"},
    };
    for (const auto &[token, offset, why] : cases) {
        const TokenTree tree = tools::read_token(from_hex(token));
        ASSERT_TRUE(tree.fault) << token;
        EXPECT_EQ(tree.fault->offset, offset) << token;
        EXPECT_EQ(tree.fault->why, why) << token;
    }
}

TEST(Dump, TellsInnerTokensByTheirFirstBytes) {
    const std::pair<const char *, const char *> cases[] = {
        {"601306092a864886f71201020201006e0102", "Kerberos AP-REQ"},
        {"6082001306092a864886f71201020202006f0102", "Kerberos AP-REP"},
        {"600706062b06010505", "of unknown kind"},
        {"600706052b06010505", "GSS-API token of 1.3.6.1.5.5"},
        {"4e544c4d5353500003000000", "NTLMSSP AUTHENTICATE"},
        {"6e2c2c6e3d61", "SCRAM client-first"},
        {"60", "of unknown kind"},
        {"", "of unknown kind"},
    };
    for (const auto &[token, kind] : cases)
        EXPECT_EQ(tools::kind_of_inner_token(from_hex(token)), kind) << token;
}

} // namespace
