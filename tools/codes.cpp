// Status codes: majors and flags by name, the framework's minor statuses from its rows, a mechanism's from itself.
#include "tools/codes.h"

#include <array>
#include <cstdio>

#include "tools/handles.h"

namespace tools {

namespace {

struct Named {
    OM_uint32 value;
    const char *name;
};

constexpr Named kCallingErrors[] = {
    {GSS_S_CALL_INACCESSIBLE_READ, "GSS_S_CALL_INACCESSIBLE_READ"},
    {GSS_S_CALL_INACCESSIBLE_WRITE, "GSS_S_CALL_INACCESSIBLE_WRITE"},
    {GSS_S_CALL_BAD_STRUCTURE, "GSS_S_CALL_BAD_STRUCTURE"},
};

constexpr Named kRoutineErrors[] = {
    {GSS_S_BAD_MECH, "GSS_S_BAD_MECH"},
    {GSS_S_BAD_NAME, "GSS_S_BAD_NAME"},
    {GSS_S_BAD_NAMETYPE, "GSS_S_BAD_NAMETYPE"},
    {GSS_S_BAD_BINDINGS, "GSS_S_BAD_BINDINGS"},
    {GSS_S_BAD_STATUS, "GSS_S_BAD_STATUS"},
    {GSS_S_BAD_SIG, "GSS_S_BAD_SIG"},
    {GSS_S_NO_CRED, "GSS_S_NO_CRED"},
    {GSS_S_NO_CONTEXT, "GSS_S_NO_CONTEXT"},
    {GSS_S_DEFECTIVE_TOKEN, "GSS_S_DEFECTIVE_TOKEN"},
    {GSS_S_DEFECTIVE_CREDENTIAL, "GSS_S_DEFECTIVE_CREDENTIAL"},
    {GSS_S_CREDENTIALS_EXPIRED, "GSS_S_CREDENTIALS_EXPIRED"},
    {GSS_S_CONTEXT_EXPIRED, "GSS_S_CONTEXT_EXPIRED"},
    {GSS_S_FAILURE, "GSS_S_FAILURE"},
    {GSS_S_BAD_QOP, "GSS_S_BAD_QOP"},
    {GSS_S_UNAUTHORIZED, "GSS_S_UNAUTHORIZED"},
    {GSS_S_UNAVAILABLE, "GSS_S_UNAVAILABLE"},
    {GSS_S_DUPLICATE_ELEMENT, "GSS_S_DUPLICATE_ELEMENT"},
    {GSS_S_NAME_NOT_MN, "GSS_S_NAME_NOT_MN"},
};

constexpr Named kSupplementaryBits[] = {
    {GSS_S_CONTINUE_NEEDED, "GSS_S_CONTINUE_NEEDED"},
    {GSS_S_DUPLICATE_TOKEN, "GSS_S_DUPLICATE_TOKEN"},
    {GSS_S_OLD_TOKEN, "GSS_S_OLD_TOKEN"},
    {GSS_S_UNSEQ_TOKEN, "GSS_S_UNSEQ_TOKEN"},
    {GSS_S_GAP_TOKEN, "GSS_S_GAP_TOKEN"},
};

constexpr Named kFlags[] = {
    {GSS_C_DELEG_FLAG, "delegation"},  {GSS_C_MUTUAL_FLAG, "mutual"}, {GSS_C_REPLAY_FLAG, "replay"},
    {GSS_C_SEQUENCE_FLAG, "sequence"}, {GSS_C_CONF_FLAG, "conf"},     {GSS_C_INTEG_FLAG, "integ"},
    {GSS_C_ANON_FLAG, "anonymous"},    {GSS_C_TRANS_FLAG, "trans"},   {GSS_C_PROT_READY_FLAG, "prot_ready"},
};

void append(std::string &out, const std::string &item, const char *separator) {
    if (!out.empty())
        out += separator;
    out += item;
}

template <std::size_t N> void append_value(std::string &out, const Named (&names)[N], OM_uint32 value) {
    if (value == 0)
        return;
    for (const Named &row : names)
        if (row.value == value)
            return append(out, row.name, " | ");
    append(out, code_text(value), " | ");
}

template <std::size_t N>
void append_bits(std::string &out, const Named (&names)[N], OM_uint32 bits, const char *separator) {
    for (const Named &row : names) {
        if ((bits & row.value) != 0)
            append(out, row.name, separator);
        bits &= ~row.value;
    }
    if (bits != 0)
        append(out, code_text(bits), separator);
}

const char *framework_text(OM_uint32 minor) {
    switch (minor) {
#define QXGSS_CODE(value, text)                                                                                        \
    case value:                                                                                                        \
        return text;
#include "gssp2qxnego/qxgss_codes.def"
#undef QXGSS_CODE
    default:
        return nullptr;
    }
}

} // namespace

std::string major_name(OM_uint32 major) {
    if (major == GSS_S_COMPLETE)
        return "GSS_S_COMPLETE";
    std::string out;
    append_value(out, kCallingErrors, major & 0xFF000000U);
    append_value(out, kRoutineErrors, major & 0x00FF0000U);
    append_bits(out, kSupplementaryBits, major & 0x0000FFFFU, " | ");
    return out;
}

std::string minor_text(const qxgss_ftn_table_desc &table, qxgss_OID mechanism, OM_uint32 minor) {
    if (const char *text = framework_text(minor); text != nullptr)
        return text;
    OwnedBuffer text;
    OM_uint32 ignored = 0, message_context = 0;
    if (table.ftn_gssp_display_status != nullptr)
        table.ftn_gssp_display_status(&ignored, minor, GSS_C_MECH_CODE, mechanism, &message_context, text.get());
    return text.empty() ? "(no text)" : std::string(text.text());
}

std::string flag_names(OM_uint32 flags) {
    std::string out;
    append_bits(out, kFlags, flags, ", ");
    return out.empty() ? "none" : out;
}

std::string code_text(OM_uint32 code) {
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08X", static_cast<unsigned>(code));
    return digits.data();
}

} // namespace tools
