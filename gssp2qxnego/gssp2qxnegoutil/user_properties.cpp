// The user-properties buffer that the server application gets: the selected mechanism's records as they came, the mark
// whether the policy was applied, and last the rendered negotiation log.
#include <string_view>

#include "common/records.h"
#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"

namespace qxnego {
namespace {

constexpr std::size_t kPolicyFlag = offsetof(qxgss_data_attributes_t, qxgss_MechPolicyApplied);

// The longest log that a record holds.
constexpr std::size_t kLongestLog = QXGSS_RECORD_MAX_LENGTH - 7;

// A log that is too long ends with its last whole record that fits, wherever the text shows where one begins.
std::string_view fitting(std::string_view log) {
    if (log.size() <= kLongestLog)
        return log;
    const std::size_t end = log.rfind("\nRecord ", kLongestLog - 1);
    return log.substr(0, end != std::string_view::npos ? end + 1 : kLongestLog);
}

// What the selected mechanism tells about the user; nothing when it has no such operation.
Status ask_mechanism(const NegContext_desc &negotiation, common::Buffer &properties) {
    const SelectedMechanism mechanism = selected_mechanism(negotiation);
    if (!mechanism)
        return common::failure(QXNEGO_E_NEG_CONTEXT);
    const auto inquire = mechanism.table->ftn_gssp_inquire_properties_for_user;
    return inquire != nullptr ? ask(inquire, mechanism.context, properties.out()) : kSuccess;
}

} // namespace
} // namespace qxnego

using namespace qxnego;

OM_uint32 QXNEGO_INT_FillUserProperties(OM_uint32 *pMinorStatus, QxnegoSecCtx_int_t pQxnegoSecCtx,
                                        qxgss_buffer_t pUserProps) {
    if (pUserProps != nullptr)
        *pUserProps = {};
    if (pQxnegoSecCtx == nullptr)
        return report(pMinorStatus, kNoContextToRead, QXNEGO_E_INVALID_INPUT);
    if (pUserProps == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INACCESSIBLE);
    NegContext_desc &negotiation = pQxnegoSecCtx->NegCtx;
    const bool is_completed = negotiation.NegState == NEG_STATE_COMPLETED;
    common::Buffer mechanism_properties, log, properties;
    Status status = is_completed ? ask_mechanism(negotiation, mechanism_properties) : kSuccess;
    if (!status.failed())
        status = ask(QXNEGO_INT_GetNegLog, &negotiation, OM_uint32{0}, log.out());
    if (!status.failed())
        status = ask(QXNEGO_INT_FillQxnegoInfo, mechanism_properties.out(),
                     is_completed ? negotiation.IsPolicyApplied : 0, log.out(), properties.out());
    if (status.failed())
        return report(pMinorStatus, status);
    *pUserProps = properties.release();
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_FillQxnegoInfo(OM_uint32 *pMinorStatus, qxgss_buffer_t pProps, OM_uint32 IsPolicyApplied,
                                    qxgss_buffer_t pNeglog, qxgss_buffer_t pNewprops) {
    if (pNewprops == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_INVALID_INPUT);
    const std::string_view props = common::bytes_of(pProps);
    const std::string_view log = fitting(common::bytes_of(pNeglog));
    if (props.empty() && IsPolicyApplied == 0 && log.empty())
        return succeed(pMinorStatus);

    // Of an attributes record of our own: nothing is known of the user.
    const char attributes[] = {0, 0, static_cast<char>(IsPolicyApplied)};
    const common::Record records[] = {{QXGSS_DATA_ID_ATTRIBUTES, {attributes, sizeof attributes}},
                                      {QXGSS_DATA_ID_QXNEGOLOG, log}};
    const bool has_attributes =
        common::mark_attributes(pProps, kPolicyFlag, static_cast<unsigned char>(IsPolicyApplied));
    *pNewprops = common::write_records(props, std::span(records).subspan(has_attributes ? 1 : 0));
    if (pNewprops->value == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    return succeed(pMinorStatus);
}
