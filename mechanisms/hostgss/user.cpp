// Who the peer is: the source name of a context in the forms that the framework asks for.
#include <cstdlib>

#include "mechanisms/hostgss/context.h"
#include "mechanisms/hostgss/hostgss.h"
#include "mechanisms/hostgss/names.h"
#include "mechanisms/hostgss/status.h"
#include "qxgss/qxgss_records.h"

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

// The text records, in the order in which they are written.
struct Record {
    qxgss_data_id_t id;
    Bytes data;
};

Status write_records(const Record (&records)[4], qxgss_buffer_t pOutput) {
    std::size_t size = 0;
    for (const Record &record : records) {
        const std::size_t length = qxgss_record_length(record.id, record.data.size());
        if (length == 0)
            return kNoProperties;
        size += length;
    }
    auto *to = static_cast<unsigned char *>(std::calloc(size, 1));
    if (to == nullptr)
        return kOutOfMemory;
    *pOutput = {size, to};
    for (const Record &record : records) {
        const std::size_t length = qxgss_record_length(record.id, record.data.size());
        qxgss_put_record(to, record.id, length, record.data.data(), record.data.size());
        to += length;
    }
    return {};
}

Status write_properties(const ContextFacts &facts, qxgss_buffer_t pOutput) {
    const qxgss_OID oid = registered_oid(facts.mech);
    const char *name = nullptr;
    const char *dotted = nullptr;
    if (oid == nullptr || GSS_ERROR(gssp_oid_to_mechstr(nullptr, oid, &name)) != 0 ||
        GSS_ERROR(gssp_mechstr_to_oidstr(nullptr, name, &dotted)) != 0)
        return kNoProperties;
    return write_records({{QXGSS_DATA_ID_USERNAME, facts.source.view()},
                          {QXGSS_DATA_ID_MECHNAME, name},
                          {QXGSS_DATA_ID_MECHOIDSTR, dotted},
                          {QXGSS_DATA_ID_MECHOIDDER, facts.mech}},
                         pOutput);
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
    set<char *>(psUserName, nullptr);
    set<char *>(psDomain, nullptr);
    ContextFacts facts;
    const Status status = facts_of_user(context_of(pContextHandle), facts);
    if (status.failed())
        return finish(pMinorStatus, status);
    const UserAndDomain name = split(facts);
    if (give_string(name.user, psUserName) && give_string(name.domain, psDomain))
        return finish(pMinorStatus, status);
    if (psUserName != nullptr)
        std::free(*psUserName);
    set<char *>(psUserName, nullptr);
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
