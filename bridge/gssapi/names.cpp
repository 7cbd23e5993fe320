// The operations on names. A name is its kind and its text, octet by octet: which names mean the same user is for the
// mechanisms and the policy to say.
#include <algorithm>
#include <memory>
#include <optional>

#include "bridge/gssapi/name.h"
#include "bridge/gssapi/qxnego_gssapi.h"
#include "session/negotiation.h"

namespace bridge {

namespace {

constexpr std::size_t kMaxText = 65535;

[[noreturn]] void refuse_name(const char *line) {
    refuse(GSS_S_BAD_NAME, line);
}

// RFC 2743 3.2: 04 01, the OID with its header behind its length, the name behind its length.
std::string export_head() {
    const std::string_view oid(QXNEGO_GSS_MECH);
    const char size = static_cast<char>(oid.size());
    return std::string{4, 1, 0, static_cast<char>(size + 2), 6, size}.append(oid);
}

std::string octets_of(std::size_t length) {
    return {static_cast<char>(length >> 24), static_cast<char>(length >> 16), static_cast<char>(length >> 8),
            static_cast<char>(length)};
}

std::string exported(const Name &name) {
    return export_head() + octets_of(1 + name.text.size()) + static_cast<char>(name.kind) + name.text;
}

Name imported_again(std::string_view token) {
    const std::size_t head = export_head().size() + 4;
    if (token.size() < head + 2)
        refuse_name("the exported name is cut");
    const Name name{static_cast<Name::Kind>(token[head]), std::string(token.substr(head + 1))};
    if ((name.kind != Name::Kind::kUser && name.kind != Name::Kind::kService) || exported(name) != token)
        refuse_name("the exported name is none of QXNEGO's");
    return name;
}

std::optional<Name::Kind> kind_of(gss_const_OID type) {
    if (type == GSS_C_NO_OID)
        return Name::Kind::kUser;
    const auto is = [&](gss_const_OID other) { return bytes_of(type) == bytes_of(other); };
    constexpr std::string_view kPrincipal("\x2a\x86\x48\x86\xf7\x12\x01\x02\x02\x01"); // Kerberos' own, RFC 1964 2.1.1
    if (is(GSS_C_NT_USER_NAME) || bytes_of(type) == kPrincipal)
        return Name::Kind::kUser;
    if (is(GSS_C_NT_HOSTBASED_SERVICE) || is(GSS_C_NT_HOSTBASED_SERVICE_X))
        return Name::Kind::kService;
    return std::nullopt;
}

Name imported(std::string_view text, gss_const_OID type) {
    if (text.size() > kMaxText)
        refuse_name("the name is too long");
    if (bytes_of(type) == bytes_of(gss_const_OID{GSS_C_NT_EXPORT_NAME}))
        return imported_again(text);
    const std::optional<Name::Kind> kind = kind_of(type);
    if (!kind)
        refuse(GSS_S_BAD_NAMETYPE, "names of this type are not known");
    if (text.ends_with('\0')) // some programs count the end of their string
        text.remove_suffix(1);
    if (text.empty() || text.find('\0') != std::string_view::npos)
        refuse_name("the name is empty, or has a NUL inside");
    return {*kind, std::string(text)};
}

gss_OID type_of(const Name &name) {
    return name.kind == Name::Kind::kUser ? GSS_C_NT_USER_NAME : GSS_C_NT_HOSTBASED_SERVICE;
}

const Name &checked(gss_name_t handle) {
    if (handle == GSS_C_NO_NAME)
        refuse(GSS_S_CALL_INACCESSIBLE_READ | GSS_S_BAD_NAME, "there is no name");
    return *name_of(handle);
}

} // namespace

std::string Name::identity() const {
    std::string out = text;
    if (kind == Kind::kUser)
        return out;
    const std::size_t at = out.find('@');
    at == std::string::npos ? out += '/' : out.replace(at, 1, "/");
    return out;
}

common::Name Name::as_target() const {
    return session::imported(text, kind == Kind::kUser ? GSS_C_NT_QXAT_MECHDATA_UTF8 : QXGSS_C_NT_HOSTBASED_SERVICE,
                             "the target name");
}

void give_name(const Name &name, gss_name_t *pHandle) {
    if (pHandle != nullptr)
        *pHandle = handle_of(std::make_unique<Name>(name).release());
}

} // namespace bridge

using namespace bridge;

OM_uint32 bridge_gss_import_name(OM_uint32 *pMinorStatus, gss_buffer_t pText, gss_OID pType, gss_name_t *pName) {
    return guarded(pMinorStatus, [&] {
        required(pName) = GSS_C_NO_NAME;
        give_name(imported(bytes_of(pText), pType), pName);
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_display_name(OM_uint32 *pMinorStatus, gss_name_t pName, gss_buffer_t pText, gss_OID *pType) {
    return guarded(pMinorStatus, [&] {
        required(pText) = GSS_C_EMPTY_BUFFER;
        const Name &name = checked(pName);
        *pText = copy_of(name.text);
        set(pType, type_of(name));
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_compare_name(OM_uint32 *pMinorStatus, gss_name_t pName1, gss_name_t pName2, int *pEqual) {
    return guarded(pMinorStatus, [&] {
        required(pEqual) = 0;
        *pEqual = checked(pName1) == checked(pName2) ? 1 : 0;
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_duplicate_name(OM_uint32 *pMinorStatus, const gss_name_t pName, gss_name_t *pCopy) {
    return guarded(pMinorStatus, [&] {
        required(pCopy) = GSS_C_NO_NAME;
        give_name(checked(pName), pCopy);
        return GSS_S_COMPLETE;
    });
}

// A name is QXNEGO's as it is, and has no attributes.
OM_uint32 bridge_gss_inquire_name(OM_uint32 *pMinorStatus, gss_name_t pName, int *pIsMechanismName, gss_OID *pMech,
                                  gss_buffer_set_t *pAttributes) {
    return guarded(pMinorStatus, [&] {
        set(pAttributes, GSS_C_NO_BUFFER_SET);
        checked(pName);
        set(pIsMechanismName, 1);
        set(pMech, mechanism_oid());
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_export_name(OM_uint32 *pMinorStatus, const gss_name_t pName, gss_buffer_t pExported) {
    return guarded(pMinorStatus, [&] {
        required(pExported) = GSS_C_EMPTY_BUFFER;
        *pExported = copy_of(exported(checked(pName)));
        return GSS_S_COMPLETE;
    });
}

OM_uint32 bridge_gss_release_name(OM_uint32 *pMinorStatus, gss_name_t *pName) {
    return guarded(pMinorStatus, [&] {
        delete name_of(std::exchange(required(pName), GSS_C_NO_NAME));
        return GSS_S_COMPLETE;
    });
}
