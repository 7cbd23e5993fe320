// A log is lines of a label and a value; those with other labels are passed over. A record only begins at a line with
// the next record's number, and a status text goes on to the line that follows it in every record. All that is handed
// out lies in the story's copy of the bytes.
#include "session/qxgss_story.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/bytes.h"
#include "common/status.h"
#include "gssp2qxnego/words.h"
#include "qxgss/qxgss_records.h"

struct qxgss_story_struct {
    std::string bytes;
    std::vector<qxgss_story_property_desc> properties;
    std::vector<qxgss_story_record_desc> records;
    qxgss_story_facts_desc facts;
};

namespace {

using common::bytes_of;
using common::report;
using Property = qxgss_story_property_desc;
using Record = qxgss_story_record_desc;

constexpr std::string_view kTitle = "\nQXNEGO Negotiation Log\n";

// ---- User properties -----------------------------------------------------------------------------------------------

const char *name_of(OM_uint32 id) {
    switch (id) {
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

// The data of a string record; null when the record is of another kind or its data length is wrong.
std::string_view data_of(std::string_view record, const qxat_data_header_t &header) {
    std::size_t length = 0;
    if (qxgss_record_length(header.qxgss_DataId, 0) == 0)
        return {};
    const auto *begin = reinterpret_cast<const unsigned char *>(record.data());
    const auto *data = reinterpret_cast<const char *>(qxgss_record_data(begin, &header, &length));
    return data == nullptr ? std::string_view() : std::string_view(data, length);
}

// Reads up to what is no whole record; nothing when the first is of no known kind.
void read_properties(qxgss_story_struct &story) {
    const auto *begin = reinterpret_cast<const unsigned char *>(story.bytes.data());
    std::size_t &at = story.facts.Read;
    qxat_data_header_t header{};
    for (; qxgss_record_at(begin, story.bytes.size(), at, &header) != 0; at += header.qxgss_Length) {
        const char *const name = name_of(header.qxgss_DataId);
        if (at == 0 && name == nullptr)
            return;
        const std::string_view record = std::string_view(story.bytes).substr(at, header.qxgss_Length);
        const Property property = {header.qxgss_DataId, name, common::view(record),
                                   common::view(data_of(record, header))};
        story.properties.push_back(property);
        if (header.qxgss_DataId == QXGSS_DATA_ID_QXNEGOLOG)
            story.facts.Log = property.Data;
    }
}

// ---- The log -------------------------------------------------------------------------------------------------------

std::string_view trimmed(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

std::string_view take_line(std::string_view &text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

// The number at the beginning; 0 without one.
template <typename Number> Number number_of(std::string_view text, int base = 10) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

template <const auto &Words> void read_word(std::string_view text, OM_uint32 &out) {
    const auto place = std::ranges::find(Words, text);
    out = place == Words.end() ? 0 : static_cast<OM_uint32>(place - Words.begin());
}

template <auto Member> void read_text(std::string_view text, Record &record) {
    record.*Member = common::view(text);
}
template <const auto &Words, auto Member> void read_word(std::string_view text, Record &record) {
    read_word<Words>(text, record.*Member);
}
template <auto Member> void read_status(std::string_view text, Record &record) {
    record.*Member = number_of<OM_uint32>(text, 16);
}
template <auto Member> void read_truth(std::string_view text, Record &record) {
    record.*Member = text == "TRUE";
}

void read_event(std::string_view text, Record &record) {
    record.Text = common::view(text);
    record.IsPeerView = text.starts_with("QXNEGO_INT_ProcessNegMech: Peer report") ? 1 : 0;
}

void read_time(std::string_view text, Record &record) {
    record.ElapsedTime = number_of<OM_uint64>(text);
}

struct Field {
    std::string_view label;
    void (*read)(std::string_view, Record &);
};

constexpr Field kStatusText = {"   GSS MinorStatusText: ", read_text<&Record::StatusText>};
constexpr Field kAfterStatusText = {"   IsCtxEstablished: ", read_truth<&Record::IsEstablished>};
constexpr Field kFields[] = {
    {"   Text: ", read_event},
    {"   Mechanism: ", read_text<&Record::Mech>},
    {"   Mechanism OID: ", read_text<&Record::MechOid>},
    {"   MechState: ", read_word<qxnego::kMechStateWords, &Record::State>},
    {"   MechReason: ", read_word<qxnego::kMechReasonWords, &Record::Reason>},
    {"   GSS MajorStatus: ", read_status<&Record::MajorStatus>},
    {"   GSS MinorStatus: ", read_status<&Record::MinorStatus>},
    kStatusText,
    kAfterStatusText,
    {"   IsPolicyApplied: ", read_truth<&Record::IsPolicyApplied>},
    {"   NegState: ", read_word<qxnego::kNegStateWords, &Record::NegState>},
    {"   NegStateFromPeer: ", read_word<qxnego::kNegStateWords, &Record::NegStateFromPeer>},
    {"   Elapsed Time: ", read_time},
};

class LogReader {
  public:
    explicit LogReader(std::vector<Record> &records) : records_(records) {}

    void read_line(std::string_view line) {
        const std::string head = "Record " + std::to_string(records_.size()) + ": ";
        if (line.starts_with(head))
            begin_record(line.substr(head.size()));
        else if (records_.empty())
            return; // the banner
        else if (!is_in_status_text_ || line.starts_with(kAfterStatusText.label))
            read_field(line, records_.back());
        else
            continue_status_text(line);
    }

  private:
    void begin_record(std::string_view call) {
        Record &record = records_.emplace_back();
        record.IsInitiator = call.starts_with("QXNEGO_init_") ? 1 : 0;
        record.Call = number_of<OM_uint32>(call.substr(call.rfind(' ') + 1));
        is_in_status_text_ = false;
    }

    void read_field(std::string_view line, Record &record) {
        const auto field = std::ranges::find_if(kFields, [&](const Field &f) { return line.starts_with(f.label); });
        is_in_status_text_ = field != std::end(kFields) && field->label == kStatusText.label;
        if (field != std::end(kFields))
            field->read(trimmed(line.substr(field->label.size())), record);
    }

    void continue_status_text(std::string_view line) {
        qxgss_buffer_desc &text = records_.back().StatusText;
        text.length = static_cast<std::size_t>(line.data() + line.size() - static_cast<const char *>(text.value));
    }

    std::vector<Record> &records_;
    bool is_in_status_text_ = false;
};

void read_log(qxgss_story_struct &story) {
    LogReader reader(story.records);
    for (std::string_view rest = bytes_of(&story.facts.Log); !rest.empty();)
        reader.read_line(take_line(rest));
}

// ---- The calls -----------------------------------------------------------------------------------------------------

// Whether it begins as one of the two.
bool read(qxgss_story_struct &story) {
    if (story.bytes.starts_with(kTitle)) {
        story.facts.Log = common::view(story.bytes);
        story.facts.Read = story.bytes.size();
    } else {
        read_properties(story);
    }
    read_log(story);
    story.facts.PropertyCount = static_cast<OM_uint32>(story.properties.size());
    story.facts.RecordCount = static_cast<OM_uint32>(story.records.size());
    return story.facts.Read != 0;
}

template <typename Items, typename Item>
OM_uint32 give(OM_uint32 *pMinorStatus, qxgss_story_t pStory, Items qxgss_story_struct::*items, OM_uint32 number,
               Item *out) {
    if (pStory == nullptr)
        return report(pMinorStatus, common::kInaccessibleRead, GSSP_E_INVALID_ARGUMENT);
    if (out == nullptr)
        return report(pMinorStatus, common::kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *out = {};
    if (number >= (pStory->*items).size())
        return report(pMinorStatus, GSS_S_UNAVAILABLE, GSSP_E_NO_MECH_INDEX);
    *out = (pStory->*items)[number];
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}

} // namespace

OM_uint32 qxgss_story_read(OM_uint32 *pMinorStatus, const qxgss_buffer_desc *pBytes, qxgss_story_t *ppStory) {
    if (ppStory == nullptr)
        return report(pMinorStatus, common::kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *ppStory = nullptr;
    if (pBytes == nullptr || (pBytes->value == nullptr && pBytes->length != 0))
        return report(pMinorStatus, common::kInaccessibleRead, GSSP_E_INVALID_ARGUMENT);
    try {
        auto story = std::make_unique<qxgss_story_struct>();
        story->bytes = bytes_of(pBytes);
        if (!read(*story))
            return report(pMinorStatus, GSS_S_DEFECTIVE_TOKEN, GSSP_E_INVALID_ARGUMENT);
        *ppStory = story.release();
        return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
    } catch (...) {
        return report(pMinorStatus, GSS_S_FAILURE, GSSP_E_NO_MEMORY);
    }
}

OM_uint32 qxgss_story_inquire(OM_uint32 *pMinorStatus, qxgss_story_t pStory, qxgss_story_facts_desc *pFacts) {
    if (pStory == nullptr)
        return report(pMinorStatus, common::kInaccessibleRead, GSSP_E_INVALID_ARGUMENT);
    if (pFacts == nullptr)
        return report(pMinorStatus, common::kInaccessibleWrite, GSSP_E_INVALID_ARGUMENT);
    *pFacts = pStory->facts;
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}

OM_uint32 qxgss_story_inquire_property(OM_uint32 *pMinorStatus, qxgss_story_t pStory, OM_uint32 Number,
                                       qxgss_story_property_desc *pProperty) {
    return give(pMinorStatus, pStory, &qxgss_story_struct::properties, Number, pProperty);
}

OM_uint32 qxgss_story_inquire_record(OM_uint32 *pMinorStatus, qxgss_story_t pStory, OM_uint32 Number,
                                     qxgss_story_record_desc *pRecord) {
    return give(pMinorStatus, pStory, &qxgss_story_struct::records, Number, pRecord);
}

OM_uint32 qxgss_story_delete(OM_uint32 *pMinorStatus, qxgss_story_t *ppStory) {
    if (ppStory != nullptr)
        delete std::exchange(*ppStory, nullptr);
    return report(pMinorStatus, GSS_S_COMPLETE, GSSP_E_SUCCESS);
}
