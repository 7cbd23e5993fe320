// The demo's scenarios: what each side is configured with, who logs on, and how the negotiation has to end.
#ifndef QXNEGO_TOOLS_COMMANDS_SCENARIOS_H
#define QXNEGO_TOOLS_COMMANDS_SCENARIOS_H

#include <filesystem>
#include <string>
#include <vector>

#include "tools/commands/configuration.h"
#include "tools/connection/story.h"

namespace tools {

// A row of the table of verdicts that has to come out.
struct ExpectedVerdict {
    std::string mechanism;
    std::string verdict;
    std::string reason;
};

struct Expectation {
    std::string sentence;
    std::string selected;        // mechanism; empty when the negotiation has to fail
    std::uint32_t client_status; // minor status of the side's last establishment call
    std::uint32_t server_status;
    std::vector<ExpectedVerdict> verdicts;
};

struct Scenario {
    std::string name;
    std::string title;
    std::string password;
    std::string request; // what the logon string asks for besides, with a blank in front
    std::vector<MechanismSetup> client;
    std::vector<MechanismSetup> server;
    std::vector<UserPolicy> policy;
    Expectation expected;

    std::string logon() const;        // the logon string
    std::string public_logon() const; // the same without the password
};

const std::vector<Scenario> &scenarios();

// The verifiers of the users in the scenarios, for the server's mechanisms.
std::string verifiers_text();

// What came out otherwise than expected, one line each; nothing when all is well.
std::vector<std::string> differences(const Expectation &expected, const Story &client, const Story &server,
                                     const std::vector<Verdict> &verdicts);

} // namespace tools

#endif
