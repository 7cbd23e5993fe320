// The negotiation log as text: a banner, then one block of labelled lines per record.
//
// Banner and records are written straight into the one result buffer, each within the bounds of its own piece; the
// operations for a single piece share the writer.
#include <algorithm>
#include <charconv>
#include <ctime>
#include <string_view>
#include <unistd.h>

#include "gssp2qxnego/gssp2qxnegoutil/mechanisms.h"
#include "gssp2qxnego/gssp2qxnegoutil/words.h"

namespace qxnego {
namespace {

constexpr std::size_t kPieceArea = 4096; // one character less is text
constexpr std::size_t kOidArea = 128;
constexpr std::size_t kOidText = 126;
constexpr std::size_t kHostArea = 260;
constexpr std::size_t kTimeArea = 64;

struct Blanks {
    std::size_t count;
};

// Appends to a span of characters; what does not fit is cut.
class Writer {
  public:
    Writer(char *begin, std::size_t room) : begin_(begin), at_(begin), end_(begin + room) {}

    std::size_t length() const { return static_cast<std::size_t>(at_ - begin_); }

    template <typename... Parts> void write(const Parts &...parts) { (put(parts), ...); }

    // A line that does not fit is taken back, and ends the text.
    template <typename... Parts> void line(const Parts &...parts) {
        if (cut_)
            return;
        char *start = at_;
        write(parts..., '\n');
        if (cut_)
            at_ = start;
    }

  private:
    void put(std::string_view text) {
        const std::size_t room = static_cast<std::size_t>(end_ - at_);
        if (text.size() > room) {
            text = text.substr(0, room);
            cut_ = true;
        }
        if (!text.empty())
            std::memcpy(at_, text.data(), text.size());
        at_ += text.size();
    }

    void put(char c) { put(std::string_view(&c, 1)); }

    void put(Blanks blanks) {
        const std::size_t fitting = std::min(blanks.count, static_cast<std::size_t>(end_ - at_));
        std::memset(at_, ' ', fitting);
        if (fitting < blanks.count)
            cut_ = true;
        at_ += fitting;
    }

    char *begin_;
    char *at_;
    char *end_;
    bool cut_ = false;
};

class Decimal {
  public:
    // 32-bit values, enumerations too, print as signed numbers.
    explicit Decimal(OM_uint32 value) : Decimal(static_cast<OM_uint64>(static_cast<OM_sint32>(value))) {}
    explicit Decimal(OM_uint64 value)
        : end_(std::to_chars(digits_, digits_ + sizeof digits_, static_cast<std::int64_t>(value)).ptr) {}
    operator std::string_view() const { return {digits_, static_cast<std::size_t>(end_ - digits_)}; }

  private:
    char digits_[20];
    const char *end_;
};

constexpr std::size_t kStatusDigits = 8;

class Hexadecimal {
  public:
    explicit Hexadecimal(OM_uint32 value) {
        for (std::size_t i = kStatusDigits; i-- > 0; value >>= 4)
            digits_[i] = "0123456789ABCDEF"[value & 0xF];
    }
    operator std::string_view() const { return {digits_, kStatusDigits}; }

