// The qxnego command: the one place where errors become a line and an exit status.
#include <iostream>

#include "tools/commands/commands.h"
#include "tools/connection/interrupt.h"
#include "tools/failure.h"

namespace {

int fail(const char *line, int status) {
    std::cout.flush();
    std::cerr << "qxnego: " << line << '\n';
    return status;
}

} // namespace

int main(int argc, char **argv) {
    tools::interrupt_on_signals();
    try {
        tools::run(argc, argv);
        std::cout.flush();
        return std::cout ? tools::kExitSuccess : fail("the output cannot be written", tools::kExitFailure);
    } catch (const tools::Failure &failure) {
        return fail(failure.what(), failure.status());
    } catch (const std::exception &error) {
        return fail(error.what(), tools::kExitFailure);
    }
}
