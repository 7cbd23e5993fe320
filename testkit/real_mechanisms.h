// The real mechanisms in the realm of tests/realm.sh, with a user of each: what a program configures that drives them.
// HOSTGSS_LIBRARY, SCRAM_LIBRARY, SCRAM_VERIFIERS and QXNEGO_LIBRARY are files of the build.
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

inline const RealMechanism kKerberos{"Kerberos",
                                     "1.2.840.113554.1.2.2",
                                     "HOSTGSS",
                                     HOSTGSS_LIBRARY,
                                     "authcid=alice password=Alice1",
                                     "alice@QXNEGO.TEST",
                                     "keytab_file = \"" + kRealm + "/service.keytab\"\n",
                                     true};
inline const RealMechanism kNtlm{"NTLMSSP",
                                 "1.3.6.1.4.1.311.2.2.10",
                                 "HOSTGSS",
                                 HOSTGSS_LIBRARY,
                                 "authcid='QXTEST\\alice' password=Alice1",
                                 "QXTEST\\alice",
                                 "accept = \"yes\"\naccept_limit = \"1000000\"\n",
                                 true};
inline const RealMechanism kScram{"SCRAM-SHA-256",
                                  "1.3.6.1.5.5.18",
                                  "SCRAM_SHA_256",
                                  SCRAM_LIBRARY,
                                  "authcid=alice password=wonderland",
                                  "alice",
                                  std::string("verifiers_file = \"") + SCRAM_VERIFIERS + "\"\n",
                                  false};

// A configuration file in which QXNEGO negotiates these, in this order of preference.
inline std::string configuration_of(std::span<const RealMechanism> mechanisms, const std::string &policy = "") {
    const auto entry = [](const std::string &name, const std::string &oid, const std::string &prefix,
                          const std::string &library) {
        return "[[mechanism]]\nname = \"" + name + "\"\noid = \"" + oid + "\"\nprefix = \"" + prefix + "\"\n" +
               (library.empty() ? "" : "library = \"" + library + "\"\n");
    };
    std::string negotiates, entries;
    int rank = 0;
    for (const RealMechanism &row : mechanisms) {
        negotiates += "{ oid = \"" + row.oid + "\" },";
        entries += entry(row.name, row.oid, row.prefix, row.library) +
                   "[mechanism.properties]\nauthentication = true\nauthorization = true\nsingle_sign_on = false\n"
                   "rank = " +
                   std::to_string(++rank) + "\n[mechanism.settings]\n" + row.settings;
    }
    return entry("QXNEGO", "1.3.6.1.4.1.32473.1.1", "QXNEGO", QXNEGO_LIBRARY) + "negotiates = [ " + negotiates +
           " ]\n" + entries + policy;
}

} // namespace testkit

#endif
