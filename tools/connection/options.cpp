#include "tools/connection/options.h"

#include <iostream>

#include "tools/files.h"
#include "tools/show/json.h"
#include "tools/show/story.h"

namespace tools {

void print(std::ostream &out, const ConnectionOptions &options, const Story &story) {
    if (options.json)
        return print_json(out, story);
    print_line(out, story);
    if (options.why && !story.verdicts.empty())
        print_verdicts(out, story.verdicts);
}

std::unique_ptr<Registry> configure(OM_uint32 role, const ConnectionOptions &options) {
    auto registry = std::make_unique<Registry>(role, configuration_file(options.configuration));
    registry->require_qxnego();
    for (const std::string &line : registry->messages())
        if (!options.json)
            std::cerr << "qxnego: " << line << '\n';
    return registry;
}

} // namespace tools
