// What the worst tokens cost a server that accepts them: time and peak memory for each shape, at an eighth, a half and
// all of what the decoder admits. One byte or one element more must be refused.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "fuzz/input.h"
#include "tests/negotiation_harness.h"

namespace {

constexpr unsigned kMostMechanisms = (GSSPASN_DECODE_MAX_ELEMENTS - 4) / 3; // beside outer element, list, state, user
constexpr char kFirst[] = "\x2B\x06\x01\x04\x01\x81\xFD\x59\x02\x01";       // the OID of mechanism A

std::string element(int identifier, const std::string &contents) {
    std::string length;
    for (std::size_t left = contents.size(); left != 0; left >>= 8)
        length.insert(length.begin(), static_cast<char>(left));
    if (contents.size() < 0x80)
        length = std::string(1, static_cast<char>(contents.size()));
    else
        length.insert(length.begin(), static_cast<char>(0x80 | length.size()));
    return static_cast<char>(identifier) + length + contents;
}

std::string mechanism(const std::string &oid, const std::string &more = element(0x81, "\1")) {
    return element(0xA0, element(0x80, oid) + more);
}

std::string token(const std::string &mechanisms, const std::string &user) {
    return element(0xA0, element(0xA0, mechanisms) + element(0x81, "\2") + element(0x82, user));
}

std::string error(const std::string &text) {
    return element(0x81, "\3") + element(0x82, "\2") + element(0x83, "\x0D") + element(0x84, "\1") +
           element(0x85, text);
}

// An OID that only its last bytes tell from others of that length.
std::string unknown(unsigned number, std::size_t length) {
    std::string oid(length, '\x2B');
    oid[length - 2] = static_cast<char>(number >> 7);
    oid[length - 1] = static_cast<char>(number & 0x7F);
    return oid;
}

// Each shape, with about `size` bytes of what it is about, spread over `count` mechanisms.
struct Shape {
    const char *name;
    unsigned elements; // of one mechanism
    std::string (*make)(std::size_t size, unsigned count);
};
constexpr Shape kShapes[] = {
    {"one inner token", 0,
     [](std::size_t size, unsigned) {
         return token(mechanism({kFirst, 10}, element(0x81, "\1") + element(0x86, std::string(size, 'x'))), "anna");
     }},
    {"one status text", 0,
     [](std::size_t size, unsigned) {
         return token(mechanism({kFirst, 10}, error(std::string(size, 'x'))) + mechanism(unknown(0, 10)), "anna");
     }},
    {"one user", 0,
     [](std::size_t size, unsigned) { return token(mechanism({kFirst, 10}), std::string(size, 'x')); }},
    {"unknown mechanisms, short OIDs", 3,
     [](std::size_t, unsigned count) {
         std::string all;
         for (unsigned i = 0; i < count; ++i)
             all += mechanism(unknown(i, 10));
         return token(all, "anna");
     }},
    {"unknown mechanisms, long OIDs", 3,
     [](std::size_t size, unsigned count) {
         std::string all;
         for (unsigned i = 0; i < count; ++i)
             all += mechanism(unknown(i, size / count));
         return token(all, "anna");
     }},
    {"status texts of one mechanism", 7,
     [](std::size_t size, unsigned count) {
         std::string all;
         for (unsigned i = 0; i < count; ++i)
             all += mechanism({kFirst, 10}, error(std::string(size / count, 'x')));
         return token(all, "anna");
     }},
};

struct Cost {
    double milliseconds;
    long kilobytes;
    harness::Outcome outcome;
};

// One call with the token, the user's properties, and the end of the context.
Cost accept(const std::string &bytes) {
    harness::Peer server(harness::kServer, "AB");
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const auto start = std::chrono::steady_clock::now();
    Cost cost{0, 0, server.call(bytes)};
    qxgss_buffer_desc properties{};
    if (server.context != nullptr)
        QXNEGO_inquire_properties_for_user(nullptr, server.context, &properties);
    gssp_release_buffer(nullptr, &properties);
    server.end();
    cost.milliseconds = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    getrusage(RUSAGE_SELF, &after);
    cost.kilobytes = after.ru_maxrss - before.ru_maxrss;
    return cost;
}

// In a process of its own, whose peak memory nothing before has raised; the fastest of five.
bool measure(const Shape &shape, const std::string &bytes) {
    std::fflush(stdout);
    if (const pid_t child = fork(); child != 0) {
        int status = 1;
        waitpid(child, &status, 0);
        return status == 0;
    }
    Cost cost = accept(bytes);
    const OM_uint32 minor = cost.outcome.minor;
    for (int i = 0; i < 4; ++i)
        cost.milliseconds = std::min(cost.milliseconds, accept(bytes).milliseconds);
    std::printf("| %s | %zu | %.2f | %ld |\n", shape.name, bytes.size(), cost.milliseconds, cost.kilobytes);
    std::fflush(stdout);
    _exit(minor == GSSPASN_E_ENCODING || minor == GSSPASN_E_STACK_FULL); // accepted, or rejected by the negotiation
}

OM_uint32 minor_of(const std::string &bytes) {
    return accept(bytes).outcome.minor;
}

// The largest token of the shape that the decoder admits has exactly the limit's size, or number of elements.
bool run(const Shape &shape) {
    const std::size_t room = GSSPASN_DECODE_MAX_TOKEN;
    bool good = true;
    for (const unsigned part : {8U, 2U, 1U}) {
        const unsigned count = shape.elements == 7 ? 145 / part : kMostMechanisms / part;
        std::size_t size = room / part;
        std::string bytes = shape.make(size, count);
        while (bytes.size() > room / part)
            bytes = shape.make(--size, count);
        good = measure(shape, bytes) && good;
    }
    return good;
}

} // namespace

int main() {
    OM_uint32 major = 0;
    harness::configure(&major, harness::configuration());
    fuzz::require(major == GSS_S_COMPLETE, "the mechanisms are configured");
    std::printf("| Shape | Bytes | ms | KiB |\n|---|---:|---:|---:|\n");
    bool good = true;
    for (const Shape &shape : kShapes)
        good = run(shape) && good;
    fuzz::require(good, "what the limits admit is read");

    const std::string largest = kShapes[2].make(GSSPASN_DECODE_MAX_TOKEN - 37, 0);
    std::printf("%zu\n", largest.size());
    static_cast<void>(minor_of);
}
