// Many negotiations at once: handshakes on one and on two threads, and what a half-open context of a server costs, of
// which there are 100,000.
#include <fstream>
#include <malloc.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/workload.h"

namespace {

constexpr std::size_t kHalfOpen = 100'000;

struct Parties {
    Parties(int candidates, int legs)
        : framework(candidates, legs), client(framework, "authcid=alice", GSS_C_INITIATE),
          server(framework, nullptr, GSS_C_ACCEPT) {}
    bench::Framework framework;
    bench::Credential client, server;
};

void threads(benchmark::State &state) {
    static Parties *parties;
    if (state.thread_index() == 0)
        parties = new Parties(4, 1);
    for (auto _ : state)
        bench::Handshake(parties->framework.qxnego(), parties->client.get(), parties->server.get(), nullptr).run();
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
        delete parties;
}
BENCHMARK(threads)->Threads(1)->Threads(2)->UseRealTime();

double resident_bytes() {
    std::size_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

void half_open(benchmark::State &state) {
    const Parties parties(static_cast<int>(state.range(0)), 3);
    const qxgss_ftn_table_desc &table = parties.framework.qxnego();
    qxgss_ctx_id_t client = nullptr;
    qxgss_buffer_desc token = bench::first_token(table, parties.client.get(), &client);
    std::vector<qxgss_ctx_id_t> contexts(kHalfOpen);
    const double heap = static_cast<double>(mallinfo2().uordblks), resident = resident_bytes();
    for (auto _ : state)
        for (qxgss_ctx_id_t &context : contexts)
            bench::accept_first(table, parties.server.get(), token, &context);
    state.counters["heap_bytes"] = (static_cast<double>(mallinfo2().uordblks) - heap) / kHalfOpen;
    state.counters["resident_bytes"] = (resident_bytes() - resident) / kHalfOpen;
    for (qxgss_ctx_id_t &context : contexts)
        table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr);
    table.ftn_gssp_delete_sec_context(nullptr, &client, nullptr);
    gssp_release_buffer(nullptr, &token);
}
BENCHMARK(half_open)->Arg(1)->Arg(4)->Arg(8)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

// Everything runs in a thread that is not the first, as a server's work does: the first has the C library's main heap
// to itself, which is faster than those of all others, and before there is a second it takes no locks.
int main(int count, char **arguments) {
    benchmark::Initialize(&count, arguments);
    std::thread([] { benchmark::RunSpecifiedBenchmarks(); }).join();
}
