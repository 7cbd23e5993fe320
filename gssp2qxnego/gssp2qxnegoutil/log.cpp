// The negotiation log: an append-only array of snapshots, whose texts lie one behind the other in blocks of the log. A
// failing entry leaves the log as it was, and no failure here ever stops a negotiation.
#include <bit>
#include <ctime>

#include "gssp2qxnego/gssp2qxnegoutil/events.h"
#include "gssp2qxnego/gssp2qxnegoutil/trace.h"

// Texts of records, NUL-terminated, behind this head. The last block is the first of the list.
struct NegLogTexts {
    NegLogTexts *pNext;
    std::size_t Used;
    std::size_t Size;
};

using namespace qxnego;

namespace {

constexpr OM_uint32 kFirstRecords = 64;
constexpr OM_uint32 kMoreRecords = 16;
constexpr std::size_t kUsualRecords = 1024;
constexpr std::size_t kUsualTexts = 1000; // bytes in a block; a longer text has a block to itself
constexpr EventText kNoInformation = "QXNEGO_INT_NegLogEntry: ***WARNING*** No information provided for logging.";

// ---- Texts ---------------------------------------------------------------------------------------------------------

// The last block has that much room.
[[gnu::noinline]] bool add_block(NegLog_desc &log, std::size_t size) {
    const std::size_t room = std::max(size, kUsualTexts);
    auto *block = static_cast<NegLogTexts *>(std::malloc(sizeof(NegLogTexts) + room));
    if (block == nullptr)
        return false;
    *block = {log.pTexts, 0, room};
    log.pTexts = block;
    return true;
}

bool reserve(NegLog_desc &log, std::size_t size) {
    return (log.pTexts != nullptr && log.pTexts->Size - log.pTexts->Used >= size) || add_block(log, size);
}

// Takes what was reserved.
char *take(NegLogTexts &block, std::size_t size) {
    char *place = reinterpret_cast<char *>(&block + 1) + block.Used;
    block.Used += size;
    return place;
}

// ---- Records -------------------------------------------------------------------------------------------------------

void snapshot_entry(const NegMechEntry_desc &entry, NegLogRecord &record) {
    record.MechOid = *entry.pMechOid;
    record.MechState = entry.MechState;
    record.MechReason = entry.MechReason;
    record.GssMajorStatus = entry.GssMajorStatus;
    record.GssMinorStatus = entry.GssMinorStatus;
    record.MechIndex = entry.MechIndex;
    record.IsCtxEstablished = entry.IsCtxEstablished;
}

void snapshot_negotiation(const NegContext_desc &negotiation, NegLogRecord &record) {
    record.IsInitiator = negotiation.IsInitiator;
    record.TokenNum = negotiation.TokenNum;
    record.IsPolicyApplied = negotiation.IsPolicyApplied;
    record.NegState = negotiation.NegState;
    record.NegStateFromPeer = negotiation.NegStateFromPeer;
}

// Not inline, as few entries have one.
[[gnu::noinline]] Status copy_status_text(const NegMechEntry_desc &entry, qxgss_buffer_desc &text) {
    qxgss_buffer_desc source = entry.GssMinorStatusText;
    return ask(gssp_duplicate_buffer, &source, &text);
}

[[gnu::noinline]] bool make_room(NegLog_desc &log) {
    QXNEGO_INT_GrowNegLog(&log, kMoreRecords);
    return log.Count < log.MaxCount;
}

// Appends a record. What can fail comes first, so that an entry that fails leaves its slot clean; the bytes of the text
// come last, as nothing needs to be kept over that call. `text` has its NUL, or is empty when there is none.
Status append(std::string_view text, const NegMechEntry_desc *entry, NegContext_desc &negotiation) {
    NegLog_desc &log = negotiation.NegLog;
    if (log.Count >= log.MaxCount && !make_room(log))
        return common::failure(QXNEGO_E_CALLOC);
    if (!text.empty() && !reserve(log, text.size()))
        return common::failure(QXNEGO_E_MALLOC);
    if (entry != nullptr) {
        if (!usable(entry->pMechOid))
            return common::failure(QXNEGO_E_BAD_MECH_OID);
        if (present(entry->GssMinorStatusText))
            if (const Status copied = copy_status_text(*entry, log.pRecords[log.Count].GssMinorStatusText);
                copied.failed())
                return copied;
    }
    const OM_uint64 now = QXNEGO_INT_GetElapsedTime(0);
    NegLogRecord &record = log.pRecords[log.Count++];
    if (entry != nullptr)
        snapshot_entry(*entry, record);
    snapshot_negotiation(negotiation, record);
    record.ElapsedTime = now - log.BaseTime;
    if (!text.empty()) {
        record.pszLogString = take(*log.pTexts, text.size());
        std::memcpy(record.pszLogString, text.data(), text.size());
    }
    if (is_tracing) [[unlikely]]
        trace(record, negotiation);
    return kSuccess;
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
    log = {};
    log.pRecords = zeroed<NegLogRecord>(kFirstRecords).release();
    if (log.pRecords == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_CALLOC);
    log.MaxCount = kFirstRecords;
    log.BaseTime = QXNEGO_INT_GetElapsedTime(0);
    return succeed(pMinorStatus);
}

void QXNEGO_INT_GrowNegLog(NegLog_t pNegLog, OM_uint32 n) {
    const std::size_t old_count = pNegLog->MaxCount;
    const std::size_t new_count = old_count + n;
    if (new_count > UINT32_MAX)
        return;
    if (room_for(new_count) != room_for(old_count)) {
        const std::size_t size = room_for(new_count) * sizeof(NegLogRecord);
        auto *records = static_cast<NegLogRecord_t>(std::realloc(pNegLog->pRecords, size));
        if (records == nullptr)
            return;
        pNegLog->pRecords = records;
    }
    std::memset(pNegLog->pRecords + old_count, 0, n * sizeof(NegLogRecord));
    pNegLog->MaxCount = static_cast<OM_uint32>(new_count);
}

OM_uint32 QXNEGO_INT_NegLogEntry(OM_uint32 *pMinorStatus, const char *pszLogString, NegMechEntry_t pNegMechEntry,
                                 NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NEG_CONTEXT);
    if (pNegContext->NegLog.pRecords == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_LOG);
    std::string_view text;
    if (pszLogString != nullptr)
        text = {pszLogString, std::strlen(pszLogString) + 1};
    else if (pNegMechEntry == nullptr)
        text = kNoInformation.with_nul();
    return report(pMinorStatus, append(text, pNegMechEntry, *pNegContext));
}

