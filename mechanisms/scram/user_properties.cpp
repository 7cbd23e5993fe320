// User properties: what the server application learns of the authenticated user, as tagged records.
#include <array>

#include "mechanisms/scram/scram.h"
#include "qxgss/qxgss_records.h"

namespace scram {
namespace {

struct Record {
    qxgss_data_id_t id;
    std::string_view data;
};

using Records = std::array<Record, 4>;

Records records_of(Context &context) {
    const Mechanism &mechanism = context.mechanism;
    const std::string_view der(static_cast<const char *>(mechanism.oid.elements), mechanism.oid.length);
    return {{{QXGSS_DATA_ID_USERNAME, context.user},
             {QXGSS_DATA_ID_MECHNAME, configured_name(context.mechanism)},
             {QXGSS_DATA_ID_MECHOIDSTR, mechanism.dottedOid},
             {QXGSS_DATA_ID_MECHOIDDER, der}}};
}

// Length of all records together; 0 when one does not fit.
std::size_t total_length(const Records &records) {
    std::size_t total = 0;
    for (const Record &record : records) {
        const std::size_t length = qxgss_record_length(record.id, record.data.size());
        if (length == 0)
            return 0;
        total += length;
    }
    return total;
}

void write(unsigned char *to, const Records &records) {
    for (const Record &record : records) {
        const std::size_t length = qxgss_record_length(record.id, record.data.size());
        qxgss_put_record(to, record.id, length, record.data.data(), record.data.size());
        to += length;
    }
}

} // namespace

OM_uint32 inquire_properties_for_user(OM_uint32 *pMinorStatus, qxgss_ctx_id_t pContextHandle,
                                      qxgss_buffer_t pUserPropBuffer) {
    if (pUserPropBuffer == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, E_ARGUMENT);
    *pUserPropBuffer = {};
    auto *const context = static_cast<Context *>(pContextHandle);
    if (context == nullptr || !context->isEstablished)
        return report(pMinorStatus, GSS_S_NO_CONTEXT, E_NO_CONTEXT);
    const Records records = records_of(*context);
    const std::size_t total = total_length(records);
    if (total == 0)
        return report(pMinorStatus, GSS_S_FAILURE, E_PROPERTIES);
    auto *const bytes = static_cast<unsigned char *>(std::calloc(total, 1));
    if (bytes == nullptr)
        return fail(pMinorStatus, GSASL_MALLOC_ERROR);
    write(bytes, records);
    *pUserPropBuffer = {total, bytes};
    return succeed(pMinorStatus);
}

} // namespace scram
