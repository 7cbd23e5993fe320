// A story as people and programs read it: a line, a table of verdicts, or a line of JSON (docs/json.md).
#ifndef QXNEGO_TOOLS_SHOW_STORY_H
#define QXNEGO_TOOLS_SHOW_STORY_H

#include <ostream>

#include "tools/connection/story.h"

namespace tools {

void print_line(std::ostream &out, const Story &story);
void print_json(std::ostream &out, const Story &story);

// CBOR (RFC 8949), whose strings are bytes here: texts are whatever a peer sent. Reading throws Failure.
Bytes encode(const Story &story);
Story decode_story(ByteView bytes);

} // namespace tools

#endif
