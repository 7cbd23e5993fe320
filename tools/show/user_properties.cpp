// Records are read with the bounded walk that all their readers share: what does not lie within the buffer is not read.
#include "tools/show/user_properties.h"

#include "qxgss/qxgss_records.h"
#include "tools/show/oids.h"
#include "tools/show/table.h"

namespace tools {

namespace {

constexpr char kUnknown[] = "(unknown)";

const char *name_of(std::uint16_t id) {
    switch (id) {
#define RECORD_NAME(value, constant, type, field, overhead)                                                            \
    case value:                                                                                                        \
        return #type;
        QXGSS_STRING_RECORDS(RECORD_NAME)
#undef RECORD_NAME
    case QXGSS_DATA_ID_ATTRIBUTES:
        return "attributes";
    default:
        return kUnknown;
    }
}

std::string attributes_value(ByteView record) {
    const auto flag = [&](std::size_t offset) { return record[offset] != 0 ? "yes" : "no"; };
    if (record.size() < sizeof(qxgss_data_attributes_t))
        return "(cut short) " + hex(record);
    return std::string("authorized ") + flag(offsetof(qxgss_data_attributes_t, qxgss_Authorized)) + ", authenticated " +
           flag(offsetof(qxgss_data_attributes_t, qxgss_Authenticated)) + ", policy applied " +
           flag(offsetof(qxgss_data_attributes_t, qxgss_MechPolicyApplied));
}

std::string data_value(std::uint16_t id, ByteView data) {
    switch (id) {
    case QXGSS_DATA_ID_MECHOIDDER:
        return hex(data, ".") + " (" + dotted_oid(data) + ")";
    case QXGSS_DATA_ID_QXNEGOLOG:
        return "the negotiation log, " + std::to_string(data.size()) + " bytes of text";
    default:
        return printable(as_text(data));
    }
}

// The data of a string record; null when the record is of another kind or its data length is wrong.
ByteView string_data(ByteView record, const qxat_data_header_t &header) {
    std::size_t length = 0;
    if (qxgss_record_length(header.qxgss_DataId, 0) == 0)
        return {};
    const unsigned char *data = qxgss_record_data(record.data(), &header, &length);
    return data == nullptr ? ByteView() : ByteView(data, length);
}

std::string value_of(ByteView record, const qxat_data_header_t &header, ByteView data) {
    if (header.qxgss_DataId == QXGSS_DATA_ID_ATTRIBUTES)
        return attributes_value(record);
    if (data.data() == nullptr)
        return hex(record.subspan(sizeof header));
    return data_value(header.qxgss_DataId, data);
}

} // namespace

UserProperties read_properties(ByteView buffer) {
    UserProperties out;
    qxat_data_header_t header{};
    for (; qxgss_record_at(buffer.data(), buffer.size(), out.end, &header) != 0; out.end += header.qxgss_Length) {
        const ByteView record = buffer.subspan(out.end, header.qxgss_Length);
        const ByteView data = string_data(record, header);
        if (header.qxgss_DataId == QXGSS_DATA_ID_QXNEGOLOG)
            out.log = as_text(data);
        out.records.push_back(
            {header.qxgss_DataId, header.qxgss_Length, name_of(header.qxgss_DataId), value_of(record, header, data)});
    }
    return out;
}

bool is_user_properties(ByteView buffer) {
    qxat_data_header_t header{};
    return qxgss_record_at(buffer.data(), buffer.size(), 0, &header) != 0 && name_of(header.qxgss_DataId) != kUnknown;
}

void print_properties(std::ostream &out, const UserProperties &properties) {
    Table table({"id", "name", "length", "value"});
    for (const Property &record : properties.records)
        table.add({std::to_string(record.id), record.name, std::to_string(record.length), record.value});
    table.print(out);
}

} // namespace tools
