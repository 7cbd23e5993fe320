// A log is lines of a label and a value; the labels that are not listed here are passed over. A record only begins at a
// line with the next record number, and a status text goes on to the line that follows it in every record. What is kept
// is the bytes and where each record begins: a record is read when it is asked for.
#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "common/status.h"
#include "gssp2qxnego/words.h"
#include "qxgss/qxgss_records.h"
#include "session/qxgss_log.h"

namespace {

using common::kInaccessibleRead;
using common::kInaccessibleWrite;
using common::report;

constexpr std::string_view kTitle = "\nQXNEGO Negotiation Log\n";
constexpr std::string_view kStatusTextLabel = "   GSS MinorStatusText:  ";
constexpr std::string_view kAfterStatusText = "   IsCtxEstablished: ";
constexpr std::string_view kPeerView = "QXNEGO_INT_ProcessNegMech: Peer report";

std::string_view take_line(std::string_view &text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

std::string record_head(std::size_t number) {
    return "Record " + std::to_string(number) + ": ";
}

// What stands at the start of the text in digits of that base; 0 without any.
template <typename Number = OM_uint32> Number number_in(std::string_view text, int base = 10) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

template <std::size_t N> OM_uint32 place_of(const std::array<std::string_view, N> &words, std::string_view word) {
    for (OM_uint32 i = 0; i != N; ++i)
        if (words[i] == word)
            return i;
    return 0;
}

// ---- The fields of a record ----------------------------------------------------------------------------------------

using Record = qxgss_log_record_desc;

struct Field {
    std::string_view label;
    void (*set)(Record &record, std::string_view value);
};

constexpr Field kFields[] = {
    {"   Text:             ",
     [](Record &record, std::string_view value) {
         record.Event = common::view(value);
         record.IsPeerView = value.starts_with(kPeerView);
     }},
    {"   Mechanism:        ", [](Record &record, std::string_view value) { record.MechName = common::view(value); }},
    {"   MechState:        ",
     [](Record &record, std::string_view value) { record.MechState = place_of(qxnego::kMechStateWords, value); }},
    {"   MechReason:       ",
     [](Record &record, std::string_view value) { record.MechReason = place_of(qxnego::kMechReasonWords, value); }},
    {"   GSS MajorStatus:  ",
     [](Record &record, std::string_view value) { record.MajorStatus = number_in(value, 16); }},
    {"   GSS MinorStatus:  ",
     [](Record &record, std::string_view value) { record.MinorStatus = number_in(value, 16); }},
    {kStatusTextLabel, [](Record &record, std::string_view value) { record.StatusText = common::view(value); }},
    {kAfterStatusText, [](Record &record, std::string_view value) { record.IsCtxEstablished = value == "TRUE"; }},
    {"   IsPolicyApplied:  ", [](Record &record, std::string_view value) { record.IsPolicyApplied = value == "TRUE"; }},
    {"   NegState:         ",
     [](Record &record, std::string_view value) { record.NegState = place_of(qxnego::kNegStateWords, value); }},
    {"   NegStateFromPeer: ",
     [](Record &record, std::string_view value) { record.NegStateFromPeer = place_of(qxnego::kNegStateWords, value); }},
    {"   Elapsed Time:     ",
     [](Record &record, std::string_view value) { record.ElapsedTime = number_in<OM_uint64>(value); }},
};
constexpr std::string_view kOidLabel = "   Mechanism OID:    ";

void read_head(std::string_view line, Record &record) {
    constexpr std::string_view kCall = " call ";
    record.IsInitiator = line.find("QXNEGO_init_sec_context") != line.npos;
    const std::size_t at = line.find(kCall);
    record.Call = at == line.npos ? 0 : number_in(line.substr(at + kCall.size()));
}

// The octets of "2b.06.01"; none for another text.
std::string octets_of(std::string_view text) {
    std::string octets;
    for (; text.size() >= 2; text.remove_prefix(std::min<std::size_t>(3, text.size()))) {
        unsigned char octet = 0;
        if (std::from_chars(text.data(), text.data() + 2, octet, 16).ptr != text.data() + 2)
            return "";
        octets += static_cast<char>(octet);
    }
    return text.empty() ? octets : "";
}

} // namespace

struct qxgss_log_struct {
    explicit qxgss_log_struct(std::string_view bytes) : bytes_(bytes) {
        if (bytes_.starts_with(kTitle))
            text_ = bytes_;
        else
            read_properties();
        find_records();
    }

