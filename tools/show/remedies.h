// What a status means to the one who meets it, its usual cause, and what to do.
#ifndef QXNEGO_TOOLS_SHOW_REMEDIES_H
#define QXNEGO_TOOLS_SHOW_REMEDIES_H

#include <string_view>

#include "qxgss/qxgss.h"

namespace tools {

// Whose a status is.
enum class Owner { MAJOR, MINOR, SCRAM };

struct Remedy {
    Owner owner;
    OM_uint32 first, last; // codes
    const char *meaning, *cause, *remedy;
};

// Null for a status that has no row. Of a major status MAJOR finds one field, its others being zero.
const Remedy *find_remedy(Owner owner, OM_uint32 code);

// Of a whole major status: that of its routine error.
const Remedy *remedy_of_major(OM_uint32 major);

// Of a minor status of the mechanism called so: its own, if it is one that is known here, or the framework's.
const Remedy *remedy_of_minor(std::string_view mechanism, OM_uint32 minor);

} // namespace tools

#endif
