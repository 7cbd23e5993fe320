// What the worst tokens cost the server that accepts them: time and peak memory of each shape, at an eighth, a half and
// all of what the decoder admits. One byte or one element more must be refused.
#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "fuzz/input.h"
#include "testkit/ber.h"
#include "tests/negotiation_harness.h"

namespace {

// Bytes on the heap of the code under test.
std::size_t held = 0;
std::size_t peak = 0;

void *take(void *block) {
    held += malloc_usable_size(block);
    peak = std::max(peak, held);
    return block;
}

} // namespace

// The linker's --wrap option puts these before the code under test.
extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);

void *__wrap_malloc(std::size_t size) {
    return take(__real_malloc(size));
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return take(__real_calloc(count, size));
}
void *__wrap_realloc(void *block, std::size_t size) {
    held -= malloc_usable_size(block);
    return take(__real_realloc(block, size));
}
void __wrap_free(void *block) {
    held -= malloc_usable_size(block);
    __real_free(block);
}
}

namespace {

using fuzz::require;
using testkit::tlv;

constexpr unsigned kMostMechanisms = (GSSPASN_DECODE_MAX_ELEMENTS - 4) / 3; // beside outer element, list, state, user
constexpr unsigned kMostFailed = (GSSPASN_DECODE_MAX_ELEMENTS - 4) / 7;
constexpr char kFirst[] = "\x2B\x06\x01\x04\x01\x81\xFD\x59\x02\x01"; // the OID of mechanism A

std::string mechanism(const std::string &oid, const std::string &more = tlv(0x81, "\1")) {
    return tlv(0xA0, tlv(0x80, oid) + more);
}

std::string token(const std::string &mechanisms, const std::string &user) {
    return tlv(0xA0, tlv(0xA0, mechanisms) + tlv(0x81, "\2") + tlv(0x82, user));
}

std::string error(const std::string &text) {
    return tlv(0x81, "\3") + tlv(0x82, "\2") + tlv(0x83, "\x0D") + tlv(0x84, "\1") + tlv(0x85, text);
}

// An OID that only two bytes tell from others of that length: neither its first nor its last one.
std::string unknown(unsigned number, std::size_t length) {
    std::string oid(length, '\x2B');
    oid[length - 3] = static_cast<char>(number >> 7);
    oid[length - 2] = static_cast<char>(number & 0x7F);
    return oid;
}

// The shapes: about `size` bytes of what each is about, in one mechanism or spread over `count`.
std::string with_inner_token(std::size_t size, unsigned) {
    return token(mechanism({kFirst, 10}, tlv(0x81, "\1") + tlv(0x86, std::string(size, 'x'))), "anna");
}
std::string with_user(std::size_t size, unsigned) {
    return token(mechanism({kFirst, 10}, tlv(0x81, "\1") + tlv(0x86, "A1")), std::string(size, 'x'));
}
std::string with_long_oids(std::size_t size, unsigned count) {
    std::string all;
    for (unsigned i = 0; i < count; ++i)
        all += mechanism(unknown(i, size / count));
    return token(all, "anna");
}
std::string with_short_oids(std::size_t, unsigned count) {
    return with_long_oids(10 * std::size_t{count}, count);
}
std::string with_status_texts(std::size_t size, unsigned count) {
    std::string all;
    for (unsigned i = 0; i < count; ++i)
        all += mechanism({kFirst, 10}, error(std::string(size / count, 'x')));
    return token(all, "anna");
}

struct Shape {
    const char *name;
    unsigned count; // the most that there can be
    std::string (*make)(std::size_t size, unsigned count);
};
constexpr Shape kShapes[] = {{"one inner token", 1, with_inner_token},
                             {"one user name", 1, with_user},
                             {"one status text", 1, with_status_texts},
                             {"status texts of one mechanism", kMostFailed, with_status_texts},
                             {"unknown mechanisms, short OIDs", kMostMechanisms, with_short_oids},
                             {"unknown mechanisms, long OIDs", kMostMechanisms, with_long_oids}};

struct Cost {
    double milliseconds;
    std::size_t most;
    std::size_t kept; // by the context after the call
    OM_uint32 minor;
};

// One call with the token, the user's properties, and the end of the context.
Cost accept(const std::string &bytes) {
    scripted::reset();
    harness::Peer server(harness::kServer, "AB");
    const std::size_t before = peak = held;
    const auto start = std::chrono::steady_clock::now();
    const OM_uint32 minor = server.call(bytes).minor;
    const std::size_t kept = held - before;
    qxgss_buffer_desc properties{};
    QXNEGO_inquire_properties_for_user(nullptr, server.context, &properties);
    gssp_release_buffer(nullptr, &properties);
    server.end();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return {time.count(), peak - before, kept, minor};
}

// A token of that shape that is at most so large, and hardly smaller unless the shape is.
std::string sized(const Shape &shape, std::size_t size, unsigned count) {
    const std::size_t bytes = shape.make(size, count).size();
    const std::size_t beside = bytes - std::min(size, bytes);
    return shape.make(size - beside - count, count); // each of them has whole bytes
}

void measure(const Shape &shape) {
    for (const unsigned part : {8U, 2U, 1U}) {
        const unsigned count = std::max(1U, shape.count / part);
        const std::string bytes = sized(shape, GSSPASN_DECODE_MAX_TOKEN / part, count);
        Cost cost = accept(bytes);
        require(cost.minor != GSSPASN_E_ENCODING && cost.minor != GSSPASN_E_STACK_FULL,
                "what the limits admit is read");
        for (int i = 0; i < 4; ++i)
            cost.milliseconds = std::min(cost.milliseconds, accept(bytes).milliseconds);
        std::printf("| %s | %u | %zu | %.2f | %zu | %zu |\n", shape.name, count, bytes.size(), cost.milliseconds,
                    cost.most / 1024, cost.kept / 1024);
    }
}

} // namespace

int main() {
    OM_uint32 major = 0;
    harness::configure(&major, harness::configuration());
    require(major == GSS_S_COMPLETE, "the mechanisms are configured");
    std::printf("| Token | Mechanisms | Bytes | ms | Most, KiB | Kept, KiB |\n|---|---:|---:|---:|---:|---:|\n");
    for (const Shape &shape : kShapes)
        measure(shape);

    std::size_t size = GSSPASN_DECODE_MAX_TOKEN - 64;
    while (with_user(size, 1).size() < GSSPASN_DECODE_MAX_TOKEN)
        ++size;
    require(accept(with_user(size, 1)).minor == QXNEGO_E_SUCCESSFUL, "a token of the largest size is read");
    require(accept(with_user(size + 1, 1)).minor == GSSPASN_E_ENCODING, "a byte more is refused");
    require(accept(with_short_oids(0, kMostMechanisms)).minor == QXNEGO_E_NO_MECHANISM, "all elements are read");
    require(accept(with_short_oids(0, kMostMechanisms + 1)).minor == GSSPASN_E_STACK_FULL, "more are refused");
}
