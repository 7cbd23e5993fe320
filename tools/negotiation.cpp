// The application's loop, one for both roles: call until GSS_S_COMPLETE, send every token that a call produces (also
// the last one), and never use a context again after a call on it has failed. A side that fails without a token tells
// the other by closing the stream.
#include "tools/negotiation.h"

#include <chrono>

#include "tools/codes.h"
#include "tools/failure.h"
#include "tools/oids.h"

namespace tools {

namespace {

std::uint64_t now() {
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

bool is_usable(const qxgss_ftn_table_desc &table) {
    return table.ftn_gssp_acquire_cred != nullptr && table.ftn_gssp_release_cred != nullptr &&
           table.ftn_gssp_init_sec_context != nullptr && table.ftn_gssp_accept_sec_context != nullptr &&
           table.ftn_gssp_delete_sec_context != nullptr && table.ftn_gssp_inquire_properties_for_user != nullptr;
}

constexpr char kPeerClosed[] = "the peer closed the connection";

// The function table of a registered mechanism; null for any other.
const qxgss_ftn_table_desc *table_of(qxgss_OID mechanism) {
    OM_sint32 index = -1;
    if (mechanism == nullptr || GSS_ERROR(gssp_oid_to_mechindex(nullptr, mechanism, &index)) != 0 || index < 0)
        return nullptr;
    return &pMechInfo[index].MechFtnTable;
}

} // namespace

Framework::Framework(OM_uint32 role, const std::filesystem::path &configuration, Report &report) {
    OM_uint32 minor = 0;
    OwnedBuffer message;
    const OM_uint32 major = qxgss_configure(&minor, role, configuration.c_str(), message.get());
    const std::string text = message.empty() ? minor_text({}, nullptr, minor) : std::string(message.text());
    report.calls.push_back({now(), "qxgss_configure", major, minor, text, {}});
    if (GSS_ERROR(major) != 0)
        throw Failure(text, kExitConfiguration);
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
        throw Failure("the configuration has no mechanism QXNEGO", kExitConfiguration);
    const MechInfo_t &entry = pMechInfo[index];
    if (entry.fUseMech == 0)
        throw Failure(std::string("QXNEGO is not in use: ") +
                          (entry.pszMessage != nullptr ? entry.pszMessage : "no reason is known"),
                      kExitConfiguration);
    if (!is_usable(entry.MechFtnTable))
        throw Failure("QXNEGO's library lacks operations that an application needs", kExitConfiguration);
    table_ = &entry.MechFtnTable;
}

TokenExchange frames_over(const Descriptor &stream) {
    return {[&](ByteView token) { return send_frame(stream, token); }, [&] { return receive_frame(stream); }};
}

Negotiation::Negotiation(const Framework &framework, Report &report)
    : framework_(framework), report_(report), credential_(framework.table()), context_(framework.table()) {}

Negotiation::~Negotiation() {
    OM_uint32 ignored = 0;
    const qxgss_ftn_table_desc *table = table_of(actual_mechanism_);
    if (delegated_ != nullptr && table != nullptr && table->ftn_gssp_release_cred != nullptr)
        table->ftn_gssp_release_cred(&ignored, &delegated_);
}

void Negotiation::record(const char *name, OM_uint32 major, OM_uint32 minor, ByteView token) {
    report_.calls.push_back({now(), name, major, minor, minor_text(framework_.table(), framework_.mechanism(), minor),
                             Bytes(token.begin(), token.end())});
}

bool Negotiation::step(const char *name, const TokenExchange &exchange, Bytes &input, const Establish &establish) {
    OM_uint32 minor = 0;
    OwnedBuffer output;
    qxgss_buffer_desc token = view(as_text(input));
    const OM_uint32 major = establish(&minor, &token, output.get());
    record(name, major, minor, output.bytes());
    if (GSS_ERROR(major) != 0)
        report_.failure = report_.calls.back().text;
    const bool is_sent = output.empty() || exchange.send(output.bytes());
    if (GSS_ERROR(major) != 0)
        return false;
    if ((major & GSS_S_CONTINUE_NEEDED) == 0) {
        finish();
        return false;
    }
    std::optional<Bytes> next = is_sent ? exchange.receive() : std::nullopt;
    if (!next) {
        report_.failure = kPeerClosed;
        return false;
    }
    input = std::move(*next);
    return true;
}

void Negotiation::finish() {
    report_.established = true;
    report_.flags = flags_;
    if (actual_mechanism_ != nullptr)
        report_.mechanism = mechanism_name(
            {static_cast<const unsigned char *>(actual_mechanism_->elements), actual_mechanism_->length});
}

void Negotiation::run(const char *name, const TokenExchange &exchange, Bytes input, const Establish &establish) {
    while (step(name, exchange, input, establish)) {
    }
    if (!report_.established)
        actual_mechanism_ = nullptr;
}

void Negotiation::acquire(const std::string &logon) {
    OM_uint32 minor = 0;
    OwnedName name;
    qxgss_buffer_desc text = view(logon);
    OM_uint32 major = qxgss_import_name(&minor, &text, GSS_C_NT_QXAT_MECHDATA_UTF8, name.out());
    record("qxgss_import_name", major, minor);
    if (GSS_ERROR(major) != 0)
        throw Failure("the logon string could not be imported", kExitUsage);
    major = table().ftn_gssp_acquire_cred(&minor, name.get(), GSS_C_INDEFINITE, nullptr, GSS_C_INITIATE,
                                          credential_.out(), nullptr, nullptr);
    record("acquire_cred", major, minor);
    if (GSS_ERROR(major) != 0)
        throw Failure("no credential for the logon string", kExitUsage);
}

void Negotiation::run_as_client(const TokenExchange &exchange, const std::string &logon, const std::string &target,
                                OM_uint32 flags) {
    OwnedName target_name;
    qxgss_buffer_desc target_text = view(target);
    if (GSS_ERROR(qxgss_import_name(nullptr, &target_text, GSS_C_NT_HOSTBASED_SERVICE, target_name.out())) != 0)
        throw Failure("the name of the service could not be imported", kExitUsage);
    if (!logon.empty())
        acquire(logon);
    run("init_sec_context", exchange, {}, [&](OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output) {
        return table().ftn_gssp_init_sec_context(
            minor, credential_.get(), context_.out(), target_name.get(), framework_.mechanism(), flags,
            GSS_C_INDEFINITE, QXGSS_C_NO_CHANNEL_BINDINGS, input, &actual_mechanism_, output, &flags_, nullptr);
    });
}

void Negotiation::run_as_server(const TokenExchange &exchange) {
    std::optional<Bytes> first = exchange.receive();
    if (!first) {
        report_.failure = kPeerClosed;
        return;
    }
    OwnedName source;
    run("accept_sec_context", exchange, std::move(*first),
        [&](OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output) {
            const OM_uint32 major = table().ftn_gssp_accept_sec_context(
                minor, context_.out(), QXGSS_C_NO_CREDENTIAL, input, QXGSS_C_NO_CHANNEL_BINDINGS, source.out(),
                &actual_mechanism_, output, &flags_, nullptr, &delegated_);
            if (major == GSS_S_COMPLETE)
                report_.user = source.text();
            return major;
        });
}

std::string Negotiation::delegated_name() const {
    const qxgss_ftn_table_desc *table = table_of(actual_mechanism_);
    if (delegated_ == nullptr || table == nullptr || table->ftn_gssp_inquire_cred == nullptr)
        return {};
    OwnedName name;
    OM_uint32 minor = 0;
    if (GSS_ERROR(table->ftn_gssp_inquire_cred(&minor, delegated_, name.out(), nullptr, nullptr, nullptr)) != 0)
        return {};
    return std::string(name.text());
}

void Negotiation::inquire_properties() {
    if (context_.get() == nullptr || !report_.properties.empty())
        return;
    OM_uint32 minor = 0;
    OwnedBuffer properties;
    const OM_uint32 major = table().ftn_gssp_inquire_properties_for_user(&minor, context_.get(), properties.get());
    record("inquire_properties_for_user", major, minor);
    report_.properties.assign(properties.bytes().begin(), properties.bytes().end());
}

void Negotiation::close() {
    OM_uint32 minor = 0;
    if (context_.get() != nullptr) {
        const OM_uint32 major = context_.release(&minor);
        record("delete_sec_context", major, minor);
    }
    if (credential_.get() != nullptr) {
        const OM_uint32 major = credential_.release(&minor);
        record("release_cred", major, minor);
    }
}

} // namespace tools
