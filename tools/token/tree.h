// A negotiation token as a tree of named fields with their values, read with the decoder that the mechanism uses.
#ifndef QXNEGO_TOOLS_TOKEN_TREE_H
#define QXNEGO_TOOLS_TOKEN_TREE_H

#include "tools/token/walk.h"

namespace tools {

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
