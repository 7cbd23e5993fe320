// The negotiation log: an append-only array of snapshots. A failing entry leaves the log as it was, and no failure here
// ever stops a negotiation.
#include <chrono>

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

constexpr OM_uint32 kFirstRecords = 64;
constexpr OM_uint32 kMoreRecords = 16;
constexpr char kNoInformation[] = "QXNEGO_INT_NegLogEntry: ***WARNING*** No information provided for logging.";

NegLogRecord snapshot_context(const NegContext_desc &context) {
    NegLogRecord record{};
    record.IsInitiator = context.IsInitiator;
    record.TokenNum = context.TokenNum;
    record.IsPolicyApplied = context.IsPolicyApplied;
    record.NegState = context.NegState;
    record.NegStateFromPeer = context.NegStateFromPeer;
    record.ElapsedTime = QXNEGO_INT_GetElapsedTime(context.NegLog.BaseTime);
    return record;
}

// The entry's part of a record, whose status text the record then owns.
OM_uint32 snapshot_entry(OM_uint32 *pMinorStatus, const NegMechEntry_desc &entry, NegLogRecord &record) {
    if (entry.pMechOid == nullptr || entry.pMechOid->length == 0 || entry.pMechOid->elements == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_MECH_OID);
    record.MechOid = *entry.pMechOid;
    record.MechState = entry.MechState;
    record.MechReason = entry.MechReason;
    record.GssMajorStatus = entry.GssMajorStatus;
    record.GssMinorStatus = entry.GssMinorStatus;
    record.MechIndex = entry.MechIndex;
    record.IsCtxEstablished = entry.IsCtxEstablished;
    if (!present(entry.GssMinorStatusText))
        return GSS_S_COMPLETE;
    qxgss_buffer_desc text = entry.GssMinorStatusText;
    return gssp_duplicate_buffer(pMinorStatus, &text, &record.GssMinorStatusText);
}

} // namespace

OM_uint64 QXNEGO_INT_GetElapsedTime(OM_uint64 BaseTime) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<OM_uint64>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()) - BaseTime;
}

OM_uint32 QXNEGO_INT_InitNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NEG_CONTEXT);
    NegLog_desc &log = pNegContext->NegLog;
    log.Count = 0;
    log.MaxCount = 0;
    log.pRecords = zeroed<NegLogRecord>(kFirstRecords).release();
    if (log.pRecords == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    log.MaxCount = kFirstRecords;
    log.BaseTime = QXNEGO_INT_GetElapsedTime(0);
    return succeed(pMinorStatus);
}

void QXNEGO_INT_GrowNegLog(NegLog_t pNegLog, OM_uint32 n) {
    const std::size_t oldCount = pNegLog->MaxCount;
    const std::size_t newCount = oldCount + n;
    if (newCount > UINT32_MAX)
        return;
    auto *records = static_cast<NegLogRecord_t>(std::realloc(pNegLog->pRecords, newCount * sizeof(NegLogRecord)));
    if (records == nullptr)
        return;
    std::memset(records + oldCount, 0, n * sizeof(NegLogRecord));
    pNegLog->pRecords = records;
    pNegLog->MaxCount = static_cast<OM_uint32>(newCount);
}

OM_uint32 QXNEGO_INT_NegLogEntry(OM_uint32 *pMinorStatus, const char *pszLogString, NegMechEntry_t pNegMechEntry,
                                 NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NEG_CONTEXT);
    NegLog_desc &log = pNegContext->NegLog;
    if (log.pRecords == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_LOG);
    if (log.Count >= log.MaxCount)
        QXNEGO_INT_GrowNegLog(&log, kMoreRecords);
    if (log.Count >= log.MaxCount)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);

    NegLogRecord record = snapshot_context(*pNegContext); // aside, so that an entry that fails leaves its slot clean
    if (pszLogString == nullptr && pNegMechEntry == nullptr)
        pszLogString = kNoInformation;
    Heap<char> text;
    if (pszLogString != nullptr) {
        text = copy_text(pszLogString);
        if (text == nullptr)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    }
    if (pNegMechEntry != nullptr) {
        const OM_uint32 major = snapshot_entry(pMinorStatus, *pNegMechEntry, record);
        if (failed(major))
            return major;
    }
    record.pszLogString = text.release();
    log.pRecords[log.Count++] = record;
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_ReleaseNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NEG_CONTEXT);
    NegLog_desc &log = pNegContext->NegLog;
    if (log.pRecords != nullptr) {
        for (OM_uint32 i = 0; i < log.Count; ++i) {
            gssp_release_buffer(nullptr, &log.pRecords[i].GssMinorStatusText);
            std::free(log.pRecords[i].pszLogString);
        }
        std::free(log.pRecords);
        log.pRecords = nullptr;
    }
    log.Count = 0;
    return succeed(pMinorStatus);
}