    // No token begins as either does.
    bool is_known() const { return properties_.empty() ? !text_.empty() : name_of(0) != nullptr; }

    qxgss_log_facts_desc facts() const;
    bool read(std::size_t number, Record &record);
    bool read(std::size_t number, qxgss_log_property_desc &property) const;

  private:
    const unsigned char *octets() const { return reinterpret_cast<const unsigned char *>(bytes_.data()); }
    const char *name_of(std::size_t number) const;
    void read_properties();
    void find_records();
    void read_field(std::string_view line, std::size_t number, Record &record);

    std::string bytes_;
    std::vector<std::size_t> properties_; // where each begins
    std::size_t end_ = 0;                 // of the last one
    std::string_view text_;
    std::vector<std::size_t> records_; // where each begins in the text
    std::map<std::size_t, std::string> oids_;
};

void qxgss_log_struct::read_properties() {
    qxat_data_header_t header{};
    for (; qxgss_record_at(octets(), bytes_.size(), end_, &header) != 0; end_ += header.qxgss_Length) {
        properties_.push_back(end_);
        std::size_t length = 0;
        const unsigned char *const data = qxgss_record_data(octets() + end_, &header, &length);
        if (header.qxgss_DataId == QXGSS_DATA_ID_QXNEGOLOG && data != nullptr)
            text_ = {reinterpret_cast<const char *>(data), length};
    }
}

const char *qxgss_log_struct::name_of(std::size_t number) const {
    switch (qxgss_get16(octets() + properties_[number])) {
#define RECORD_NAME(value, constant, type, field, overhead)                                                            \
    case value:                                                                                                        \
        return #type;
        QXGSS_STRING_RECORDS(RECORD_NAME)
#undef RECORD_NAME
    case QXGSS_DATA_ID_ATTRIBUTES:
        return "attributes";
    default:
        return nullptr;
    }
}

void qxgss_log_struct::find_records() {
    std::string head = record_head(0);
    for (std::string_view rest = text_; !rest.empty();) {
        const std::size_t at = text_.size() - rest.size();
        if (!take_line(rest).starts_with(head))
            continue;
        records_.push_back(at);
        head = record_head(records_.size());
    }
}

qxgss_log_facts_desc qxgss_log_struct::facts() const {
    qxgss_log_facts_desc facts{};
    facts.RecordCount = static_cast<OM_uint32>(records_.size());
    facts.PropertyCount = static_cast<OM_uint32>(properties_.size());
    facts.PropertyEnd = end_;
    facts.Text = common::view(text_);
    std::string_view banner = text_.substr(0, records_.empty() ? text_.size() : records_.front());
    while (!banner.empty()) {
        const std::string_view line = take_line(banner);
        if (line.starts_with("Run on:  "))
            facts.Host = common::view(line.substr(9));
        if (line.starts_with("Run at:  "))
            facts.Time = common::view(line.substr(9));
    }
    return facts;
}

void qxgss_log_struct::read_field(std::string_view line, std::size_t number, Record &record) {
    if (line.starts_with(kOidLabel)) {
        const std::string &oid = oids_[number] = octets_of(line.substr(kOidLabel.size()));
        record.MechOid = {static_cast<OM_uint32>(oid.size()), const_cast<char *>(oid.data())};
    }
    for (const Field &field : kFields)
        if (line.starts_with(field.label))
            return field.set(record, line.substr(field.label.size()));
}

bool qxgss_log_struct::read(std::size_t number, Record &record) {
    if (number >= records_.size())
        return false;
    const std::size_t end = number + 1 == records_.size() ? text_.size() : records_[number + 1];
    std::string_view rest = text_.substr(records_[number], end - records_[number]);
    read_head(take_line(rest), record);
    bool is_in_status_text = false;
    while (!rest.empty()) {
        const std::string_view line = take_line(rest);
        if (is_in_status_text && !line.starts_with(kAfterStatusText)) {
            const char *const begin = static_cast<const char *>(record.StatusText.value);
            record.StatusText.length = static_cast<std::size_t>(line.data() + line.size() - begin);
            continue;
        }
        is_in_status_text = line.starts_with(kStatusTextLabel);
        read_field(line, number, record);
    }
    return true;
}

bool qxgss_log_struct::read(std::size_t number, qxgss_log_property_desc &property) const {
    if (number >= properties_.size())
        return false;
    const unsigned char *const record = octets() + properties_[number];
    qxat_data_header_t header{};
    qxgss_record_at(octets(), bytes_.size(), properties_[number], &header);
    property = {header.qxgss_DataId, name_of(number), {header.qxgss_Length, const_cast<unsigned char *>(record)}, {}};
    if (qxgss_record_length(header.qxgss_DataId, 0) == 0)
        return true;
    std::size_t length = 0;
    const unsigned char *const data = qxgss_record_data(record, &header, &length);
    property.Data = {data != nullptr ? length : 0, const_cast<unsigned char *>(data)};
    return true;
}

namespace {

template <typename Description>
OM_uint32 inquire(OM_uint32 *pMinorStatus, qxgss_log_t pLog, OM_uint32 Number, Description *pDescription) {
    if (pLog == nullptr)
        return report(pMinorStatus, kInaccessibleRead, GSSP_E_INVALID_ARGUMENT);
    if (pDescription == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *pDescription = {};
    try {
        if (pLog->read(Number, *pDescription))
            return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
        return report(pMinorStatus, GSS_S_UNAVAILABLE, GSSP_E_NO_MECH_INDEX);
    } catch (...) {
        *pDescription = {};
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_NO_MEMORY);
    }
}

} // namespace

OM_uint32 qxgss_log_open(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pData, qxgss_log_t *ppLog) {
    if (ppLog == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *ppLog = nullptr;
    if (pData == nullptr)
        return report(pMinorStatus, kInaccessibleRead, GSSP_E_INVALID_ARGUMENT);
    try {
        auto log = std::make_unique<qxgss_log_struct>(common::bytes_of(pData));
        if (!log->is_known())
            return report(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, GSSP_E_INVALID_ARGUMENT);
        *ppLog = log.release();
        return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
    } catch (...) {
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_NO_MEMORY);
    }
}

OM_uint32 qxgss_log_inquire(OM_uint32 *pMinorStatus, qxgss_log_t pLog, qxgss_log_facts_desc *pFacts) {
    if (pLog == nullptr || pFacts == nullptr)
        return report(pMinorStatus, pLog == nullptr ? kInaccessibleRead : kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *pFacts = pLog->facts();
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}

OM_uint32 qxgss_log_inquire_record(OM_uint32 *pMinorStatus, qxgss_log_t pLog, OM_uint32 Number,
                                   qxgss_log_record_desc *pRecord) {
    return inquire(pMinorStatus, pLog, Number, pRecord);
}

OM_uint32 qxgss_log_inquire_property(OM_uint32 *pMinorStatus, qxgss_log_t pLog, OM_uint32 Number,
                                     qxgss_log_property_desc *pProperty) {
    return inquire(pMinorStatus, pLog, Number, pProperty);
}

OM_uint32 qxgss_log_delete(OM_uint32 *pMinorStatus, qxgss_log_t *ppLog) {
    if (ppLog == nullptr)
        return report(pMinorStatus, kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    delete std::exchange(*ppLog, nullptr);
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}
