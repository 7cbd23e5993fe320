// The cases of a benchmark program. Each prepares what it needs and then repeats one call, either by Google Benchmark
// or, with --counts, a fixed number of times for the counters of instructions and allocations, which do not depend on
// the machine's load.
#ifndef QXNEGO_CASES_H
#define QXNEGO_CASES_H

#include <cstddef>
#include <functional>
#include <string>

namespace bench {

using Call = std::function<void()>;

// Hands the call to the measurement. `bytes` is what one call works on, where a figure in bytes a second is wanted.
using Repeat = std::function<void(const Call &call, std::size_t bytes)>;

// Adds a case; `body` prepares, repeats and cleans up.
void add_case(const std::string &name, std::function<void(const Repeat &)> body);

// Reads the options and runs the cases.
int run_cases(int argc, char **argv);

} // namespace bench

#endif
