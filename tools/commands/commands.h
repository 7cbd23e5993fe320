// The subcommands, one file each: what the command line tells them, and what they do. Each throws Failure for whatever
// ends the command with another status than 0.
#ifndef QXNEGO_TOOLS_COMMANDS_COMMANDS_H
#define QXNEGO_TOOLS_COMMANDS_COMMANDS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/connection/admission.h"
#include "tools/connection/conversation.h"
#include "tools/token/rehearsal.h"

namespace tools {

class Secret;

// Reads the arguments and runs the subcommand that they name. Throws Failure, also for wrong arguments (usage).
void run(int argc, char **argv);

struct ConnectOptions : ConnectionOptions {
    std::string address;
    std::string overwritten; // the logon string, which has been taken out of the arguments
    std::string logon_file;
    std::string target;
    std::string file = "-";
    std::uint64_t bench = 0;
    std::size_t size = 1024;
    bool ask = false; // for the logon string
    bool delegate = false;
    bool no_messages = false;
};
inline constexpr std::size_t kLargestMessage = std::size_t{16} * 1024; // that it sends
void run_connect(const ConnectOptions &options, Secret &logon);

struct DemoOptions {
    std::string scenario; // empty: all of them
    std::string save;     // folder; empty: nothing is saved
    std::string library_path;
    bool list = false;
    bool full = false;
    bool json = false;
};
std::vector<std::string> scenario_names();
void run_demo(const DemoOptions &options);

struct DumpOptions {
    std::string file = "-";
    bool inner = false;
    bool json = false;
    bool html = false;
};
void run_dump(const DumpOptions &options);
void run_log(const DumpOptions &options);
void run_properties(const DumpOptions &options);

struct MechsOptions {
    std::string configuration;
    bool client = false;
    bool json = false;
};
void run_mechs(const MechsOptions &options);

struct ServeOptions : ConnectionOptions {
    std::vector<std::string> addresses{"localhost:10442"};
    AdmissionLimits limits;
    std::string story; // folder for a page of each connection; empty: none
    unsigned story_files = 1000;
};
void run_serve(const ServeOptions &options);

struct StatusOptions {
    std::vector<std::string> codes;
    std::string mechanism;
    std::string configuration;
    bool json = false;
};
void run_status(const StatusOptions &options);

struct TryOptions {
    Request request;
    std::string configuration;
    bool json = false;
};
void run_try(const TryOptions &options);

} // namespace tools

#endif
