// Names and texts of major statuses and flags; minor statuses are common/codes.h.
#ifndef QXNEGO_TOOLS_SHOW_CODES_H
#define QXNEGO_TOOLS_SHOW_CODES_H

#include <string>
#include <vector>

#include "common/codes.h"

namespace tools {

using common::code_text;
using common::find_minor;
using common::minor_text;
using common::MinorStatus;
using enum common::QxnegoStatus;

// The names of RFC 2744 3.9.1 joined with " | ": calling error, routine error, supplementary bits.
std::string major_name(OM_uint32 major);

// A part of a major status: "calling error", "routine error" or "supplementary", with its name and text.
struct StatusPart {
    const char *field;
    std::string name;
    const char *text;
};
std::vector<StatusPart> major_parts(OM_uint32 major);

// The names of the context flags (RFC 2744 5.19) in short form, "none" without any.
std::string flag_names(OM_uint32 flags);

} // namespace tools

#endif
