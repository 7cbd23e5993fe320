#include "tools/show/user_properties.h"

#include "qxgss/qxgss_records.h"
#include "tools/show/oids.h"
#include "tools/show/table.h"

namespace tools {

namespace {

std::string attributes_value(ByteView record) {
    const auto flag = [&](std::size_t offset) { return record[offset] != 0 ? "yes" : "no"; };
    if (record.size() < sizeof(qxgss_data_attributes_t))
        return "(cut short) " + hex(record);
    return std::string("authorized ") + flag(offsetof(qxgss_data_attributes_t, qxgss_Authorized)) + ", authenticated " +
           flag(offsetof(qxgss_data_attributes_t, qxgss_Authenticated)) + ", policy applied " +
           flag(offsetof(qxgss_data_attributes_t, qxgss_MechPolicyApplied));
}

} // namespace

std::string name_of(const Property &property) {
    return property.pszName == nullptr ? "(unknown)" : property.pszName;
}

std::string value_of(const Property &property) {
    const ByteView record = as_bytes(common::bytes_of(&property.Record));
    const std::string_view data = common::bytes_of(&property.Data);
    if (property.Id == QXGSS_DATA_ID_ATTRIBUTES)
        return attributes_value(record);
    if (data.data() == nullptr)
        return hex(record.subspan(sizeof(qxat_data_header_t)));
    if (property.Id == QXGSS_DATA_ID_MECHOIDDER)
        return hex(as_bytes(data), ".") + " (" + dotted_oid(as_bytes(data)) + ")";
    if (property.Id == QXGSS_DATA_ID_QXNEGOLOG)
        return "the negotiation log, " + std::to_string(data.size()) + " bytes of text";
    return printable(data);
}

void print_properties(std::ostream &out, const SavedLog &log) {
    Table table({"id", "name", "length", "value"});
    for (const Property &property : log.properties())
        table.add({std::to_string(property.Id), name_of(property), std::to_string(property.Record.length),
                   value_of(property)});
    table.print(out);
}

} // namespace tools
