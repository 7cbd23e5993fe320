// Who the peer is: the source name of a context in the forms that the framework asks for.
#include <cstdlib>

#include "common/status.h"
#include "mechanisms/hostgss/context.h"
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/status.h"
#include "qxat/qxatldapauthorize.h"

namespace hostgss {

namespace {

constexpr Status kNoProperties{GSS_S_FAILURE, 0xE1000092U, "The user's properties cannot be written."};

Status facts_of_user(const Context *context, ContextFacts &facts) {
    const Status status = check_established(context);
    return status.failed() ? status : inquire(context, facts);
}

struct UserAndDomain {
    Bytes user;
    Bytes domain;
};

// "DOMAIN\user", or a principal: its realm follows the last "@" that no backslash precedes. A user of NTLM's may have
// an "@", too.
UserAndDomain split(const ContextFacts &facts) {
    const Bytes name = facts.source.view();
    const std::size_t at = facts.mech == kNtlm ? Bytes::npos : name.rfind('@');
    const std::size_t backslash = name.find('\\');
    if (at != Bytes::npos && (at == 0 || name[at - 1] != '\\'))
        return {name.substr(0, at), name.substr(at + 1)};
    if (backslash != Bytes::npos)
        return {name.substr(backslash + 1), name.substr(0, backslash)};
    return {name, {}};
}

Status write_properties(const ContextFacts &facts, qxgss_buffer_t pOutput) {
    const Bytes user = facts.source.view();
    const auto status =
        common::ask<0>(qxat_describe_user, user.data(), user.size(), registered_oid(facts.mech), pOutput);
    if (!status.failed())
        return {};
    return status.minor == QXAT_E_MALLOC ? kOutOfMemory : kNoProperties;
}

// A string for the caller; an empty text that is not the whole name is none.
bool give_string(Bytes text, char **psOutput) {
    if (psOutput == nullptr || text.data() == nullptr)
        return true;
    Block copy;
    if (!copy.append(text))
        return false;
    *psOutput = static_cast<char *>(copy.release());
    return true;
}

} // namespace

} // namespace hostgss

using namespace hostgss;

OM_uint32 HOSTGSS_get_client_domain_username(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle, char **psUserName,
                                             char **psDomain) {
    set_if_given(psUserName, nullptr);
    set_if_given(psDomain, nullptr);
    ContextFacts facts;
    const Status status = facts_of_user(context_of(pContextHandle), facts);
    if (status.failed())
        return finish(pMinorStatus, status);
    const UserAndDomain name = split(facts);
    if (give_string(name.user, psUserName) && give_string(name.domain, psDomain))
        return finish(pMinorStatus, status);
    if (psUserName != nullptr)
        std::free(*psUserName);
    set_if_given(psUserName, nullptr);
    return no_memory(pMinorStatus);
}

OM_uint32 HOSTGSS_inquire_properties_for_user(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                              qxgss_buffer_t pUserPropBuffer) {
    if (pUserPropBuffer == nullptr)
        return refuse(pMinorStatus, kInaccessibleWrite, "There is no room for the properties.");
    *pUserPropBuffer = {};
    ContextFacts facts;
    Status status = facts_of_user(context_of(pContextHandle), facts);
    if (!status.failed())
        status = write_properties(facts, pUserPropBuffer);
    return finish(pMinorStatus, status);
}
