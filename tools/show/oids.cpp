// Object identifiers: their arcs, and the mechanisms that administrators meet by name.
#include "tools/show/oids.h"

#include <cstdint>

namespace tools {

namespace {

struct WellKnown {
    const char *dotted;
    const char *name;
};

constexpr WellKnown kMechanisms[] = {
    {"1.3.6.1.4.1.32473.1.1", "QXNEGO"}, {"1.2.840.113554.1.2.2", "Kerberos"}, {"1.3.6.1.4.1.311.2.2.10", "NTLMSSP"},
    {"1.3.6.1.5.5.14", "SCRAM-SHA-1"},   {"1.3.6.1.5.5.18", "SCRAM-SHA-256"},
};

constexpr std::uint64_t kLargestArc = UINT64_MAX >> 7; // before the next seven bits are appended

// The first subidentifier holds two arcs (X.690 8.19.4).
std::string first_arcs(std::uint64_t value) {
    const std::uint64_t root = value < 40 ? 0 : value < 80 ? 1 : 2;
    return std::to_string(root) + '.' + std::to_string(value - 40 * root);
}

} // namespace

std::string dotted_oid(ByteView der) {
    std::string out;
    std::uint64_t arc = 0;
    bool inside = false; // a subidentifier
    for (unsigned char byte : der) {
        if ((!inside && byte == 0x80) || arc > kLargestArc)
            return {};
        arc = (arc << 7) | (byte & 0x7FU);
        inside = (byte & 0x80U) != 0;
        if (inside)
            continue;
        out += out.empty() ? first_arcs(arc) : '.' + std::to_string(arc);
        arc = 0;
    }
    return inside ? std::string() : out;
}

std::string mechanism_name(ByteView der) {
    const std::string dotted = dotted_oid(der);
    for (const WellKnown &row : kMechanisms)
        if (dotted == row.dotted)
            return row.name;
    return dotted.empty() ? hex(der, ".") : dotted;
}

std::string well_known_oid(std::string_view name) {
    for (const WellKnown &row : kMechanisms)
        if (name == row.name)
            return row.dotted;
    return {};
}

} // namespace tools
