// The application's loop, one for both roles: call until GSS_S_COMPLETE, send every token that a call produces (also
// the last one), and never use a context again after a call on it has failed. A side that fails without a token tells
// the other by closing the stream.
#include "tools/negotiation.h"

#include <chrono>
#include <functional>

#include "tools/codes.h"
#include "tools/failure.h"
#include "tools/handles.h"
#include "tools/oids.h"

namespace tools {

namespace {

std::uint64_t now() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

// A descriptor over bytes that stay the caller's.
qxgss_buffer_desc view(std::string_view text) {
    return {text.size(), const_cast<char *>(text.data())};
}

bool is_usable(const qxgss_ftn_table_desc &table) {
    return table.ftn_gssp_acquire_cred != nullptr && table.ftn_gssp_release_cred != nullptr &&
           table.ftn_gssp_init_sec_context != nullptr && table.ftn_gssp_accept_sec_context != nullptr &&
           table.ftn_gssp_delete_sec_context != nullptr && table.ftn_gssp_inquire_properties_for_user != nullptr;
}

// One negotiation: the context, and what an establishment call returns besides its status.
class Negotiation {
  public:
    Negotiation(const Framework &framework, Report &report)
        : framework_(framework), report_(report), context_(framework.table()) {}

    // One establishment call with the peer's token: major and minor status through the arguments.
    using Establish = std::function<OM_uint32(OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output)>;

    // Writes a call that has returned into the report.
    void record(const char *name, OM_uint32 major, OM_uint32 minor, ByteView token = {});

    // Runs the loop; the client's begins without a token.
    void run(const char *name, const Descriptor &stream, bool is_client, const Establish &establish);

    // Asks for the user's properties, which hold the log also when the negotiation failed, and deletes the context.
    void close();

    Context &context() { return context_; }
    qxgss_OID *actual_mechanism() { return &actual_mechanism_; }
    OM_uint32 *flags() { return &flags_; }

  private:
    // False when the negotiation is over on this side.
    bool step(const char *name, const Descriptor &stream, Bytes &input, const Establish &establish);
    void finish();

