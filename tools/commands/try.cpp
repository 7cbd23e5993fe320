// qxnego try: what a server's configuration decides for a user and an offer, and by which rule.
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "gssp2qxnego/words.h"
#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/token/rehearsal.h"
#include "tools/show/table.h"

namespace tools {

namespace {

using Json = nlohmann::ordered_json;

struct Options {
    Request request;
    std::string configuration;
    bool json = false;
};

void print_text(const Decision &decision) {
    std::cout << "Policy: " << printable(decision.policy) << "\n\n";
    Table table({"mechanism", "on client", "on server", "verdict", "reason", "rule"});
    for (const auto &[verdict, rule] : decision.rulings)
        table.add({printable(verdict.mechanism), state_word(verdict.client), state_word(verdict.server),
                   verdict_word(verdict.verdict), std::string(qxnego::reason_word(verdict.reason)), printable(rule)});
    table.print(std::cout);
    if (!decision.selected.empty())
        std::cout << "\nSelected: " << printable(decision.selected) << ", if its own exchange succeeds\n";
}

void print_json(const Decision &decision) {
    Json mechanisms = Json::array();
    for (const auto &[verdict, rule] : decision.rulings) {
        mechanisms.push_back(to_json(verdict));
        mechanisms.back()["rule"] = printable(rule);
    }
    Json out = {{"policy", printable(decision.policy)}, {"selected", nullptr}, {"mechanisms", mechanisms}};
    if (!decision.selected.empty())
        out["selected"] = printable(decision.selected);
    std::cout << out.dump(2) << '\n';
}

void run_try(const Options &options) {
    const Registry registry(QXGSS_SERVER, configuration_file(options.configuration));
    const Decision decision = rehearse(registry, options.request);
    options.json ? print_json(decision) : print_text(decision);
    if (decision.selected.empty())
        throw Failure("no mechanism is selected: " + printable(decision.failure), kExitNegotiation);
}

} // namespace

void add_try(CLI::App &program) {
    CLI::App *command = program.add_subcommand("try", "Show what a server would decide for a user and an offer");
    auto options = std::make_shared<Options>();
    Request &request = options->request;
    const CLI::Validator not_empty([](const std::string &text) { return text.empty() ? "must not be empty" : ""; }, "");
    command->add_option("--user", request.user, "Who authenticates")->required()->check(not_empty);
    command->add_option("--offer", request.offer, "The client's mechanisms: names or OIDs")
        ->required()
        ->delimiter(',')
        ->type_name("A,B,...");
    command->add_option("--as", request.as, "The user that the client asks to act as")->type_name("USER");
    command->add_option("--profile", request.profile, "The profile that the client asks for");
    add_configuration_option(*command, options->configuration);
    command->add_flag("--json", options->json, "As JSON");
    command->callback([options] { run_try(*options); });
}

} // namespace tools
