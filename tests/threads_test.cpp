// Configuration once, then contexts of their own in many threads: each thread runs all scenarios over the one registry,
// again and again, and sees what a single thread sees. To be run under the thread sanitizer, too (preset "thread").
#include <gtest/gtest.h>

#include <thread>

#include "tests/scenarios.h"

namespace {

using namespace harness;

constexpr int kThreads = 8;
constexpr int kRounds = 20;

// One side, over the registry as it is: no thread may change it.
struct Participant {
    qxgss_cred_id_t credential = nullptr;
    qxgss_ctx_id_t context = nullptr;
    std::string token, seen; // the token it made; what came of each call

    void log_on(const char *logon) {
        if (logon == nullptr)
            return;
        std::string copy = logon;
        qxgss_buffer_desc buffer{copy.size(), copy.data()};
        qxgss_name_t name = nullptr;
        qxgss_import_name(nullptr, &buffer, GSS_C_NT_QXAT_MECHDATA_UTF8, &name);
        seen += outcome(QXNEGO_acquire_cred, name, 600, nullptr, GSS_C_BOTH, &credential, nullptr, nullptr);
        gssp_release_name(nullptr, &name);
    }

    bool call(Side side, std::string input) {
        qxgss_buffer_desc in{input.size(), input.data()}, out{};
        qxgss_name_t source = nullptr;
        scripted::script().acting = side;
        const std::string status = side == kClient
                                       ? outcome(QXNEGO_init_sec_context, credential, &context, nullptr, nullptr, 0, 0,
                                                 nullptr, &in, nullptr, &out, nullptr, nullptr)
                                       : outcome(QXNEGO_accept_sec_context, &context, credential, &in, nullptr, &source,
                                                 nullptr, &out, nullptr, nullptr, nullptr);
        token = text_of(out);
        seen += " " + status + ":" + hex(token);
        gssp_release_buffer(nullptr, &out);
        gssp_release_name(nullptr, &source);
        return status.substr(2, 2) == "00" && status.substr(4, 4) < "0002";
    }

    void use_and_end() {
        char text[] = "message";
        qxgss_buffer_desc message{7, text}, wrapped{}, properties{};
        seen += " " + outcome(QXNEGO_wrap, context, 1, 0, &message, nullptr, &wrapped);
        seen += " " + outcome(QXNEGO_inquire_properties_for_user, context, &properties);
        gssp_release_buffer(nullptr, &wrapped);
        gssp_release_buffer(nullptr, &properties);
        if (context != nullptr)
            seen += " " + outcome(QXNEGO_delete_sec_context, &context, nullptr);
        if (credential != nullptr)
            seen += " " + outcome(QXNEGO_release_cred, &credential);
    }
};

// What a thread sees of a scenario; its mechanisms behave as it says, and both sides have all of them.
std::string run(const Scenario &scenario) {
    prepare(scenario);
    Participant sides[2];
    sides[kClient].log_on(scenario.logon);
    sides[kServer].log_on(scenario.server_logon);
    std::string token;
    for (int turn = 0; turn < 8; ++turn) {
        const Side side = turn % 2 == 0 ? kClient : kServer;
        if (!sides[side].call(side, token) || sides[side].token.empty())
            break;
        token = sides[side].token;
    }
    for (Participant &side : sides)
        side.use_and_end();
    qxgss_OID oid = nullptr;
    const char *name = nullptr;
    gssp_mechoidstr_to_oid(nullptr, "1.3.6.1.4.1.32473.9.9", &oid);
    gssp_mechstr_to_oid(nullptr, "A", &oid);
    gssp_oid_to_mechstr(nullptr, oid, &name);
    return sides[kClient].seen + sides[kServer].seen + name + std::to_string(scripted::live_objects());
}

TEST(Threads, EachSeesWhatASingleOneSees) {
    OM_uint32 major = 0;
    ASSERT_EQ(configure(&major, configuration()), "");
    std::vector<std::string> expected;
    for (const Scenario &scenario : scenarios())
        expected.push_back(run(scenario));
    EXPECT_NE(expected[0].find("00000000/230003E8"), std::string::npos);
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
