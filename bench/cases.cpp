// Running the cases: by Google Benchmark, or for the counters. Allocations are printed as "allocations NAME COUNT
// BYTES"; instructions go into a dump of callgrind that carries the name.
#include "bench/cases.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <valgrind/callgrind.h>

namespace bench {

namespace {

constexpr int kWarm = 20;
constexpr int kRepetitions = 100;

struct Case {
    std::string name;
    std::function<void(const Repeat &)> body;
};
std::vector<Case> cases;

struct Allocations {
    unsigned long count = 0;
    unsigned long bytes = 0;
};

// From the counter that is loaded before the C library; without one nothing is counted.
Allocations allocations() {
    static const auto counter =
        reinterpret_cast<void (*)(unsigned long *, unsigned long *)>(dlsym(RTLD_DEFAULT, "allocation_count"));
    Allocations now;
    if (counter != nullptr)
        counter(&now.count, &now.bytes);
    return now;
}

void count(const std::string &name, const Call &call) {
    for (int i = 0; i < kWarm; ++i)
        call();
    const Allocations before = allocations();
    CALLGRIND_ZERO_STATS;
    for (int i = 0; i < kRepetitions; ++i)
        call();
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    const Allocations after = allocations();
    std::printf("allocations\t%s\t%.2f\t%.1f\n", name.c_str(),
                static_cast<double>(after.count - before.count) / kRepetitions,
                static_cast<double>(after.bytes - before.bytes) / kRepetitions);
}

void time(benchmark::State &state, const std::function<void(const Repeat &)> &body) {
    body([&](const Call &call, std::size_t bytes) {
        for (auto _ : state)
            call();
        if (bytes != 0)
            state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
    });
}

} // namespace

void add_case(const std::string &name, std::function<void(const Repeat &)> body) {
    cases.push_back({name, std::move(body)});
}

int run_cases(int argc, char **argv) {
    if (argc > 1 && std::strcmp(argv[1], "--counts") == 0) {
        for (const Case &each : cases)
            each.body([&](const Call &call, std::size_t) { count(each.name, call); });
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    for (const Case &each : cases)
        benchmark::RegisterBenchmark(each.name.c_str(), [&](benchmark::State &state) { time(state, each.body); });
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

} // namespace bench
