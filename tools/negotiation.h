// A negotiation as an application runs it: the framework is configured from a file, and QXNEGO is found by its name in
// the registry and called through its function table, never linked.
#ifndef QXNEGO_TOOLS_NEGOTIATION_H
#define QXNEGO_TOOLS_NEGOTIATION_H

#include <filesystem>

#include "qxgss/gssp.h"
#include "tools/channel.h"
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

// The client's negotiation over a stream. The logon string names the user (and the password); an empty one asks for
// single sign-on. The target is a host-based service. Every call goes into the report, with the outcome.
void negotiate_as_client(const Framework &framework, const Descriptor &stream, const std::string &logon,
                         const std::string &target, Report &report);

// The server's, with the mechanisms' default credentials.
void negotiate_as_server(const Framework &framework, const Descriptor &stream, Report &report);

} // namespace tools

#endif
