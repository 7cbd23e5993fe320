// Meaning, usual cause and remedy of what users meet: the rows of remedies.def.
#ifndef QXNEGO_TOOLS_SHOW_REMEDIES_H
#define QXNEGO_TOOLS_SHOW_REMEDIES_H

#include <string_view>

#include "qxgss/qxgss.h"

namespace tools {

struct Remedy {
    const char *whose;
    OM_uint32 first, last;
    const char *meaning, *cause, *remedy;
};

// Of a routine error; of a minor status, which may be a mechanism's own. Null when there is no row.
const Remedy *find_major_remedy(OM_uint32 major);
const Remedy *find_minor_remedy(OM_uint32 minor, std::string_view mechanism = "");

struct ReasonRemedy {
    OM_uint32 reason; // QXGSS_MECH_REASON_*
    const char *found_by, *meaning, *remedy;
};

// Null for a reason that is none for a rejection.
const ReasonRemedy *find_reason(OM_uint32 reason);

} // namespace tools

#endif
