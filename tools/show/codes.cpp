// Majors and flags by name (texts of RFC 2744 3.9.1).
#include "tools/show/codes.h"

namespace tools {

namespace {

struct Named {
    OM_uint32 value;
    const char *name;
    const char *text = "";
};

#define ROW(value, text)                                                                                               \
    { value, #value, text }

constexpr Named kCallingErrors[] = {
    ROW(GSS_S_CALL_INACCESSIBLE_READ, "A required input parameter could not be read"),
    ROW(GSS_S_CALL_INACCESSIBLE_WRITE, "A required output parameter could not be written"),
    ROW(GSS_S_CALL_BAD_STRUCTURE, "A parameter was malformed"),
};

constexpr Named kRoutineErrors[] = {
    ROW(GSS_S_BAD_MECH, "An unsupported mechanism was requested"),
    ROW(GSS_S_BAD_NAME, "An invalid name was supplied"),
    ROW(GSS_S_BAD_NAMETYPE, "A supplied name was of an unsupported type"),
    ROW(GSS_S_BAD_BINDINGS, "Incorrect channel bindings were supplied"),
    ROW(GSS_S_BAD_STATUS, "An invalid status code was supplied"),
    ROW(GSS_S_BAD_SIG, "A token had an invalid MIC"),
    ROW(GSS_S_NO_CRED, "No credentials were supplied, or the credentials were unavailable or inaccessible"),
    ROW(GSS_S_NO_CONTEXT, "No context has been established"),
    ROW(GSS_S_DEFECTIVE_TOKEN, "A token was invalid"),
    ROW(GSS_S_DEFECTIVE_CREDENTIAL, "A credential was invalid"),
    ROW(GSS_S_CREDENTIALS_EXPIRED, "The referenced credentials have expired"),
    ROW(GSS_S_CONTEXT_EXPIRED, "The context has expired"),
    ROW(GSS_S_FAILURE, "Miscellaneous failure (see the minor status)"),
    ROW(GSS_S_BAD_QOP, "The quality-of-protection requested could not be provided"),
    ROW(GSS_S_UNAUTHORIZED, "The operation is forbidden by local security policy"),
    ROW(GSS_S_UNAVAILABLE, "The operation or option is unavailable"),
    ROW(GSS_S_DUPLICATE_ELEMENT, "The requested credential element already exists"),
    ROW(GSS_S_NAME_NOT_MN, "The provided name was not a mechanism name"),
};

constexpr Named kSupplementaryBits[] = {
    ROW(GSS_S_CONTINUE_NEEDED, "The routine must be called again to complete its function"),
    ROW(GSS_S_DUPLICATE_TOKEN, "The token was a duplicate of an earlier token"),
    ROW(GSS_S_OLD_TOKEN, "The token's validity period has expired"),
    ROW(GSS_S_UNSEQ_TOKEN, "A later token has already been processed"),
    ROW(GSS_S_GAP_TOKEN, "An expected per-message token was not received"),
};

#undef ROW

constexpr Named kFlags[] = {
    {GSS_C_DELEG_FLAG, "delegation"},  {GSS_C_MUTUAL_FLAG, "mutual"}, {GSS_C_REPLAY_FLAG, "replay"},
    {GSS_C_SEQUENCE_FLAG, "sequence"}, {GSS_C_CONF_FLAG, "conf"},     {GSS_C_INTEG_FLAG, "integ"},
    {GSS_C_ANON_FLAG, "anonymous"},    {GSS_C_TRANS_FLAG, "trans"},   {GSS_C_PROT_READY_FLAG, "prot_ready"},
};

template <std::size_t N>
void append_value(std::vector<StatusPart> &parts, const char *field, const Named (&names)[N], OM_uint32 value) {
    if (value == 0)
        return;
    for (const Named &row : names)
        if (row.value == value)
            return parts.push_back({field, row.name, row.text});
    parts.push_back({field, code_text(value), "unknown"});
}

template <std::size_t N>
void append_bits(std::vector<StatusPart> &parts, const char *field, const Named (&names)[N], OM_uint32 bits) {
    for (const Named &row : names) {
        if ((bits & row.value) != 0)
            parts.push_back({field, row.name, row.text});
        bits &= ~row.value;
    }
    if (bits != 0)
        parts.push_back({field, code_text(bits), "unknown"});
}

std::string joined(const std::vector<StatusPart> &parts, const char *separator) {
    std::string out;
    for (const StatusPart &part : parts)
        out += (out.empty() ? "" : separator) + part.name;
    return out;
}

} // namespace

std::vector<StatusPart> major_parts(OM_uint32 major) {
    std::vector<StatusPart> parts;
    append_value(parts, "calling error", kCallingErrors, major & 0xFF000000U);
    append_value(parts, "routine error", kRoutineErrors, major & 0x00FF0000U);
    append_bits(parts, "supplementary", kSupplementaryBits, major & 0x0000FFFFU);
    return parts;
}

std::string major_name(OM_uint32 major) {
    return major == GSS_S_COMPLETE ? "GSS_S_COMPLETE" : joined(major_parts(major), " | ");
}

std::string flag_names(OM_uint32 flags) {
    std::vector<StatusPart> parts;
    append_bits(parts, "flag", kFlags, flags);
    return parts.empty() ? "none" : joined(parts, ", ");
}

} // namespace tools
