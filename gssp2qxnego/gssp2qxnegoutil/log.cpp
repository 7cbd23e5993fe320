// The negotiation log: an append-only array of snapshots. A failing entry leaves the log as it was, and no failure here
// ever stops a negotiation.
#include <bit>
#include <ctime>

#include "gssp2qxnego/gssp2qxnegoutil/guards.h"

using namespace qxnego;

namespace {

constexpr OM_uint32 kFirstRecords = 64;
constexpr OM_uint32 kMoreRecords = 16;
constexpr std::size_t kUsualRecords = 1024;
constexpr char kNoInformation[] = "QXNEGO_INT_NegLogEntry: ***WARNING*** No information provided for logging.";

void snapshot_context(const NegContext_desc &context, NegLogRecord &record) {
    record.IsInitiator = context.IsInitiator;
    record.TokenNum = context.TokenNum;
    record.IsPolicyApplied = context.IsPolicyApplied;
    record.NegState = context.NegState;
    record.NegStateFromPeer = context.NegStateFromPeer;
    record.ElapsedTime = QXNEGO_INT_GetElapsedTime(context.NegLog.BaseTime);
}

void snapshot_entry(const NegMechEntry_desc &entry, NegLogRecord &record) {
    record.MechOid = *entry.pMechOid;
    record.MechState = entry.MechState;
    record.MechReason = entry.MechReason;
    record.GssMajorStatus = entry.GssMajorStatus;
    record.GssMinorStatus = entry.GssMinorStatus;
    record.MechIndex = entry.MechIndex;
    record.IsCtxEstablished = entry.IsCtxEstablished;
}

// A copy of the status text of an entry that can be recorded.
OM_uint32 copy_status_text(OM_uint32 *pMinorStatus, const NegMechEntry_desc &entry, qxgss_buffer_desc &text) {
    if (!usable(entry.pMechOid))
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_BAD_MECH_OID);
    if (!present(entry.GssMinorStatusText))
        return GSS_S_COMPLETE;
    qxgss_buffer_desc source = entry.GssMinorStatusText;
    return gssp_duplicate_buffer(pMinorStatus, &source, &text);
}

// Records that there is room for. A log that a peer makes long is not copied with every growth.
std::size_t room_for(std::size_t count) {
    return count > kUsualRecords ? std::bit_ceil(count) : count;
}

} // namespace

OM_uint64 QXNEGO_INT_GetElapsedTime(OM_uint64 BaseTime) {
    std::timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<OM_uint64>(now.tv_sec) * 1000 + static_cast<OM_uint64>(now.tv_nsec) / 1'000'000 - BaseTime;
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
    if (room_for(newCount) != room_for(oldCount)) {
        const std::size_t size = room_for(newCount) * sizeof(NegLogRecord);
        auto *records = static_cast<NegLogRecord_t>(std::realloc(pNegLog->pRecords, size));
        if (records == nullptr)
            return;
        pNegLog->pRecords = records;
    }
    std::memset(pNegLog->pRecords + oldCount, 0, n * sizeof(NegLogRecord));
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

    // What can fail comes first, so that an entry that fails leaves its slot clean.
    if (pszLogString == nullptr && pNegMechEntry == nullptr)
        pszLogString = kNoInformation;
    Heap<char> text;
    if (pszLogString != nullptr) {
        text = copy_text(pszLogString);
        if (text == nullptr)
            return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    }
    qxgss_buffer_desc statusText{};
    if (pNegMechEntry != nullptr) {
        const OM_uint32 major = copy_status_text(pMinorStatus, *pNegMechEntry, statusText);
        if (failed(major))
            return major;
    }
    NegLogRecord &record = log.pRecords[log.Count++];
    snapshot_context(*pNegContext, record);
    if (pNegMechEntry != nullptr)
        snapshot_entry(*pNegMechEntry, record);
    record.GssMinorStatusText = statusText;
    record.pszLogString = text.release();
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_ReleaseNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NEG_CONTEXT);
    NegLog_desc &log = pNegContext->NegLog;
    if (log.pRecords != nullptr) {
        for (OM_uint32 i = 0; i < log.Count; ++i) {
            discard(log.pRecords[i].GssMinorStatusText);
            std::free(log.pRecords[i].pszLogString);
        }
        std::free(log.pRecords);
        log.pRecords = nullptr;
    }
    log.Count = 0;
    return succeed(pMinorStatus);
}
