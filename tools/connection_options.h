// The options that serve and connect share.
#ifndef QXNEGO_TOOLS_CONNECTION_OPTIONS_H
#define QXNEGO_TOOLS_CONNECTION_OPTIONS_H

#include "tools/session.h"

namespace CLI {
class App;
}

namespace tools {

struct ConnectionOptions {
    SessionOptions session;
    std::string configuration;
    bool why = false;
    bool json = false;
};

void add_connection_options(CLI::App &command, ConnectionOptions &options);

// Prints the connection, with the table of verdicts if it is wanted.
void print(std::ostream &out, const ConnectionOptions &options, const Connection &connection);

// Configures the framework; what it says about mechanisms that are not in use goes to the standard error.
std::unique_ptr<Framework> configure(OM_uint32 role, const ConnectionOptions &options);

} // namespace tools

#endif
