// The framework configured from a file, and what its registry says of the mechanisms.
#ifndef QXNEGO_TOOLS_REGISTRY_H
#define QXNEGO_TOOLS_REGISTRY_H

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "qxgss/gssp.h"

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
    const MechInfo_t *qxnego() const { return find("QXNEGO"); }

    // Why QXNEGO does not negotiate a mechanism; empty when it does.
    std::string why_not_negotiable(const MechInfo_t &mechanism) const;

  private:
    std::vector<std::string> messages_;
};

// The mechanism's name in the registry; of one that only the peer has its well-known name, or its OID.
std::string name_of(const qxgss_OID_desc &mechanism);

// The value of a property; nothing when it is not set.
std::optional<bool> boolean_property(const MechInfo_t &mechanism, OM_uint32 property);
std::optional<int> integer_property(const MechInfo_t &mechanism, OM_uint32 property);

} // namespace tools

#endif
