// A negotiation as an application runs it: the framework is configured from a file, and QXNEGO is found by its name in
// the registry and called through its function table, never linked.
#ifndef QXNEGO_TOOLS_NEGOTIATION_H
#define QXNEGO_TOOLS_NEGOTIATION_H

#include <filesystem>
#include <functional>
#include <optional>

#include "qxgss/gssp.h"
#include "tools/channel.h"
#include "tools/handles.h"
#include "tools/report.h"

namespace tools {

// The configured framework; one at a time in a process. Contexts and credentials go before it does.
class Framework {
  public:
    // `role` is QXGSS_CLIENT or QXGSS_SERVER. Throws Failure when the configuration fails, or QXNEGO is not in use.
    Framework(OM_uint32 role, const std::filesystem::path &configuration, Report &report);
    Framework(const Framework &) = delete;
    Framework &operator=(const Framework &) = delete;
    ~Framework();

    qxgss_OID mechanism() const { return mechanism_; }
    const qxgss_ftn_table_desc &table() const { return *table_; }

  private:
    void find_mechanism();

    qxgss_OID mechanism_ = nullptr;
    const qxgss_ftn_table_desc *table_ = nullptr;
};

// How tokens reach the peer. `send` returns false and `receive` nothing when the peer has gone; both may throw.
struct TokenExchange {
    std::function<bool(ByteView)> send;
    std::function<std::optional<Bytes>()> receive;
};

// Tokens as the frames of a stream, one each.
TokenExchange frames_over(const Descriptor &stream);

// One negotiation and the context that it makes. Every call goes into the report, with the outcome.
class Negotiation {
  public:
    Negotiation(const Framework &framework, Report &report);
    Negotiation(const Negotiation &) = delete;
    Negotiation &operator=(const Negotiation &) = delete;
    ~Negotiation();

    // The client's side. The logon string names the user (and the password); an empty one asks for single sign-on. The
    // target is a host-based service, the flags are those of RFC 2744 5.19.
    void run_as_client(const TokenExchange &exchange, const std::string &logon, const std::string &target,
                       OM_uint32 flags);

    // The server's, with the mechanisms' default credentials.
    void run_as_server(const TokenExchange &exchange);

    // Asks for the user's properties, which hold the log also when the negotiation failed.
    void inquire_properties();

    // Deletes the context; to be called as soon as the negotiation has failed.
    void close();

    // The selected mechanism, null before it is established.
    qxgss_OID selected() const { return actual_mechanism_; }

    // Whose credential the client has delegated; empty when it has not.
    std::string delegated_name() const;

    const qxgss_ftn_table_desc &table() const { return framework_.table(); }
    qxgss_ctx_id_t context() const { return context_.get(); }

  private:
    // One establishment call with the peer's token: major and minor status through the arguments.
    using Establish = std::function<OM_uint32(OM_uint32 *minor, qxgss_buffer_t input, qxgss_buffer_t output)>;

    void record(const char *name, OM_uint32 major, OM_uint32 minor, ByteView token = {});
    void acquire(const std::string &logon);
    void run(const char *name, const TokenExchange &exchange, Bytes input, const Establish &establish);
    bool step(const char *name, const TokenExchange &exchange, Bytes &input, const Establish &establish);
    void finish();

    const Framework &framework_;
    Report &report_;
    Credential credential_;
    Context context_;
    qxgss_OID actual_mechanism_ = nullptr;
    OM_uint32 flags_ = 0;
    qxgss_cred_id_t delegated_ = nullptr; // the selected mechanism's own
};

} // namespace tools

#endif
