// The same handshakes and messages through the system's GSS-API library and its negotiation layer (RFC 4178), over the
// null mechanism as a plugin. The library reads the plugin's OIDs from the file that GSS_MECH_CONFIG names, which must
// be set before it is first called: so each number of candidates and legs is a run of its own, and these two are the
// arguments before Google Benchmark's.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#include "bench/cases.h"

namespace {

constexpr OM_uint32 kFlags =
    GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;
constexpr int kFirstOfLegs[] = {0, 0, 0x40};

void expect(bool condition, const char *what, OM_uint32 major, OM_uint32 minor) {
    if (condition)
        return;
    std::fprintf(stderr, "%s failed: %08X/%08X\n", what, major, minor);
    std::abort();
}

gss_OID_desc spnego = {6, const_cast<char *>("\x2b\x06\x01\x05\x05\x02")};
gss_OID_set_desc spnegoSet = {1, &spnego};

std::string oid(int legs, int i) {
    return "1.3.6.1.4.1.32473." + std::to_string(kFirstOfLegs[legs] + i);
}

void configure(int candidates, int legs) {
    const std::string file = "/tmp/qxnego-bench-gss-" + std::to_string(getpid()) + ".conf";
    std::ofstream out(file);
    for (int i = 0; i < candidates; ++i)
        out << "null_" << i << " " << oid(legs, i) << " " << GSS_NULL_MECHANISM << "\n";
    out.close();
    setenv("GSS_MECH_CONFIG", file.c_str(), 1);
    gss_OID_set mechs = nullptr;
    OM_uint32 minor = 0;
    gss_indicate_mechs(&minor, &mechs); // reads the file
    gss_release_oid_set(&minor, &mechs);
    std::remove(file.c_str());
}

// A credential for negotiating these candidates.
gss_cred_id_t acquire(int candidates, int legs, gss_cred_usage_t usage) {
    OM_uint32 minor = 0;
    gss_OID_set mechs = nullptr;
    gss_create_empty_oid_set(&minor, &mechs);
    for (int i = 0; i < candidates; ++i) {
        std::string text = oid(legs, i);
        gss_buffer_desc buffer{text.size(), text.data()};
        gss_OID mech = nullptr;
        gss_str_to_oid(&minor, &buffer, &mech);
        gss_add_oid_set_member(&minor, mech, &mechs);
        gss_release_oid(&minor, &mech);
    }
    gss_cred_id_t credential = nullptr;
    OM_uint32 major =
        gss_acquire_cred(&minor, nullptr, GSS_C_INDEFINITE, &spnegoSet, usage, &credential, nullptr, nullptr);
    expect(major == GSS_S_COMPLETE, "acquire_cred", major, minor);
    major = gss_set_neg_mechs(&minor, credential, mechs);
    expect(major == GSS_S_COMPLETE, "set_neg_mechs", major, minor);
    gss_release_oid_set(&minor, &mechs);
    return credential;
}

struct Parties {
    Parties(int candidates, int legs)
        : client(acquire(candidates, legs, GSS_C_INITIATE)), server(acquire(candidates, legs, GSS_C_ACCEPT)) {
        gss_buffer_desc text{14, const_cast<char *>("host@localhost")};
        OM_uint32 minor = 0;
        gss_import_name(&minor, &text, GSS_C_NT_HOSTBASED_SERVICE, &target);
    }
    Parties(const Parties &) = delete;
    Parties &operator=(const Parties &) = delete;
    ~Parties() {
        OM_uint32 minor = 0;
        gss_release_cred(&minor, &client);
        gss_release_cred(&minor, &server);
        gss_release_name(&minor, &target);
    }
    gss_cred_id_t client, server;
    gss_name_t target = nullptr;
};

void handshake(const Parties &parties) {
    gss_ctx_id_t client = nullptr, server = nullptr;
    gss_buffer_desc toServer{}, toClient{};
    OM_uint32 clientMajor = GSS_S_CONTINUE_NEEDED, serverMajor = GSS_S_CONTINUE_NEEDED, minor = 0, flags = 0, ignored;
    do {
        if (clientMajor == GSS_S_CONTINUE_NEEDED) {
            clientMajor = gss_init_sec_context(&minor, parties.client, &client, parties.target, &spnego, kFlags, 0,
                                               nullptr, &toClient, nullptr, &toServer, &flags, nullptr);
            expect(GSS_ERROR(clientMajor) == 0, "init_sec_context", clientMajor, minor);
            gss_release_buffer(&ignored, &toClient);
        }
        if (serverMajor == GSS_S_CONTINUE_NEEDED) {
            serverMajor = gss_accept_sec_context(&minor, &server, parties.server, &toServer, nullptr, nullptr, nullptr,
                                                 &toClient, &flags, nullptr, nullptr);
            expect(GSS_ERROR(serverMajor) == 0, "accept_sec_context", serverMajor, minor);
        }
        gss_release_buffer(&ignored, &toServer);
    } while (clientMajor == GSS_S_CONTINUE_NEEDED || serverMajor == GSS_S_CONTINUE_NEEDED);
    gss_release_buffer(&ignored, &toClient);
    gss_delete_sec_context(&ignored, &client, nullptr);
    gss_delete_sec_context(&ignored, &server, nullptr);
}

} // namespace

int main(int argc, char **argv) {
    const int candidates = argc > 2 ? std::atoi(argv[1]) : 0;
    const int legs = argc > 2 ? std::atoi(argv[2]) : 0;
    expect(candidates > 0 && (legs == 1 || legs == 2), "arguments: CANDIDATES LEGS", 0, 0);
    configure(candidates, legs);
    bench::add_case("spnego/legs:" + std::string(argv[2]) + "/candidates:" + argv[1], [=](const bench::Repeat &repeat) {
        const Parties parties(candidates, legs);
        repeat([&] { handshake(parties); }, 0);
    });
    argv[2] = argv[0];
    return bench::run_cases(argc - 2, argv + 2);
}
