// The qxnego command: the one place where errors become a line and an exit status.
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

#include "tools/commands/commands.h"
#include "tools/connection/interrupt.h"
#include "tools/failure.h"

namespace {

int fail(const char *line, int status) {
    std::cout.flush();
    std::cerr << "qxnego: " << line << '\n';
    return status;
}

// Something stands in the place of an input or output that was closed, so that no socket gets its number; reading or
// writing there fails as before.
void fill_standard_descriptors() {
    constexpr int kWrongWay[] = {O_WRONLY, O_RDONLY, O_RDONLY};
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number)
        if (fcntl(number, F_GETFD) < 0)
            open("/dev/null", kWrongWay[number]); // the lowest that is free is this one
}

} // namespace

int main(int argc, char **argv) {
    fill_standard_descriptors();
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
