#include "tools/registry.h"

#include <algorithm>
#include <sstream>

#include "common/owned.h"
#include "tools/bytes.h"
#include "tools/failure.h"
#include "tools/show/codes.h"
#include "tools/show/oids.h"

namespace tools {

Registry::Registry(OM_uint32 role, const std::filesystem::path &configuration) {
    OM_uint32 minor = 0;
    common::Buffer message;
    if (common::failed(qxgss_configure(&minor, role, configuration.c_str(), message.out())))
        throw Failure(message.empty() ? minor_text(minor) : std::string(message.bytes()), kExitConfiguration);
    std::istringstream lines{std::string(message.bytes())};
    for (std::string line; std::getline(lines, line);)
        messages_.push_back(printable(line));
}

Registry::~Registry() {
    qxgss_shutdown(nullptr);
}

const MechInfo_t &Registry::require_qxnego() const {
    const MechInfo_t *entry = qxnego();
    if (entry == nullptr)
        throw Failure("the configuration has no mechanism QXNEGO", kExitConfiguration);
    if (entry->fUseMech != GSSP_MECH_UNUSED)
        return *entry;
    std::string why;
    for (const std::string &line : messages_)
        why += "; " + line;
    throw Failure("QXNEGO is not in use" + why, kExitConfiguration);
}

const MechInfo_t *Registry::find(const std::string &name_or_oid) const {
    const std::span<MechInfo_t> all = mechanisms();
    const auto by_name = std::ranges::find(all, name_or_oid, &MechInfo_t::pszMechName);
    if (by_name != all.end())
        return &*by_name;
    qxgss_OID oid = nullptr;
    OM_sint32 index = -1;
    const bool is_registered = !common::failed(gssp_mechoidstr_to_oid(nullptr, name_or_oid.c_str(), &oid)) &&
                               !common::failed(gssp_oid_to_mechindex(nullptr, oid, &index)) && index >= 0;
    return is_registered ? &pMechInfo[index] : nullptr;
}

std::string Registry::why_not_negotiable(const MechInfo_t &mechanism) const {
    const MechInfo_t *negotiator = qxnego();
    if (negotiator == nullptr)
        return "the file has no mechanism QXNEGO";
    const char *why = "";
    const auto ask = negotiator->MechFtnTable.ftn_gssp_inquire_candidate;
    const bool is_told =
        ask != nullptr && !common::failed(ask(nullptr, static_cast<OM_sint32>(&mechanism - pMechInfo), &why));
    if (is_told && why != nullptr)
        return why;
    return is_told && negotiator->fUseMech != GSSP_MECH_UNUSED ? "" : "QXNEGO itself is not loaded";
}

std::string name_of(const qxgss_OID_desc &mechanism) {
    const char *name = nullptr;
    qxgss_OID_desc oid = mechanism;
    return common::failed(gssp_oid_to_mechstr(nullptr, &oid, &name)) ? mechanism_name(as_bytes(common::bytes_of(&oid)))
                                                                     : name;
}

std::optional<bool> boolean_property(const MechInfo_t &mechanism, OM_uint32 property) {
    OM_uint32 value = 0;
    if (common::failed(gssp_inquire_one_mech_property_boolean(nullptr, mechanism.pMechOid, property, &value)))
        return std::nullopt;
    return value != 0;
}

std::optional<int> integer_property(const MechInfo_t &mechanism, OM_uint32 property) {
    OM_sint32 value = 0;
    if (common::failed(gssp_inquire_one_mech_property_int(nullptr, mechanism.pMechOid, property, &value)))
        return std::nullopt;
    return value;
}

} // namespace tools
