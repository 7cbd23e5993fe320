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

Json number_or_null(OM_uint32 number) {
    return number == 0 ? Json() : Json(code_text(number));
}

Json json_of(const qxgss_story_record_desc &record) {
    const auto text = [](const qxgss_buffer_desc &buffer) { return printable(common::bytes_of(&buffer)); };
    return {{"side", record.IsInitiator != 0 ? "client" : "server"},
            {"call", record.Call},
            {"milliseconds", record.ElapsedTime},
            {"text", text(record.Text)},
            {"mechanism", printable(mechanism_of(record))},
            {"peer_view", record.IsPeerView != 0},
            {"state", qxnego::state_word(record.State)},
            {"reason", qxnego::reason_word(record.Reason)},
            {"major", number_or_null(record.MajorStatus)},
            {"minor", number_or_null(record.MinorStatus)},
            {"status_text", text(record.StatusText)},
            {"mechanism_established", record.IsEstablished != 0},
            {"policy_applied", record.IsPolicyApplied != 0},
            {"negotiation", qxnego::neg_state_word(record.NegState)},
            {"peer_negotiation", qxnego::neg_state_word(record.NegStateFromPeer)}};
}

Json json_of_log(const SavedStory &story) {
    Json mechanisms = Json::array(), events = Json::array();
    for (const LogRecord &record : last_records(story))
        mechanisms.push_back({{"mechanism", printable(record.mechanism)},
                              {"state", record.state},
                              {"reason", record.reason},
                              {"status_text", printable(record.status_text)}});
    for (const qxgss_story_record_desc &record : story.records())
        events.push_back(json_of(record));
    return {
        {"mechanisms", mechanisms}, {"note", settled_note(story)}, {"events", events}, {"log", lines_of(story.log())}};
}

Json json_of_records(const UserProperties &properties) {
    Json records = Json::array();
    for (const Property &record : properties.records)
        records.push_back(
            {{"id", record.id}, {"name", record.name}, {"length", record.length}, {"value", record.value}});
    return {{"records", records}};
}

void show_log(const SavedStory &story, const DumpOptions &options) {
    if (options.json) {
        std::cout << json_of_log(story).dump(2) << '\n';
        return;
    }
    print_log(std::cout, story.log());
    print_records(std::cout, last_records(story));
    if (const std::string note = settled_note(story); !note.empty())
        std::cout << '\n' << note << '\n';
}

void require_whole(const UserProperties &properties, ByteView buffer, const std::string &file) {
    if (properties.records.empty() || properties.end != buffer.size())
        throw Failure(shown_name(file) + ": no record begins at byte " + std::to_string(properties.end), kExitUsage);
}

void show_page(const SavedStory &story, const std::string &file) {
    if (story.log().empty())
        throw Failure(shown_name(file) + ": holds no negotiation log", kExitUsage);
    std::cout << page_of(story, {"Negotiation in " + shown_name(file)});
}

void show_story(ByteView content, const SavedStory &story, const DumpOptions &options) {
    const UserProperties properties = read_properties(content);
    if (properties.records.empty())
        return show_log(story, options);
    if (options.json) {
        Json out = json_of_records(properties);
        if (!properties.log.empty())
            out.update(json_of_log(story));
        std::cout << out.dump(2) << '\n';
    } else {
        print_properties(std::cout, properties);
        if (!properties.log.empty())
            show_log(story, options);
    }
    require_whole(properties, content, options.file);
}

} // namespace

void run_dump(const DumpOptions &options) {
    const Bytes content = read_dumped_file(options.file);
    if (options.html)
        return show_page(SavedStory(content), options.file);
    if (const SavedStory story(content); story.end() != 0)
        return show_story(content, story, options);
    if (const std::optional<Foreign> foreign = read_foreign(content))
        return show_foreign(*foreign, content, options);
    show_token(content, options);
}

void run_log(const DumpOptions &options) {
    const Bytes content = read_dumped_file(options.file);
    const SavedStory story(content);
    if (story.log().empty())
        throw Failure(shown_name(options.file) + ": holds no negotiation log", kExitUsage);
    show_log(story, options);
}

void run_properties(const DumpOptions &options) {
    const Bytes content = read_dumped_file(options.file);
    const UserProperties properties = read_properties(content);
    if (properties.records.empty())
        throw Failure(shown_name(options.file) + ": holds no user properties", kExitUsage);
    if (options.json)
        std::cout << json_of_records(properties).dump(2) << '\n';
    else
        print_properties(std::cout, properties);
    require_whole(properties, content, options.file);
}

} // namespace tools