    const Framework &framework_;
    Report &report_;
    Context context_;
    qxgss_OID actual_mechanism_ = nullptr;
    OM_uint32 flags_ = 0;
};

void Negotiation::record(const char *name, OM_uint32 major, OM_uint32 minor, ByteView token) {
    report_.calls.push_back({now(), name, major, minor, minor_text(framework_.table(), framework_.mechanism(), minor),
                             Bytes(token.begin(), token.end())});
}

bool Negotiation::step(const char *name, const Descriptor &stream, Bytes &input, const Establish &establish) {
    OM_uint32 minor = 0;
    OwnedBuffer output;
    qxgss_buffer_desc token = view(as_text(input));
    const OM_uint32 major = establish(&minor, &token, output.get());
    record(name, major, minor, output.bytes());
    const bool is_sent = output.empty() || send_frame(stream, output.bytes());
    if (GSS_ERROR(major) != 0)
        report_.failure = report_.calls.back().text;
    else if ((major & GSS_S_CONTINUE_NEEDED) == 0)
        finish();
    else if (std::optional<Bytes> next = is_sent ? receive_frame(stream) : std::nullopt; next) {
        input = std::move(*next);
        return true;
    } else
        report_.failure = "the peer closed the connection";
    return false;
}

void Negotiation::finish() {
    report_.established = true;
    report_.flags = flags_;
    if (actual_mechanism_ != nullptr)
        report_.mechanism = mechanism_name(
            {static_cast<const unsigned char *>(actual_mechanism_->elements), actual_mechanism_->length});
}

void Negotiation::run(const char *name, const Descriptor &stream, bool is_client, const Establish &establish) {
    Bytes input;
    if (!is_client) {
        std::optional<Bytes> first = receive_frame(stream);
        if (!first) {
            report_.failure = "the peer closed the connection";
            return;
        }
        input = std::move(*first);
    }
    while (step(name, stream, input, establish)) {
    }
}

void Negotiation::close() {
    if (context_.get() == nullptr)
        return;
    OM_uint32 minor = 0;
    OwnedBuffer properties;
    OM_uint32 major = framework_.table().ftn_gssp_inquire_properties_for_user(&minor, context_.get(), properties.get());
    record("inquire_properties_for_user", major, minor);
    report_.properties.assign(properties.bytes().begin(), properties.bytes().end());
    major = context_.release(&minor);
    record("delete_sec_context", major, minor);
}

// The credential of a logon string; without one, the null credential stands for single sign-on.
void acquire(const Framework &framework, const std::string &logon, Credential &credential, Negotiation &negotiation) {
    OM_uint32 minor = 0;
    OwnedName name;
    qxgss_buffer_desc text = view(logon);
    OM_uint32 major = qxgss_import_name(&minor, &text, GSS_C_NT_QXAT_MECHDATA_UTF8, name.out());
    negotiation.record("qxgss_import_name", major, minor);
    if (GSS_ERROR(major) != 0)
        throw Failure("the logon string could not be imported");
    major = framework.table().ftn_gssp_acquire_cred(&minor, name.get(), GSS_C_INDEFINITE, nullptr, GSS_C_INITIATE,
                                                    credential.out(), nullptr, nullptr);
    negotiation.record("acquire_cred", major, minor);
    if (GSS_ERROR(major) != 0)
        throw Failure("no credential for the logon string");
}

} // namespace

Framework::Framework(OM_uint32 role, const std::filesystem::path &configuration, Report &report) {
    OM_uint32 minor = 0;
    OwnedBuffer message;
    const OM_uint32 major = qxgss_configure(&minor, role, configuration.c_str(), message.get());
    const std::string text = message.empty() ? minor_text({}, nullptr, minor) : std::string(message.text());
    report.calls.push_back({now(), "qxgss_configure", major, minor, text, {}});
    if (GSS_ERROR(major) != 0)
        throw Failure(text);
    try {
        find_mechanism();
    } catch (...) {
        qxgss_shutdown(nullptr);
        throw;
    }
}

Framework::~Framework() {
    qxgss_shutdown(nullptr);
}

void Framework::find_mechanism() {
    OM_sint32 index = -1;
    if (GSS_ERROR(gssp_mechstr_to_oid(nullptr, "QXNEGO", &mechanism_)) != 0 ||
        GSS_ERROR(gssp_oid_to_mechindex(nullptr, mechanism_, &index)) != 0 || index < 0)
        throw Failure("the configuration has no mechanism QXNEGO");
    const MechInfo_t &entry = pMechInfo[index];
    if (entry.fUseMech == 0)
        throw Failure(std::string("QXNEGO is not in use: ") +
                      (entry.pszMessage != nullptr ? entry.pszMessage : "no reason is known"));
    if (!is_usable(entry.MechFtnTable))
        throw Failure("QXNEGO's library lacks operations that an application needs");
    table_ = &entry.MechFtnTable;
}

void negotiate_as_client(const Framework &framework, const Descriptor &stream, const std::string &logon,
                         const std::string &target, Report &report) {
    OwnedName target_name;
    qxgss_buffer_desc target_text = view(target);
    if (GSS_ERROR(qxgss_import_name(nullptr, &target_text, GSS_C_NT_HOSTBASED_SERVICE, target_name.out())) != 0)
        throw Failure("the name of the service could not be imported");
    Credential credential(framework.table());
    Negotiation negotiation(framework, report);
    if (!logon.empty())
        acquire(framework, logon, credential, negotiation);
    negotiation.run("init_sec_context", stream, true,
                    [&](OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output) {
                        return framework.table().ftn_gssp_init_sec_context(
                            minor, credential.get(), negotiation.context().out(), target_name.get(),
                            framework.mechanism(), GSS_C_MUTUAL_FLAG, GSS_C_INDEFINITE, QXGSS_C_NO_CHANNEL_BINDINGS,
                            input, negotiation.actual_mechanism(), output, negotiation.flags(), nullptr);
                    });
    negotiation.close();
    OM_uint32 minor = 0;
    if (credential.get() != nullptr) {
        const OM_uint32 major = credential.release(&minor);
        negotiation.record("release_cred", major, minor);
    }
}

void negotiate_as_server(const Framework &framework, const Descriptor &stream, Report &report) {
    Negotiation negotiation(framework, report);
    OwnedName source;
    negotiation.run(
        "accept_sec_context", stream, false, [&](OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output) {
            return framework.table().ftn_gssp_accept_sec_context(
                minor, negotiation.context().out(), QXGSS_C_NO_CREDENTIAL, input, QXGSS_C_NO_CHANNEL_BINDINGS,
                source.out(), negotiation.actual_mechanism(), output, negotiation.flags(), nullptr, nullptr);
        });
    report.user = source.text();
    negotiation.close();
}

} // namespace tools
