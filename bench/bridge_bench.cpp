// Kerberos of the host's GSS-API library as a program calls it: plainly, under the library's own negotiation layer
// (RFC 4178), and under QXNEGO through the bridge. Both sides acquire their credentials once. Needs the environment of
// a realm (tests/realm.sh) and a ticket.
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

#include "bench/cases.h"
#include "bench/workload.h"
#include "bridge/gssapi/qxnego_gssapi.h"

namespace {

constexpr OM_uint32 kFlags =
    GSS_C_MUTUAL_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG;

struct Way {
    const char *name;
    gss_OID_desc oid;
};
std::array<Way, 3> ways{{{"plain", QXNEGO_GSS_OID("\x2a\x86\x48\x86\xf7\x12\x01\x02\x02")},
                         {"spnego", QXNEGO_GSS_OID("\x2b\x06\x01\x05\x05\x02")},
                         {"bridge", QXNEGO_GSS_OID(QXNEGO_GSS_MECH)}}};

void expect(OM_uint32 major, OM_uint32 minor, const char *what) {
    bench::expect(GSS_ERROR(major) == 0, what, major, minor);
}

// Both libraries read their files at their first calls.
void configure() {
    const char *const realm = std::getenv("REALM");
    bench::expect(realm != nullptr, "finding the realm");
    const std::string folder = realm, oid = "\"1.2.840.113554.1.2.2\"";
    std::ofstream(folder + "/mech.conf") << "qxnego 1.3.6.1.4.1.32473.1.1 " BRIDGE_LIBRARY "\n";
    std::ofstream(folder + "/qxgss.conf")
        << "[[mechanism]]\nname = \"QXNEGO\"\noid = \"1.3.6.1.4.1.32473.1.1\"\nlibrary = \"" QXNEGO_LIBRARY
           "\"\nprefix = \"QXNEGO\"\nnegotiates = [ { oid = "
        << oid << " } ]\n[[mechanism]]\nname = \"Kerberos\"\noid = " << oid
        << "\nlibrary = \"" HOSTGSS_LIBRARY "\"\nprefix = \"HOSTGSS\"\nproperties = { authentication = true, "
           "authorization = true, single_sign_on = true, rank = 1 }\n";
    setenv("GSS_MECH_CONFIG", (folder + "/mech.conf").c_str(), 1);
    setenv("QXGSS_CONF", (folder + "/qxgss.conf").c_str(), 1);
}

// Both sides over one mechanism.
class Pair {
  public:
    explicit Pair(Way &way) : way_(way) {
        OM_uint32 minor = 0;
        gss_OID_set_desc itself{1, &way_.oid};
        gss_buffer_desc text{14, const_cast<char *>("host@localhost")};
        gss_import_name(&minor, &text, GSS_C_NT_HOSTBASED_SERVICE, &target_);
        acquire(GSS_C_INITIATE, itself, own_);
        acquire(GSS_C_ACCEPT, itself, peer_);
    }
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    ~Pair() {
        OM_uint32 minor = 0;
        close();
        gss_release_name(&minor, &target_);
        gss_release_cred(&minor, &own_);
        gss_release_cred(&minor, &peer_);
    }

    void open() {
        OM_uint32 major = GSS_S_CONTINUE_NEEDED, minor = 0;
        gss_buffer_desc token{};
        for (bool is_client = true; is_client || token.length != 0; is_client = !is_client) {
            gss_buffer_desc output{};
            major = is_client ? gss_init_sec_context(&minor, own_, &client, target_, &way_.oid, kFlags, 0, nullptr,
                                                     &token, nullptr, &output, nullptr, nullptr)
                              : gss_accept_sec_context(&minor, &server, peer_, &token, nullptr, nullptr, nullptr,
                                                       &output, nullptr, nullptr, nullptr);
            expect(major, minor, is_client ? "init_sec_context" : "accept_sec_context");
            gss_release_buffer(&minor, &token);
            token = output;
            if (is_client && token.length == 0)
                break;
        }
        bench::expect(major == GSS_S_COMPLETE, "the establishment", major, minor);
    }
    void close() {
        OM_uint32 minor = 0;
        gss_delete_sec_context(&minor, &client, nullptr);
        gss_delete_sec_context(&minor, &server, nullptr);
    }

    gss_ctx_id_t client = GSS_C_NO_CONTEXT, server = GSS_C_NO_CONTEXT;

  private:
    static void acquire(gss_cred_usage_t usage, gss_OID_set_desc &mechanisms, gss_cred_id_t &credential) {
        OM_uint32 minor = 0;
        expect(gss_acquire_cred(&minor, GSS_C_NO_NAME, GSS_C_INDEFINITE, &mechanisms, usage, &credential, nullptr,
                                nullptr),
               minor, "acquire_cred");
    }

    Way &way_;
    gss_name_t target_ = GSS_C_NO_NAME;
    gss_cred_id_t own_ = GSS_C_NO_CREDENTIAL, peer_ = GSS_C_NO_CREDENTIAL;
};

void shake_hands(Way &way, const bench::Repeat &repeat) {
    Pair pair(way);
    repeat(
        [&] {
            pair.open();
            pair.close();
        },
        0);
}

void wrap(Way &way, const bench::Repeat &repeat) {
    Pair pair(way);
    pair.open();
    std::string text(1024, 'x');
    repeat(
        [&] {
            OM_uint32 minor = 0;
            gss_buffer_desc plain{text.size(), text.data()}, message{}, again{};
            expect(gss_wrap(&minor, pair.client, 1, 0, &plain, nullptr, &message), minor, "wrap");
            expect(gss_unwrap(&minor, pair.server, &message, &again, nullptr, nullptr), minor, "unwrap");
            gss_release_buffer(&minor, &message);
            gss_release_buffer(&minor, &again);
        },
        text.size());
}

} // namespace

int main(int argc, char **argv) {
    configure();
    for (Way &way : ways) {
        const std::string name = way.name;
        bench::add_case("host/handshake/" + name, [&](const bench::Repeat &repeat) { shake_hands(way, repeat); });
        bench::add_case("host/wrap and unwrap/" + name, [&](const bench::Repeat &repeat) { wrap(way, repeat); });
    }
    return bench::run_cases(argc, argv);
}
