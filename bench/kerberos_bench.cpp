// Handshakes of a real mechanism, Kerberos of the host's GSS-API library, alone and under QXNEGO: what negotiation
// adds. Both acquire credentials for every handshake. Needs the environment of a realm (tests/realm.sh) and a ticket.
#include "bench/cases.h"
#include "bench/workload.h"

namespace {

std::string configuration() {
    const std::string oid = "\"1.2.840.113554.1.2.2\"";
    return bench::negotiation_over(
        "{ oid = " + oid + " }",
        "[[mechanism]]\nname = \"KERBEROS\"\noid = " + oid +
            "\nlibrary = \"" HOSTGSS_LIBRARY "\"\nprefix = \"HOSTGSS\"\nproperties = "
            "{ authentication = true, authorization = true, single_sign_on = true, rank = 1 }\n");
}

// A credential of the mechanism's own, as QXNEGO acquires one for each of its contexts.
struct OwnCredential {
    OwnCredential(const qxgss_ftn_table_desc &from, qxgss_cred_usage_t usage) : table(from) {
        OM_uint32 minor = 0;
        qxgss_OID_set_desc set{1, pMechInfo[1].pMechOid};
        const OM_uint32 major =
            table.ftn_gssp_acquire_cred(&minor, nullptr, GSS_C_INDEFINITE, &set, usage, &handle, nullptr, nullptr);
        bench::expect(major == GSS_S_COMPLETE, "acquire_cred", major, minor);
    }
    OwnCredential(const OwnCredential &) = delete;
    OwnCredential &operator=(const OwnCredential &) = delete;
    ~OwnCredential() {
        OM_uint32 minor = 0;
        table.ftn_gssp_release_cred(&minor, &handle);
    }
    const qxgss_ftn_table_desc &table;
    qxgss_cred_id_t handle = nullptr;
};

struct Target {
    Target() {
        qxgss_buffer_desc text{14, const_cast<char *>("host@localhost")};
        qxgss_import_name(nullptr, &text, GSS_C_NT_HOSTBASED_SERVICE, &name);
    }
    Target(const Target &) = delete;
    Target &operator=(const Target &) = delete;
    ~Target() { gssp_release_name(nullptr, &name); }
    qxgss_name_t name = nullptr;
};

void shake_hands(const qxgss_ftn_table_desc &table, qxgss_cred_id_t client, qxgss_cred_id_t server,
                 const Target &target) {
    bench::Handshake handshake(table, client, server, pMechInfo[1].pMechOid);
    handshake.target = target.name;
    handshake.run();
}

void alone(const bench::Repeat &repeat) {
    const bench::Framework framework(configuration());
    const Target target;
    repeat(
        [&] {
            const OwnCredential client(framework.mechanism(), GSS_C_INITIATE);
            const OwnCredential server(framework.mechanism(), GSS_C_ACCEPT);
            shake_hands(framework.mechanism(), client.handle, server.handle, target);
        },
        0);
}

void negotiated(const bench::Repeat &repeat) {
    const bench::Framework framework(configuration());
    const bench::Credential server(framework, nullptr, GSS_C_ACCEPT);
    const Target target;
    repeat([&] { shake_hands(framework.qxnego(), nullptr, server.get(), target); }, 0);
}

} // namespace

int main(int argc, char **argv) {
    bench::add_case("kerberos/alone", alone);
    bench::add_case("kerberos/negotiated", negotiated);
    return bench::run_cases(argc, argv);
}
