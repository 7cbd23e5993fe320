// Minor statuses and what they say.
#ifndef COMMON_CODES_H
#define COMMON_CODES_H

#include <string>

#include "qxgss/gssp.h"

namespace common {

struct MinorStatus {
    OM_uint32 value;
    const char *owner; // "QXNEGO" or "the framework"
    const char *name;
    const char *text;
};

// A minor status of QXNEGO or of the framework; null for any other.
const MinorStatus *find_minor(OM_uint32 minor);

// The text of a minor status: that of its row, otherwise what the mechanism says, if one is given, made safe to show.
// The number itself when nobody has one.
std::string minor_text(OM_uint32 minor, const MechInfo_t *mechanism = nullptr);

// Eight upper-case hexadecimal digits.
std::string code_text(OM_uint32 code);

} // namespace common

#endif
