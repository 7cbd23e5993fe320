// The real mechanisms in the realm of tests/realm.sh, with a user of each: what a program configures that drives them.
// HOSTGSS_LIBRARY, SCRAM_LIBRARY, SCRAM_VERIFIERS and QXNEGO_LIBRARY are files of the build; an empty library is the
// program itself.
#ifndef QXNEGO_TESTKIT_REAL_MECHANISMS_H
#define QXNEGO_TESTKIT_REAL_MECHANISMS_H

#include <cstdlib>
#include <span>
#include <string>

namespace testkit {

struct RealMechanism {
    std::string name, oid, prefix, library, logon, user, settings;
    bool has_mics;
};

inline const std::string kRealm = std::getenv("REALM") == nullptr ? "" : std::getenv("REALM");

// With keywords: of a principal the parser of logon strings does not tell lack of memory from a wrong one.
// clang-format off
inline const RealMechanism kKerberos{
    "Kerberos", "1.2.840.113554.1.2.2", "HOSTGSS", HOSTGSS_LIBRARY, "authcid=alice realm=QXNEGO.TEST password=Alice1",
    "alice@QXNEGO.TEST", "keytab_file = \"" + kRealm + "/service.keytab\"\n", true};
inline const RealMechanism kNtlm{
    "NTLMSSP", "1.3.6.1.4.1.311.2.2.10", "HOSTGSS", HOSTGSS_LIBRARY, "authcid=alice realm=QXTEST password=Alice1",
    "QXTEST\\alice", "accept = \"yes\"\naccept_limit = \"1000000\"\n", true};
inline const RealMechanism kScram{
    "SCRAM-SHA-256", "1.3.6.1.5.5.18", "SCRAM_SHA_256", SCRAM_LIBRARY, "authcid=alice password=wonderland",
    "alice", std::string("verifiers_file = \"") + SCRAM_VERIFIERS + "\"\n", false};
inline const RealMechanism kScram1{
    "SCRAM-SHA-1", "1.3.6.1.5.5.14", "SCRAM_SHA_1", SCRAM_LIBRARY, kScram.logon, kScram.user, kScram.settings, false};
// clang-format on
inline const RealMechanism kAll[] = {kKerberos, kNtlm, kScram, kScram1};

inline std::string entry_of(const std::string &name, const std::string &oid, const std::string &prefix,
                            const std::string &library) {
    return "[[mechanism]]\nname = \"" + name + "\"\noid = \"" + oid + "\"\nprefix = \"" + prefix + "\"\n" +
           (library.empty() ? "" : "library = \"" + library + "\"\n");
}

// A configuration file's entries for these, in this order of preference.
inline std::string entries_of(std::span<const RealMechanism> mechanisms) {
    std::string entries;
    for (const RealMechanism &row : mechanisms)
        entries += entry_of(row.name, row.oid, row.prefix, row.library) +
                   "[mechanism.properties]\nauthentication = true\nauthorization = true\nsingle_sign_on = false\n"
                   "rank = " +
                   std::to_string(&row - mechanisms.data() + 1) + "\n[mechanism.settings]\n" + row.settings;
    return entries;
}

// A configuration file in which QXNEGO negotiates these.
inline std::string configuration_of(std::span<const RealMechanism> mechanisms, const std::string &policy = "") {
    std::string negotiates;
    for (const RealMechanism &row : mechanisms)
        negotiates += "{ oid = \"" + row.oid + "\" },";
    return entry_of("QXNEGO", "1.3.6.1.4.1.32473.1.1", "QXNEGO", QXNEGO_LIBRARY) + "negotiates = [ " + negotiates +
           " ]\n" + entries_of(mechanisms) + policy;
}

} // namespace testkit

#endif
