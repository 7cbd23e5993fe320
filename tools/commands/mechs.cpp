// qxnego mechs: what each mechanism of a configuration file is, and why it is not loaded or not negotiated.
#include <algorithm>
#include <iostream>

#include <nlohmann/json.hpp>

#include "common/owned.h"
#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/registry.h"
#include "tools/show/codes.h"
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

// Why a server has no credential of the mechanism, such as a key table; empty when it has one, or needs none.
std::string why_no_credential(const MechInfo_t &mechanism) {
    const auto acquire = mechanism.MechFtnTable.ftn_gssp_acquire_cred;
    qxgss_OID oid = nullptr;
    if (acquire == nullptr || common::failed(gssp_mechoidstr_to_oid(nullptr, mechanism.pszMechOid, &oid)))
        return {};
    common::MechanismOwned<qxgss_cred_id_t, &qxgss_ftn_table_desc::ftn_gssp_release_cred> credential(
        mechanism.MechFtnTable);
    qxgss_OID_set_desc wanted = {1, oid};
    OM_uint32 minor = 0;
    return common::failed(
               acquire(&minor, nullptr, GSS_C_INDEFINITE, &wanted, GSS_C_ACCEPT, credential.out(), nullptr, nullptr))
               ? minor_text(minor, &mechanism)
               : "";
}

// Of what negotiates, nothing is said that only what is negotiated can have.
void describe_use(Json &out, const Registry &registry, const MechInfo_t &mechanism, bool is_server) {
    for (const char *key : {"negotiable", "why_not_negotiable", "credential", "why_no_credential"})
        out[key] = nullptr;
    if (&mechanism == registry.qxnego())
        return;
    const std::string why_not = registry.why_not_negotiable(mechanism);
    out["negotiable"] = why_not.empty();
    if (!why_not.empty()) {
        out["why_not_negotiable"] = printable(why_not);
        return;
    }
    if (!is_server)
        return;
    const std::string why = why_no_credential(mechanism);
    out["credential"] = why.empty();
    if (!why.empty())
        out["why_no_credential"] = printable(why);
}

Json describe(const Registry &registry, const MechInfo_t &mechanism, bool is_server) {
    Json properties = Json::object();
    for (const Property &property : kProperties)
        if (const std::optional<bool> value = boolean_property(mechanism, property.number))
            properties[property.name] = *value;
    if (const std::optional<int> rank = integer_property(mechanism, GSSP_PROPERTY_RANK))
        properties["rank"] = *rank;
    Json out = {{"name", printable(mechanism.pszMechName)},
                {"oid", mechanism.pszMechOid},
                {"properties", properties},
                {"library", or_null(mechanism.pszLibrary)},
                {"loaded", mechanism.fUseMech != GSSP_MECH_UNUSED},
                {"why_not_loaded", or_null(mechanism.pszMessage)}};
    describe_use(out, registry, mechanism, is_server);
    return out;
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

std::string text_or(const Json &value, const char *otherwise) {
    return value.is_null() ? otherwise : value.get<std::string>();
}

std::string yes_or_no(const Json &value) {
    return value.is_null() ? "-" : value.get<bool>() ? "yes" : "no";
}

void add_mechanism(Table &table, const Json &mechanism) {
    const Json &properties = mechanism["properties"];
    table.add({mechanism["name"], mechanism["oid"], properties.contains("rank") ? properties["rank"].dump() : "-",
               yes_or_no(mechanism["loaded"]), yes_or_no(mechanism["negotiable"]), property_names(properties)});
    const auto add_text = [&](const char *what, const char *key) {
        if (!mechanism[key].is_null())
            table.add_line(std::string("    ") + what + mechanism[key].get<std::string>());
    };
    add_text("library ", "library");
    add_text("not loaded: ", "why_not_loaded");
    add_text("not negotiable: ", "why_not_negotiable");
    add_text("no credential: ", "why_no_credential");
}

// What the framework says of a mechanism that it could not take into use.
std::string line_of_failure(const Json &mechanism) {
    return mechanism["name"].get<std::string>() + ": " + text_or(mechanism["why_not_loaded"], "");
}

// What else it had to say.
std::vector<std::string> notices(const Registry &registry, const Json &mechanisms) {
    std::vector<std::string> out = registry.messages();
    for (const Json &mechanism : mechanisms)
        std::erase(out, line_of_failure(mechanism));
    return out;
}

// The framework says nothing of a mechanism that the file has disabled: that one is as it should be.
bool is_faulty(const Registry &registry, const Json &mechanism) {
    return !mechanism["why_no_credential"].is_null() ||
           std::ranges::find(registry.messages(), line_of_failure(mechanism)) != registry.messages().end();
}

void require_sound(const Registry &registry, const Json &mechanisms) {
    registry.require_qxnego();
    std::string faulty;
    for (const Json &mechanism : mechanisms)
        if (is_faulty(registry, mechanism))
            faulty += (faulty.empty() ? "" : ", ") + mechanism["name"].get<std::string>();
    if (!faulty.empty())
        throw Failure("the file wants to use what cannot be used: " + faulty);
}

void print_text(const Registry &registry, const std::string &title, Json mechanisms) {
    std::cout << title << "\n\n";
    // What negotiates others comes behind them: what is wrong with it is often what is wrong with them.
    std::stable_partition(mechanisms.begin(), mechanisms.end(),
                          [](const Json &mechanism) { return !mechanism["negotiable"].is_null(); });
    Table table({"mechanism", "OID", "rank", "loaded", "negotiable", "properties"});
    for (const Json &mechanism : mechanisms)
        add_mechanism(table, mechanism);
    for (const std::string &oid : undefined(registry))
        table.add_line(oid + " is listed in QXNEGO's negotiates, and the file does not define it");
    table.print(std::cout);
    const std::vector<std::string> lines = notices(registry, mechanisms);
    std::cout << (lines.empty() ? "" : "\n");
    for (const std::string &line : lines)
        std::cout << line << '\n';
}

} // namespace

void run_mechs(const MechsOptions &options) {
    const std::filesystem::path file = configuration_file(options.configuration);
    const Registry registry(options.client ? QXGSS_CLIENT : QXGSS_SERVER, file);
    Json all = Json::array();
    for (const MechInfo_t &mechanism : registry.mechanisms())
        all.push_back(describe(registry, mechanism, !options.client));
    if (options.json)
        std::cout << Json{{"mechanisms", all}, {"undefined", undefined(registry)}, {"notices", notices(registry, all)}}
                         .dump(2)
                  << '\n';
    else
        print_text(registry, file.string() + ", as a " + (options.client ? "client" : "server"), all);
    require_sound(registry, all);
}

} // namespace tools