OM_uint32 QXNEGO_INT_ReleaseNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext) {
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NEG_CONTEXT);
    NegLog_desc &log = pNegContext->NegLog;
    if (log.pRecords != nullptr) {
        for (NegLogRecord &record : std::span(log.pRecords, log.Count))
            discard(record.GssMinorStatusText);
        std::free(log.pRecords);
        log.pRecords = nullptr;
    }
    while (log.pTexts != nullptr)
        std::free(std::exchange(log.pTexts, log.pTexts->pNext));
    log.Count = 0;
    return succeed(pMinorStatus);
}

namespace qxnego {

void log_event(EventText text, const NegMechEntry_desc *entry, NegContext_desc &negotiation) {
    if (negotiation.NegLog.pRecords != nullptr)
        static_cast<void>(append(text.with_nul(), entry, negotiation));
}

Status change_state(NegMechEntry_desc &entry, NegMechState_et state, NegMechReason_et reason, EventText text,
                    NegContext_desc &negotiation, Status cause) {
    const Status status =
        ask(QXNEGO_INT_NegMechStateChange, state, reason, cause.major, cause.minor, qxgss_buffer_t{nullptr}, &entry);
    if (!status.failed())
        log_event(text, &entry, negotiation);
    return status;
}

} // namespace qxnego
