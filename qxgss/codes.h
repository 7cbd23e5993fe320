// The framework's minor statuses by name, for C++; the rows are in qxgss_codes.def. The C headers name those that an
// application or a mechanism has to tell apart (GSSP_E_..., GSSPASN_E_...), which the framework checks against them.
#ifndef QXGSS_CODES_H
#define QXGSS_CODES_H

#include "qxgss/qxgss.h"

enum QxgssStatus : OM_uint32 {
#define QXGSS_CODE(value, name, text) QXGSS_E_##name = value,
#include "qxgss/qxgss_codes.def"
#undef QXGSS_CODE
};

#endif
