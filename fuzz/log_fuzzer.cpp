// A saved log or user properties, any bytes: every field lies in what was given, what is shown of it is safe, and no
// markup of it comes into the page.
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

std::string page_of(const tools::SavedLog &log) {
    std::ostringstream out;
    tools::print_page(out, log, {{{"label", std::string(log.text())}}, {}});
    return out.str();
}

// What a browser takes for markup in it, in order.
std::string markup_of(std::string_view page) {
    std::string out;
    for (std::size_t at = 0; (at = page.find('<', at)) != page.npos;) {
        const std::size_t end = page.find('>', at);
        require(end != page.npos, "every tag has an end");
        out += page.substr(at, end + 1 - at);
        at = end;
    }
    return out;
}

// The log with the characters of markup and control characters in each other's place: every text of it is another text
// then, and only what came through as markup differs on the page.
void check_page(const tools::SavedLog &log) {
    constexpr std::string_view kMarkup = "<>&\"'", kControls = "\1\2\3\4\5";
    std::string other(log.text());
    for (char &c : other)
        if (const std::size_t at = kMarkup.find(c), place = kControls.find(c); at != kMarkup.npos)
            c = kControls[at];
        else if (place != kControls.npos)
            c = kMarkup[place];
    const auto own = tools::SavedLog::read(tools::as_bytes(log.text())),
               exchanged = tools::SavedLog::read(tools::as_bytes(other));
    if (!own || !exchanged)
        return;
    const std::string page = page_of(*own);
    require(markup_of(page) == markup_of(page_of(*exchanged)), "what the log holds is text on the page");
    for (const char byte : page)
        require(byte == '\n' || (static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F), "a page is plain text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::optional<tools::SavedLog> log = tools::SavedLog::read({data, size});
    if (!log)
        return 0;
    check(*log);
    check_page(*log);
    page_of(*log);
    std::ostringstream out;
    tools::print_properties(out, *log);
    tools::print_log(out, log->text());
    tools::print_last_records(out, *log);
    for (const char byte : out.str())
        require(byte == '\n' || (static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F), "it is safe to print");
    return 0;
}
