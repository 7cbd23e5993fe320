// The elements of a token with the places where they stand, and the first byte that breaks the encoding rules.
//
// What is valid is decided by the framework's decoder alone; this walk stands beside it, because the decoder reports a
// status and no place. Both always agree, which a test sees to.
#ifndef QXNEGO_TOOLS_TOKEN_WALK_H
#define QXNEGO_TOOLS_TOKEN_WALK_H

#include <optional>
#include <string>
#include <vector>

#include "qxgss/gsspasn.h"
#include "tools/bytes.h"

namespace tools {

struct Element {
    std::size_t offset = 0; // of its identifier octet
    std::size_t header = 0; // identifier and length octets
    std::size_t length = 0; // contents octets, without those that end an indefinite length
    unsigned tag = 0;
    bool constructed = false;
    std::vector<Element> children;
    std::string name{};  // what the element is in a negotiation token; empty when a receiver passes it over
    std::string value{}; // of a primitive element; safe to print

    std::size_t contents() const { return offset + header; }
};

struct Fault {
    std::size_t offset; // of the first wrong byte; the token's size when bytes are missing
    OM_uint32 status;   // the decoder's, or the mechanism's
    std::string why;
};

// The elements before the fault, if there is one.
struct Walk {
    std::vector<Element> elements; // the outer element
    std::optional<Fault> fault;
};

Walk walk_token(ByteView token);

} // namespace tools

#endif
