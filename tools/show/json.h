// A story as programs read it (docs/json.md).
#ifndef QXNEGO_TOOLS_SHOW_JSON_H
#define QXNEGO_TOOLS_SHOW_JSON_H

#include <ostream>

#include <nlohmann/json_fwd.hpp>

#include "tools/connection/story.h"

namespace tools {

using Json = nlohmann::ordered_json;

Json to_json(const Verdict &verdict);

// The value on one line, whatever bytes a text of it has.
std::string line_of(const Json &value);
void print_json(std::ostream &out, const Story &story);

// CBOR (RFC 8949), whose strings are bytes here: texts are whatever a peer sent. Reading throws Failure.
Bytes encode(const Story &story);
Story decode_story(ByteView bytes);

} // namespace tools

#endif
