// Whole handshakes over 1 to 64 null mechanisms of one leg and 1 to 32 of two, and the mechanism's part alone.
#include "bench/cases.h"
#include "bench/workload.h"

namespace {

void over_qxnego(int candidates, int legs, const bench::Repeat &repeat) {
    const bench::Framework framework(candidates, legs);
    const bench::Credential client(framework, "authcid=alice", GSS_C_INITIATE);
    const bench::Credential server(framework, nullptr, GSS_C_ACCEPT);
    repeat([&] { bench::Handshake(framework.qxnego(), client.get(), server.get(), nullptr).run(); }, 0);
}

void mechanism_alone(int legs, const bench::Repeat &repeat) {
    const bench::Framework framework(1, legs);
    repeat([&] { bench::Handshake(framework.mechanism(), nullptr, nullptr, pMechInfo[1].pMechOid).run(); }, 0);
}

} // namespace

int main(int argc, char **argv) {
    for (const int legs : {1, 2}) {
        const std::string prefix = "legs:" + std::to_string(legs);
        bench::add_case("mechanism/" + prefix, [=](const bench::Repeat &repeat) { mechanism_alone(legs, repeat); });
        for (int candidates = 1; candidates <= (legs == 1 ? 64 : 32); candidates *= 2)
            bench::add_case("handshake/" + prefix + "/candidates:" + std::to_string(candidates),
                            [=](const bench::Repeat &repeat) { over_qxnego(candidates, legs, repeat); });
    }
    return bench::run_cases(argc, argv);
}
