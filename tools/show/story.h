// A story as people and programs read it: a line, a table of verdicts, or JSON (docs/json.md).
#ifndef QXNEGO_TOOLS_SHOW_STORY_H
#define QXNEGO_TOOLS_SHOW_STORY_H

#include <ostream>

#include <nlohmann/json_fwd.hpp>

#include "tools/connection/conversation.h"
#include "tools/show/page.h"

namespace tools {

using Json = nlohmann::ordered_json;

Json to_json(const Verdict &verdict);

// Now, in UTC (RFC 3339), to the millisecond.
std::string time_text();

// The value on one line, whatever bytes a text of it has.
std::string line_of(const Json &value);
void print_json(std::ostream &out, const Story &story);

// As it is wanted: JSON, or a line, with the table of verdicts below it if that is wanted too.
void print(std::ostream &out, const Story &story, const ConnectionOptions &options);

// The connection's story as a page, with the log of its properties.
std::string page_of(const Story &story);

// CBOR (RFC 8949), whose strings are bytes here: texts are whatever a peer sent. Reading throws Failure.
Bytes encode(const Story &story);
Story decode_story(ByteView bytes);

} // namespace tools

#endif
