// qxnego dump [FILE]: a negotiation token as a tree and the first byte that is wrong in it, a rendered negotiation log,
// or user properties; and the older names for the latter two.
//
// Inner tokens may hold secrets, so their contents are shown only when that is asked for.
#include <iomanip>
#include <iostream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "gssp2qxnego/token_format.h"
#include "gssp2qxnego/words.h"
#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/show/codes.h"
#include "tools/show/log.h"
#include "tools/show/page.h"
#include "tools/show/story.h"
#include "tools/show/table.h"
#include "tools/show/user_properties.h"
#include "tools/token/file.h"
#include "tools/token/foreign.h"
#include "tools/token/tree.h"

namespace tools {

namespace {

bool is_inner_token(const Element &element) {
    return element.name == qxnego::token::mech::kInnerToken.name;
}

ByteView contents_of(const Element &element, ByteView token) {
    return token.subspan(element.contents(), element.place.Length);
}

std::string at_right(std::size_t number) {
    std::ostringstream out;
    out << std::setw(6) << number;
    return out.str();
}

// ---- Text ----------------------------------------------------------------------------------------------------------

void add_contents(Table &table, ByteView bytes, std::size_t offset) {
    constexpr std::size_t kInLine = 16;
    for (std::size_t at = 0; at < bytes.size(); at += kInLine) {
        const ByteView line = bytes.subspan(at, std::min(kInLine, bytes.size() - at));
        std::ostringstream out;
        out << at_right(offset + at) << "  " << std::left << std::setw(3 * kInLine) << hex(line, " ") << ' ';
        for (unsigned char byte : line)
            out << (byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.');
        table.add_line(out.str());
    }
}

void add_element(Table &table, const Element &element, ByteView token, bool inner, std::size_t depth) {
    const std::string name = element.name.empty() ? "(not read)" : element.name;
    table.add({at_right(element.place.Offset), at_right(element.place.Header + element.place.Length),
               std::string(2 * depth, ' ') + '[' + std::to_string(element.place.Tag) + "] " + name, element.value});
    if (inner && is_inner_token(element))
        add_contents(table, contents_of(element, token), element.contents());
    for (const Element &child : element.children)
        add_element(table, child, token, inner, depth + 1);
}

// The bytes around the wrong one, which stands in brackets.
std::string surroundings(ByteView token, std::size_t offset) {
    constexpr std::size_t kAround = 8;
    const std::size_t begin = offset - std::min(offset, kAround);
    const std::size_t end = std::min(offset + kAround + 1, token.size());
    std::string out = begin == 0 ? "" : "... ";
    out += hex(token.subspan(begin, offset - begin), " ") + (offset == begin ? "[" : " [");
    if (offset == token.size())
        return out + "end]";
    out += hex(token.subspan(offset, 1)) + ']';
    for (std::size_t at = offset + 1; at < end; ++at)
        out += ' ' + hex(token.subspan(at, 1));
    return out + (end == token.size() ? "" : " ...");
}

void print_text(const TokenTree &tree, ByteView token, bool inner) {
    std::cout << (tree.form.empty() ? "A token" : tree.form + " token") << " of " << token.size() << " bytes\n";
    Table table({"offset", "  size", "element", "value"});
    for (const Element &element : tree.elements)
        add_element(table, element, token, inner, 0);
    if (!tree.elements.empty()) {
        std::cout << '\n';
        table.print(std::cout);
    }
    if (!tree.fault)
        return;
    std::cout << "\nByte " << tree.fault->offset << " is wrong: " << tree.fault->why << '\n'
              << "  " << surroundings(token, tree.fault->offset) << '\n'
              << "  " << code_text(tree.fault->status) << ' ' << minor_text(tree.fault->status) << '\n';
}

// ---- JSON ----------------------------------------------------------------------------------------------------------

Json json_of(const Element &element, ByteView token, bool inner) {
    Json out = {{"offset", element.place.Offset},
                {"header", element.place.Header},
                {"length", element.place.Length},
                {"tag", element.place.Tag},
                {"name", nullptr}};
    if (!element.name.empty())
        out["name"] = element.name;
    if (!element.value.empty())
        out["value"] = element.value;
    if (inner && is_inner_token(element))
        out["contents"] = hex(contents_of(element, token));
    for (const Element &child : element.children)
        out["elements"].push_back(json_of(child, token, inner));
    return out;
}

void print_json(const TokenTree &tree, ByteView token, bool inner) {
    Json out = {{"size", token.size()}, {"form", nullptr}, {"valid", !tree.fault}, {"elements", Json::array()}};
    if (!tree.form.empty())
        out["form"] = tree.form;
    for (const Element &element : tree.elements)
        out["elements"].push_back(json_of(element, token, inner));
    if (tree.fault)
        out["fault"] = {{"offset", tree.fault->offset},
                        {"why", tree.fault->why},
                        {"status", code_text(tree.fault->status)},
                        {"text", minor_text(tree.fault->status)}};
    std::cout << out.dump(2) << '\n';
}

void show_token(ByteView token, const DumpOptions &options) {
    const TokenTree tree = read_token(token);
    options.json ? print_json(tree, token, options.inner) : print_text(tree, token, options.inner);
    if (tree.fault)
        throw Failure("the token is wrong at byte " + std::to_string(tree.fault->offset));
}

// ---- Tokens of others ----------------------------------------------------------------------------------------------

Json json_of(const Foreign &foreign, ByteView token) {
    Json fields = Json::array();
    for (const auto &[name, value] : foreign.fields)
        fields.push_back({{"name", name}, {"value", value}});
    return {{"size", token.size()}, {"kind", foreign.kind}, {"fields", fields}};
}

void show_foreign(const Foreign &foreign, ByteView token, const DumpOptions &options) {
    if (options.json) {
        std::cout << json_of(foreign, token).dump(2) << '\n';
        return;
    }
    std::cout << foreign.kind << " of " << token.size() << " bytes, which is no token of QXNEGO\n\n";
    Table table({"field", "value"});
    for (const auto &[name, value] : foreign.fields)
        table.add({name, value});
    table.print(std::cout);
}

// ---- Logs and user properties --------------------------------------------------------------------------------------

Json json_of(const LogRecord &record) {
    const auto text = [](const qxgss_buffer_desc &buffer) { return printable(common::bytes_of(&buffer)); };
    Json out = {{"side", record.IsInitiator != 0 ? "client" : "server"},
                {"call", record.Call},
                {"event", text(record.Event)},
                {"peer_view", record.IsPeerView != 0},
                {"policy_applied", record.IsPolicyApplied != 0},
                {"negotiation", qxnego::neg_state_word(record.NegState)},
                {"negotiation_of_peer", qxnego::neg_state_word(record.NegStateFromPeer)},
                {"milliseconds", record.ElapsedTime}};
    if (const std::string mechanism = mechanism_of(record); !mechanism.empty())
        out.update({{"mechanism", printable(mechanism)},
                    {"state", state_word(record)},
                    {"reason", reason_word(record)},
                    {"established", record.IsCtxEstablished != 0}});
    if (record.MechReason == QXGSS_MECH_REASON_GSSAPI_ERROR)
        out.update({{"major", code_text(record.MajorStatus)},
                    {"minor", code_text(record.MinorStatus)},
                    {"status_text", text(record.StatusText)}});
    return out;
}

Json json_of_log(const SavedLog &log) {
    Json mechanisms = Json::array(), events = Json::array();
    for (const LogRecord *record : last_records(log))
        mechanisms.push_back({{"mechanism", printable(mechanism_of(*record))},
                              {"state", state_word(*record)},
                              {"reason", reason_word(*record)},
                              {"status_text", printable(common::bytes_of(&record->StatusText))}});
    for (const LogRecord &record : log.records())
        events.push_back(json_of(record));
    return {{"host", printable(common::bytes_of(&log.facts().Host))},
            {"written", printable(common::bytes_of(&log.facts().Time))},
            {"mechanisms", mechanisms},
            {"note", settled_note(log)},
            {"events", events},
            {"log", lines_of(log.text())}};
}

Json json_of_properties(const SavedLog &log) {
    Json records = Json::array();
    for (const Property &property : log.properties())
        records.push_back({{"id", property.Id},
                           {"name", name_of(property)},
                           {"length", property.Record.length},
                           {"value", value_of(property)}});
    return {{"records", records}};
}

Json json_of(const SavedLog &log) {
    Json out = log.properties().empty() ? Json::object() : json_of_properties(log);
    if (!log.text().empty())
        out.update(json_of_log(log));
    return out;
}

void print_text(const SavedLog &log) {
    print_log(std::cout, log.text());
    print_last_records(std::cout, log);
    if (const std::string note = settled_note(log); !note.empty())
        std::cout << '\n' << note << '\n';
}

void require_whole(const SavedLog &log, ByteView content, const std::string &file) {
    if (!log.properties().empty() && log.facts().PropertyEnd != content.size())
        throw Failure(shown_name(file) + ": no record begins at byte " + std::to_string(log.facts().PropertyEnd),
                      kExitUsage);
}

void show_page(const std::optional<SavedLog> &log, const std::string &file) {
    if (!log || log->text().empty())
        throw Failure(shown_name(file) + ": holds no negotiation log", kExitUsage);
    std::cout << page_of(&*log, {"Negotiation in " + shown_name(file)});
}

void show_saved(const SavedLog &log, ByteView content, const DumpOptions &options) {
    if (options.json) {
        std::cout << json_of(log).dump(2) << '\n';
    } else {
        if (!log.properties().empty())
            print_properties(std::cout, log);
        if (!log.text().empty())
            print_text(log);
    }
    require_whole(log, content, options.file);
}

} // namespace

void run_dump(const DumpOptions &options) {
    const Bytes content = read_dumped_file(options.file);
    const std::optional<SavedLog> log = SavedLog::read(content);
    if (options.html)
        return show_page(log, options.file);
    if (log)
        return show_saved(*log, content, options);
    if (const std::optional<Foreign> foreign = read_foreign(content))
        return show_foreign(*foreign, content, options);
    show_token(content, options);
}

void run_log(const DumpOptions &options) {
    const std::optional<SavedLog> log = SavedLog::read(read_dumped_file(options.file));
    if (!log || log->text().empty())
        throw Failure(shown_name(options.file) + ": holds no negotiation log", kExitUsage);
    if (options.json)
        std::cout << json_of_log(*log).dump(2) << '\n';
    else
        print_text(*log);
}

void run_properties(const DumpOptions &options) {
    const Bytes content = read_dumped_file(options.file);
    const std::optional<SavedLog> log = SavedLog::read(content);
    if (!log || log->properties().empty())
        throw Failure(shown_name(options.file) + ": holds no user properties", kExitUsage);
    if (options.json)
        std::cout << json_of_properties(*log).dump(2) << '\n';
    else
        print_properties(std::cout, *log);
    require_whole(*log, content, options.file);
}

} // namespace tools
