// Tokens made with the framework's encoder, in the format drawn at the head of token_encode.cpp, with elements left
// out, doubled, out of order and with values that no peer sends.
#include "fuzz/token.h"

#include <initializer_list>
#include <iterator>

#include "qxgss/gssp.h"
#include "qxgss/gsspasn.h"

namespace fuzz {
namespace {

// The OIDs of the scripted mechanisms, but for the last byte, which is 1 to 4 there.
constexpr unsigned char kOid[10] = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x81, 0xFD, 0x59, 0x02, 0x00};
constexpr OM_uint32 kNumbers[] = {0, 1, 2,  3,          4,          5,          6,          7,
                                  8, 9, 10, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x000D0000, 0xC5000007};

class Maker {
  public:
    explicit Maker(Input &input) : input_(input) { gsspasn_open_encode_handle(&encoder_); }
    Maker(const Maker &) = delete;
    Maker &operator=(const Maker &) = delete;

    std::string token() {
        const OM_uint32 outer = input_.below(3);
        gsspasn_start_encode_sequence(encoder_, outer);
        mechanisms();
        items({GSSPASN_INTEGER, outer == 0 ? GSSPASN_OCTET_STRING : GSSPASN_OBJECT_IDENTIFIER, GSSPASN_INTEGER,
               GSSPASN_OCTET_STRING, GSSPASN_OCTET_STRING},
              1);
        gsspasn_stop_encode_sequence(encoder_, outer);
        qxgss_buffer_desc out{};
        gsspasn_close_encode_handle(&encoder_, &out);
        std::string token(static_cast<const char *>(out.value), out.length);
        gssp_release_buffer(nullptr, &out);
        return token;
    }

  private:
    void mechanisms() {
        gsspasn_start_encode_sequence(encoder_, 0);
        for (unsigned count = input_.below(64); count != 0; --count) {
            gsspasn_start_encode_sequence(encoder_, 0);
            items({GSSPASN_OBJECT_IDENTIFIER, GSSPASN_INTEGER, GSSPASN_INTEGER, GSSPASN_INTEGER, GSSPASN_INTEGER,
                   GSSPASN_OCTET_STRING, GSSPASN_OCTET_STRING, GSSPASN_OCTET_STRING},
                  0);
            gsspasn_stop_encode_sequence(encoder_, 0);
        }
        gsspasn_stop_encode_sequence(encoder_, 0);
    }

    // One item for each type whose bit is set, with ascending tags; with nothing left to read, all of them.
    void items(std::initializer_list<OM_uint32> types, OM_uint32 tag) {
        const unsigned absent = input_.byte();
        for (const OM_uint32 type : types) {
            if ((absent >> (tag % 8) & 1) == 0)
                item(tag, type);
            ++tag;
        }
    }

    void item(OM_uint32 tag, OM_uint32 type) {
        const unsigned value = input_.byte();
        if (type == GSSPASN_INTEGER) {
            gsspasn_put_encode_item(encoder_, tag, type, &kNumbers[value % std::size(kNumbers)]);
        } else if (type == GSSPASN_OBJECT_IDENTIFIER) {
            std::string oid(std::begin(kOid), std::end(kOid));
            oid.back() = static_cast<char>(value);
            const qxgss_OID_desc mechanism{static_cast<OM_uint32>(oid.size()), oid.data()};
            gsspasn_put_encode_item(encoder_, tag, type, &mechanism);
        } else {
            // Inner tokens of the scripted mechanisms, and texts of the input's.
            std::string text{static_cast<char>('A' + value % 4), static_cast<char>('0' + value / 4 % 8)};
            if (value >= 32)
                text = input_.bytes(value - 32);
            const qxgss_buffer_desc bytes{text.size(), text.data()};
            gsspasn_put_encode_item(encoder_, tag, type, &bytes);
        }
    }

    Input &input_;
    gsspasn_encoding_t encoder_ = nullptr;
};

} // namespace

std::string made_token(Input &input) {
    return Maker(input).token();
}

} // namespace fuzz
