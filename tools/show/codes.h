// Names and texts of status codes and flags.
#ifndef QXNEGO_TOOLS_SHOW_CODES_H
#define QXNEGO_TOOLS_SHOW_CODES_H

#include <string>
#include <vector>

#include "qxgss/gssp.h"

namespace tools {

// The names of RFC 2744 3.9.1 joined with " | ": calling error, routine error, supplementary bits.
std::string major_name(OM_uint32 major);

// A part of a major status: "calling error", "routine error" or "supplementary", with its name and text.
struct StatusPart {
    const char *field;
    std::string name;
    const char *text;
};
std::vector<StatusPart> major_parts(OM_uint32 major);

enum QxnegoStatus : OM_uint32 {
#define QXNEGO_CODE(value, name, text) QXNEGO_E_##name = value,
#include "gssp2qxnego/qxnego_codes.def"
#undef QXNEGO_CODE
};

struct MinorStatus {
    OM_uint32 value;
    const char *owner;
    const char *name; // empty for the framework's
    const char *text;
};

// A minor status of QXNEGO or of the framework; null for any other.
const MinorStatus *find_minor(OM_uint32 minor);

// The text of a minor status: that of QXNEGO's and the framework's rows, otherwise what the mechanism says, if one is
// given.
std::string minor_text(OM_uint32 minor, const MechInfo_t *mechanism = nullptr);

// The names of the context flags (RFC 2744 5.19) in short form, "none" without any.
std::string flag_names(OM_uint32 flags);

// Eight upper-case hexadecimal digits.
std::string code_text(OM_uint32 code);

} // namespace tools

#endif
