#include "tools/show/user_properties.h"

#include "qxgss/qxgss_records.h"
#include "tools/show/oids.h"
#include "tools/show/saved_story.h"
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

std::string data_value(OM_uint32 id, ByteView data) {
    switch (id) {
    case QXGSS_DATA_ID_MECHOIDDER:
        return hex(data, ".") + " (" + dotted_oid(data) + ")";
    case QXGSS_DATA_ID_QXNEGOLOG:
        return "the negotiation log, " + std::to_string(data.size()) + " bytes of text";
    default:
        return printable(as_text(data));
    }
}

std::string value_of(const qxgss_story_property_desc &property) {
    const ByteView record = as_bytes(common::bytes_of(&property.Record));
    if (property.Id == QXGSS_DATA_ID_ATTRIBUTES)
        return attributes_value(record);
    if (property.Data.value == nullptr)
        return hex(record.subspan(sizeof(qxat_data_header_t)));
    return data_value(property.Id, as_bytes(common::bytes_of(&property.Data)));
}

} // namespace

UserProperties read_properties(ByteView buffer) {
    const SavedStory story(buffer);
    UserProperties out;
    for (const qxgss_story_property_desc &property : story.properties())
        out.records.push_back({property.Id, property.Record.length,
                               property.pszName != nullptr ? property.pszName : "(unknown)", value_of(property)});
    if (!out.records.empty()) {
        out.log = story.log();
        out.end = story.end();
    }
    return out;
}

void print_properties(std::ostream &out, const UserProperties &properties) {
    Table table({"id", "name", "length", "value"});
    for (const Property &record : properties.records)
        table.add({std::to_string(record.id), record.name, std::to_string(record.length), record.value});
    table.print(out);
}

} // namespace tools
