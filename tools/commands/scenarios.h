// The demo's scenarios: what each side is configured with, who logs on, and how the negotiation has to end.
#ifndef QXNEGO_TOOLS_COMMANDS_SCENARIOS_H
#define QXNEGO_TOOLS_COMMANDS_SCENARIOS_H

#include <filesystem>
#include <string>
#include <vector>

#include "tools/connection/story.h"

namespace tools {

// A mechanism that QXNEGO may negotiate. Both sides prefer the one of the lowest rank.
struct MechanismSetup {
    std::string name;
    std::string oid;
    std::string prefix; // of its operations in the library
    int rank;
    bool can_authorize = true;
};

inline const MechanismSetup kFirst = {"SCRAM-SHA-256", "1.3.6.1.5.5.18", "SCRAM_SHA_256", 10};
inline const MechanismSetup kSecond = {"SCRAM-SHA-1", "1.3.6.1.5.5.14", "SCRAM_SHA_1", 20};

// A row of the table of verdicts that has to come out.
struct ExpectedVerdict {
    std::string mechanism;
    qxgss_session_verdict_et verdict;
    OM_uint32 reason; // QXGSS_MECH_REASON_*
};

struct Expectation {
    std::string sentence;
    std::string selected; // mechanism; empty when the negotiation has to fail
    std::vector<ExpectedVerdict> verdicts;
};

struct Scenario {
    std::string name;
    std::string title;
    std::string password = "wonderland";
    std::string request = ""; // what the logon string asks for besides, with a blank in front
    std::vector<MechanismSetup> client = {kFirst, kSecond};
    std::vector<MechanismSetup> server = {kFirst, kSecond};
    std::string allowed = ""; // the only mechanism that the server's policy allows the user; empty: there is no policy
    Expectation expected;

    const char *user() const { return "alice"; }
    std::string logon() const;        // the logon string
    std::string public_logon() const; // the same without the password
};

const std::vector<Scenario> &scenarios();

// Writes client.conf and server.conf, and what they refer to, into a folder.
void write_configurations(const Scenario &scenario, const std::filesystem::path &folder,
                          const std::filesystem::path &libraries);

// What came out otherwise than expected, one line each; nothing when all is well.
std::vector<std::string> differences(const Expectation &expected, const Story &client, const Story &server,
                                     const std::vector<Verdict> &verdicts);

} // namespace tools

#endif
