// The adapter for the host's mechanisms, driven through its function table against a private Kerberos realm and an NTLM
// user file: real tokens, real messages, and what a user is told when something is missing.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxgss/gssp.h"
#include "qxgss/qxgss_records.h"

namespace {

using namespace std::string_literals;

std::string folder;

std::string run(const std::string &command) {
    std::string output;
    FILE *pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c; pipe != nullptr && (c = std::fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    return pipe != nullptr && pclose(pipe) == 0 ? output : "failed: " + output;
}

void realm(const std::string &verb) {
    const std::string said = run(REALM_SCRIPT " " + verb + " " + folder);
    ASSERT_NE(said.rfind("failed: ", 0), 0U) << said;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);)
        if (const auto equals = line.find('='); equals != std::string::npos)
            setenv(line.substr(0, equals).c_str(), line.substr(equals + 1).c_str(), 1);
}

std::string configuration() {
    const auto mechanism = [](const std::string &name, const std::string &oid, const std::string &more) {
        return "[[mechanism]]\nname = \"" + name + "\"\noid = \"" + oid +
               "\"\nlibrary = \"" HOSTGSS_LIBRARY "\"\nprefix = \"HOSTGSS\"\n" + more;
    };
    return mechanism("absent", "1.3.6.1.4.1.99999.1", "") +
           mechanism("kerberos", "1.2.840.113554.1.2.2",
                     "[mechanism.settings]\nkeytab_file = \"" + folder + "/service.keytab\"\n") +
           mechanism("ntlm", "1.3.6.1.4.1.311.2.2.10", "");
}

std::string configure_message;

class Realm : public testing::Environment {
    void SetUp() override {
        char name[] = "/tmp/hostgss_test.XXXXXX";
        folder = mkdtemp(name);
        ASSERT_NO_FATAL_FAILURE(realm("start"));
        // Only the mechanism's setting leads to the service's keys.
        setenv("KRB5_KTNAME", (folder + "/none.keytab").c_str(), 1);
        std::ofstream(folder + "/qxgss.conf") << configuration();
        qxgss_buffer_desc message{};
        const OM_uint32 major =
            qxgss_configure(nullptr, QXGSS_SERVER, (folder + "/qxgss.conf").c_str(), &message);
        configure_message.assign(static_cast<char *>(message.value), message.length);
        gssp_release_buffer(nullptr, &message);
        ASSERT_EQ(major, GSS_S_COMPLETE) << configure_message;
    }
    void TearDown() override {
        realm("stop");
        qxgss_shutdown(nullptr);
    }
};

const auto *const environment = testing::AddGlobalTestEnvironment(new Realm);

const MechInfo_t &mech(const std::string &name) {
    for (OM_uint32 i = 0; i != MechCount; ++i)
        if (pMechInfo[i].pszMechName == name)
            return pMechInfo[i];
    throw std::runtime_error("no mechanism " + name);
}

// ---- The framework's types as values -------------------------------------------------------------------------------

qxgss_buffer_desc buffer(const std::string &text) { return {text.size(), const_cast<char *>(text.data())}; }

std::string take(qxgss_buffer_desc &from) {
    std::string text(static_cast<char *>(from.value), from.length);
    std::free(from.value);
    from = {};
    return text;
}

struct Name {
    qxgss_name_t handle = nullptr;
    Name() = default;
    Name(const std::string &text, qxgss_OID type = GSS_C_NT_QXAT_MECHDATA_UTF8) {
        qxgss_buffer_desc bytes = buffer(text);
        qxgss_import_name(nullptr, &bytes, type, &handle);
    }
    Name(const Name &) = delete;
    ~Name() { gssp_release_name(nullptr, &handle); }
    std::string text() const {
        return handle == nullptr ? "" : std::string(static_cast<char *>(handle->pElements->Name.value), handle->pElements->Name.length);
    }
};

const Name &service() {
    static const Name name("host@localhost", GSS_C_NT_HOSTBASED_SERVICE);
    return name;
}

// One side: what its calls left.
struct Side {
    explicit Side(const MechInfo_t &used) : info(used), table(used.MechFtnTable) {}
    Side(const Side &) = delete;
    ~Side() {
        if (context != nullptr)
            table.ftn_gssp_delete_sec_context(nullptr, &context, nullptr);
        for (qxgss_cred_id_t *handle : {&credential, &delegated})
            if (*handle != nullptr)
                table.ftn_gssp_release_cred(nullptr, handle);
    }

