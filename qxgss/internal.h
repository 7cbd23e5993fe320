// What the framework's own files share: the one way to report a status, and owners of C-heap memory. Never included
// from outside this folder.
#ifndef QXGSS_INTERNAL_H
#define QXGSS_INTERNAL_H

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "qxgss/gssp.h"

namespace qxgss {

inline OM_uint32 report(OM_uint32 *pMinorStatus, OM_uint32 major, OM_uint32 minor) {
    if (pMinorStatus != nullptr)
        *pMinorStatus = minor;
    return major;
}

inline OM_uint32 fail(OM_uint32 *pMinorStatus, OM_uint32 minor) {
    return report(pMinorStatus, GSS_S_FAILURE, minor);
}

inline OM_uint32 succeed(OM_uint32 *pMinorStatus) {
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}

struct Free {
    void operator()(void *p) const { std::free(p); }
};

// Owner of a block of the C heap; array access for blocks of several.
template <typename T> using Heap = std::unique_ptr<T[], Free>;

// A zeroed block, or null when memory is lacking.
template <typename T> Heap<T> zeroed(std::size_t count) {
    return Heap<T>(static_cast<T *>(std::calloc(count, sizeof(T))));
}

// A single record, for which malloc is the faster way: calloc passes by the blocks that the C library keeps at hand.
template <typename T> Heap<T> zeroed() {
    Heap<T> record(static_cast<T *>(std::malloc(sizeof(T))));
    if (record != nullptr)
        record[0] = T{};
    return record;
}

// A new block with a copy of the bytes, at least one; null when memory is lacking.
inline Heap<unsigned char> copied(const void *bytes, std::size_t length) {
    Heap<unsigned char> copy(static_cast<unsigned char *>(std::malloc(length)));
    if (copy != nullptr)
        std::memcpy(copy.get(), bytes, length);
    return copy;
}

inline bool present(const qxgss_buffer_desc &buffer) {
    return buffer.length != 0 && buffer.value != nullptr;
}

inline bool usable(const qxgss_OID_desc *pOid) {
    return pOid != nullptr && pOid->length != 0 && pOid->elements != nullptr;
}

// Of usable OIDs; lengths first, which tells most of them apart.
inline bool equal(const qxgss_OID_desc &a, const qxgss_OID_desc &b) {
    return a.length == b.length && std::memcmp(a.elements, b.elements, a.length) == 0;
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
