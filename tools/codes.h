// Names and texts of status codes and flags.
#ifndef QXNEGO_TOOLS_CODES_H
#define QXNEGO_TOOLS_CODES_H

#include <string>

#include "qxgss/gssp.h"

namespace tools {

// The names of RFC 2744 3.9.1 joined with " | ": calling error, routine error, supplementary bits.
std::string major_name(OM_uint32 major);

// The text of a minor status: a framework code's own, otherwise what the mechanism's display_status says.
std::string minor_text(const qxgss_ftn_table_desc &table, qxgss_OID mechanism, OM_uint32 minor);

// The names of the context flags (RFC 2744 5.19) in short form, "none" without any.
std::string flag_names(OM_uint32 flags);

// Eight upper-case hexadecimal digits.
std::string code_text(OM_uint32 code);

} // namespace tools

#endif
