// The command line.
#ifndef QXNEGO_TOOLS_COMMANDS_COMMAND_LINE_H
#define QXNEGO_TOOLS_COMMANDS_COMMAND_LINE_H

namespace tools {

// Reads the arguments and runs the subcommand that they name. Throws Failure, also for wrong arguments (usage).
void run(int argc, char **argv);

} // namespace tools

#endif
