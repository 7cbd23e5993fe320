// Configuration once, then contexts of their own in many threads: each thread runs all scenarios over the one registry,
// again and again, and sees what a single thread sees. To be run under the thread sanitizer, too (preset "thread").
#include <gtest/gtest.h>

#include <thread>

#include "tests/scenarios.h"

namespace {

using namespace harness;

constexpr int kThreads = 8;
constexpr int kRounds = 20;

// What a thread sees of a scenario; its mechanisms behave as it says, and both sides have all of them, as no thread may
// change the registry.
std::string run(const Scenario &scenario) {
    prepare(scenario);
    std::string seen;
    {
        Session session;
        log_on(scenario, session);
        seen = session.run();
        for (const std::string &token : session.tokens)
            seen += " " + hex(token);
        for (Peer *peer : {&session.client, &session.server})
            if (peer->context != nullptr) {
                peer->act();
                for (const std::string &said : use(peer->context))
                    seen += " " + said;
                seen += " " + peer->end();
            }
    }
    qxgss_OID oid = nullptr;
    const char *name = nullptr;
    gssp_mechoidstr_to_oid(nullptr, "1.3.6.1.4.1.32473.9.9", &oid);
    gssp_mechstr_to_oid(nullptr, "A", &oid);
    gssp_oid_to_mechstr(nullptr, oid, &name);
    return seen + name + std::to_string(scripted::live_objects());
}

TEST(Threads, EachSeesWhatASingleOneSees) {
    OM_uint32 major = 0;
    ASSERT_EQ(configure(&major, configuration()), "");
    std::vector<std::string> expected;
    for (const Scenario &scenario : scenarios())
        expected.push_back(run(scenario));
    EXPECT_EQ(expected[0].substr(0, 40), "C cont token, S done token, C done empty");
    std::vector<int> differences(kThreads, 0);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number)
        threads.emplace_back([&, number] {
            for (int round = 0; round < kRounds; ++round)
                for (std::size_t i = 0; i < scenarios().size(); ++i) // each thread begins elsewhere
                    if (const std::size_t at = (i + static_cast<std::size_t>(number) * 5) % scenarios().size();
                        run(scenarios()[at]) != expected[at])
                        ++differences[static_cast<std::size_t>(number)];
            scripted::reset();
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(differences, std::vector<int>(kThreads, 0));
}

} // namespace
