// The workload: configuration file, credentials, and the exchange of tokens between the two sides.
#include "bench/workload.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <unistd.h>

namespace bench {

namespace {

constexpr OM_uint32 kFlags =
    GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;
constexpr int kFirstOfLegs[] = {0, 0, 0x40, 0x60}; // as the null mechanism has them

std::string null_mechanisms(int candidates, int legs) {
    std::string negotiates, mechanisms;
    for (int i = 0; i < candidates; ++i) {
        const std::string number = std::to_string(kFirstOfLegs[legs] + i);
        const std::string oid = "\"1.3.6.1.4.1.32473." + number + "\"";
        negotiates += "{ oid = " + oid + " }, ";
        mechanisms += "[[mechanism]]\nname = \"NULL-" + number + "\"\noid = " + oid +
                      "\nlibrary = \"" NULL_MECHANISM "\"\nprefix = \"NULLMECH\"\n"
                      "properties = { authentication = true, authorization = true, single_sign_on = false, rank = " +
                      std::to_string(i) + " }\n";
    }
    return negotiation_over(negotiates, mechanisms);
}

} // namespace

void expect(bool condition, const char *what, OM_uint32 major, OM_uint32 minor) {
    if (condition)
        return;
    std::fprintf(stderr, "%s failed: %08X/%08X\n", what, major, minor);
    std::abort();
}

std::string negotiation_over(const std::string &negotiates, const std::string &mechanisms) {
    return "[[mechanism]]\nname = \"QXNEGO\"\noid = \"1.3.6.1.4.1.32473.1.1\"\nlibrary = \"" QXNEGO_LIBRARY
           "\"\nprefix = \"QXNEGO\"\nnegotiates = [ " +
           negotiates + "]\n" + mechanisms;
}

Framework::Framework(int candidates, int legs) : Framework(null_mechanisms(candidates, legs)) {}

Framework::Framework(const std::string &configuration) {
    const std::string file = "/tmp/qxnego-bench-" + std::to_string(getpid()) + ".toml";
    std::ofstream(file) << configuration;
    qxgss_buffer_desc message{};
    OM_uint32 minor = 0;
    const OM_uint32 major = qxgss_configure(&minor, QXGSS_SERVER, file.c_str(), &message);
    std::remove(file.c_str());
    expect(GSS_ERROR(major) == 0 && message.length == 0, "configure", major, minor);
}

Framework::~Framework() {
    qxgss_shutdown(nullptr);
}

Credential::Credential(const Framework &framework, const char *logon, qxgss_cred_usage_t usage)
    : framework_(framework) {
    qxgss_name_t name = nullptr;
    OM_uint32 minor = 0;
    if (logon != nullptr) {
        qxgss_buffer_desc text{std::strlen(logon), const_cast<char *>(logon)};
        const OM_uint32 major = qxgss_import_name(&minor, &text, GSS_C_NT_QXAT_MECHDATA_UTF8, &name);
        expect(major == GSS_S_COMPLETE, "import_name", major, minor);
    }
    const OM_uint32 major = framework.qxnego().ftn_gssp_acquire_cred(&minor, name, GSS_C_INDEFINITE, nullptr, usage,
                                                                     &handle_, nullptr, nullptr);
    expect(major == GSS_S_COMPLETE, "acquire_cred", major, minor);
    gssp_release_name(nullptr, &name);
}

Credential::~Credential() {
    framework_.qxnego().ftn_gssp_release_cred(nullptr, &handle_);
}

Handshake::Handshake(const qxgss_ftn_table_desc &table, qxgss_cred_id_t initiator, qxgss_cred_id_t acceptor,
                     qxgss_OID mech)
    : table_(table), initiator_(initiator), acceptor_(acceptor), mech_(mech) {}

Handshake::~Handshake() {
    OM_uint32 minor = 0;
    if (client != nullptr)
        table_.ftn_gssp_delete_sec_context(&minor, &client, nullptr);
    if (server != nullptr)
        table_.ftn_gssp_delete_sec_context(&minor, &server, nullptr);
}

void Handshake::run() {
    OM_uint32 clientMajor = GSS_S_CONTINUE_NEEDED, serverMajor = GSS_S_CONTINUE_NEEDED, minor = 0, flags = 0;
    qxgss_buffer_desc toServer{}, toClient{};
    do {
        toServer = {};
        clientMajor = table_.ftn_gssp_init_sec_context(&minor, initiator_, &client, target, mech_, kFlags, 0, nullptr,
                                                       &toClient, nullptr, &toServer, &flags, nullptr);
        expect(GSS_ERROR(clientMajor) == 0, "init_sec_context", clientMajor, minor);
        gssp_release_buffer(nullptr, &toClient);
        if (serverMajor == GSS_S_CONTINUE_NEEDED) {
            serverMajor = table_.ftn_gssp_accept_sec_context(&minor, &server, acceptor_, &toServer, nullptr, nullptr,
                                                             nullptr, &toClient, &flags, nullptr, nullptr);
            expect(GSS_ERROR(serverMajor) == 0, "accept_sec_context", serverMajor, minor);
        }
        gssp_release_buffer(nullptr, &toServer);
    } while (clientMajor == GSS_S_CONTINUE_NEEDED);
    gssp_release_buffer(nullptr, &toClient);
    expect(serverMajor == GSS_S_COMPLETE, "handshake", serverMajor, 0);
}

qxgss_buffer_desc first_token(const qxgss_ftn_table_desc &table, qxgss_cred_id_t initiator, qxgss_ctx_id_t *ppContext) {
    qxgss_buffer_desc token{};
    OM_uint32 minor = 0;
    const OM_uint32 major = table.ftn_gssp_init_sec_context(&minor, initiator, ppContext, nullptr, nullptr, kFlags, 0,
                                                            nullptr, nullptr, nullptr, &token, nullptr, nullptr);
    expect(GSS_ERROR(major) == 0, "init_sec_context", major, minor);
    return token;
}

void accept_first(const qxgss_ftn_table_desc &table, qxgss_cred_id_t acceptor, qxgss_buffer_desc token,
                  qxgss_ctx_id_t *ppContext) {
    qxgss_buffer_desc reply{};
    OM_uint32 minor = 0;
    const OM_uint32 major = table.ftn_gssp_accept_sec_context(&minor, ppContext, acceptor, &token, nullptr, nullptr,
                                                              nullptr, &reply, nullptr, nullptr, nullptr);
    expect(major == GSS_S_CONTINUE_NEEDED, "accept_sec_context", major, minor);
    gssp_release_buffer(nullptr, &reply);
}

} // namespace bench
