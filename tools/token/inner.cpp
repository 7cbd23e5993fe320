// The framing of RFC 2743 3.1 with the mechanism's OID, NTLMSSP's signature, and SCRAM's first letters (RFC 5802 7).
#include "tools/token/inner.h"

#include "tools/show/oids.h"

namespace tools {

namespace {

using namespace std::string_view_literals;

struct Beginning {
    std::string_view bytes;
    const char *kind;
};

constexpr Beginning kBeginnings[] = {
    {"NTLMSSP\0\1\0\0\0"sv, "NTLMSSP NEGOTIATE"},
    {"NTLMSSP\0\2\0\0\0"sv, "NTLMSSP CHALLENGE"},
    {"NTLMSSP\0\3\0\0\0"sv, "NTLMSSP AUTHENTICATE"},
    {"NTLMSSP\0"sv, "NTLMSSP"},
    {"n,"sv, "SCRAM client-first"},
    {"y,"sv, "SCRAM client-first"},
    {"p="sv, "SCRAM client-first"},
    {"r="sv, "SCRAM server-first"},
    {"c="sv, "SCRAM client-final"},
    {"v="sv, "SCRAM server-final"},
    {"e="sv, "SCRAM server-final, an error"},
};

// What follows a Kerberos OID (RFC 4121 4.1).
constexpr Beginning kKerberosTokens[] = {
    {"\1\0"sv, "Kerberos AP-REQ"},
    {"\2\0"sv, "Kerberos AP-REP"},
    {"\3\0"sv, "Kerberos KRB-ERROR"},
};

template <std::size_t N> const char *find(const Beginning (&rows)[N], std::string_view text) {
    for (const Beginning &row : rows)
        if (text.starts_with(row.bytes))
            return row.kind;
    return nullptr;
}

// The token behind its RFC 2743 3.1 framing: the name of the OID, and the mechanism's own token.
std::string kind_of_framed(ByteView token) {
    const std::size_t length_octets = token.size() > 1 && token[1] > 0x80 ? token[1] - 0x80U : 0;
    const std::size_t oid = 2 + length_octets;
    if (token.size() < oid + 2 || token[oid] != 0x06 || token.size() - oid - 2 < token[oid + 1])
        return {};
    const std::string name = mechanism_name(token.subspan(oid + 2, token[oid + 1]));
    const char *kind = find(kKerberosTokens, as_text(token.subspan(oid + 2 + token[oid + 1])));
    return name == "Kerberos" && kind != nullptr ? kind : "GSS-API token of " + name;
}

} // namespace

std::string kind_of_inner_token(ByteView token) {
    std::string framed = !token.empty() && token[0] == 0x60 ? kind_of_framed(token) : "";
    if (!framed.empty())
        return framed;
    const char *kind = find(kBeginnings, as_text(token));
    return kind != nullptr ? kind : "of unknown kind";
}

} // namespace tools
