// A saved log or user properties, any bytes: every field lies in what was given, and what is shown of it is safe.
#include <functional>
#include <sstream>

#include "fuzz/input.h"
#include "tools/show/log.h"
#include "tools/show/user_properties.h"

using fuzz::require;

namespace {

void require_within(const qxgss_buffer_desc &part, std::string_view whole) {
    const std::string_view bytes = common::bytes_of(&part);
    const std::less_equal<> is_before;
    require(bytes.empty() || (is_before(whole.data(), bytes.data()) &&
                              is_before(bytes.data() + bytes.size(), whole.data() + whole.size())),
            "a field lies in the log");
}

void check(const tools::SavedLog &log) {
    for (const tools::LogRecord &record : log.records()) {
        for (const qxgss_buffer_desc &field : {record.Event, record.MechName, record.StatusText})
            require_within(field, log.text());
        require(record.MechOid.length <= log.text().size() && record.MechState < 4 && record.MechReason < 10 &&
                    record.NegState < 5 && record.NegStateFromPeer < 5,
                "a number is one that there is");
    }
    for (const tools::Property &property : log.properties())
        require_within(property.Data, common::bytes_of(&property.Record));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::optional<tools::SavedLog> log = tools::SavedLog::read({data, size});
    if (!log)
        return 0;
    check(*log);
    std::ostringstream out;
    tools::print_properties(out, *log);
    tools::print_log(out, log->text());
    tools::print_last_records(out, *log);
    for (const char byte : out.str())
        require(byte == '\n' || (static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F), "it is safe to print");
    return 0;
}
