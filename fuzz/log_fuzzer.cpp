// A saved log or user properties, any bytes: every field lies in what was given, what is shown of it is safe, and the
// markup of its page is the page's own.
#include <functional>
#include <sstream>

#include "fuzz/input.h"
#include "tools/show/log.h"
#include "tools/show/page.h"
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

// The page's markup without the text between; every character that could be markup and is not stands escaped.
std::string markup_of(std::string_view page) {
    page.remove_prefix(page.find("</style>"));
    std::string out;
    for (std::size_t at = 0; (at = page.find_first_of("<&\"'", at)) != page.npos; ++at) {
        const bool is_tag = page[at] == '<';
        const std::size_t end = page.find(is_tag ? '>' : ';', at);
        require(end != page.npos && (is_tag || (page[at] == '&' && end - at < 8)), "what is no markup is escaped");
        if (is_tag)
            out += page.substr(at, end - at + 1);
        at = end;
    }
    return out;
}

std::string page_of(const std::string &log) {
    const std::optional<tools::SavedLog> read = tools::SavedLog::read(tools::as_bytes(log));
    return tools::page_of(read ? &*read : nullptr, {log});
}

// The page's markup is the same when characters of markup and control characters stand in each other's place in the
// log, which keeps its texts as different as they were.
void make_page(std::string log) {
    const std::string made = page_of(log);
    require(made.size() <= tools::kMostOfPage, "a page has a limit");
    for (const char byte : made)
        require(byte == '\n' || static_cast<unsigned char>(byte) >= 0x20, "a page has no control characters");
    constexpr std::string_view kExchanged = "<>&\"'\5\4\3\2\1"; // each with the one as far from the other end
    for (char &byte : log)
        if (const std::size_t at = kExchanged.find(byte); at != kExchanged.npos)
            byte = kExchanged[kExchanged.size() - 1 - at];
    require(markup_of(made) == markup_of(page_of(log)), "markup is the page's own");
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
    if (log->properties().empty())
        make_page(std::string(log->text()));
    return 0;
}
