// A story as people read it.
#ifndef QXNEGO_TOOLS_SHOW_STORY_H
#define QXNEGO_TOOLS_SHOW_STORY_H

#include <ostream>

#include "tools/connection/story.h"

namespace tools {

// The name of an exit status: "success", "network", ...
const char *class_of(ExitStatus status);

// One line; a table of verdicts may follow it.
void print_line(std::ostream &out, const Story &story);

} // namespace tools

#endif