  private:
    char digits_[kStatusDigits];
};

std::string_view truth(OM_uint32 flag) {
    return flag != 0 ? "TRUE" : "FALSE";
}

void write_banner(Writer &text) {
    text.write("\nQXNEGO Negotiation Log\n\n\n"
               "Package: QuorvGSS\n"
               "Version: 16.00.00.01\n");
    char host[kHostArea];
    if (gethostname(host, sizeof host) == 0) {
        host[sizeof host - 1] = '\0'; // a name that fills the area may come without
        text.write("Run on:  ", host, '\n');
    }
    const std::time_t now = std::time(nullptr);
    char calendar[kTimeArea] = {};
    if (now != static_cast<std::time_t>(-1) && ctime_r(&now, calendar) != nullptr)
        text.write("Run at:  ", calendar, '\n');
}

// A mechanism without a registered name goes by its OID.
void write_mechanism(Writer &text, const NegLogRecord &record) {
    const MechInfo_t *mechanism = registered(record.MechIndex);
    if (mechanism != nullptr && mechanism->pszMechName != nullptr)
        return text.line("   Mechanism:        ", mechanism->pszMechName);
    qxgss_OID_desc oid = record.MechOid;
    const Heap<char> bytes(QXNEGO_INT_oid_to_string(&oid));
    text.line("   Mechanism OID:    ", bytes != nullptr ? bytes.get() : "<Unable to print OID>");
}

template <typename Enumeration>
void write_word(Writer &text, std::string_view label, std::string_view kind, Enumeration value) {
    const std::string_view name = word(value);
    if (!name.empty())
        return text.line(label, name);
    text.line(label, "Invalid ", kind, " (", Decimal(value), ')');
}

void write_gss_error(Writer &text, const NegLogRecord &record) {
    text.line("   GSS MajorStatus:  ", Hexadecimal(record.GssMajorStatus));
    text.line("   GSS MinorStatus:  ", Hexadecimal(record.GssMinorStatus));
    const qxgss_buffer_desc &status = record.GssMinorStatusText;
    if (!present(status))
        return;
    // As "%*.*s" prints it, with its length for both: no zero gets into the log, of which a reader would lose the rest.
    const auto *const begin = static_cast<const char *>(status.value);
    const std::size_t length = strnlen(begin, status.length);
    text.line("   GSS MinorStatusText:  ", Blanks{status.length - length}, std::string_view(begin, length));
}

void write_entry(Writer &text, const NegLogRecord &record) {
    write_mechanism(text, record);
    write_word(text, "   MechState:        ", "MechState", record.MechState);
    write_word(text, "   MechReason:       ", "MechReason", record.MechReason);
    if (record.MechReason == NEG_MECH_REASON_GSSAPI_ERROR)
        write_gss_error(text, record);
    text.line("   IsCtxEstablished: ", truth(record.IsCtxEstablished));
}

void write_record(Writer &text, const NegLogRecord &record, OM_uint32 number) {
    text.line("Record ", Decimal(number),
              record.IsInitiator != 0 ? ": QXNEGO_init_sec_context call " : ": QXNEGO_accept_sec_context call ",
              Decimal(record.TokenNum + 1));
    if (record.pszLogString != nullptr)
        text.line("   Text:             ", record.pszLogString);
    if (record.MechOid.elements != nullptr)
        write_entry(text, record);
    text.line("   IsPolicyApplied:  ", truth(record.IsPolicyApplied));
    write_word(text, "   NegState:         ", "NegState", record.NegState);
    write_word(text, "   NegStateFromPeer: ", "NegState", record.NegStateFromPeer);
    text.line("   Elapsed Time:     ", Decimal(record.ElapsedTime), " ms");
    text.line();
}

// One piece of at most kPieceArea - 1 characters at `at`; its length.
template <typename Write> std::size_t write_piece(char *at, Write write) {
    Writer text(at, kPieceArea - 1);
    write(text);
    return text.length();
}

// One piece in an area of its own, with a NUL behind it. The length may be unwanted.
template <typename Write>
OM_uint32 give_piece(OM_uint32 *pMinorStatus, char **piece, std::size_t *length, Write write) {
    *piece = static_cast<char *>(std::malloc(kPieceArea));
    if (*piece == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    const std::size_t written = write_piece(*piece, write);
    (*piece)[written] = '\0';
    if (length != nullptr)
        *length = written;
    return succeed(pMinorStatus);
}

std::size_t write_log(char *at, const NegLog_desc &log) {
    char *const begin = at;
    at += write_piece(at, write_banner);
    for (OM_uint32 i = 0; i < log.Count; ++i)
        at += write_piece(at, [&](Writer &text) { write_record(text, log.pRecords[i], i); });
    if (log.Count == 0) {
        Writer text(at, static_cast<std::size_t>(begin + kPieceArea - at));
        text.write("\nNo records found in Negotiation Log.\n\n");
        at += text.length();
    }
    return static_cast<std::size_t>(at - begin);
}

} // namespace
} // namespace qxnego

using namespace qxnego;

OM_uint32 QXNEGO_INT_GetNegLog(OM_uint32 *pMinorStatus, NegContext_t pNegContext, OM_uint32 /*LogLevel*/,
                               qxgss_buffer_t pNegLogBuf) {
    if (pNegLogBuf == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_NO_BUFFER);
    *pNegLogBuf = {};
    if (pNegContext == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NEG_CONTEXT);
    const NegLog_desc &log = pNegContext->NegLog;
    if (log.pRecords == nullptr)
        return report(pMinorStatus, kInaccessibleRead, QXNEGO_E_NO_LOG);
    char *text = static_cast<char *>(std::malloc((std::size_t{log.Count} + 1) * kPieceArea));
    if (text == nullptr)
        return report(pMinorStatus, GSS_S_FAILURE, QXNEGO_E_MALLOC);
    pNegLogBuf->length = write_log(text, log);
    void *shrunk = std::realloc(text, pNegLogBuf->length);
    pNegLogBuf->value = shrunk != nullptr ? shrunk : text;
    return succeed(pMinorStatus);
}

OM_uint32 QXNEGO_INT_NegLogBanner(OM_uint32 *pMinorStatus, OM_uint32 /*LogLevel*/, char **ppszLogBanner,
                                  std::size_t *pcbLogBanner) {
    if (pcbLogBanner != nullptr)
        *pcbLogBanner = 0;
    if (ppszLogBanner == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, QXNEGO_E_INVALID_INPUT);
    return give_piece(pMinorStatus, ppszLogBanner, pcbLogBanner, write_banner);
}

OM_uint32 QXNEGO_INT_FormatOneNegLogRecord(OM_uint32 *pMinorStatus, NegLogRecord_t pLogRecord, OM_uint32 RecordNum,
                                           OM_uint32 /*LogLevel*/, char **ppszLogRecord, std::size_t *pcbLogRecord) {
    if (pcbLogRecord != nullptr)
        *pcbLogRecord = 0;
    if (ppszLogRecord == nullptr)
        return succeed(pMinorStatus);
    *ppszLogRecord = nullptr;
    if (pLogRecord == nullptr)
        return succeed(pMinorStatus);
    return give_piece(pMinorStatus, ppszLogRecord, pcbLogRecord,
                      [&](Writer &text) { write_record(text, *pLogRecord, RecordNum); });
}

char *QXNEGO_INT_oid_to_string(qxgss_OID pOid) {
    if (pOid == nullptr || (pOid->elements == nullptr && pOid->length != 0))
        return nullptr;
    Heap<char[]> area = zeroed<char>(kOidArea);
    if (area == nullptr)
        return nullptr;
    Writer text(area.get(), kOidText);
    const auto *octets = static_cast<const unsigned char *>(pOid->elements);
    for (OM_uint32 i = 0; i < pOid->length && text.length() < kOidText; ++i) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        text.write(i != 0 ? "." : "", kDigits[octets[i] >> 4], kDigits[octets[i] & 0xF]);
    }
    return area.release();
}
