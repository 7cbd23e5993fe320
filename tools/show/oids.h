// Object identifiers as text, and the names of the well-known mechanisms.
#ifndef QXNEGO_TOOLS_SHOW_OIDS_H
#define QXNEGO_TOOLS_SHOW_OIDS_H

#include <string>

#include "tools/bytes.h"

namespace tools {

// Dotted text of DER contents octets (X.690 8.19); empty when they are no object identifier.
std::string dotted_oid(ByteView der);

// The name of a mechanism: a well-known one's by its OID, else the dotted text, else the octets in hexadecimal. It does
// not look into the registry, so it also names what only the peer has.
std::string mechanism_name(ByteView der);

// The dotted OID of a well-known mechanism; empty for any other name.
std::string well_known_oid(std::string_view name);

} // namespace tools

#endif
