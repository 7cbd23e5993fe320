// The framework configured from a file, for commands that ask about the configuration and do not need QXNEGO in use.
#ifndef QXNEGO_TOOLS_REGISTRY_H
#define QXNEGO_TOOLS_REGISTRY_H

#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "qxgss/gssp.h"
#include "tools/bytes.h"

namespace CLI {
class App;
}

namespace tools {

// One at a time in a process. Contexts and credentials go before it does.
class Registry {
  public:
    // `role` is QXGSS_CLIENT or QXGSS_SERVER. Throws Failure (configuration) with the framework's line for a wrong
    // file.
    Registry(OM_uint32 role, const std::filesystem::path &configuration);
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;
    ~Registry();

    // What the framework and the mechanisms had to say when they were configured, safe to print.
    const std::vector<std::string> &messages() const { return messages_; }

    // QXNEGO's entry. Throws Failure (configuration), with all messages, when it is not in use.
    const MechInfo_t &require_qxnego() const;

    std::span<MechInfo_t> mechanisms() const { return {pMechInfo, MechCount}; }

    // The mechanism of that name or dotted OID; null when there is none.
    const MechInfo_t *find(const std::string &name_or_oid) const;

    // QXNEGO's entry; null when the file has none.
    const MechInfo_t *qxnego() const;

    // Why QXNEGO does not negotiate a mechanism; nothing when it does.
    std::optional<std::string> why_not_negotiable(const MechInfo_t &mechanism) const;

  private:
    std::vector<std::string> messages_;
};

inline ByteView der_of(const MechInfo_t &mechanism) {
    return {static_cast<const unsigned char *>(mechanism.pMechOid->elements), mechanism.pMechOid->length};
}

// The value of a property; nothing when it is not set.
std::optional<bool> boolean_property(const MechInfo_t &mechanism, OM_uint32 property);
std::optional<int> integer_property(const MechInfo_t &mechanism, OM_uint32 property);

// The option --config FILE, also taken from the environment variable QXGSS_CONF.
void add_configuration_option(CLI::App &command, std::string &file);

} // namespace tools

#endif
