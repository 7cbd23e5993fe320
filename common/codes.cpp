#include "common/codes.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "common/owned.h"
#include "common/text.h"

namespace common {

namespace {

constexpr MinorStatus kMinorStatuses[] = {
#define QXNEGO_CODE(value, name, text) {value, "QXNEGO", #name, text},
#include "gssp2qxnego/qxnego_codes.def"
#undef QXNEGO_CODE
#define QXGSS_CODE(value, name, text) {value, "the framework", #name, text},
#include "qxgss/qxgss_codes.def"
#undef QXGSS_CODE
};

} // namespace

const MinorStatus *find_minor(OM_uint32 minor) {
    const auto row = std::ranges::find(kMinorStatuses, minor, &MinorStatus::value);
    return row == std::end(kMinorStatuses) ? nullptr : row;
}

std::string minor_text(OM_uint32 minor, const MechInfo_t *mechanism) {
    if (const MinorStatus *known = find_minor(minor); known != nullptr)
        return known->text;
    Buffer text;
    OM_uint32 ignored = 0, message_context = 0;
    if (mechanism == nullptr || mechanism->MechFtnTable.ftn_gssp_display_status == nullptr ||
        failed(mechanism->MechFtnTable.ftn_gssp_display_status(&ignored, minor, GSS_C_MECH_CODE, mechanism->pMechOid,
                                                               &message_context, text.out())))
        return "minor status " + code_text(minor) + ", which has no text";
    return printable(text.bytes());
}

std::string code_text(OM_uint32 code) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(code));
    return digits;
}

} // namespace common
