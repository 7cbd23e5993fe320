// Per-message calls through QXNEGO and directly, over the null mechanism: the difference is what QXNEGO adds.
#include "bench/cases.h"
#include "bench/workload.h"

namespace {

struct Messages {
    const qxgss_ftn_table_desc &table;
    qxgss_ctx_id_t client, server;
    qxgss_buffer_desc message, wrapped{}, mic{};

    void wrap() const {
        OM_uint32 minor = 0;
        int confidential = 0;
        qxgss_buffer_desc output{}, input = message;
        const OM_uint32 major = table.ftn_gssp_wrap(&minor, client, 1, 0, &input, &confidential, &output);
        bench::expect(major == GSS_S_COMPLETE, "wrap", major, minor);
        gssp_release_buffer(nullptr, &output);
    }
    void unwrap() const {
        OM_uint32 minor = 0;
        int confidential = 0;
        qxgss_buffer_desc output{}, input = wrapped;
        const OM_uint32 major = table.ftn_gssp_unwrap(&minor, server, &input, &output, &confidential, nullptr);
        bench::expect(major == GSS_S_COMPLETE, "unwrap", major, minor);
        gssp_release_buffer(nullptr, &output);
    }
    void get_mic() const {
        OM_uint32 minor = 0;
        qxgss_buffer_desc output{}, input = message;
        const OM_uint32 major = table.ftn_gssp_get_mic(&minor, client, 0, &input, &output);
        bench::expect(major == GSS_S_COMPLETE, "get_mic", major, minor);
        gssp_release_buffer(nullptr, &output);
    }
    void verify_mic() const {
        OM_uint32 minor = 0;
        qxgss_buffer_desc input = message, token = mic;
        const OM_uint32 major = table.ftn_gssp_verify_mic(&minor, server, &input, &token, nullptr);
        bench::expect(major == GSS_S_COMPLETE, "verify_mic", major, minor);
    }
};

void calls(bool direct, void (Messages::*call)() const, const bench::Repeat &repeat) {
    const bench::Framework framework(1, 1);
    const bench::Credential client(framework, "authcid=alice", GSS_C_INITIATE);
    const bench::Credential server(framework, nullptr, GSS_C_ACCEPT);
    const qxgss_ftn_table_desc &table = direct ? framework.mechanism() : framework.qxnego();
    bench::Handshake handshake(table, client.get(), server.get(), pMechInfo[1].pMechOid);
    handshake.run();
    std::string text(16, 'm');
    Messages messages{table, handshake.client, handshake.server, {text.size(), text.data()}};
    OM_uint32 minor = 0;
    table.ftn_gssp_wrap(&minor, messages.client, 1, 0, &messages.message, nullptr, &messages.wrapped);
    table.ftn_gssp_get_mic(&minor, messages.client, 0, &messages.message, &messages.mic);
    repeat([&] { (messages.*call)(); }, 0);
    gssp_release_buffer(nullptr, &messages.wrapped);
    gssp_release_buffer(nullptr, &messages.mic);
}

} // namespace

int main(int argc, char **argv) {
    const std::pair<const char *, void (Messages::*)() const> operations[] = {{"wrap", &Messages::wrap},
                                                                              {"unwrap", &Messages::unwrap},
                                                                              {"get_mic", &Messages::get_mic},
                                                                              {"verify_mic", &Messages::verify_mic}};
    for (const auto &[name, call] : operations)
        for (const bool direct : {true, false})
            bench::add_case(std::string(direct ? "direct/" : "qxnego/") + name,
                            [=, call = call](const bench::Repeat &repeat) { calls(direct, call, repeat); });
    return bench::run_cases(argc, argv);
}
