// The module's operations by their names inside, bridge_gss_X: the linker gives them those that the host's library
// looks for. So nothing here that calls the host's gss_X can come back to itself.
#ifndef BRIDGE_GSSAPI_ENTRY_POINTS_H
#define BRIDGE_GSSAPI_ENTRY_POINTS_H

#include <gssapi/gssapi.h>
#include <gssapi/gssapi_ext.h>

// The given names are as visible as these.
#pragma GCC visibility push(default)
#define ENTRY(name) ENTRY_AS(name, name)
#define ENTRY_AS(name, other) extern "C" decltype(::other) bridge_##name;
#include "bridge/gssapi/entry_points.def"
#undef ENTRY
#undef ENTRY_AS
#pragma GCC visibility pop

#endif