    bool acquire(const char *logon, int usage) {
        qxgss_OID_set_desc mechs = {1, info.pMechOid};
        const Name name = logon == nullptr ? Name() : Name(logon);
        major = table.ftn_gssp_acquire_cred(&minor, name.handle, GSS_C_INDEFINITE, &mechs, usage, &credential, nullptr,
                                            &lifetime);
        return GSS_ERROR(major) == 0;
    }
    void init(const std::string &input, const Name &target = service()) {
        qxgss_buffer_desc in = buffer(input), out{};
        major = table.ftn_gssp_init_sec_context(&minor, credential, &context, target.handle, info.pMechOid, request, 0,
                                                bindings, &in, &actual, &out, &flags, &lifetime);
        token = take(out);
    }
    void accept(const std::string &input) {
        qxgss_buffer_desc in = buffer(input), out{};
        Name name;
        major = table.ftn_gssp_accept_sec_context(&minor, &context, credential, &in, bindings, &name.handle, &actual,
                                                  &out, &flags, &lifetime, &delegated);
        token = take(out);
        source = name.text();
    }
    bool failed() const { return GSS_ERROR(major) != 0; }
    std::string text() const {
        qxgss_buffer_desc out{};
        OM_uint32 more = 0;
        table.ftn_gssp_display_status(nullptr, minor, GSS_C_MECH_CODE, info.pMechOid, &more, &out);
        return take(out);
    }

    const MechInfo_t &info;
    const qxgss_ftn_table_desc &table;
    OM_uint32 request = GSS_C_MUTUAL_FLAG | GSS_C_CONF_FLAG | GSS_C_INTEG_FLAG | GSS_C_REPLAY_FLAG | GSS_C_SEQUENCE_FLAG;
    qxgss_channel_bindings_t bindings = nullptr;
    OM_uint32 major = 0, minor = 0, flags = 0, lifetime = 0;
    qxgss_cred_id_t credential = nullptr, delegated = nullptr;
    qxgss_ctx_id_t context = nullptr;
    qxgss_OID actual = nullptr;
    std::string token, source;
};

const char *password_logon(const MechInfo_t &info) {
    return info.pszMechName == "ntlm"s ? "authcid='QXTEST\\alice' password=Secret1" : "authcid=alice password=Alice1";
}

TEST(Explore, All) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    puts(configure_message.c_str());
    for (const char *n : {"kerberos", "ntlm"}) {
        printf("== %s\n", n);
        Side c(mech(n)), s(mech(n));
        printf("acq %d\n", c.acquire(password_logon(c.info), GSS_C_INITIATE));
        puts(c.text().c_str());
        printf("life %u\n", c.lifetime);
        printf("acq %d\n", s.acquire(nullptr, GSS_C_ACCEPT));
        puts(s.text().c_str());
        for (int i = 0; i < 4; i++) {
            c.init(s.token);
            printf("init %x %x [%s] tok %zu fl %x life %u actual %p\n", c.major, c.minor, c.failed() ? c.text().c_str():"", c.token.size(), c.flags, c.lifetime, (void*)c.actual);
            if (c.failed() || c.token.empty()) break;
            s.accept(c.token);
            printf("acc %x %x [%s] tok %zu fl %x life %u actual %p src %s\n", s.major, s.minor, s.failed() ? s.text().c_str():"", s.token.size(), s.flags, s.lifetime, (void*)s.actual, s.source.c_str());
            if (s.failed() || s.token.empty()) break;
        }
        for (auto l : {(const char*)nullptr, "authcid=alice password=wrong", "authcid=expired password=Expired1", "alice", "bob@QXNEGO.TEST", "nobody@@x", "alice@QXTEST@@Secret1", "QXTEST\\alice@@Secret1", "authcid=alice realm=QXTEST password=Secret1", "authcid=alice realm=QXNEGO.TEST password=Alice1", "password=x", "user=x", "authcid=a bogus", "QXTEST\\alice"}) {
            Side x(mech(n));
            x.acquire(l, GSS_C_INITIATE);
            printf("%s: %x %x [%s]\n", l ? l : "(null)", x.major, x.minor, x.failed() ? x.text().c_str() : "");
            Name nm; OM_uint32 min, maj = x.table.ftn_gssp_inquire_cred(&min, x.credential, &nm.handle, nullptr, nullptr, nullptr);
            printf("   inquire %x %s\n", maj, nm.text().c_str());
        }
    }
}

} // namespace
