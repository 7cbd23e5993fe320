// qxnego mechs: what each mechanism of a configuration file is, and why it is not loaded or not negotiated.
#include <iostream>

#include <nlohmann/json.hpp>

#include "tools/commands/commands.h"
#include "tools/files.h"
#include "tools/registry.h"
#include "tools/show/story.h"
#include "tools/show/table.h"

namespace tools {

namespace {

struct Property {
    const char *name;
    OM_uint32 number;
};

constexpr Property kProperties[] = {
    {"authentication", GSSP_PROPERTY_AUTHENTICATION_SUPPORTED},
    {"authorization", GSSP_PROPERTY_AUTHORIZATION_SUPPORTED},
    {"single_sign_on", GSSP_PROPERTY_SINGLE_SIGN_ON},
};

Json or_null(const char *text) {
    return text == nullptr ? Json() : Json(printable(text));
}

Json describe(const Registry &registry, const MechInfo_t &mechanism) {
    Json properties = Json::object();
    for (const Property &property : kProperties)
        if (const std::optional<bool> value = boolean_property(mechanism, property.number))
            properties[property.name] = *value;
    if (const std::optional<int> rank = integer_property(mechanism, GSSP_PROPERTY_RANK))
        properties["rank"] = *rank;
    const std::string why_not = registry.why_not_negotiable(mechanism);
    return {{"name", printable(mechanism.pszMechName)},
            {"oid", mechanism.pszMechOid},
            {"properties", properties},
            {"library", or_null(mechanism.pszLibrary)},
            {"loaded", mechanism.fUseMech != GSSP_MECH_UNUSED},
            {"why_not_loaded", or_null(mechanism.pszMessage)},
            {"negotiable", why_not.empty()},
            {"why_not_negotiable", why_not.empty() ? Json() : Json(printable(why_not))}};
}

// What QXNEGO would negotiate and the file does not define.
std::vector<std::string> undefined(const Registry &registry) {
    std::vector<std::string> out;
    const MechInfo_t *qxnego = registry.qxnego();
    for (OM_uint32 i = 0; qxnego != nullptr && i != qxnego->NegotiatedMechCount; ++i)
        if (registry.find(qxnego->pNegMechInfo[i].pNegotiatedMech) == nullptr)
            out.emplace_back(qxnego->pNegMechInfo[i].pNegotiatedMech);
    return out;
}

std::string property_names(const Json &properties) {
    std::string out;
    for (const Property &property : kProperties)
        if (properties.value(property.name, false))
            out += (out.empty() ? "" : ", ") + std::string(property.name);
    return out.empty() ? "-" : out;
}

std::string yes_or_no(const Json &value) {
    return value.get<bool>() ? "yes" : "no";
}

void add_mechanism(Table &table, const Json &mechanism) {
    const Json &properties = mechanism["properties"];
    table.add({mechanism["name"], mechanism["oid"], properties.contains("rank") ? properties["rank"].dump() : "-",
               yes_or_no(mechanism["loaded"]), yes_or_no(mechanism["negotiable"]), property_names(properties)});
    if (!mechanism["library"].is_null())
        table.add_line("    library " + mechanism["library"].get<std::string>());
    if (!mechanism["why_not_loaded"].is_null())
        table.add_line("    not loaded: " + mechanism["why_not_loaded"].get<std::string>());
    if (!mechanism["why_not_negotiable"].is_null())
        table.add_line("    not negotiable: " + mechanism["why_not_negotiable"].get<std::string>());
}

} // namespace

void run_mechs(const MechsOptions &options) {
    const std::filesystem::path file = configuration_file(options.configuration);
    const Registry registry(options.client ? QXGSS_CLIENT : QXGSS_SERVER, file);
    Json all = Json::array();
    for (const MechInfo_t &mechanism : registry.mechanisms())
        all.push_back(describe(registry, mechanism));
    if (options.json) {
        std::cout << Json{{"mechanisms", all}, {"undefined", undefined(registry)}}.dump(2) << '\n';
        return;
    }
    std::cout << file.string() << ", as a " << (options.client ? "client" : "server") << "\n\n";
    Table table({"mechanism", "OID", "rank", "loaded", "negotiable", "properties"});
    for (const Json &mechanism : all)
        add_mechanism(table, mechanism);
    for (const std::string &oid : undefined(registry))
        table.add_line(oid + " is listed in QXNEGO's negotiates, and the file does not define it");
    table.print(std::cout);
}

} // namespace tools
