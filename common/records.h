// User-properties records (qxgss/qxgss_records.h) written as one block of the C heap.
#ifndef COMMON_RECORDS_H
#define COMMON_RECORDS_H

#include <cstdlib>
#include <span>
#include <string_view>

#include "common/bytes.h"
#include "qxgss/qxgss_records.h"

namespace common {

// The data of an attributes record are its flags, in the order of their fields; those left out are 0.
struct Record {
    qxgss_data_id_t id;
    std::string_view data;
    bool is_attributes() const { return id == QXGSS_DATA_ID_ATTRIBUTES; }
};

// In bytes; 0 for data that do not fit.
inline std::size_t length_of(const Record &record) {
    return record.is_attributes() ? sizeof(qxgss_data_attributes_t)
                                  : qxgss_record_length(record.id, record.data.size());
}

// Of all of them; 0 when one does not fit.
inline std::size_t length_of(std::span<const Record> records) {
    std::size_t total = 0;
    for (const Record &record : records) {
        const std::size_t length = length_of(record);
        if (length == 0)
            return 0;
        total += length;
    }
    return total;
}

// Writes a record that fits to zeroed bytes; its length.
inline std::size_t put(unsigned char *to, const Record &record) {
    const std::size_t length = length_of(record);
    const std::size_t attributes = record.data.size() > 1 ? 2 : 1;
    qxgss_put_head(to, record.id, length, record.is_attributes() ? attributes : record.data.size());
    record.data.copy(reinterpret_cast<char *>(to) + QXGSS_RECORD_DATA_OFFSET, record.data.size());
    return length;
}

// The bytes before, then the records, which fit: for the caller to release. Empty when memory is lacking.
inline qxgss_buffer_desc write_records(std::string_view before, std::span<const Record> records) {
    const std::size_t length = before.size() + length_of(records);
    auto *const bytes = static_cast<unsigned char *>(std::calloc(length, 1));
    if (bytes == nullptr)
        return {};
    before.copy(reinterpret_cast<char *>(bytes), before.size());
    unsigned char *at = bytes + before.size();
    for (const Record &record : records)
        at += put(at, record);
    return {length, bytes};
}

// Sets a flag in every attributes record of the properties; whether there was one.
inline bool mark_attributes(const qxgss_buffer_desc *pProperties, std::size_t flag, unsigned char value) {
    return !bytes_of(pProperties).empty() && qxgss_mark_attributes(static_cast<unsigned char *>(pProperties->value),
                                                                   pProperties->length, flag, value) != 0;
}

} // namespace common

#endif
