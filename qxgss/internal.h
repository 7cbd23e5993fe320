// What the framework's own files share. Never included from outside this folder.
#ifndef QXGSS_INTERNAL_H
#define QXGSS_INTERNAL_H

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "common/bytes.h"
#include "common/heap.h"
#include "common/owned.h"
#include "common/status.h"
#include "qxgss/codes.h"
#include "qxgss/gssp.h"

namespace qxgss {

using common::copy_bytes;
using common::equal;
using common::Heap;
using common::Name;
using common::OidSet;
using common::present;
using common::report;
using common::usable;
using common::zeroed;

// What the C headers call some of them.
static_assert(GSSP_E_SUCCESS == QXGSS_E_SUCCESS && GSSP_E_NO_MEMORY == QXGSS_E_NO_MEMORY &&
              GSSP_E_FUNCTION_UNAVAILABLE == QXGSS_E_FUNCTION_UNAVAILABLE &&
              GSSP_E_NO_PROPERTY == QXGSS_E_NO_PROPERTY && GSSP_E_INVALID_ARGUMENT == QXGSS_E_INVALID_ARGUMENT &&
              GSSP_E_NOT_PERMITTED == QXGSS_E_NOT_PERMITTED && GSSP_E_NO_MECH_INDEX == QXGSS_E_NO_MECH_INDEX &&
              GSSP_E_BAD_CONTEXT == QXGSS_E_BAD_CONTEXT);

inline OM_uint32 fail(OM_uint32 *pMinorStatus, OM_uint32 minor) {
    return report(pMinorStatus, GSS_S_FAILURE, minor);
}

inline OM_uint32 succeed(OM_uint32 *pMinorStatus) {
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}

// ---- Configuration and registry ------------------------------------------------------------------------------------

struct Negotiable {
    std::string oid; // as the file has it
    bool enabled;
};

// One mechanism of the configuration file, and behind it what its MechInfo_t points to.
struct Mechanism {
    std::string name, oid, der, prefix;
    std::string library; // file to open; empty for a mechanism in the program itself
    bool enabled = true;
    std::vector<Negotiable> negotiates;
    std::map<OM_uint32, OM_uint32> booleans; // properties by number; one that is not given is absent
    std::map<OM_uint32, OM_sint32> integers;
    std::map<std::string, std::string, std::less<>> settings;

    qxgss_OID_desc oid_desc{};
    std::vector<NegMechInfo_t> negotiable_info;
    std::string message; // why it is not in use
};

using MechanismNumbers = std::vector<std::size_t>; // into Configuration::mechanisms

// What the policy allows: these mechanisms, which may be none at all; or nothing is said, and any is allowed.
using Allowed = std::optional<MechanismNumbers>;

// A user of the policy. The first of the names is the key in the file.
struct Account {
    std::vector<std::string> names;
    Allowed allowed;
};

// The configuration file's content; its library names are resolved.
struct Configuration {
    std::string library_path;
    std::vector<Mechanism> mechanisms;
    std::vector<Account> accounts;
    std::map<std::string, std::size_t> listed;       // numbers of accounts, by each of their names
    std::multimap<std::string, std::size_t> similar; // by the user or a name with a domain, without case
    Allowed default_policy;
    std::vector<std::string> warnings; // a line each: what is read but not safe

    std::vector<MechInfo_t> registry; // what pMechInfo points to
};

// The file in use; null while nothing is configured. Written by qxgss_configure and qxgss_shutdown alone, and never by
// the end of the process, when other threads may still read it.
extern Configuration *configuration;

// A file that cannot be read or is wrong: one line of text, without line end.
struct WrongFile : std::runtime_error {
    WrongFile(const std::string &line, OM_uint32 code) : std::runtime_error(line), minor(code) {}
    OM_uint32 minor;
};

// Throws WrongFile, or std::bad_alloc.
Configuration read_configuration(const std::string &file);

// The DER contents octets of a dotted OID string, or nothing when it is none; throws std::bad_alloc.
std::optional<std::string> der_of(const char *oid);

// Gives the name to the last account; the account that has it already, or null.
const Account *add_name(Configuration &result, const std::string &name);

// A line for each account of the policy that lacks a name of the form that a negotiable mechanism gives its users.
std::vector<std::string> missing_names(const Configuration &made);

// Forgets the OIDs handed out that no mechanism is registered for.
void forget_unregistered_oids();

} // namespace qxgss

#endif
