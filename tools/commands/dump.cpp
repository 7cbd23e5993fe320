// qxnego dump [FILE]: a negotiation token as a tree, or the first byte that is wrong in it.
//
// Inner tokens may hold secrets, so their contents are shown only when that is asked for.
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "tools/show/codes.h"
#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/show/table.h"
#include "tools/token/file.h"
#include "tools/token/tree.h"

namespace tools {

namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string file = "-";
    bool inner = false;
    bool json = false;
};

bool is_inner_token(const Element &element) {
    return element.name == "inner token";
}

ByteView contents_of(const Element &element, ByteView token) {
    return token.subspan(element.contents(), element.length);
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
    table.add({at_right(element.offset), at_right(element.header + element.length),
               std::string(2 * depth, ' ') + '[' + std::to_string(element.tag) + "] " + name, element.value});
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
              << "  " << code_text(tree.fault->status) << ' ' << minor_text({}, nullptr, tree.fault->status) << '\n';
}

// ---- JSON ----------------------------------------------------------------------------------------------------------

Json json_of(const Element &element, ByteView token, bool inner) {
    Json out = {{"offset", element.offset},
                {"header", element.header},
                {"length", element.length},
                {"tag", element.tag},
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
                        {"text", minor_text({}, nullptr, tree.fault->status)}};
    std::cout << out.dump(2) << '\n';
}

void run_dump(const Options &options) {
    const Bytes token = read_token_file(options.file);
    const TokenTree tree = read_token(token);
    options.json ? print_json(tree, token, options.inner) : print_text(tree, token, options.inner);
    if (tree.fault)
        throw Failure("the token is wrong at byte " + std::to_string(tree.fault->offset));
}

} // namespace

void add_dump(CLI::App &program) {
    CLI::App *command = program.add_subcommand("dump", "Show a negotiation token, and what is wrong in it");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->file,
                        "The token: binary, hexadecimal or base64; without it, or as -, standard input");
    command->add_flag("--inner", options->inner, "Show the contents of inner tokens too, which may be secret");
    command->add_flag("--json", options->json, "As JSON");
    command->callback([options] { run_dump(*options); });
}

} // namespace tools
