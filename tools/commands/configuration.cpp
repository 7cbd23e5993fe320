// Configuration files are TOML; every text in them is written as a basic string, so that any path can stand there.
#include "tools/commands/configuration.h"

#include <sstream>

namespace tools {

namespace {

std::string toml_string(const std::string &text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

const char *boolean(bool value) {
    return value ? "true" : "false";
}

template <typename List, typename Item> std::string joined(const List &list, const Item &item) {
    std::string out;
    for (const auto &element : list)
        out += (out.empty() ? "" : ", ") + item(element);
    return out;
}

void write_mechanism(std::ostream &out, const MechanismSetup &mechanism) {
    out << "\n[[mechanism]]\n"
        << "name = " << toml_string(mechanism.name) << '\n'
        << "oid = " << toml_string(mechanism.oid) << '\n'
        << "library = " << toml_string(mechanism.library) << '\n'
        << "prefix = " << toml_string(mechanism.prefix) << '\n'
        << "[mechanism.properties]\n"
        << "authentication = true\n"
        << "authorization = " << boolean(mechanism.can_authorize) << '\n'
        << "single_sign_on = false\n"
        << "rank = " << mechanism.rank << '\n';
    if (!mechanism.settings.empty())
        out << "[mechanism.settings]\n";
    for (const auto &[key, value] : mechanism.settings)
        out << key << " = " << toml_string(value) << '\n';
}

} // namespace

std::string configuration_text(const Configuration &configuration) {
    std::ostringstream out;
    out << "library_path = " << toml_string(configuration.library_path) << '\n'
        << "\n[[mechanism]]\n"
        << "name = \"QXNEGO\"\n"
        << "oid = \"1.3.6.1.4.1.32473.1.1\"\n"
        << "library = \"libgssp2qxnego.so\"\n"
        << "prefix = \"QXNEGO\"\n"
        << "negotiates = [ "
        << joined(configuration.mechanisms,
                  [](const MechanismSetup &mechanism) { return "{ oid = " + toml_string(mechanism.oid) + " }"; })
        << " ]\n";
    for (const MechanismSetup &mechanism : configuration.mechanisms)
        write_mechanism(out, mechanism);
    if (!configuration.policy.empty())
        out << "\n[policy.users]\n";
    for (const UserPolicy &row : configuration.policy)
        out << toml_string(row.user) << " = [ " << joined(row.mechanisms, toml_string) << " ]\n";
    return out.str();
}

} // namespace tools
