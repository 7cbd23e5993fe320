// The texts of the framework's minor statuses: one row a code, looked up by the whole value.
#include "gssp2qxnego/gssp2qxnegoint.h"

const char *qxgsserrtostr(OM_uint32 errcode) {
    switch (errcode) {
#define QXGSS_CODE(value, name, text)                                                                                  \
    case value:                                                                                                        \
        return text;
#include "qxgss/qxgss_codes.def"
#undef QXGSS_CODE
    default:
        return "?";
    }
}
