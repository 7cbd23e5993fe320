// Status texts: values that no table has, and who is refused by display_status in which order.
#include <gtest/gtest.h>

#include "gssp2qxnego/gssp2qxnegoint.h"
#include "tests/failing_heap.h"

namespace {

unsigned char own_bytes[] = {0x2B, 0x06, 0x01, 0x7F};
unsigned char longer_bytes[] = {0x2B, 0x06, 0x01, 0x7F, 0x01};
unsigned char other_bytes[] = {0x2B, 0x06, 0x01, 0x7E};
qxgss_OID_desc own{4, own_bytes}, longer{5, longer_bytes}, shorter{3, own_bytes}, other{4, other_bytes},
    without_bytes{4, nullptr};

TEST(StatusText, IsFoundByTheWholeValue) {
    for (const OM_uint32 unknown : {0U, 0xE30003FBU, 0xE3000415U, 0xE300042EU, 0xE3000403U, 0xE1000065U})
        EXPECT_STREQ(qxnegoerrtostr(unknown), "?");
    for (const OM_uint32 unknown : {0U, 0xE1000064U, 0xE1000080U, 0xE100010DU, 0xE300042AU})
        EXPECT_STREQ(qxgsserrtostr(unknown), "?");
    EXPECT_STREQ(qxnegoerrtostr(0xE300040AU), "Unable to obtain the Negotiation Log.");
    EXPECT_STREQ(qxgsserrtostr(0xE10000C2U), "The UTF input buffer contains insufficient characters. ");
}

class DisplayStatus : public testing::Test {
  protected:
    void SetUp() override {
        mechanism_.pszMechName = name_;
        mechanism_.pMechOid = &own;
        pMechInfo = &mechanism_;
        MechCount = 1;
    }
    void TearDown() override {
        pMechInfo = nullptr;
        MechCount = 0;
    }
    char name_[7] = "QXNEGO";
    MechInfo_t mechanism_{};
};

TEST_F(DisplayStatus, RefusesInOrder) {
    const struct {
        int line;
        OM_uint32 status;
        int type;
        qxgss_OID mechanism;
        bool buffer;
        OM_uint32 major, minor;
    } cases[] = {
        {__LINE__, 1, 1, nullptr, false, 0x010D0000U, 0x230003E8U},
        {__LINE__, 1, 1, &other, false, GSS_S_BAD_MECH, 0xE30003F4U},
        {__LINE__, 0x230003E8U, 2, &shorter, true, GSS_S_BAD_MECH, 0xE30003F4U},
        {__LINE__, 0x230003E8U, 2, &without_bytes, true, GSS_S_BAD_MECH, 0xE30003F4U},
        {__LINE__, 0xE1000065U, 1, &own, false, GSS_S_BAD_STATUS, 0xE30003F4U},
        {__LINE__, 0xE1000065U, 2, &own, false, GSS_S_BAD_STATUS, 0xA3000403U},
        {__LINE__, 0x030003E8U, 2, &own, true, GSS_S_BAD_STATUS, 0xA3000403U},
        {__LINE__, 0xE3000403U, 2, &own, false, GSS_S_FAILURE, 0xE30003FAU},
        {__LINE__, 0xE3000403U, 2, &own, true, GSS_S_BAD_STATUS, 0xA3000403U},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        OM_uint32 minor = 7, message = 9;
        qxgss_buffer_desc text{3, &minor};
        EXPECT_EQ(QXNEGO_display_status(&minor, c.status, c.type, c.mechanism, &message, c.buffer ? &text : nullptr),
                  c.major);
        EXPECT_EQ(minor, c.minor);
        EXPECT_EQ(message, 9U);
        EXPECT_EQ(text.length, 3U);
        EXPECT_EQ(text.value, &minor);
        EXPECT_EQ(QXNEGO_display_status(nullptr, c.status, c.type, c.mechanism, nullptr, c.buffer ? &text : nullptr),
                  c.major);
    }
}

TEST_F(DisplayStatus, GivesTheText) {
    for (qxgss_OID mechanism : {&own, &longer}) {
        OM_uint32 minor = 7, message = 9;
        qxgss_buffer_desc text{};
        ASSERT_EQ(QXNEGO_display_status(&minor, 0xE300040CU, GSS_C_MECH_CODE, mechanism, &message, &text), 0U);
        EXPECT_EQ(minor, 0x230003E8U);
        EXPECT_EQ(message, 0U);
        EXPECT_EQ(text.length, 64U);
        EXPECT_STREQ(static_cast<char *>(text.value),
                     "An INIT Token can only be generated as the first Client token.  ");
        gssp_release_buffer(nullptr, &text);
    }
}

TEST_F(DisplayStatus, ReportsLackOfMemoryAndOfRegistration) {
    OM_uint32 minor = 7, message = 9;
    qxgss_buffer_desc text{1, &minor};
    {
        const failing_heap::From failing(0);
        EXPECT_EQ(QXNEGO_display_status(&minor, 0x230003E8U, 2, &own, &message, &text), GSS_S_FAILURE);
    }
    EXPECT_EQ(minor, 0xE30003F8U);
    EXPECT_EQ(message, 9U);
    EXPECT_EQ(text.length, 10U);
    EXPECT_EQ(text.value, nullptr);
    MechCount = 0;
    EXPECT_EQ(QXNEGO_display_status(&minor, 0x230003E8U, 2, &own, &message, &text), GSS_S_FAILURE);
    EXPECT_EQ(minor, 0xE100007BU);
}

} // namespace
