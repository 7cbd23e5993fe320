// qxnego try: what a server's configuration decides for a user and an offer, and by which rule.
#include <iostream>

#include <nlohmann/json.hpp>

#include "tools/commands/commands.h"
#include "tools/failure.h"
#include "tools/files.h"
#include "tools/show/story.h"

namespace tools {

namespace {

void print_text(const Decision &decision) {
    std::cout << "Policy: " << printable(decision.policy) << "\n\n";
    print_verdicts(std::cout, decision.verdicts, "rule", &Verdict::rule);
    if (!decision.selected.empty())
        std::cout << "\nSelected: " << printable(decision.selected) << ", if its own exchange succeeds\n";
}

void print_json(const Decision &decision) {
    Json mechanisms = Json::array();
    for (const Verdict &verdict : decision.verdicts) {
        mechanisms.push_back(to_json(verdict));
        mechanisms.back()["rule"] = printable(verdict.rule);
    }
    Json out = {{"policy", printable(decision.policy)}, {"selected", nullptr}, {"mechanisms", mechanisms}};
    if (!decision.selected.empty())
        out["selected"] = printable(decision.selected);
    std::cout << out.dump(2) << '\n';
}

} // namespace

void run_try(const TryOptions &options) {
    const Registry registry(QXGSS_SERVER, configuration_file(options.configuration));
    const Decision decision = rehearse(registry, options.request);
    options.json ? print_json(decision) : print_text(decision);
    if (decision.selected.empty())
        throw Failure("no mechanism is selected: " + printable(decision.failure), kExitNegotiation);
}

} // namespace tools
