// The codec on the first token of a negotiation: a mechanism entry of 89 bytes (OID of 9 bytes, two integers, inner
// token of 64 bytes) so many times, and at last as much as a token may hold. Encoding goes from the context's records
// to a new buffer, decoding from the buffer to new framework records of every field.
#include <string>
#include <vector>

#include "bench/cases.h"
#include "bench/workload.h"
#include "gssp2qxnego/gssp2qxnegoint.h"

namespace {

constexpr std::size_t kInnerToken = 64;
constexpr int kLargest = 200; // entries, of 5 elements each
constexpr std::size_t kLargestInnerToken = 5200;

// A client's context with that many candidates, whose records it does not own.
struct Sender {
    Sender(int entries, std::size_t innerToken)
        : token(innerToken, 't'), list(static_cast<std::size_t>(entries), candidate()) {
        context.IsInitiator = 1;
        context.NegState = context.NegStateFromPeer = NEG_STATE_INCOMPLETE;
        context.AuthenticationIdBuf = {identity.size(), identity.data()};
        context.NegMechList = {static_cast<OM_uint32>(entries), list.data()};
    }

    qxgss_buffer_desc encode() {
        for (NegMechEntry_desc &entry : list)
            entry.IsMechStateChanged = 1;
        qxgss_buffer_desc output{};
        OM_uint32 minor = 0;
        const OM_uint32 major = QXNEGO_INT_ConstructOutputToken(&minor, NEG_MECH_TOKENTYPE_INIT, &context, &output);
        bench::expect(major == GSS_S_COMPLETE, "encode", major, minor);
        return output;
    }

  private:
    NegMechEntry_desc candidate() {
        NegMechEntry_desc entry{};
        entry.pMechOid = &mechanism;
        entry.MechState = NEG_MECH_STATE_AVAILABLE;
        entry.MechReason = NEG_MECH_REASON_AVAILABLE;
        entry.OutputToken = {token.size(), token.data()};
        return entry;
    }

    unsigned char oid[9] = {0x2B, 6, 1, 4, 1, 0x81, 0xFD, 0x59, 1};
    qxgss_OID_desc mechanism{sizeof oid, oid};
    std::string identity = "identity", token;
    std::vector<NegMechEntry_desc> list;
    NegContext_desc context{};
};

// Every field of an entry, in records of its own, which it releases.
struct Fields {
    explicit Fields(gsspasn_decoding_t handle) {
        expect(gsspasn_get_decode_item(handle, 0, GSSPASN_OBJECT_IDENTIFIER, &oid));
        expect(gsspasn_get_decode_item(handle, 1, GSSPASN_INTEGER, &state));
        expect(gsspasn_get_decode_item(handle, 2, GSSPASN_INTEGER, &reason));
        expect(gsspasn_get_decode_item(handle, 6, GSSPASN_OCTET_STRING, &token));
    }
    Fields(const Fields &) = delete;
    Fields &operator=(const Fields &) = delete;
    ~Fields() {
        std::free(oid.elements);
        gssp_release_buffer(nullptr, &token);
    }
    static void expect(OM_uint32 status) { bench::expect(status == GSSPASN_E_SUCCESS, "decode", status); }

    qxgss_OID_desc oid{};
    OM_uint32 state = 0, reason = 0;
    qxgss_buffer_desc token{};
};

void decode(qxgss_buffer_desc token) {
    gsspasn_decoding_t decoder = nullptr, children = nullptr, list = nullptr, entry = nullptr;
    OM_uint32 count = 0, entries = 0, state = 0;
    qxgss_buffer_desc identity{};
    Fields::expect(gsspasn_open_decode_handle(&decoder, &token));
    Fields::expect(gsspasn_get_top_decode_sequence(decoder, 0, &children, &count));
    Fields::expect(gsspasn_get_decode_sequence(children, 0, &list, &entries));
    for (OM_uint32 i = 0; i < entries; ++i) {
        Fields::expect(gsspasn_get_decode_sequence(list, 0, &entry, &count));
        const Fields fields(entry);
    }
    Fields::expect(gsspasn_get_decode_item(children, 1, GSSPASN_INTEGER, &state));
    Fields::expect(gsspasn_get_decode_item(children, 2, GSSPASN_OCTET_STRING, &identity));
    gssp_release_buffer(nullptr, &identity);
    gsspasn_close_decode_handle(&decoder);
}

void add_cases(const std::string &size, int entries, std::size_t innerToken) {
    bench::add_case("encode/" + size, [=](const bench::Repeat &repeat) {
        Sender sender(entries, innerToken);
        qxgss_buffer_desc token = sender.encode();
        const std::size_t bytes = token.length;
        gssp_release_buffer(nullptr, &token);
        repeat(
            [&] {
                qxgss_buffer_desc output = sender.encode();
                gssp_release_buffer(nullptr, &output);
            },
            bytes);
    });
    bench::add_case("decode/" + size, [=](const bench::Repeat &repeat) {
        qxgss_buffer_desc token = Sender(entries, innerToken).encode();
        repeat([&] { decode(token); }, token.length);
        gssp_release_buffer(nullptr, &token);
    });
}

} // namespace

int main(int argc, char **argv) {
    for (const int entries : {1, 4, 16, 64, kLargest})
        add_cases("entries:" + std::to_string(entries), entries, kInnerToken);
    add_cases("largest", kLargest, kLargestInnerToken);
    return bench::run_cases(argc, argv);
}
