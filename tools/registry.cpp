// The registry, and why a mechanism in it is not negotiated: the conditions that QXNEGO's configuration tests.
#include "tools/registry.h"

#include <algorithm>
#include <sstream>

#include <CLI/CLI.hpp>

#include "common/owned.h"
#include "tools/show/codes.h"
#include "tools/failure.h"

namespace tools {

namespace {

bool is_qxnego(const MechInfo_t &mechanism) {
    return mechanism.pszMechName == std::string_view("QXNEGO");
}

bool is_same(const MechInfo_t &mechanism, const char *dotted) {
    qxgss_OID oid = nullptr;
    OM_sint32 difference = 1;
    return dotted != nullptr && GSS_ERROR(gssp_mechoidstr_to_oid(nullptr, dotted, &oid)) == 0 &&
           GSS_ERROR(gssp_compare_oids(nullptr, oid, mechanism.pMechOid, &difference)) == 0 && difference == 0;
}

const NegMechInfo_t *listed(const MechInfo_t &qxnego, const MechInfo_t &mechanism) {
    for (OM_uint32 i = 0; i != qxnego.NegotiatedMechCount; ++i)
        if (is_same(mechanism, qxnego.pNegMechInfo[i].pNegotiatedMech))
            return &qxnego.pNegMechInfo[i];
    return nullptr;
}

// The first property that is not set; null when all are.
const char *missing_property(const MechInfo_t &mechanism) {
    if (!boolean_property(mechanism, GSSP_PROPERTY_AUTHENTICATION_SUPPORTED))
        return "authentication";
    if (!boolean_property(mechanism, GSSP_PROPERTY_AUTHORIZATION_SUPPORTED))
        return "authorization";
    if (!integer_property(mechanism, GSSP_PROPERTY_RANK))
        return "rank";
    return boolean_property(mechanism, GSSP_PROPERTY_SINGLE_SIGN_ON) ? nullptr : "single_sign_on";
}

} // namespace

Registry::Registry(OM_uint32 role, const std::filesystem::path &configuration) {
    OM_uint32 minor = 0;
    common::Buffer message;
    if (GSS_ERROR(qxgss_configure(&minor, role, configuration.c_str(), message.out())) != 0)
        throw Failure(message.empty() ? minor_text({}, nullptr, minor) : std::string(message.bytes()),
                      kExitConfiguration);
    std::istringstream lines{std::string(message.bytes())};
    for (std::string line; std::getline(lines, line);)
        messages_.push_back(printable(line));
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

Registry::~Registry() {
    qxgss_shutdown(nullptr);
}

const MechInfo_t *Registry::find(const std::string &name_or_oid) const {
    const std::span<MechInfo_t> all = mechanisms();
    const auto found = std::find_if(all.begin(), all.end(), [&](const MechInfo_t &mechanism) {
        return name_or_oid == mechanism.pszMechName || is_same(mechanism, name_or_oid.c_str());
    });
    return found == all.end() ? nullptr : &*found;
}

const MechInfo_t *Registry::qxnego() const {
    const std::span<MechInfo_t> all = mechanisms();
    const auto found = std::find_if(all.begin(), all.end(), is_qxnego);
    return found == all.end() ? nullptr : &*found;
}

std::optional<std::string> Registry::why_not_negotiable(const MechInfo_t &mechanism) const {
    if (is_qxnego(mechanism))
        return "QXNEGO does not negotiate itself";
    const MechInfo_t *negotiator = qxnego();
    if (negotiator == nullptr)
        return "the file has no mechanism QXNEGO";
    const NegMechInfo_t *entry = listed(*negotiator, mechanism);
    if (entry == nullptr)
        return "it is not listed in QXNEGO's negotiates";
    if (entry->fEnabled == 0)
        return "it is disabled in QXNEGO's negotiates";
    if (mechanism.fUseMech == GSSP_MECH_UNUSED)
        return "it is not loaded";
    if (mechanism.pszMechName == std::string_view("PROXY"))
        return "PROXY is never negotiated";
    if (const char *property = missing_property(mechanism))
        return std::string("its property ") + property + " is not set";
    if (negotiator->fUseMech == GSSP_MECH_UNUSED)
        return "QXNEGO itself is not loaded";
    return std::nullopt;
}

std::optional<bool> boolean_property(const MechInfo_t &mechanism, OM_uint32 property) {
    OM_uint32 value = 0;
    if (GSS_ERROR(gssp_inquire_one_mech_property_boolean(nullptr, mechanism.pMechOid, property, &value)) != 0)
        return std::nullopt;
    return value != 0;
}

std::optional<int> integer_property(const MechInfo_t &mechanism, OM_uint32 property) {
    OM_sint32 value = 0;
    if (GSS_ERROR(gssp_inquire_one_mech_property_int(nullptr, mechanism.pMechOid, property, &value)) != 0)
        return std::nullopt;
    return value;
}

void add_configuration_option(CLI::App &command, std::string &file) {
    command.add_option("--config", file, "The framework's configuration file (default: the installed one)")
        ->type_name("FILE")
        ->envname("QXGSS_CONF");
}

} // namespace tools
