// A negotiation token as a tree of named elements with their values, read with the decoder that the mechanism uses.
#ifndef QXNEGO_TOOLS_TOKEN_TREE_H
#define QXNEGO_TOOLS_TOKEN_TREE_H

#include <optional>
#include <string>
#include <vector>

#include "qxgss/gsspasn.h"
#include "tools/bytes.h"

namespace tools {

struct Element {
    gsspasn_place_desc place;
    std::vector<Element> children;
    std::string name{};  // what the element is in a negotiation token; empty when a receiver passes it over
    std::string value{}; // of a primitive element; safe to print

    std::size_t contents() const { return place.Offset + place.Header; }
};

struct Fault {
    std::size_t offset; // of the first wrong byte; the token's size when bytes are missing
    OM_uint32 status;   // the decoder's, or the mechanism's
    std::string why;
};

struct TokenTree {
    std::string form;              // "INIT" or "RESP"; empty when the token is neither
    std::vector<Element> elements; // the outer element, unless not even that could be read
    std::optional<Fault> fault;    // why every receiver refuses the token
};

// What depends on the receiver is no fault: a state that only one which has the mechanism refuses, a selection of a
// mechanism that it does not know.
TokenTree read_token(ByteView token);

} // namespace tools

#endif
