// The texts of QXNEGO's minor statuses: one row a code, looked up by the whole value.
#include "gssp2qxnego/gssp2qxnegoint.h"

const char *qxnegoerrtostr(OM_uint32 errcode) {
    switch (errcode) {
#define QXNEGO_CODE(value, name, text)                                                                                 \
    case value:                                                                                                        \
        return text;
#include "gssp2qxnego/qxnego_codes.def"
#undef QXNEGO_CODE
    default:
        return "?";
    }
}
