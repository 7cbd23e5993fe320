// Minor statuses and what they say.
#ifndef COMMON_CODES_H
#define COMMON_CODES_H

#include <string>

#include "qxgss/gssp.h"

namespace common {

enum QxnegoStatus : OM_uint32 {
#define QXNEGO_CODE(value, name, text) QXNEGO_E_##name = value,
#include "gssp2qxnego/qxnego_codes.def"
#undef QXNEGO_CODE
};

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

// Likewise of a call of the mechanism itself that has just failed in this thread: what the mechanism says comes first,
// since it may know more of that call.
std::string text_given_by(const MechInfo_t &mechanism, OM_uint32 minor);

// Eight upper-case hexadecimal digits.
std::string code_text(OM_uint32 code);

} // namespace common

#endif
