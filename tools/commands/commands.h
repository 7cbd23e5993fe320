// The subcommands of qxnego, one file each in commands/. Each adds itself to the program, with a callback that does its
// work and throws Failure for whatever ends the command with another status than 0.
#ifndef QXNEGO_TOOLS_COMMANDS_COMMANDS_H
#define QXNEGO_TOOLS_COMMANDS_COMMANDS_H

namespace CLI {
class App;
}

namespace tools {

class Secret;

// What this option holds is taken out of the process's arguments before they are read, and given to add_connect.
inline constexpr char kLogonOption[] = "--logon";

void add_connect(CLI::App &program, Secret &logon);
void add_demo(CLI::App &program);
void add_dump(CLI::App &program);
void add_log(CLI::App &program);
void add_mechs(CLI::App &program);
void add_properties(CLI::App &program);
void add_serve(CLI::App &program);
void add_status(CLI::App &program);
void add_try(CLI::App &program);

} // namespace tools

#endif
