// qxnego status CODE...: what a major or minor status is called, what it is made of, its text, and what it means to
// whoever meets it. A mechanism's own statuses follow no common layout, so that only the mechanism has their texts.
#include <charconv>
#include <iostream>

#include <nlohmann/json.hpp>

#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/registry.h"
#include "tools/show/codes.h"
#include "tools/show/remedies.h"
#include "tools/show/story.h"

namespace tools {

namespace {

constexpr OM_uint32 kMinorMark = 1U << 29; // set in every minor status of the layout, in no major one
constexpr const char *kSeverities[] = {"success", "reserved", "warning", "error"};

// Hexadecimal with 0x in front, with a letter, or of eight digits as logs have it; otherwise decimal.
OM_uint32 parse_code(const std::string &text) {
    const bool has_prefix = text.starts_with("0x") || text.starts_with("0X");
    const std::string digits = has_prefix ? text.substr(2) : text;
    const bool is_hex = has_prefix || digits.size() == 8 || digits.find_first_of("abcdefABCDEF") != digits.npos;
    OM_uint32 code = 0;
    const char *end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, code, is_hex ? 16 : 10);
    if (error != std::errc() || stop != end)
        throw Failure(text + ": is no status, which is a number of 32 bits, hexadecimal or decimal", kExitUsage);
    return code;
}

void add_remedy(Json &status, const Remedy *row) {
    status["meaning"] = row == nullptr ? Json() : Json(row->meaning);
    status["cause"] = row == nullptr ? Json() : Json(row->cause);
    status["remedy"] = row == nullptr ? Json() : Json(row->remedy);
}

Json describe_major(OM_uint32 code) {
    Json out = {{"code", code_text(code)}, {"kind", "major"}, {"name", major_name(code)}, {"parts", Json::array()}};
    for (const StatusPart &part : major_parts(code))
        out["parts"].push_back({{"field", part.field}, {"name", part.name}, {"text", part.text}});
    add_remedy(out, find_major_remedy(code));
    return out;
}

Json describe_minor(OM_uint32 code) {
    Json out = {{"code", code_text(code)},
                {"kind", "minor"},
                {"severity", kSeverities[code >> 30]},
                {"component", code >> 24 & 0xF},
                {"message", code & 0xFFFF}};
    const MinorStatus *known = find_minor(code);
    out["owner"] = known == nullptr ? Json() : Json(known->owner);
    out["name"] = known == nullptr || *known->name == '\0' ? Json() : Json(known->name);
    out["text"] = known == nullptr ? Json() : Json(known->text);
    add_remedy(out, find_minor_remedy(code));
    return out;
}

// A code of a mechanism's own: its text is what the mechanism says.
Json describe_own(const MechInfo_t &mechanism, OM_uint32 code) {
    Json out = {{"code", code_text(code)},
                {"kind", "mechanism"},
                {"owner", printable(mechanism.pszMechName)},
                {"text", printable(minor_text(code, &mechanism))}};
    add_remedy(out, find_minor_remedy(code, mechanism.pszMechName));
    return out;
}

std::string text_or(const Json &value, const char *otherwise) {
    return value.is_null() ? otherwise : value.get<std::string>();
}

void print_major(const Json &status) {
    bool is_known = true;
    std::cout << "major status " << status["name"].get<std::string>() << '\n';
    for (const Json &part : status["parts"]) {
        std::cout << "  " << part["field"].get<std::string>() << ' ' << part["name"].get<std::string>() << ": "
                  << part["text"].get<std::string>() << '\n';
        is_known = is_known && part["text"] != "unknown";
    }
    if (!is_known)
        std::cout << "  (a minor status of a mechanism's own? --mechanism explains those)\n";
}

void print_minor(const Json &status) {
    if (status["kind"] == "mechanism") {
        std::cout << "minor status of " << status["owner"].get<std::string>() << '\n'
                  << "  " << status["text"].get<std::string>() << '\n';
        return;
    }
    std::cout << "minor status of " << text_or(status["owner"], "another mechanism, or of nobody");
    std::cout << (status["name"].is_null() ? "" : ", " + status["name"].get<std::string>()) << '\n'
              << "  severity " << status["severity"].get<std::string>() << ", component " << status["component"]
              << ", message " << status["message"] << '\n'
              << "  " << text_or(status["text"], "(no text)") << '\n';
}

void print_text(const Json &status) {
    std::cout << status["code"].get<std::string>() << "  ";
    status["kind"] == "major" ? print_major(status) : print_minor(status);
    if (!status["meaning"].is_null())
        std::cout << "  meaning:     " << status["meaning"].get<std::string>() << '\n'
                  << "  usual cause: " << status["cause"].get<std::string>() << '\n'
                  << "  what to do:  " << status["remedy"].get<std::string>() << '\n';
}

Json describe(const std::vector<OM_uint32> &codes) {
    Json all = Json::array();
    for (OM_uint32 code : codes)
        all.push_back((code & kMinorMark) != 0 ? describe_minor(code) : describe_major(code));
    return all;
}

Json describe_with(const StatusOptions &options, const std::vector<OM_uint32> &codes) {
    const Registry registry(QXGSS_CLIENT, configuration_file(options.configuration));
    const MechInfo_t *mechanism = registry.find(options.mechanism);
    if (mechanism == nullptr)
        throw Failure(options.mechanism + ": is no mechanism of the configuration", kExitUsage);
    Json all = Json::array();
    for (OM_uint32 code : codes)
        all.push_back(describe_own(*mechanism, code));
    return all;
}

} // namespace

void run_status(const StatusOptions &options) {
    std::vector<OM_uint32> codes;
    for (const std::string &text : options.codes)
        codes.push_back(parse_code(text));
    const Json all = options.mechanism.empty() ? describe(codes) : describe_with(options, codes);
    if (options.json)
        std::cout << all.dump(2) << '\n';
    else
        for (const Json &status : all)
            print_text(status);
}

} // namespace tools
