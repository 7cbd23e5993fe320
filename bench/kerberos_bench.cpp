// Handshakes of a real mechanism, Kerberos of the host's GSS-API library, alone, under QXNEGO, and under sessions: what
// negotiation adds, and what sessions do. All acquire credentials for every handshake. Needs the environment of a realm
// (tests/realm.sh) and a ticket.
#include "bench/cases.h"
#include "bench/workload.h"
#include "session/qxgss_session.h"

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

// A session is open once both sides have confirmed to have seen the same tokens.
void open_sessions() {
    OM_uint32 minor = 0;
    qxgss_session_t client = nullptr, server = nullptr;
    bench::expect(qxgss_session_initiate(&minor, nullptr, "host@localhost", 0, nullptr, &client) == GSS_S_COMPLETE,
                  "initiating a session", 0, minor);
    bench::expect(qxgss_session_accept(&minor, nullptr, &server) == GSS_S_COMPLETE, "accepting a session", 0, minor);
    OM_uint32 client_major = GSS_S_CONTINUE_NEEDED, server_major = GSS_S_CONTINUE_NEEDED;
    qxgss_buffer_desc message{};
    for (bool is_client = true; client_major + server_major != GSS_S_COMPLETE; is_client = !is_client) {
        qxgss_buffer_desc reply{};
        OM_uint32 &major = is_client ? client_major : server_major;
        major = qxgss_session_step(&minor, is_client ? client : server, message.value != nullptr ? &message : nullptr,
                                   &reply);
        bench::expect(GSS_ERROR(major) == 0, "a step of a session", major, minor);
        gssp_release_buffer(nullptr, &message);
        message = reply;
    }
    gssp_release_buffer(nullptr, &message);
    qxgss_session_delete(&minor, &client);
    qxgss_session_delete(&minor, &server);
}

void under_sessions(const bench::Repeat &repeat) {
    const bench::Framework framework(configuration());
    repeat(open_sessions, 0);
}

} // namespace

int main(int argc, char **argv) {
    bench::add_case("kerberos/alone", alone);
    bench::add_case("kerberos/negotiated", negotiated);
    bench::add_case("kerberos/session", under_sessions);
    return bench::run_cases(argc, argv);
}
