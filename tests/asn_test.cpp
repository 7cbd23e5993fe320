// The ASN.1 codec: what it writes to the byte, what it reads, and that nothing but a well-formed token gets in.
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/gsspasn.h"
#include "testkit/ber.h"
#include "tests/support.h"

namespace {

using namespace support;
using testkit::Form, testkit::tlv;

using Bytes = std::string;
constexpr OM_uint32 kOk = GSSPASN_E_SUCCESS;

// Bytes of a hexadecimal text; what follows a '#' explains it.
Bytes hex(const std::string &text) {
    Bytes bytes;
    std::istringstream digits(text.substr(0, text.find('#')));
    for (char high, low; digits >> high >> low;)
        bytes += static_cast<char>(std::stoi(Bytes{high, low}, nullptr, 16));
    return bytes;
}

// All calls give that status; they are made in the order in which they stand, unlike arguments of a function.
void expect(OM_uint32 expected, std::initializer_list<OM_uint32> statuses) {
    for (const OM_uint32 &status : statuses)
        EXPECT_EQ(status, expected) << "number " << &status - statuses.begin();
}

struct Encoder {
    Encoder() { EXPECT_EQ(gsspasn_open_encode_handle(&handle), kOk); }
    ~Encoder() { gsspasn_close_encode_handle(&handle, nullptr); }
    OM_uint32 start(OM_uint32 tag) { return gsspasn_start_encode_sequence(handle, tag); }
    OM_uint32 stop(OM_uint32 tag) { return gsspasn_stop_encode_sequence(handle, tag); }
    OM_uint32 put(OM_uint32 tag, OM_uint32 type, const void *value) {
        return gsspasn_put_encode_item(handle, tag, type, value);
    }
    OM_uint32 integer(OM_uint32 tag, OM_uint32 value) { return put(tag, GSSPASN_INTEGER, &value); }
    OM_uint32 octets(OM_uint32 tag, const Bytes &bytes) {
        const qxgss_buffer_desc buffer = view(bytes);
        return put(tag, GSSPASN_OCTET_STRING, &buffer);
    }
    // What was written; the handle is gone whatever the status.
    Bytes close(OM_uint32 expected = kOk) {
        qxgss_buffer_desc buffer{7, this};
        EXPECT_EQ(gsspasn_close_encode_handle(&handle, &buffer), expected);
        EXPECT_EQ(buffer.length == 0, buffer.value == nullptr);
        EXPECT_EQ(handle, nullptr);
        return taken(buffer);
    }
    gsspasn_encoding_t handle = nullptr;
};

// A decoder over a copy of exactly the token's size, so that a sanitizer sees every octet read beyond it.
struct Decoder {
    explicit Decoder(const Bytes &token) : copy(token.begin(), token.end()) {
        qxgss_buffer_desc buffer{copy.size(), copy.data()};
        status = gsspasn_open_decode_handle(&handle, &buffer);
        EXPECT_EQ(status == kOk, handle != nullptr);
    }
    ~Decoder() { gsspasn_close_decode_handle(&handle); }
    gsspasn_decoding_t top(OM_uint32 tag = 0) {
        gsspasn_decoding_t children = nullptr;
        EXPECT_EQ(gsspasn_get_top_decode_sequence(handle, tag, &children, &count), kOk);
        return children;
    }
    std::vector<char> copy;
    gsspasn_decoding_t handle = nullptr;
    OM_uint32 status = 0, count = 0;
};

// "!FB" for the status 0xE10000FB.
Bytes refused(OM_uint32 status) {
    return "!F" + Bytes(1, "0123456789ABCDEF"[status & 0xF]);
}

// What a request for an item delivers: its bytes, or the status and an output left alone.
Bytes item(gsspasn_decoding_t parent, OM_uint32 tag, OM_uint32 type = GSSPASN_OCTET_STRING) {
    const OM_uint32 before = 0x5A5A5A5A;
    qxgss_OID_desc oid{before, nullptr};
    qxgss_buffer_desc buffer{before, nullptr};
    const bool is_oid = type == GSSPASN_OBJECT_IDENTIFIER;
    const OM_uint32 status =
        gsspasn_get_decode_item(parent, tag, type, is_oid ? static_cast<void *>(&oid) : static_cast<void *>(&buffer));
    if (status != kOk) {
        EXPECT_TRUE(buffer.length == before && buffer.value == nullptr && oid.length == before);
        return refused(status);
    }
    if (is_oid)
        buffer = {oid.length, oid.elements};
    EXPECT_EQ(buffer.length == 0, buffer.value == nullptr);
    return taken(buffer);
}

Bytes walk(gsspasn_decoding_t parent);

// What a request for a sequence delivers: everything that ascending requests reach in it, as "0(1=x 2()0 )2".
Bytes sequence(gsspasn_decoding_t parent, OM_uint32 tag) {
    gsspasn_decoding_t children = parent;
    OM_uint32 count = 77;
    const OM_uint32 status = gsspasn_get_decode_sequence(parent, tag, &children, &count);
    if (status != kOk) {
        EXPECT_TRUE(children == parent && count == 77);
        return refused(status);
    }
    return std::to_string(tag) + "(" + walk(children) + ")" + std::to_string(count);
}

Bytes walk(gsspasn_decoding_t parent) {
    Bytes out;
    for (OM_uint32 tag = 0; tag != 31;) {
        const Bytes found = sequence(parent, tag);
        if (found == "!FB")
            ++tag;
        else
            out += (found == "!F9" ? std::to_string(tag) + "=" + item(parent, tag) : found) + " ";
    }
    return out;
}

// A token with every kind of element: two levels of lists, all item types, an empty string, a long one.
Bytes sample(Form form = Form::kShortest) {
    const auto make = [form](unsigned identifier, const Bytes &contents) { return tlv(identifier, contents, form); };
    const Bytes first = make(0xA0, make(0x80, hex("2a8648")) + make(0x81, "\x01") + make(0x86, Bytes(200, 'x')));
    const Bytes second = make(0xA0, make(0x80, hex("2b06")) + make(0x83, hex("00e3000408")) + make(0x85, ""));
    return make(0xA1, make(0xA0, first + second) + make(0x81, "\x02") + make(0x83, "\x01") + make(0xA4, "") +
                          make(0x9E, "\xff")); // the largest tag
}

// At each level the contents pass one of these lengths by a few octets; so do the levels around it.
TEST(AsnEncode, LengthsOfEverySizeNested) {
    for (const std::size_t length : {11, 127, 128, 255, 256, 65535, 65536})
        for (std::size_t less = 0; less != 12; ++less) {
            const Bytes contents(length - less, 'x');
            Encoder e;
            expect(kOk, {e.start(1), e.start(0), e.octets(6, contents), e.stop(0), e.integer(1, 2), e.stop(1)});
            EXPECT_EQ(e.close(), tlv(0xA1, tlv(0xA0, tlv(0x86, contents)) + hex("810102")));
        }
}

TEST(AsnEncode, RefusesAndStaysUsable) {
    Encoder e;
    const qxgss_buffer_desc no_value{SIZE_MAX, nullptr}, too_long{SIZE_MAX, &e};
    const qxgss_OID_desc no_elements{5, nullptr}, no_oid{0, nullptr};
    expect(kOk, {gsspasn_set_encode_tagging(e.handle, GSSP_TAGGING_IMPLICIT)});
    expect(GSSPASN_E_TAG_MISMATCH, {e.stop(0)});
    expect(GSSPASN_E_TAG_INVALID, {e.start(31)});
    for (OM_uint32 level = 0; level != GSSPASN_ENCODE_MAX_DEPTH; ++level)
        EXPECT_EQ(e.start(level), kOk);
    expect(GSSPASN_E_STACK_FULL, {e.start(0)});
    expect(GSSPASN_E_TAG_MISMATCH, {e.stop(9)});
    expect(GSSPASN_E_TAG_INVALID, {e.integer(31, 1), e.integer(0xFFFFFFFF, 1)});
    expect(GSSPASN_E_ENCODING, {e.put(0, GSSPASN_OBJECT_IDENTIFIER, &no_oid), e.put(0, GSSPASN_OCTET_STRING, &too_long),
                                e.octets(0, Bytes(GSSPASN_DECODE_MAX_TOKEN - 26, 'x'))});
    expect(GSSPASN_E_ITEM_TYPE, {e.put(0, 3, &e)});
    expect(GSSPASN_E_ARGUMENT, {e.put(0, GSSPASN_INTEGER, nullptr), e.put(0, GSSPASN_OCTET_STRING, &no_value),
                                e.put(0, GSSPASN_OBJECT_IDENTIFIER, &no_elements),
                                gsspasn_set_encode_tagging(e.handle, 1), gsspasn_open_encode_handle(nullptr)});
    Bytes expected;
    for (OM_uint32 level = GSSPASN_ENCODE_MAX_DEPTH; level-- != 0; expected = tlv(0xA0 + level, expected))
        EXPECT_EQ(e.stop(level), kOk);
    EXPECT_EQ(e.close(), expected);
    EXPECT_EQ(Decoder(expected).status, kOk);

    Encoder unfinished;
    EXPECT_EQ(unfinished.start(0), kOk);
    for (const OM_uint32 status : {GSSPASN_E_TAG_MISMATCH, GSSPASN_E_NO_HANDLE})
        EXPECT_EQ(unfinished.close(status), "");
    expect(GSSPASN_E_NO_HANDLE, {unfinished.start(0), unfinished.stop(0), unfinished.integer(0, 0),
                                 gsspasn_set_encode_tagging(nullptr, GSSP_TAGGING_IMPLICIT),
                                 gsspasn_close_encode_handle(nullptr, nullptr), gsspasn_close_decode_handle(nullptr)});
}

TEST(Asn, IntegersAtTheEdges) {
    for (const char *contents :
         {"00", "7f", "0080", "7fff", "008000", "7fffff", "00800000", "7fffffff", "0080000000", "00ffffffff"}) {
        const auto value = static_cast<OM_uint32>(std::stoul(contents, nullptr, 16));
        Encoder e;
        expect(kOk, {e.start(0), e.integer(1, value), e.stop(0)});
        const Bytes out = e.close();
        EXPECT_EQ(out, tlv(0xA0, tlv(0x81, hex(contents))));
        Decoder d(out);
        OM_uint32 back = ~value;
        EXPECT_EQ(gsspasn_get_decode_item(d.top(), 1, GSSPASN_INTEGER, &back), kOk);
        EXPECT_EQ(back, value);
    }
    for (const char *contents : {"", "80", "ffffffff", "007f", "00000080", "0100000000", "0000000001", "ff80000000"}) {
        Decoder d(tlv(0xA0, tlv(0x81, hex(contents)) + "\x82\x01\x07"));
        const gsspasn_decoding_t top = d.top();
        EXPECT_EQ(item(top, 1, GSSPASN_INTEGER), "!F3") << contents;
        EXPECT_EQ(item(top, 2), "\x07") << contents;
    }
}

TEST(AsnDecode, RefusesWhatIsMalformed) {
    const std::pair<OM_uint32, std::vector<const char *>> cases[] = {
        {GSSPASN_E_ENCODING,
         {"# empty", "a0 00 a0 00 # two elements", "a0 03 80 80 00 # primitive of indefinite length",
          "a0 80 00 # half an end of contents", "a0 80 00 01 # end of contents with a length",
          "a0 03 a0 80 00 00 # end of contents half beyond the parent",
          "a0 03 81 02 05 00 # child longer than its parent", "a0 01 81 00 # child without a length",
          "a0 02 81 82 00 00 # length octets beyond the parent", "a0 03 81 81 01 05 # long length, likewise",
          "a0 88 ff ff ff ff ff ff ff ff", "a0 89 01 00 00 00 00 00 00 00 00 # 2^64"}},
        {GSSPASN_E_CLASS_INVALID, {"30 00", "60 00", "e0 00", "a0 02 04 00", "a0 02 00 00"}},
        {GSSPASN_E_TAG_INVALID, {"bf 1f 00", "a0 03 9f 1f 00"}},
    };
    for (const auto &[status, tokens] : cases)
        for (const char *token : tokens)
            EXPECT_EQ(Decoder(hex(token)).status, status) << token;
    EXPECT_EQ(Decoder(hex("a0ff") + Bytes(127, '\0')).status, GSSPASN_E_ENCODING); // a length of 0 in 127 octets
}

TEST(AsnDecode, EveryFormOfLengthAndEveryPrefix) {
    const Bytes reads = "0(0(0=\x2a\x86H 1=\x01 6=" + Bytes(200, 'x') + " )3 0(0=+\x06 3=" + hex("00e3000408") +
                        " 5= )3 )2 1=\x02 3=\x01 4()0 30=\xff ";
    for (const Form form : {Form::kShortest, Form::kIndefinite, Form::kLongest}) {
        const Bytes token = sample(form);
        Decoder whole(token);
        ASSERT_EQ(whole.status, kOk);
        EXPECT_EQ(walk(whole.top(1)), reads);
        for (std::size_t at = 0; at != token.size(); ++at)
            EXPECT_EQ(Decoder(token.substr(0, at)).status, GSSPASN_E_ENCODING) << at;
    }
}

// What the encoder writes at a limit is read, and one more is refused by both with the same status.
TEST(Asn, LimitsHoldToTheUnit) {
    for (const Form form : {Form::kShortest, Form::kIndefinite}) {
        Bytes nested;
        for (OM_uint32 level = 0; level != GSSPASN_DECODE_MAX_DEPTH; ++level)
            nested = tlv(0xA0, nested, form);
        EXPECT_EQ(Decoder(nested).status, kOk);
        EXPECT_EQ(Decoder(tlv(0xA0, nested, form)).status, GSSPASN_E_STACK_FULL);
    }
    Encoder full;
    EXPECT_EQ(full.start(0), kOk);
    Bytes children;
    for (OM_uint32 i = 1; i != GSSPASN_DECODE_MAX_ELEMENTS; ++i, children += Bytes("\x81\0", 2))
        EXPECT_EQ(full.octets(1, Bytes(i == 1 ? 5000 : 0, 'x')), kOk);
    expect(GSSPASN_E_STACK_FULL, {full.octets(1, ""), full.integer(1, 1), full.start(1)});
    EXPECT_EQ(full.stop(0), kOk);
    Decoder read(full.close());
    read.top();
    EXPECT_EQ(read.count, GSSPASN_DECODE_MAX_ELEMENTS - 1);
    EXPECT_EQ(Decoder(tlv(0xA0, children + Bytes("\x81\0", 2))).status, GSSPASN_E_STACK_FULL);

    for (const std::size_t beyond : {0U, 1U}) {
        const Bytes contents(GSSPASN_DECODE_MAX_TOKEN - 10 + beyond, 'x');
        const OM_uint32 status = beyond == 0 ? kOk : GSSPASN_E_ENCODING;
        Encoder largest;
        expect(kOk, {largest.start(0), largest.octets(1, contents)});
        EXPECT_EQ(largest.stop(0), status);
        const Bytes token = beyond == 0 ? largest.close() : tlv(0xA0, tlv(0x81, contents));
        ASSERT_EQ(token.size(), GSSPASN_DECODE_MAX_TOKEN + beyond);
        EXPECT_EQ(Decoder(token).status, status);
    }
}

TEST(AsnDecode, LooksUpForwardAndFailuresDisturbNothing) {
    Decoder d(hex("a0 23  81 01 05  82 01 61  82 01 62  a4 03 80 01 78  a4 00  86 00  88 01 7a  8a 01 75"
                  "  83 04 6c617465  a9 00  89 01 63"));
    ASSERT_EQ(d.status, kOk);
    const gsspasn_decoding_t top = d.top();
    EXPECT_EQ(d.count, 11U);
    // clang-format off
    const std::pair<Bytes, Bytes> answers[] = {
        {item(top, 0), "!FB"}, {sequence(top, 1), "!F9"}, {item(top, 1, 3), "!FC"}, {item(top, 31), "!F4"},
        {item(top, 1), "\x05"}, {item(top, 1), "!FB"}, // delivered once
        {item(top, 2), "a"}, {item(top, 2, GSSPASN_OBJECT_IDENTIFIER), "b"}, {item(top, 2), "!FB"},
        {item(top, 4), "!FA"}, {sequence(top, 4), "4(0=x )1"}, {sequence(top, 4), "4()0"}, {item(top, 6), ""},
        {item(top, 9), "!FA"}, // seen beyond [8], which stays
        {item(top, 8), "z"}, {item(top, 8), "!FB"},
        {item(top, 3), "late"}, {item(top, 10), "!FB"}, // which stood in front and was passed over
        {sequence(top, 9), "9()0"}, {item(top, 9), "c"}, {item(top, 9), "!FB"},
    };
    // clang-format on
    for (const auto &[got, expected] : answers)
        EXPECT_EQ(got, expected);
}

TEST(AsnDecode, HandlesAndPointers) {
    Decoder d(sample()), primitive(hex("80 01 05"));
    gsspasn_decoding_t children = d.top(1), none = nullptr, *const out = &none;
    OM_uint32 count = 0;
    expect(GSSPASN_E_TAG_NOT_FOUND, {gsspasn_get_top_decode_sequence(d.handle, 0, out, &count)});
    expect(GSSPASN_E_TAG_INVALID, {gsspasn_get_top_decode_sequence(d.handle, 31, out, &count)});
    expect(GSSPASN_E_NOT_SEQUENCE, {gsspasn_get_top_decode_sequence(primitive.handle, 0, out, &count)});
    for (const gsspasn_decoding_t wrong : {none, children}) {
        gsspasn_decoding_t handle = wrong; // the decoder stays
        expect(GSSPASN_E_NO_HANDLE,
               {gsspasn_set_decode_tagging(handle, GSSP_TAGGING_IMPLICIT),
                gsspasn_get_top_decode_sequence(handle, 1, out, &count), gsspasn_close_decode_handle(&handle)});
    }
    for (const gsspasn_decoding_t wrong : {none, d.handle})
        expect(GSSPASN_E_NO_HANDLE, {gsspasn_get_decode_sequence(wrong, 1, out, &count),
                                     gsspasn_get_decode_item(wrong, 1, GSSPASN_INTEGER, &count)});
    qxgss_buffer_desc no_value{SIZE_MAX, nullptr}, empty{};
    gsspasn_fault_desc fault{};
    expect(GSSPASN_E_ENCODING, {gsspasn_open_decode_handle(out, &empty)});
    expect(GSSPASN_E_ARGUMENT,
           {gsspasn_get_top_decode_sequence(d.handle, 1, nullptr, &count),
            gsspasn_get_decode_sequence(children, 0, out, nullptr),
            gsspasn_get_decode_item(children, 1, GSSPASN_INTEGER, nullptr), gsspasn_set_decode_tagging(d.handle, 1),
            gsspasn_open_decode_handle(out, &no_value), gsspasn_open_decode_handle(out, nullptr),
            gsspasn_open_decode_handle(nullptr, &empty), gsspasn_inspect_token(nullptr, &empty, &fault),
            gsspasn_inspect_token(&empty, nullptr, &fault), gsspasn_inspect_token(&empty, &empty, nullptr)});
    EXPECT_EQ(none, nullptr);
    expect(kOk, {gsspasn_set_decode_tagging(d.handle, GSSP_TAGGING_IMPLICIT),
                 gsspasn_get_decode_sequence(d.top(1), 0, out, &count)});
    EXPECT_EQ(count, 2U);
}

} // namespace
