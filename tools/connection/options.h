// What serve and connect have in common.
#ifndef QXNEGO_TOOLS_CONNECTION_OPTIONS_H
#define QXNEGO_TOOLS_CONNECTION_OPTIONS_H

#include <memory>

#include "tools/connection/story.h"
#include "tools/registry.h"

namespace tools {

struct ConnectionOptions {
    qxgss_session_options_desc session = QXGSS_SESSION_DEFAULTS;
    std::chrono::seconds silence{300}; // between messages
    std::string configuration;
    bool why = false;
    bool json = false;
};

// Prints the story, with the table of verdicts if it is wanted.
void print(std::ostream &out, const ConnectionOptions &options, const Story &story);

// Configures the framework; what it has to say goes to the standard error, a line each, but for JSON. Throws Failure
// (configuration) when QXNEGO is not in use.
std::unique_ptr<Registry> configure(OM_uint32 role, const ConnectionOptions &options);

} // namespace tools

#endif
