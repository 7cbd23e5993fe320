// Configuration files of the framework, written for one side of a negotiation.
#ifndef QXNEGO_TOOLS_COMMANDS_CONFIGURATION_H
#define QXNEGO_TOOLS_COMMANDS_CONFIGURATION_H

#include <string>
#include <vector>

namespace tools {

// A mechanism that QXNEGO may negotiate.
struct MechanismSetup {
    std::string name;
    std::string oid;
    std::string library;
    std::string prefix;
    int rank = 0;
    bool can_authorize = true;
    std::vector<std::pair<std::string, std::string>> settings;
};

// The mechanisms that a user may log on with, by name.
struct UserPolicy {
    std::string user;
    std::vector<std::string> mechanisms;
};

struct Configuration {
    std::string library_path;
    std::vector<MechanismSetup> mechanisms;
    std::vector<UserPolicy> policy;
};

// The text of the file: QXNEGO and the mechanisms it negotiates.
std::string configuration_text(const Configuration &configuration);

} // namespace tools

#endif
